// SPDX-License-Identifier: Apache-2.0
// Tuning files of the shipped set managers' module instances, written from text descriptions,
// and a TuningSetManager that keeps the live tuning server off.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/modeunion.h"
#include "tools/writer/tuningdescription.h"

#include "paramgen/TuningSetManager.h"
#include "paramgen/TuningSetManager.writer.h"
#include "paramgen/fdSetManager.writer.h"

namespace ManagerTest {

/// The bytes of the file that text describes (see TuningDescription), with instances of
/// TuningSetManager and fdSetManager. A description the parser refuses fails the test.
inline std::vector<uint8_t> Pack(std::string const& text)
{
    TuningWriter::TuningDescription description(
        {&ParamSchema::TuningSetManager::Instances(), &ParamSchema::fdSetManager::Instances()});
    if (!description.Parse(text)) {
        ADD_FAILURE() << "description refused: " << description.Error();
        return {};
    }
    return description.MakeWriter().Build();
}

/// A TuningSetManager for tests: a successful load must not start the live tuning server.
class QuietTuningSetManager : public TuningSetManager
{
public:
    QuietTuningSetManager() : TuningSetManager("test") { m_knobbyEnabled = false; }
};

/// One step of a mode branch.
inline TuningMode Step(uint32_t mode, uint16_t subMode = 0)
{
    return TuningMode{mode, subMode, 0};
}

} // namespace ManagerTest
