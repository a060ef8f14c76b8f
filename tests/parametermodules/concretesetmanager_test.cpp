// SPDX-License-Identifier: Apache-2.0
// The generated set managers on files described in text: registries from their lists, derived
// managers on a file with two mode tables, the operations that are refused; values by mode path
// and variable name; and the module instances a description refuses.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/defaultmodule.h"
#include "parameterparser/modeentry.h"
#include "parameterparser/moduledata.h"
#include "parameterparser/parametermodetable.h"
#include "parameterparser/parametermodule.h"
#include "parameterparser/parameterparserinfo.h"
#include "parameterparser/parametervaluepath.h"
#include "parameterparser/parsercrc.h"

#include "paramgen/ImageSensorModuleSetManager.h"
#include "paramgen/bitmlSetManager.h"
#include "paramgen/fdSetManager.h"
#include "paramgen/vornflindices.h"
#include "paramgen/vornt2tconfig.h"
#include "tests/common/logcapture.h"
#include "tests/common/tempfile.h"
#include "tests/parametermodules/managerfixture.h"

namespace {

using ManagerTest::Step;

// Table "front" holds flIndices at its root and in sensor 0's preview; table "rear" at its root.
constexpr char TwoTables[] = R"(
version 7.0.0
modetable front
  path Default|Sensor.0|Usecase.Preview
instance flIndices FLIndicesType mode Default
  value numPoints 3
  value indices 1,2,3
instance flIndices FLIndicesType mode Default|Sensor.0|Usecase.Preview
  value numPoints 4
modetable rear
  path Default|Sensor.1|Usecase.Video
instance flIndices FLIndicesType mode Default
  value numPoints 7
)";

TuningMode const Root[] = {Step(ModeDefault)};

unsigned int NumPoints(vornflindices::FLIndicesType* module)
{
    unsigned int const points = module != nullptr ? module->numPoints : 0;
    if (module != nullptr)
        module->Release();
    return points;
}

TEST(ConcreteSetManagerTest, MainManagerLogsItsConstructionAndMakesAFactoryPerInstance)
{
    ParamTest::LogCapture log;
    fdSetManager fd(nullptr);
    bitmlSetManager bitml(nullptr);
    ImageSensorModuleSetManager sensor(nullptr);
    // The tuning manager's verbose lines are off by the time it is constructed.
    ManagerTest::QuietTuningSetManager tuning;
    std::string const constructed =
        " constructed: Parameter Parser V7.4.1 (8cca6579792b9fcef3bc725ff070c5ec453c7c85)\n";
    for (char const* name : {"fdSetManager", "bitmlSetManager", "ImageSensorModuleSetManager"})
        EXPECT_TRUE(log.HasMessage(name + constructed)) << name;
    EXPECT_FALSE(log.HasMessage("TuningSetManager" + constructed));
    // Two instances of one type are two kinds, each with its own factory instance.
    DefaultModule* bps = tuning.GetDefaultModule(ParserCRC64::HashName("gamma16_bps"));
    DefaultModule* ife = tuning.GetDefaultModule(ParserCRC64::HashName("gamma16_ife"));
    ASSERT_NE(bps, nullptr);
    ASSERT_NE(ife, nullptr);
    EXPECT_NE(bps->module, ife->module);
    EXPECT_EQ(bps->first, nullptr);
    // A kind no list names is logged with its hash.
    unsigned long const hash = ParserCRC64::HashName("noSuchInstance");
    EXPECT_EQ(fd.GetDefaultModule(hash), nullptr);
    char expected[96];
    std::snprintf(expected, sizeof(expected), "Failed to find module 0x%llx in DefaultModuleMap\n",
                  static_cast<unsigned long long>(hash));
    EXPECT_TRUE(log.HasMessage(expected));
}

// A derived manager reads its own table through the main manager's registry; from a derived
// manager another derived one is made; table index 1 of two is the last, 2 is refused.
TEST(ConcreteSetManagerTest, DerivedManagersSelectTheirTable)
{
    ParamTest::LogCapture log;
    fdSetManager main("fd");
    EXPECT_EQ(main.CreateSetManager(static_cast<unsigned char>(0)), nullptr);
    EXPECT_TRUE(
        log.HasMessage("CreateSetManager called mode table index (0) >= mode table count (0)\n"));
    EXPECT_EQ(main.CreateSetManager("front"), nullptr) << "nothing loaded";
    EXPECT_EQ(main.CreateSetManager(static_cast<char const*>(nullptr)), nullptr);
    std::vector<uint8_t> file = ManagerTest::Pack(TwoTables);
    ASSERT_TRUE(main.LoadBinaryParameters(file.data(), file.size())) << main.GetErrorString();

    std::unique_ptr<fdSetManager> rear(main.CreateSetManager(static_cast<unsigned char>(1)));
    ASSERT_NE(rear, nullptr);
    std::unique_ptr<fdSetManager> front(rear->CreateSetManager("front"));
    ASSERT_NE(front, nullptr);
    EXPECT_EQ(front->GetMainSetManager(), &main);
    EXPECT_EQ(NumPoints(main.GetModule_flIndices(Root, 1, nullptr)), 3u);
    EXPECT_EQ(NumPoints(rear->GetModule_flIndices(Root, 1, nullptr)), 7u);
    // The deepest mode of the branch that holds the module wins; a mode without its own values
    // reads its parent's.
    TuningMode const preview[] = {Step(ModeDefault), Step(ModeSensor, 0), Step(ModeUsecase, 0)};
    TuningMode const video[] = {Step(ModeDefault), Step(ModeSensor, 1), Step(ModeUsecase, 2)};
    EXPECT_EQ(NumPoints(front->GetModule_flIndices(preview, 3, nullptr)), 4u);
    EXPECT_EQ(NumPoints(rear->GetModule_flIndices(video, 3, nullptr)), 7u);
    EXPECT_EQ(rear->CreateSetManager(static_cast<unsigned char>(2)), nullptr);
    EXPECT_TRUE(
        log.HasMessage("CreateSetManager called mode table index (2) >= mode table count (2)\n"));
    EXPECT_EQ(rear->CreateSetManager("side"), nullptr);
    EXPECT_TRUE(log.HasMessage("CreateSetManager unable to find mode table side\n"));

    // A derived manager has no registry of its own; a module it handed out outlives it.
    EXPECT_EQ(front->GetDefaultModule(ParserCRC64::HashName("flIndices")), nullptr);
    vornflindices::FLIndicesType* held = front->GetModule_flIndices(Root, 1, nullptr);
    front.reset();
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(held->indices[2], 3u);
    EXPECT_EQ(main.GetModule_flIndices(Root, 1, held), held);
    held->Release();
}

TEST(ConcreteSetManagerTest, RefusedOperationsReportAndClearingKeepsTheFactories)
{
    ParamTest::LogCapture log;
    fdSetManager main("fd");
    std::vector<uint8_t> file = ManagerTest::Pack(TwoTables);
    ASSERT_TRUE(main.LoadBinaryParameters(file.data(), file.size()));
    unsigned char buffer[4] = {};
    EXPECT_FALSE(main.UpdateBinaryParameters(buffer, sizeof(buffer)));
    EXPECT_FALSE(main.UpdateBinaryParameters(nullptr, 0));
    EXPECT_EQ(log.Count("UpdateBinaryParameters not available.  To enable, add --update when "
                        "generating parser utility code"),
              2u);
    std::unique_ptr<fdSetManager> derived(main.CreateSetManager(static_cast<unsigned char>(1)));
    ASSERT_NE(derived, nullptr);
    derived->AddDefaultModule(nullptr);
    EXPECT_STREQ(main.GetErrorString(), "AddDefaultModule called on a derived set manager object");
    fdSetManager orphan(nullptr, 0);
    EXPECT_TRUE(log.HasMessage("fdSetManager called with null main parameter\n"));

    // Clearing through a derived manager, as a reload of either does, parks every instance (they
    // go with the main manager: the sanitizer run checks that) and keeps the factory.
    DefaultModule* kind = main.GetDefaultModule(ParserCRC64::HashName("flIndices"));
    ASSERT_NE(kind, nullptr);
    ASSERT_NE(kind->first, nullptr);
    ParameterModule* factory = kind->module;
    unsigned int const id = kind->first->module->data->ID;
    ASSERT_NE(kind->Find(id), nullptr);
    derived->SaveAndClearModules();
    EXPECT_EQ(kind->first, nullptr);
    EXPECT_EQ(kind->last, nullptr);
    EXPECT_EQ(kind->Find(id), nullptr); // nor found by its ID any more
    EXPECT_EQ(kind->module, factory);
}

// ---- Values by mode path -----------------------------------------------------------------

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
  value downscaleRatio 0.5
  value confidenceThreshold 60
instance t2tconfigdata T2TCtrlType mode Default|Sensor.0|Usecase.Preview
  value operationMode 2
  value precisionMode 1
  value downscaleRatio 0.25
  value confidenceThreshold 75
instance varitonalTOF aftofelements::varitonalTOFType mode Default|Sensor.0
  value parameter_version.revision   two words  # comments end the text
  value outdoorLuxIdx  -12
  value sensitivity 1.5
  value SceneChange.panning_stable_cnt 4
  value SceneChange.scene_change_distance_thres 10,20,30
  value SceneChange.distance_region 100,2000
instance versionsA_sw varitonal_versionsA10Type mode Default
  value parameter_version.revision )" +
           Text64 + "\n  value varitonal_versionsA10_reserve.xsd_version " + LongText + "\n";
}

// Numeric mode paths from the root, as live tuning gives them.
constexpr char RootPath[] = "0.0";
constexpr char Sensor0Path[] = "0.0|1.0";
constexpr char PreviewPath[] = "0.0|1.0|2.0";
constexpr char HdrPath[] = "0.0|1.0|2.0|3.1";

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
        std::vector<char> result(4096, 'x');
        bool const read =
            m_manager.GetValue(0, modePath, variable, subVariables, result.data(), 4096);
        return read ? std::string(result.data()) : "<false: " + std::string(result.data()) + ">";
    }

    ParamTest::LogCapture m_log;
    ManagerTest::QuietTuningSetManager m_manager;
    std::vector<uint8_t> m_bytes;
};

TEST_F(ValueAccessTest, ReadsListTheMembersOfTheDeepestHolder)
{
    struct Case
    {
        char const* modePath;
        char const* variable;
        char const* subVariables;
        std::string expected;
    };
    Case const cases[] = {
        // The version structure has no text of its own and is passed over; members the
        // description leaves out read 0.
        {RootPath, "t2tconfigdata", nullptr,
         "operationMode=1;precisionMode=0;downscaleRatio=0.5;cancelObjectUponMissing=0;"
         "confidenceThreshold=60"},
        // A deeper mode without values of its own reads its parent's.
        {HdrPath, "t2tconfigdata.confidenceThreshold", nullptr, "confidenceThreshold=75"},
        {"0.0|1.1|2.2", "t2tconfigdata.operationMode", nullptr, "operationMode=1"},
        // Arrays are read element by element and joined by ",".
        {PreviewPath, "varitonalTOF.SceneChange", nullptr,
         "scene_change_distance_std_dev_thres=0;far_distance_unstable_cnt_factor=0;"
         "panning_stable_cnt=4;panning_stable_thres=0;normal_light_cnt=0;lowlight_cnt=0;"
         "num_monitor_samples=0;scene_change_distance_thres=10,20,30;distance_region=100,2000"},
        // A path to an array is read whole, under its own name, or one element.
        {Sensor0Path, "varitonalTOF.SceneChange.distance_region", nullptr,
         "distance_region=100,2000"},
        {Sensor0Path, "varitonalTOF.SceneChange.distance_region[1]", nullptr,
         "distance_region[1]=2000"},
        // The module exists only from sensor 0 down.
        {RootPath, "varitonalTOF.SceneChange", nullptr, "<false: >"},
        {RootPath, "noSuchModule.x", nullptr, "<false: >"},
        {RootPath, "t2tconfigdata.noSuchMember", nullptr, "<false: >"},
        // Sub-variables are read by name; a name that fails leaves no item, and the last one
        // decides the result.
        {PreviewPath, "t2tconfigdata", "confidenceThreshold,operationMode",
         "confidenceThreshold=75;operationMode=2"},
        {PreviewPath, "t2tconfigdata", "nothing,operationMode", "operationMode=2"},
        {PreviewPath, "t2tconfigdata", "operationMode,nothing", "<false: operationMode=2>"},
        {PreviewPath, "varitonalTOF",
         "module_version.major_revision,parameter_version.revision,outdoorLuxIdx,sensitivity,"
         "SceneChange.distance_region,SceneChange.panning_stable_cnt",
         "module_version.major_revision=0;parameter_version.revision=two words;"
         "outdoorLuxIdx=-12;sensitivity=1.5;SceneChange.distance_region=100,2000;"
         "SceneChange.panning_stable_cnt=4"},
        // A structure read cuts each element at 64 characters; asked for by its own name, the
        // text comes whole.
        {RootPath, "versionsA_sw.parameter_version", nullptr, "revision=" + Text64},
        {RootPath, "versionsA_sw.varitonal_versionsA10_reserve", nullptr, "xsd_version=" + Text64},
        {RootPath, "versionsA_sw.varitonal_versionsA10_reserve", "xsd_version",
         "xsd_version=" + LongText},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(std::string(test.modePath) + " " + test.variable);
        EXPECT_EQ(Get(test.modePath, test.variable, test.subVariables), test.expected);
    }
    // The result is cut at its length without failing.
    char result[16];
    ASSERT_TRUE(m_manager.GetValue(0, RootPath, "t2tconfigdata", nullptr, result, sizeof(result)));
    EXPECT_STREQ(result, "operationMode=1");
}

/// A module whose description lists three numbers of which the middle one cannot be read, as a
/// module with a member the file dropped may answer. It is loaded from the start.
class PartlyReadableModule : public ParameterModule
{
public:
    PartlyReadableModule() : ParameterModule("partlyreadable", 1, 0, 0, nullptr) { loaded = true; }

    ParameterModule* Create(ModuleData*, DefaultModule*) const override { return nullptr; }
    bool LoadModule(ParameterFileSymbolTable*) override { return true; }
    void UnloadModule() override {}

    bool GetInfo(char const*, PList<ParameterParserInfo>& list) override
    {
        for (char const* name : {"first", "second", "third"})
            list.Add(ParameterParserInfo(name, ParameterTypeNames::Int32, 1.0, 0));
        return true;
    }

    bool GetValue(char const* path, char* out, unsigned int outSize) override
    {
        std::snprintf(out, outSize, "%s", path + 6);
        return std::string(path) != "block.second";
    }
};

TEST_F(ValueAccessTest, StructureReadStopsAtAMemberThatCannotBeRead)
{
    PartlyReadableModule module;
    ModeEntry* root = m_manager.GetModeEntry(0, RootPath);
    ASSERT_NE(root, nullptr);
    ASSERT_EQ(root->ReplaceModule(&module), nullptr);
    // The member before stands; the one that failed leaves no "second=" behind.
    EXPECT_EQ(Get(RootPath, "partlyreadable.block"), "<false: first=first>");
    root->modules.erase(module.moduleNameHash);
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

    // A derived manager reads and changes through its main manager.
    std::unique_ptr<TuningSetManager> derived(m_manager.CreateSetManager("rear"));
    ASSERT_NE(derived, nullptr);
    EXPECT_TRUE(derived->SetValue(0, PreviewPath, "t2tconfigdata", "operationMode", "3"));
    char result[64];
    ASSERT_TRUE(derived->GetValue(0, PreviewPath, "t2tconfigdata.operationMode", nullptr, result,
                                  sizeof(result)));
    EXPECT_STREQ(result, "operationMode=3");
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
        EXPECT_TRUE(test.message != nullptr ? m_log.HasMessage(test.message)
                                            : m_log.Messages().empty());
    }
}

TEST_F(ValueAccessTest, GetInfoDescribesTheTopLevelForAModuleOrAOneCharacterPath)
{
    for (char const* variable : {"t2tconfigdata", "t2tconfigdata.x"}) {
        SCOPED_TRACE(variable);
        PList<ParameterParserInfo> info;
        ASSERT_TRUE(m_manager.GetInfo(0, PreviewPath, variable, info));
        ASSERT_EQ(info.Count(), 6u);
        EXPECT_EQ(info[0].type, ParameterTypeNames::Structure);
        EXPECT_STREQ(info[5].name, "confidenceThreshold");
        EXPECT_STREQ(info[5].value, "75");
    }
    PList<ParameterParserInfo> info;
    EXPECT_TRUE(m_manager.GetInfo(0, PreviewPath, "varitonalTOF.SceneChange", info));
    ASSERT_EQ(info.Count(), 9u);
    EXPECT_EQ(info[8].count, 2u);
    EXPECT_FALSE(m_manager.GetInfo(0, nullptr, "t2tconfigdata", info));
    EXPECT_TRUE(m_log.HasMessage("GetInfo called with null or empty modeBranch\n"));
    EXPECT_FALSE(m_manager.GetInfo(0, "0.x", "t2tconfigdata", info));
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
    ASSERT_TRUE(table != nullptr && preview != nullptr && hdr != nullptr);
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

// ---- Module instances in a description ---------------------------------------------------

TEST(TuningDescriptionInstanceTest, RefusesWhatCannotBeWrittenWithTheLineNumber)
{
    std::string const t2t = "instance t2tconfigdata T2TCtrlType mode Default\n";
    std::string indices301;
    for (int i = 0; i < 301; ++i)
        indices301 += (i > 0 ? "," : "") + std::to_string(i);
    std::string const outsideUInt32 = "' is outside UInt32 (0 to 4294967295)";
    std::string const instancesOnly = "line 4: instances take their structures from their schema: "
                                      "a description with instances has no structure or module "
                                      "lines";
    std::pair<std::string, std::string> const cases[] = {
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
        {t2t + "value nothing 1\n", "line 4: no member 'nothing' in T2TCtrlType"},
        {t2t + "value module_version 1\n",
         "line 4: 'module_version' is a structure: give its members"},
        {t2t + "value operationMode.x 1\n", "line 4: 'operationMode' is not a single structure"},
        {t2t + "value downscaleRatio half\n",
         "line 4: value of 'downscaleRatio': 'half' is not a number (Float)"},
        // 300 indices fit (the sweep of the catalogue writes them); one more does not.
        {"instance flIndices FLIndicesType mode Default\nvalue indices " + indices301 + "\n",
         "line 4: value of 'indices': 301 elements where at most 300 fit"},
        // Values are checked against the member's type, never wrapped or clamped.
        {t2t + "value operationMode -1\n", "line 4: value of 'operationMode': '-1" + outsideUInt32},
        {t2t + "value operationMode 4294967296\n",
         "line 4: value of 'operationMode': '4294967296" + outsideUInt32},
        {t2t + "value operationMode 1.7\n",
         "line 4: value of 'operationMode': '1.7' is not an integer (UInt32)"},
        {t2t + "value downscaleRatio 1e39\n",
         "line 4: value of 'downscaleRatio': '1e39' is outside Float (-3.40282347e+38 to "
         "3.40282347e+38)"},
        {t2t + "value downscaleRatio nan\n",
         "line 4: value of 'downscaleRatio': 'nan' is not a finite number (Float)"},
        {t2t + t2t, "line 4: instance 't2tconfigdata' is given twice in mode Default"},
        {t2t + "structure 1 Other\n", instancesOnly},
        {"structure 1 Other\n" + t2t, instancesOnly},
        {"", ""},
    };
    for (auto const& [body, error] : cases) {
        SCOPED_TRACE(body);
        TuningWriter::TuningDescription description(
            {&ParamSchema::TuningSetManager::Instances(), &ParamSchema::fdSetManager::Instances()});
        // The empty body stands for an instance before any mode table.
        EXPECT_FALSE(
            description.Parse(body.empty() ? t2t : "version 7.0.0\nmodetable rear\n" + body));
        EXPECT_EQ(description.Error(),
                  error.empty() ? "line 1: instance before any modetable" : error);
    }
}

} // namespace
