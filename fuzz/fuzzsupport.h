// SPDX-License-Identifier: Apache-2.0
// What the fuzz targets share: a log that formats every line and prints none, and a manager that
// reads every table of a file but knows no module kind.
#pragma once

#include <cstdint>

#include "platform/vornlog.h"

#include "parameterparser/parametersetmanager.h"

namespace FuzzSupport {

// Every line is still formatted, so format faults show; printing them would only slow the run.
inline void DropLine(uint32_t, char, uint32_t, char const*, void*)
{
}

inline void SilenceLog()
{
    Vorn::Log::SetSink(DropLine, nullptr);
}

/// Every table is read; module records end in the registry lookup, which finds nothing.
class FuzzSetManager final : public ParameterSetManager
{
public:
    FuzzSetManager() : ParameterSetManager(nullptr, 0, "fuzz", false) {}
    DefaultModule* GetDefaultModule(unsigned long) override { return nullptr; }
    void SaveAndClearModules() override {}
};

} // namespace FuzzSupport
