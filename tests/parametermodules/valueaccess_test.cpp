// SPDX-License-Identifier: Apache-2.0
// Values by mode path and variable name through a set manager: whole structures, sub-variable
// lists, the element cut of structure reads, changes and the pinning of the mode that owns them.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/modeentry.h"
#include "parameterparser/parametermodetable.h"
#include "parameterparser/parametermodule.h"
#include "parameterparser/parameterparserinfo.h"
#include "parameterparser/parametervaluepath.h"

#include "paramgen/vornt2tconfig.h"
#include "tests/common/logcapture.h"
#include "tests/common/tempfile.h"
#include "tests/parametermodules/managerfixture.h"

namespace {

using ManagerTest::Step;

// What a structure read gives one element: 64 characters; and one more.
std::string const Text64 = "schema-0123456789-0123456789-0123456789-0123456789-0123456789-ab";
std::string const LongText = Text64 + "c";

std::string Description()
{
    return R"(
version 7.0.0
modetable rear
  path Default|Sensor.0|Usecase.Preview|Feature1.ISPHDR
  path Default|Sensor.1|Usecase.Video
instance t2tconfigdata T2TCtrlType mode Default
  value operationMode 1
  value precisionMode 0
  value downscaleRatio 0.5
  value cancelObjectUponMissing 1
  value confidenceThreshold 60
instance t2tconfigdata T2TCtrlType mode Default|Sensor.0|Usecase.Preview
  value operationMode 2
  value precisionMode 1
  value downscaleRatio 0.25
  value cancelObjectUponMissing 0
  value confidenceThreshold 75
instance varitonalTOF varitonalTOFType mode Default|Sensor.0
  value sensitivity 1.5
  value SceneChange.panning_stable_cnt 4
  value SceneChange.scene_change_distance_thres 10,20,30
  value SceneChange.distance_region 100,2000
instance versionsA_sw varitonal_versionsA10Type mode Default
  value parameter_version.revision )" +
           Text64 + R"(
  value varitonal_versionsA10_reserve.xsd_version )" +
           LongText + "\n";
}

// Numeric mode paths from the root, as live tuning gives them.
constexpr char RootPath[] = "0.0";
constexpr char Sensor0Path[] = "0.0|1.0";
constexpr char PreviewPath[] = "0.0|1.0|2.0";
constexpr char HdrPath[] = "0.0|1.0|2.0|3.1";
constexpr char Sensor1VideoPath[] = "0.0|1.1|2.2";

class ValueAccessTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_bytes = ManagerTest::Pack(Description());
        ASSERT_TRUE(m_manager.LoadBinaryParameters(m_bytes.data(), m_bytes.size()))
            << m_manager.GetErrorString();
    }

    /// GetValue's result text, or "<false: ...>" around what it left when it failed.
    std::string Get(char const* modePath, char const* variable, char const* subVariables = nullptr)
    {
        std::vector<char> result(ResultLength, 'x');
        bool const read =
            m_manager.GetValue(0, modePath, variable, subVariables, result.data(), ResultLength);
        return read ? std::string(result.data()) : "<false: " + std::string(result.data()) + ">";
    }

    static constexpr unsigned int ResultLength = 4096;
    ParamTest::LogCapture m_log;
    ManagerTest::QuietTuningSetManager m_manager;
    std::vector<uint8_t> m_bytes;
};

TEST_F(ValueAccessTest, StructureReadsListEveryMemberOfTheDeepestHolder)
{
    struct Case
    {
        char const* modePath;
        char const* variable;
        std::string expected;
    };
    Case const cases[] = {
        // The version structure has no text of its own and is passed over.
        {RootPath, "t2tconfigdata",
         "operationMode=1;precisionMode=0;downscaleRatio=0.5;cancelObjectUponMissing=1;"
         "confidenceThreshold=60"},
        // A deeper mode without values of its own reads its parent's.
        {HdrPath, "t2tconfigdata",
         "operationMode=2;precisionMode=1;downscaleRatio=0.25;cancelObjectUponMissing=0;"
         "confidenceThreshold=75"},
        {Sensor1VideoPath, "t2tconfigdata.operationMode", "operationMode=1"},
        // Arrays are read element by element and joined by ",".
        {PreviewPath, "varitonalTOF.SceneChange",
         "scene_change_distance_std_dev_thres=0;far_distance_unstable_cnt_factor=0;"
         "panning_stable_cnt=4;panning_stable_thres=0;normal_light_cnt=0;lowlight_cnt=0;"
         "num_monitor_samples=0;scene_change_distance_thres=10,20,30;distance_region=100,2000"},
        // A path to an array is read whole, under its own name.
        {Sensor0Path, "varitonalTOF.SceneChange.distance_region", "distance_region=100,2000"},
        {Sensor0Path, "varitonalTOF.SceneChange.distance_region[1]", "distance_region[1]=2000"},
        // The module exists only from sensor 0 down.
        {RootPath, "varitonalTOF.SceneChange", "<false: >"},
        {RootPath, "noSuchModule.x", "<false: >"},
        {RootPath, "t2tconfigdata.noSuchMember", "<false: >"},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(std::string(test.modePath) + " " + test.variable);
        EXPECT_EQ(Get(test.modePath, test.variable), test.expected);
    }
}

TEST_F(ValueAccessTest, SubVariablesAreReadByNameAndTheLastDecides)
{
    struct Case
    {
        char const* variable;
        char const* subVariables;
        std::string expected;
    };
    Case const cases[] = {
        {"t2tconfigdata", "confidenceThreshold,operationMode",
         "confidenceThreshold=75;operationMode=2"},
        {"varitonalTOF.SceneChange", "panning_stable_cnt,distance_region",
         "panning_stable_cnt=4;distance_region=100,2000"},
        // A name that fails leaves no item but only the last one decides the result.
        {"t2tconfigdata", "nothing,operationMode", "operationMode=2"},
        {"t2tconfigdata", "operationMode,nothing", "<false: operationMode=2>"},
        {"varitonalTOF", "module_version.major_revision,sensitivity",
         "module_version.major_revision=0;sensitivity=1.5"},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(std::string(test.variable) + " " + test.subVariables);
        EXPECT_EQ(Get(PreviewPath, test.variable, test.subVariables), test.expected);
    }
}

TEST_F(ValueAccessTest, StructureReadsCutEachElementAt64Characters)
{
    EXPECT_EQ(Get(RootPath, "versionsA_sw.parameter_version"), "revision=" + Text64);
    EXPECT_EQ(Get(RootPath, "versionsA_sw.varitonal_versionsA10_reserve"), "xsd_version=" + Text64);
    // Asked for by its own name, the text comes whole.
    EXPECT_EQ(Get(RootPath, "versionsA_sw.varitonal_versionsA10_reserve", "xsd_version"),
              "xsd_version=" + LongText);
}

/// A module whose description lists three numbers of which the middle one cannot be read, as a
/// module with a member the file dropped may answer. It is loaded from the start and reads
/// nothing from a file.
class PartlyReadableModule : public ParameterModule
{
public:
    PartlyReadableModule() : ParameterModule("partlyreadable", 1, 0, 0, nullptr) { loaded = true; }

    ParameterModule* Create(ModuleData*, DefaultModule*) const override { return nullptr; }
    bool LoadModule(ParameterFileSymbolTable*) override { return true; }
    void UnloadModule() override {}

    bool GetInfo(char const*, PList<ParameterParserInfo>& list) override
    {
        list.Add(ParameterParserInfo("first", ParameterTypeNames::Int32, 1.0, 0));
        list.Add(ParameterParserInfo("second", ParameterTypeNames::Int32, 2.0, 0));
        list.Add(ParameterParserInfo("third", ParameterTypeNames::Int32, 3.0, 0));
        return true;
    }

    bool GetValue(char const* path, char* out, unsigned int outSize) override
    {
        std::string const member = path;
        if (member == "block.second")
            return false;
        std::snprintf(out, outSize, "%s", member == "block.first" ? "1" : "3");
        return true;
    }
};

TEST_F(ValueAccessTest, StructureReadStopsAtAMemberThatCannotBeRead)
{
    PartlyReadableModule module;
    ModeEntry* root = m_manager.GetModeEntry(0, RootPath);
    ASSERT_NE(root, nullptr);
    ASSERT_EQ(root->ReplaceModule(&module), nullptr);
    // The member before stands; the one that failed leaves no "second=" behind.
    EXPECT_EQ(Get(RootPath, "partlyreadable.block"), "<false: first=1>");
    root->modules.erase(module.moduleNameHash);
}

TEST_F(ValueAccessTest, ResultIsCutAtItsLengthWithoutFailing)
{
    char result[16];
    ASSERT_TRUE(m_manager.GetValue(0, RootPath, "t2tconfigdata", nullptr, result, sizeof(result)));
    EXPECT_STREQ(result, "operationMode=1");
}

TEST_F(ValueAccessTest, SetValueChangesTheSharedModuleForEveryModeBelowItsOwner)
{
    EXPECT_TRUE(m_manager.SetValue(0, PreviewPath, "t2tconfigdata", "confidenceThreshold", "90"));
    EXPECT_TRUE(
        m_manager.SetValue(0, Sensor0Path, "varitonalTOF.SceneChange", "distance_region[0]", "5"));
    EXPECT_EQ(Get(HdrPath, "t2tconfigdata", "confidenceThreshold"), "confidenceThreshold=90");
    EXPECT_EQ(Get(PreviewPath, "varitonalTOF.SceneChange.distance_region"),
              "distance_region=5,2000");
    // The root's instance is another one and keeps its value.
    EXPECT_EQ(Get(RootPath, "t2tconfigdata", "confidenceThreshold"), "confidenceThreshold=60");

    TuningMode const preview[] = {Step(ModeDefault), Step(ModeSensor, 0), Step(ModeUsecase, 0)};
    vornt2tconfig::T2TCtrlType* typed = m_manager.GetModule_t2tconfigdata(preview, 3, nullptr);
    ASSERT_NE(typed, nullptr);
    EXPECT_EQ(typed->confidenceThreshold, 90u);
    typed->Release();
}

TEST_F(ValueAccessTest, RefusedChangesSayWhatWasNotFound)
{
    struct Case
    {
        char const* base;
        char const* name;
        char const* message; ///< null: no message
    };
    Case const cases[] = {
        {"noSuchModule", "x", "Knobby SetValues failed: Module not found: \n"},
        {"t2tconfigdata", "noSuchMember", "Knobby SetValues failed: Variable not found: \n"},
        // Strings belong to their load and cannot be set.
        {"versionsA_sw.parameter_version", "revision",
         "Knobby SetValues failed: Variable not found: \n"},
        {"", "operationMode", nullptr},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(std::string(test.base) + "." + test.name);
        m_log.Clear();
        EXPECT_FALSE(m_manager.SetValue(0, PreviewPath, test.base, test.name, "1"));
        if (test.message != nullptr)
            EXPECT_TRUE(m_log.HasMessage(test.message));
        else
            EXPECT_TRUE(m_log.Messages().empty());
    }
}

TEST_F(ValueAccessTest, GetInfoDescribesTheTopLevelForAModuleOrAOneCharacterPath)
{
    for (char const* variable : {"t2tconfigdata", "t2tconfigdata.x"}) {
        SCOPED_TRACE(variable);
        PList<ParameterParserInfo> info;
        ASSERT_TRUE(m_manager.GetInfo(0, PreviewPath, variable, info));
        ASSERT_EQ(info.Count(), 6u);
        EXPECT_STREQ(info[0].name, "module_version");
        EXPECT_EQ(info[0].type, ParameterTypeNames::Structure);
        EXPECT_STREQ(info[5].name, "confidenceThreshold");
        EXPECT_STREQ(info[5].value, "75");
    }
    PList<ParameterParserInfo> info;
    EXPECT_TRUE(m_manager.GetInfo(0, PreviewPath, "varitonalTOF.SceneChange", info));
    EXPECT_EQ(info.Count(), 9u);
    EXPECT_TRUE(info[8].isArray);
    EXPECT_EQ(info[8].count, 2u);

    EXPECT_FALSE(m_manager.GetInfo(0, nullptr, "t2tconfigdata", info));
    EXPECT_TRUE(m_log.HasMessage("GetInfo called with null or empty modeBranch\n"));
    EXPECT_FALSE(m_manager.GetInfo(0, "0.x", "t2tconfigdata", info));
}

TEST_F(ValueAccessTest, DerivedManagerReadsThroughItsMainManager)
{
    std::unique_ptr<TuningSetManager> derived(m_manager.CreateSetManager("rear"));
    ASSERT_NE(derived, nullptr);
    std::vector<char> result(ResultLength);
    ASSERT_TRUE(derived->GetValue(0, PreviewPath, "t2tconfigdata.confidenceThreshold", nullptr,
                                  result.data(), ResultLength));
    EXPECT_STREQ(result.data(), "confidenceThreshold=75");
    EXPECT_TRUE(derived->SetValue(0, PreviewPath, "t2tconfigdata", "operationMode", "3"));
    EXPECT_EQ(Get(PreviewPath, "t2tconfigdata.operationMode"), "operationMode=3");
}

// In file mode a changed mode must never be unloaded: the owner of the module becomes resident
// and leaves the active list, while the mode that was asked for stays as it was.
TEST(ValueAccessFileModeTest, SetValuePinsTheOwnerNotTheModeAskedFor)
{
    ParamTest::TempFile file(ManagerTest::Pack(Description()));
    ManagerTest::QuietTuningSetManager manager;
    ASSERT_TRUE(manager.LoadBinaryParameters(file.Path().c_str())) << manager.GetErrorString();
    ASSERT_TRUE(manager.IsFileMode());
    ParameterModeTable* table = manager.GetModeTable(0);
    ModeEntry* preview = manager.GetModeEntry(0, PreviewPath);
    ModeEntry* hdr = manager.GetModeEntry(0, HdrPath);
    ASSERT_NE(table, nullptr);
    ASSERT_NE(preview, nullptr);
    ASSERT_NE(hdr, nullptr);

    TuningMode const branch[] = {Step(ModeDefault), Step(ModeSensor, 0), Step(ModeUsecase, 0),
                                 Step(3, 1)};
    vornt2tconfig::T2TCtrlType* typed = manager.GetModule_t2tconfigdata(branch, 4, nullptr);
    ASSERT_NE(typed, nullptr);
    EXPECT_FALSE(preview->resident);
    EXPECT_GE(table->activeModes.Find(preview), 0);

    ASSERT_TRUE(manager.SetValue(0, HdrPath, "t2tconfigdata", "precisionMode", "4"));
    EXPECT_TRUE(preview->resident);
    EXPECT_FALSE(hdr->resident);
    EXPECT_EQ(table->activeModes.Find(preview), -1);
    EXPECT_EQ(typed->precisionMode, 4u);
    typed->Release();
}

} // namespace
