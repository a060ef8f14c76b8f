// SPDX-License-Identifier: Apache-2.0
// Module instances in the text form of a tuning file: what the description refuses, and values
// that reach the manager's modules as written.
#include "tools/writer/tuningdescription.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "paramgen/TuningSetManager.writer.h"
#include "paramgen/fdSetManager.writer.h"
#include "tests/parametermodules/managerfixture.h"

namespace {

using TuningWriter::TuningDescription;

constexpr char Head[] = "version 7.0.0\nmodetable rear\n";

TuningDescription Described()
{
    return TuningDescription(
        {&ParamSchema::TuningSetManager::Instances(), &ParamSchema::fdSetManager::Instances()});
}

TEST(TuningDescriptionInstanceTest, RefusesWhatCannotBeWrittenWithTheLineNumber)
{
    std::string indices301;
    for (int i = 0; i < 301; ++i)
        indices301 += (i > 0 ? "," : "") + std::to_string(i);
    struct Case
    {
        std::string body;
        std::string error;
    };
    Case const cases[] = {
        {"instance nobody T2TCtrlType mode Default\n",
         "line 3: no set manager lists a module instance 'nobody'"},
        {"instance t2tconfigdata FLIndicesType mode Default\n",
         "line 3: instance 't2tconfigdata' is of type vornt2tconfig::T2TCtrlType, not "
         "FLIndicesType"},
        {"instance t2tconfigdata T2TCtrlType mode Default|Bogus.1\n",
         "line 3: bad mode path 'Default|Bogus.1'"},
        {"instance t2tconfigdata T2TCtrlType Default\n",
         "line 3: expected: instance NAME TYPE mode STEP|STEP..."},
        {"value operationMode 1\n", "line 3: value outside an instance"},
        {"instance t2tconfigdata T2TCtrlType mode Default\nvalue nothing 1\n",
         "line 4: no member 'nothing' in T2TCtrlType"},
        {"instance t2tconfigdata T2TCtrlType mode Default\nvalue module_version 1\n",
         "line 4: 'module_version' is a structure: give its members"},
        {"instance t2tconfigdata T2TCtrlType mode Default\nvalue operationMode.x 1\n",
         "line 4: 'operationMode' is not a single structure"},
        {"instance t2tconfigdata T2TCtrlType mode Default\nvalue downscaleRatio half\n",
         "line 4: value of 'downscaleRatio': 'half' is not a number (Float)"},
        {"instance flIndices FLIndicesType mode Default\nvalue indices " + indices301 + "\n",
         "line 4: value of 'indices': 301 elements where at most 300 fit"},
        // Values are checked against the member's type, never wrapped or clamped.
        {"instance t2tconfigdata T2TCtrlType mode Default\nvalue operationMode -1\n",
         "line 4: value of 'operationMode': '-1' is outside UInt32 (0 to 4294967295)"},
        {"instance t2tconfigdata T2TCtrlType mode Default\nvalue operationMode 4294967296\n",
         "line 4: value of 'operationMode': '4294967296' is outside UInt32 (0 to 4294967295)"},
        {"instance t2tconfigdata T2TCtrlType mode Default\nvalue operationMode 1.7\n",
         "line 4: value of 'operationMode': '1.7' is not an integer (UInt32)"},
        {"instance t2tconfigdata T2TCtrlType mode Default\nvalue downscaleRatio 1e39\n",
         "line 4: value of 'downscaleRatio': '1e39' is outside Float (-3.40282347e+38 to "
         "3.40282347e+38)"},
        {"instance t2tconfigdata T2TCtrlType mode Default\nvalue downscaleRatio nan\n",
         "line 4: value of 'downscaleRatio': 'nan' is not a finite number (Float)"},
        {"instance t2tconfigdata T2TCtrlType mode Default\n"
         "instance t2tconfigdata T2TCtrlType mode Default\n",
         "line 4: instance 't2tconfigdata' is given twice in mode Default"},
        {"instance t2tconfigdata T2TCtrlType mode Default\nstructure 1 Other\n",
         "line 4: instances take their structures from their schema: a description with "
         "instances has no structure or module lines"},
        {"structure 1 Other\ninstance t2tconfigdata T2TCtrlType mode Default\n",
         "line 4: instances take their structures from their schema: a description with "
         "instances has no structure or module lines"},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(test.body);
        TuningDescription description = Described();
        EXPECT_FALSE(description.Parse(Head + test.body));
        EXPECT_EQ(description.Error(), test.error);
    }

    TuningDescription noTable = Described();
    EXPECT_FALSE(noTable.Parse("instance t2tconfigdata T2TCtrlType mode Default\n"));
    EXPECT_EQ(noTable.Error(), "line 1: instance before any modetable");
}

TEST(TuningDescriptionInstanceTest, ValuesReachTheModulesAsWritten)
{
    std::vector<uint8_t> bytes = ManagerTest::Pack(std::string(Head) + R"(
instance varitonalTOF aftofelements::varitonalTOFType mode Default|Sensor.2
  value parameter_version.revision   two words  # comments end the text
  value outdoorLuxIdx                -12
  value sensitivity                  0.125
  value SceneChange.distance_region  7,8,9
)");
    ManagerTest::QuietTuningSetManager manager;
    ASSERT_TRUE(manager.LoadBinaryParameters(bytes.data(), bytes.size()))
        << manager.GetErrorString();
    char result[512];
    ASSERT_TRUE(manager.GetValue(0, "0.0|1.2", "varitonalTOF",
                                 "parameter_version.revision,outdoorLuxIdx,sensitivity,"
                                 "SceneChange.distance_region,SceneChange.lowlight_cnt",
                                 result, sizeof(result)));
    EXPECT_STREQ(result, "parameter_version.revision=two words;outdoorLuxIdx=-12;"
                         "sensitivity=0.125;SceneChange.distance_region=7,8,9;"
                         "SceneChange.lowlight_cnt=0");
}

} // namespace
