// SPDX-License-Identifier: Apache-2.0
// The generated set managers on files described in text: every instance each manager lists loads
// by its name; derived managers on a file with two mode tables and the operations that are
// refused; values by mode path and variable name; and the module instances a description refuses.
#include <cstdio>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vornalloc.h"

#include "parameterparser/defaultmodule.h"
#include "parameterparser/modeentry.h"
#include "parameterparser/modeunion.h"
#include "parameterparser/moduledata.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parametermodetable.h"
#include "parameterparser/parametermodule.h"
#include "parameterparser/parameterparserinfo.h"
#include "parameterparser/parametervaluepath.h"
#include "parameterparser/parsercrc.h"
#include "tools/writer/tuningdescription.h"

#include "paramgen/ImageSensorModuleSetManager.h"
#include "paramgen/ImageSensorModuleSetManager.writer.h"
#include "paramgen/TuningSetManager.h"
#include "paramgen/TuningSetManager.writer.h"
#include "paramgen/bitmlSetManager.h"
#include "paramgen/bitmlSetManager.writer.h"
#include "paramgen/fdSetManager.h"
#include "paramgen/fdSetManager.writer.h"
#include "paramgen/vornflindices.h"
#include "paramgen/vornt2tconfig.h"
#include "tests/common/logcapture.h"
#include "tests/common/tempfile.h"
#include "tests/common/trackerdescription.h"

namespace {

using TuningWriter::InstanceSchema;

TuningMode const Root[] = {{ModeDefault, 0, 0}};

/// The bytes of the file that text describes (see TuningDescription), with instances of
/// TuningSetManager and fdSetManager. A description the parser refuses fails the test.
std::vector<uint8_t> Pack(std::string const& text)
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

/// A concrete set manager and the catalogue of the instances it lists.
struct ManagerCase
{
    std::string label;
    TuningWriter::InstanceCatalogue const& (*catalogue)();
    std::unique_ptr<ParameterSetManager> (*make)();
    bool valueAccess; ///< its modules answer value paths
};

template <typename Manager> std::unique_ptr<ParameterSetManager> MakeManager()
{
    return std::make_unique<Manager>(nullptr);
}

bool HasVersion(InstanceSchema const& instance)
{
    for (uint32_t i = 0; i < instance.type->memberCount; ++i) {
        if (std::string(instance.type->members[i].name) == "module_version")
            return true;
    }
    return false;
}

// One file holds a module of every instance a manager lists, each written from its own schema:
// the manager finds every one by its name, each with a factory of its own, and loads it; a module
// version written into each comes back through the value paths of the managers whose modules have
// them, while the others answer no path and list no member. A kind no list names is logged with
// its hash. Every manager but the tuning manager, whose verbose lines are off by then, logs its
// construction.
TEST(ConcreteSetManagerTest, EveryInstanceOfEveryManagerLoadsByItsName)
{
    ManagerCase const managers[] = {
        {"TuningSetManager", &ParamSchema::TuningSetManager::Instances,
         [] { return std::unique_ptr<ParameterSetManager>(new QuietTuningSetManager); }, true},
        {"ImageSensorModuleSetManager", &ParamSchema::ImageSensorModuleSetManager::Instances,
         &MakeManager<ImageSensorModuleSetManager>, false},
        {"fdSetManager", &ParamSchema::fdSetManager::Instances, &MakeManager<fdSetManager>, false},
        {"bitmlSetManager", &ParamSchema::bitmlSetManager::Instances, &MakeManager<bitmlSetManager>,
         false},
    };
    for (ManagerCase const& manager : managers) {
        SCOPED_TRACE(manager.label);
        TuningWriter::InstanceCatalogue const& catalogue = manager.catalogue();
        std::string text = "version 7.0.0\nmodetable sweep\n  path Default\n";
        for (size_t i = 0; i < catalogue.count; ++i) {
            InstanceSchema const& instance = catalogue.instances[i];
            text += std::string("instance ") + instance.instanceName + " " + instance.topType +
                    " mode Default\n";
            if (HasVersion(instance))
                text += "  value module_version.minor_revision 7\n";
        }
        TuningWriter::TuningDescription description({&catalogue});
        ASSERT_TRUE(description.Parse(text)) << description.Error();
        std::vector<uint8_t> file = description.MakeWriter().Build();
        ParamTest::LogCapture log;
        size_t const before = Vorn::Testing::AllocatedBytes();
        std::unique_ptr<ParameterSetManager> loader = manager.make();
        EXPECT_EQ(log.HasMessage(manager.label + " constructed: Parameter Parser V7.4.1 "
                                                 "(8cca6579792b9fcef3bc725ff070c5ec453c7c85)\n"),
                  !manager.valueAccess);
        ASSERT_TRUE(loader->LoadBinaryParameters(file.data(), file.size()))
            << loader->GetErrorString();

        std::set<ParameterModule const*> factories;
        for (size_t i = 0; i < catalogue.count; ++i) {
            InstanceSchema const& instance = catalogue.instances[i];
            SCOPED_TRACE(instance.instanceName);
            DefaultModule* kind =
                loader->GetDefaultModule(ParserCRC64::HashName(instance.instanceName));
            ASSERT_NE(kind, nullptr);
            factories.insert(kind->module);
            ParameterModule* module =
                loader->GetModuleInternal(0, instance.instanceName, Root, 1, nullptr, true);
            ASSERT_NE(module, nullptr);
            EXPECT_STREQ(module->moduleName, instance.instanceName);
            char minor[16] = {};
            bool const answered =
                module->GetValue("module_version.minor_revision", minor, sizeof(minor));
            EXPECT_EQ(answered, manager.valueAccess && HasVersion(instance));
            EXPECT_STREQ(minor, answered ? "7" : "");
            PList<ParameterParserInfo> info;
            EXPECT_EQ(module->GetInfo("", info), manager.valueAccess);
        }
        EXPECT_EQ(factories.size(), catalogue.count);
        unsigned long const hash = ParserCRC64::HashName("noSuchInstance");
        EXPECT_EQ(loader->GetDefaultModule(hash), nullptr);
        char expected[96];
        std::snprintf(expected, sizeof(expected),
                      "Failed to find module 0x%llx in DefaultModuleMap\n",
                      static_cast<unsigned long long>(hash));
        EXPECT_TRUE(log.HasMessage(expected));
        loader.reset();
        EXPECT_EQ(Vorn::Testing::AllocatedBytes(), before) << "a manager frees what it made";
    }
}

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

unsigned int NumPoints(vornflindices::FLIndicesType* module)
{
    unsigned int const points = module != nullptr ? module->numPoints : 0;
    if (module != nullptr)
        module->Release();
    return points;
}

// A derived manager reads its own table through the main manager's registry; from a derived
// manager another derived one is made; table index 1 of two is the last, 2 is refused. Updates
// and registry changes through a derived manager are refused.
TEST(ConcreteSetManagerTest, DerivedManagersSelectTheirTableAndRefuseTheRest)
{
    ParamTest::LogCapture log;
    fdSetManager main("fd");
    EXPECT_EQ(main.CreateSetManager(static_cast<unsigned char>(0)), nullptr);
    EXPECT_TRUE(
        log.HasMessage("CreateSetManager called mode table index (0) >= mode table count (0)\n"));
    EXPECT_EQ(main.CreateSetManager("front"), nullptr) << "nothing loaded";
    EXPECT_EQ(main.CreateSetManager(static_cast<char const*>(nullptr)), nullptr);
    std::vector<uint8_t> file = Pack(TwoTables);
    ASSERT_TRUE(main.LoadBinaryParameters(file.data(), file.size())) << main.GetErrorString();

    std::unique_ptr<fdSetManager> rear(main.CreateSetManager(static_cast<unsigned char>(1)));
    ASSERT_NE(rear, nullptr);
    std::unique_ptr<fdSetManager> front(rear->CreateSetManager("front"));
    ASSERT_NE(front, nullptr);
    EXPECT_EQ(front->GetMainSetManager(), &main);
    EXPECT_EQ(NumPoints(main.GetModule_flIndices(Root, 1, nullptr)), 3u);
    EXPECT_EQ(NumPoints(rear->GetModule_flIndices(Root, 1, nullptr)), 7u);
    EXPECT_EQ(NumPoints(front->GetModule_flIndices(Root, 1, nullptr)), 3u);
    EXPECT_EQ(rear->CreateSetManager(static_cast<unsigned char>(2)), nullptr);
    EXPECT_TRUE(
        log.HasMessage("CreateSetManager called mode table index (2) >= mode table count (2)\n"));
    EXPECT_EQ(rear->CreateSetManager("side"), nullptr);
    EXPECT_TRUE(log.HasMessage("CreateSetManager unable to find mode table side\n"));
    // Files before 4.0.0 name no table, so none is found by name.
    fdSetManager unnamed("fd");
    std::vector<uint8_t> unnamedFile =
        Pack("version 3.1.0\nmodetable front\n  path Default|Sensor.1|Usecase.Video\n");
    ASSERT_TRUE(unnamed.LoadBinaryParameters(unnamedFile.data(), unnamedFile.size()))
        << unnamed.GetErrorString();
    EXPECT_EQ(unnamed.CreateSetManager("front"), nullptr);

    unsigned char buffer[4] = {};
    EXPECT_FALSE(main.UpdateBinaryParameters(buffer, sizeof(buffer)));
    EXPECT_FALSE(main.UpdateBinaryParameters(nullptr, 0));
    EXPECT_EQ(log.Count("UpdateBinaryParameters not available.  To enable, add --update when "
                        "generating parser utility code"),
              2u);
    rear->AddDefaultModule(nullptr);
    EXPECT_STREQ(main.GetErrorString(), "AddDefaultModule called on a derived set manager object");
    fdSetManager orphan(nullptr, 0);
    EXPECT_TRUE(log.HasMessage("fdSetManager called with null main parameter\n"));

    // A derived manager has no registry of its own; a module it handed out outlives it.
    EXPECT_EQ(front->GetDefaultModule(ParserCRC64::HashName("flIndices")), nullptr);
    vornflindices::FLIndicesType* held = front->GetModule_flIndices(Root, 1, nullptr);
    front.reset();
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(held->indices[2], 3u);
    EXPECT_EQ(main.GetModule_flIndices(Root, 1, held), held);
    held->Release();

    // Clearing through a derived manager, as a reload of either does, parks every instance (they
    // go with the main manager: the sanitizer run checks that) and keeps the factory.
    DefaultModule* kind = main.GetDefaultModule(ParserCRC64::HashName("flIndices"));
    ASSERT_NE(kind, nullptr);
    ASSERT_NE(kind->first, nullptr);
    ParameterModule* factory = kind->module;
    unsigned int const id = kind->first->module->data->ID;
    ASSERT_NE(kind->Find(id), nullptr);
    rear->SaveAndClearModules();
    EXPECT_EQ(kind->first, nullptr);
    EXPECT_EQ(kind->last, nullptr);
    EXPECT_EQ(kind->Find(id), nullptr); // nor found by its ID any more
    EXPECT_EQ(kind->module, factory);
}

// ---- Values by mode path -----------------------------------------------------------------

// What a structure read gives one element: 64 characters; and one more.
std::string const Text64 = "schema-0123456789-0123456789-0123456789-0123456789-0123456789-ab";
std::string const LongText = Text64 + "c";

/// The tracker's file with a deeper mode under sensor 0's preview, a module from sensor 0 down
/// and texts of 64 and 65 characters; the tables given stand before its table "rear".
std::string Description(std::string const& before = "")
{
    std::string text = ParamTest::TrackerDescription;
    text.insert(text.find("modetable rear"), before);
    return text + R"(  path Default|Sensor.0|Usecase.Preview|Feature1.ISPHDR
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
        m_bytes = Pack(Description());
        ASSERT_TRUE(m_manager.LoadBinaryParameters(m_bytes.data(), m_bytes.size()))
            << m_manager.GetErrorString();
    }

    /// GetValue's result text, or "<false: ...>" around what it left when it failed.
    std::string Get(char const* modePath, char const* variable, char const* subVariables = nullptr,
                    unsigned int size = 4096)
    {
        std::vector<char> result(4096, 'x');
        bool const read =
            m_manager.GetValue(0, modePath, variable, subVariables, result.data(), size);
        return read ? std::string(result.data()) : "<false: " + std::string(result.data()) + ">";
    }

    ParamTest::LogCapture m_log;
    QuietTuningSetManager m_manager;
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
        // The version structure has no text of its own and is passed over.
        {RootPath, "t2tconfigdata", nullptr,
         "operationMode=1;precisionMode=0;downscaleRatio=0.5;cancelObjectUponMissing=1;"
         "confidenceThreshold=60"},
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
    EXPECT_EQ(Get(RootPath, "t2tconfigdata", nullptr, 16), "operationMode=1");
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
    // Each member's own text written back leaves the structure as it was.
    ASSERT_TRUE(m_manager.SetValue(0, PreviewPath, "varitonalTOF", "sensitivity", "0.123456789"));
    for (char const* base : {"varitonalTOF", "varitonalTOF.SceneChange"}) {
        std::string const before = Get(PreviewPath, base);
        std::istringstream items(before);
        for (std::string item; std::getline(items, item, ';');) {
            size_t const equals = item.find('=');
            EXPECT_TRUE(m_manager.SetValue(0, PreviewPath, base, item.substr(0, equals).c_str(),
                                           item.substr(equals + 1).c_str()))
                << item;
        }
        EXPECT_EQ(Get(PreviewPath, base), before);
    }

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
    EXPECT_FALSE(m_manager.GetInfo(0, Root, 0, "t2tconfigdata", info));
    EXPECT_EQ(m_log.Count("GetInfo called with null or empty modeBranch"), 2u);
    EXPECT_FALSE(m_manager.GetInfo(0, "0.x", "t2tconfigdata", info));
}

// In file mode a changed mode must never be unloaded: the owner of the module becomes resident
// and leaves the active list of its own table, while the mode that was asked for stays as it was.
TEST(ValueAccessFileModeTest, SetValuePinsTheOwnerNotTheModeAskedFor)
{
    ParamTest::TempFile file(Pack(Description("modetable front\n")));
    QuietTuningSetManager manager;
    ASSERT_TRUE(manager.LoadBinaryParameters(file.Path().c_str())) << manager.GetErrorString();
    ASSERT_TRUE(manager.IsFileMode());
    // Of the schema, file mode keeps what later loads still check: nothing, when every module
    // matches the build.
    auto const* structures = manager.GetSymbolTable()->GetDefinitionStructures();
    EXPECT_TRUE(structures != nullptr && structures->empty());
    std::unique_ptr<TuningSetManager> rear(manager.CreateSetManager("rear"));
    ParameterModeTable* table = manager.GetModeTable(1);
    ModeEntry* preview = manager.GetModeEntry(1, PreviewPath);
    ModeEntry* hdr = manager.GetModeEntry(1, HdrPath);
    ASSERT_TRUE(rear != nullptr && table != nullptr && preview != nullptr && hdr != nullptr);
    TuningMode const branch[] = {
        {ModeDefault, 0, 0}, {ModeSensor, 0, 0}, {ModeUsecase, 0, 0}, {3, 1, 0}};
    vornt2tconfig::T2TCtrlType* typed = rear->GetModule_t2tconfigdata(branch, 4, nullptr);
    ASSERT_NE(typed, nullptr);
    EXPECT_FALSE(preview->resident);
    EXPECT_GE(table->activeModes.Find(preview), 0);

    ASSERT_TRUE(manager.SetValue(1, HdrPath, "t2tconfigdata", "precisionMode", "4"));
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
        {t2t + t2t, "line 4: instance 't2tconfigdata' is given twice in mode Default"},
        {t2t + "structure 1 Other\n", instancesOnly},
        {"structure 1 Other\n" + t2t, instancesOnly},
        {"version 7.0.0\n" + t2t, "line 2: instance before any modetable"},
    };
    for (auto const& [body, error] : cases) {
        SCOPED_TRACE(body);
        TuningWriter::TuningDescription description(
            {&ParamSchema::TuningSetManager::Instances(), &ParamSchema::fdSetManager::Instances()});
        bool const whole = body.rfind("version", 0) == 0;
        EXPECT_EQ(description.Parse(whole ? body : "version 7.0.0\nmodetable rear\n" + body),
                  error.empty());
        EXPECT_EQ(description.Error(), error);
    }
}

} // namespace
