// SPDX-License-Identifier: Apache-2.0
// What the fuzz targets share: a log that formats every line and prints none, set at start-up,
// the abort that reports a broken invariant, and a manager that reads every table of a file but
// knows no module kind.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

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

/// Set before the fuzzer's own start-up, so that no target logs its first input either.
inline bool const g_silenced = (SilenceLog(), true);

/// Aborts, naming the broken invariant and the text it broke on, unless holds.
inline void Require(bool holds, char const* what, std::string const& text = "")
{
    if (holds)
        return;
    std::fprintf(stderr, "broken: %s (\"%s\")\n", what, text.c_str());
    std::abort();
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
