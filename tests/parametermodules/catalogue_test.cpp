// SPDX-License-Identifier: Apache-2.0
// Catalogue modules end to end: writer-made entries load through the generated module classes,
// structures the catalogue knows only in part skip what a fuller schema adds, every instance of
// every set manager loads by its name, and every module class accepts its own file record only.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vornalloc.h"

#include "parameterparser/defaultmodule.h"
#include "parameterparser/moduledata.h"
#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parametermemberaccess.h"
#include "parameterparser/parametermodule.h"
#include "parameterparser/parameterschemadifference.h"
#include "parameterparser/parsercrc.h"
#include "tools/generator/schemaset.h"
#include "tools/writer/definitiontablebuilder.h"
#include "tools/writer/tuningdescription.h"

#include "paramgen/ImageSensorModuleSetManager.h"
#include "paramgen/ImageSensorModuleSetManager.writer.h"
#include "paramgen/Vorn.h"
#include "paramgen/abf_4_0_0.h"
#include "paramgen/abf_4_0_1.h"
#include "paramgen/aecxconvergence.h"
#include "paramgen/aecxdbconvbase.h"
#include "paramgen/aecxdbconvdrc.h"
#include "paramgen/aftofelements.h"
#include "paramgen/anr_1_3_1.h"
#include "paramgen/bitmlSetManager.h"
#include "paramgen/bitmlSetManager.writer.h"
#include "paramgen/cst_1_2_0.h"
#include "paramgen/fdSetManager.h"
#include "paramgen/fdSetManager.writer.h"
#include "paramgen/gamma_1_6_0.h"
#include "paramgen/gamma_1_6_1.h"
#include "paramgen/modflashdecv1.h"
#include "paramgen/statsnnmlawb.h"
#include "paramgen/statsnnsaliency.h"
#include "paramgen/tf_2_3_1.h"
#include "paramgen/trackerroimixer.h"
#include "paramgen/versionsA_1_0_0.h"
#include "paramgen/vornbitmlconfig.h"
#include "paramgen/vornfdconfig.h"
#include "paramgen/vornflindices.h"
#include "paramgen/vornt2tconfig.h"
#include "tests/common/logcapture.h"
#include "tests/common/testsetmanager.h"
#include "tests/parametermodules/managerfixture.h"
#include "tests/parametermodules/modulefixture.h"
#include "tests/parametermodules/modulevalues.h"

namespace {

using ModuleTest::ValueChecker;
using ModuleTest::ValueMaker;
using TuningWriter::DefinitionElement;
using TuningWriter::DefinitionStructure;
using TuningWriter::ElementType;
using TuningWriter::EntryValue;
using TuningWriter::SchemaElement;

constexpr char const* InstanceName = "catalogueModule";

/// One module class of the catalogue: how to make its factory instance, where its file
/// description and its top type's descriptor are, and how its top structure is reached.
struct ModuleKind
{
    char const* label;
    char const* className; ///< as the class's own messages name it
    ParameterModule* (*makeFactory)(char const* name);
    char const* topType; ///< qualified name of the top structure in the description
    ParameterTypeDescriptor const* descriptor;
    void const* (*top)(ParameterModule* module);
    void (*shape)(EntryValue& value); ///< changes the made-up values before writing; may be null
};

template <typename Class> ParameterModule* MakeFactory(char const* name)
{
    return new Class(name);
}

/// The top structure of a loaded module of class Class, for the descriptor walk.
template <typename Class, typename Top> void const* TopOf(ParameterModule* module)
{
    return static_cast<Top const*>(static_cast<Class const*>(module));
}

/// A module class Class (deriving from ParameterModule and its top structure Top) as a kind.
template <typename Class, typename Top>
ModuleKind Kind(char const* label, char const* className, char const* topType,
                void (*shape)(EntryValue&))
{
    return {label, className, &MakeFactory<Class>, topType, &Top::Descriptor, &TopOf<Class, Top>,
            shape};
}

/// Makes the file's schema fuller than the compiled one everywhere: every structure gains a
/// number at its start and a counted array of a structure of its own at its end, as an unknown
/// nest level or region group would be.
void AddUnknownMembers(std::vector<DefinitionStructure>& schema)
{
    uint32_t group = 0;
    for (DefinitionStructure const& structure : schema)
        group = std::max(group, structure.id + 1);
    for (DefinitionStructure& structure : schema) {
        structure.elements.insert(structure.elements.begin(),
                                  SchemaElement("unknownFront", ElementType::UInt32, 0, 1, 1));
        structure.elements.push_back(
            SchemaElement("unknownGroups", ElementType::Structure, group, 0, 65535));
    }
    DefinitionStructure groupType;
    groupType.id = group;
    groupType.name = "unknownGroupType";
    groupType.elements = {SchemaElement("start", ElementType::Float, 0, 1, 1),
                          SchemaElement("end", ElementType::Float, 0, 1, 1)};
    schema.push_back(groupType);
}

/// The values of AddUnknownMembers' members in every structure instance of value.
void AddUnknownValues(EntryValue& value)
{
    for (EntryValue& item : value.items)
        AddUnknownValues(item);
    if (value.kind != EntryValue::Kind::Structure)
        return;
    EntryValue const group =
        EntryValue::Struct({{"start", EntryValue::Real(0.25)}, {"end", EntryValue::Real(0.75)}});
    value.Set("unknownFront", EntryValue::UInt(0xC0FFEE));
    value.Set("unknownGroups", EntryValue::List({group, group}));
}

/// The file of a kind's module: one entry written from its description with the values ValueMaker
/// gives (shaped by the kind), its record's instance created and loaded through the class.
/// withDefinitions false leaves the schema section out, so that the module reads by its
/// compiled-in layout; unknownMembers writes it from a fuller schema (AddUnknownMembers).
class LoadedModule
{
public:
    LoadedModule(ModuleKind const& kind, TuningWriter::FileVersion version, bool withDefinitions,
                 bool unknownMembers = false)
        : m_kind(kind), m_factory(kind.makeFactory(InstanceName)),
          m_file(version, withDefinitions,
                 {kind.descriptor,
                  kind.topType,
                  InstanceName,
                  {m_factory->version.Parts.Major, m_factory->version.Parts.Minor,
                   m_factory->version.Parts.Patch}}),
          m_registry(m_factory)
    {
        m_value = ValueMaker(withDefinitions).Make(*kind.descriptor);
        if (kind.shape != nullptr)
            kind.shape(m_value);
        EntryValue written = m_value;
        if (unknownMembers) {
            AddUnknownValues(written);
            AddUnknownMembers(m_file.FileSchema());
        }
        uint32_t const id = m_file.AddModule(written);
        if (!m_file.Build())
            return;
        m_module = m_factory->Create(m_file.Record(id), &m_registry);
        m_loaded = m_module != nullptr && m_module->LoadModule(&m_file.Table());
    }

    /// True when the table read the file and the module was made and loaded from its entry.
    bool Loaded() const { return m_loaded; }

    ParameterModule* Module() const { return m_module; }

    /// The module's top structure: the class's second base.
    template <typename Class> Class* As() const { return static_cast<Class*>(m_module); }

    /// Compares every member of the loaded top structure with what was written.
    void ExpectEveryMember() const
    {
        ValueChecker().Check(m_kind.top(m_module), *m_kind.descriptor, m_value, "");
    }

    /// Compares every structure of the file's schema that the module reads with its compiled
    /// type: a file written from the very schema differs in nothing.
    void ExpectSameSchema()
    {
        ParameterDefinitionStructure const* top =
            m_file.Table().FindModuleStructure(ParserCRC64::HashName(InstanceName));
        ASSERT_NE(top, nullptr);
        std::vector<ParameterTypeDescriptor const*> seen;
        ExpectSameSchema(*top, *m_kind.descriptor, seen);
    }

private:
    static void ExpectSameSchema(ParameterDefinitionStructure const& file,
                                 ParameterTypeDescriptor const& type,
                                 std::vector<ParameterTypeDescriptor const*>& seen)
    {
        if (std::find(seen.begin(), seen.end(), &type) != seen.end())
            return;
        seen.push_back(&type);
        ParameterSchemaDifference const difference = CompareStructure(file, type);
        EXPECT_FALSE(difference.Any())
            << type.name << ": " << difference.steppedOver << " stepped over, "
            << difference.missing << " missing, " << difference.changed << " in another form";
        for (uint32_t i = 0; i < type.memberCount; ++i) {
            ParameterMemberDescriptor const& member = type.members[i];
            ParameterDefinitionElement const* element = file.FindChild(member.nameHash);
            if (member.type != nullptr && element != nullptr && element->Info != nullptr &&
                element->Info->Structure != nullptr)
                ExpectSameSchema(*element->Info->Structure, *member.type, seen);
        }
    }

    ModuleKind m_kind;
    ParameterModule* m_factory; ///< owned by m_registry
    ModuleTest::ModuleFile m_file;
    // Instances give their arrays back to the file's table, so the registry goes first.
    DefaultModule m_registry;
    EntryValue m_value;
    ParameterModule* m_module = nullptr;
    bool m_loaded = false;
};

// The two smoothers of the convergence module name one array of nodes in the file.
void AliasDrcNodes(EntryValue& value)
{
    EntryValue adrc = *value.Find("smoothADRC");
    EntryValue nodes = *adrc.Find("nodes");
    nodes.blockName = "drcNodes";
    value.Set("smoothADRC", EntryValue(adrc).Set("nodes", nodes));
    nodes.blockName.clear();
    nodes.duplicateOf = "drcNodes";
    EntryValue boost = *value.Find("smoothDarkBoost");
    value.Set("smoothDarkBoost", boost.Set("nodes", nodes));
}

// The class, its top structure and the names its messages and the description give them all
// follow from the namespace and the top type.
#define CATALOGUE_KIND(label, ns, Type, shape)                                                     \
    Kind<ns::Type##Class, ns::Type>(label, #Type "Class", #ns "::" #Type, shape)

// A module class of every shape of the catalogue: with and without value access, with hashed
// members, optional members, string arrays, an array two members alias, a data bank's nested
// trigger levels, the fixed nest, a nest of unknown levels, the recursive tree, passes below its
// leaf, an optional region, and a module without a core. (Every instance of every manager loads
// in the sweep below.)
ModuleKind const Kinds[] = {
    CATALOGUE_KIND("vornflindices", vornflindices, FLIndicesType, nullptr),
    CATALOGUE_KIND("vornfdconfig", vornfdconfig, FaceDetectionCtrlType, nullptr),
    CATALOGUE_KIND("vornbitmlconfig", vornbitmlconfig, BITMLConfigType, nullptr),
    CATALOGUE_KIND("vornt2tconfig", vornt2tconfig, T2TCtrlType, nullptr),
    CATALOGUE_KIND("statsnnsaliency", statsnnsaliency, varitonalStatsNNSaliencyType, nullptr),
    CATALOGUE_KIND("trackerroimixer", trackerroimixer, varitonalTrackerROIMixerType, nullptr),
    CATALOGUE_KIND("FlashDriverData", Vorn, FlashDriverData, nullptr),
    CATALOGUE_KIND("SensorBinSocIdMap", Vorn, SensorBinSocIdMap, nullptr),
    CATALOGUE_KIND("CameraModuleData", Vorn, CameraModuleData, nullptr),
    CATALOGUE_KIND("aecxconvergence", aecxconvergence, AECXConvergenceType, &AliasDrcNodes),
    CATALOGUE_KIND("aecxdbconvbase", aecxdbconvbase, AECXDBConvBaseType, nullptr),
    CATALOGUE_KIND("aecxdbconvdrc", aecxdbconvdrc, AECXDBConvDRCType, nullptr),
    CATALOGUE_KIND("statsnnmlawb", statsnnmlawb, varitonalStatsNNMLAWBType, nullptr),
    CATALOGUE_KIND("aftofelements", aftofelements, varitonalTOFType, nullptr),
    CATALOGUE_KIND("modflashdecv1", modflashdecv1, varitonalFlashDecV1Type, nullptr),
    CATALOGUE_KIND("gamma_1_6_0", gamma_1_6_0, varitonal_gamma16Type, nullptr),
    CATALOGUE_KIND("gamma_1_6_1", gamma_1_6_1, varitonal_gamma16Type, nullptr),
    CATALOGUE_KIND("versionsA_1_0_0", versionsA_1_0_0, varitonal_versionsA10Type, nullptr),
    CATALOGUE_KIND("abf_4_0_0", abf_4_0_0, varitonal_abf40Type, nullptr),
    CATALOGUE_KIND("abf_4_0_1", abf_4_0_1, varitonal_abf40Type, nullptr),
    CATALOGUE_KIND("tf_2_3_1", tf_2_3_1, varitonal_tf23Type, nullptr),
    CATALOGUE_KIND("anr_1_3_1", anr_1_3_1, varitonal_anr13Type, nullptr),
    CATALOGUE_KIND("cst_1_2_0", cst_1_2_0, varitonal_cst12Type, nullptr),
};

#undef CATALOGUE_KIND

void PrintTo(ModuleKind const& kind, std::ostream* out)
{
    *out << kind.label;
}

/// True when type, or a type it holds, has a member for which test holds.
bool AnyMember(ParameterTypeDescriptor const& type, bool (*test)(ParameterMemberDescriptor const&),
               std::vector<ParameterTypeDescriptor const*>& seen)
{
    if (std::find(seen.begin(), seen.end(), &type) != seen.end())
        return false;
    seen.push_back(&type);
    for (uint32_t i = 0; i < type.memberCount; ++i) {
        ParameterMemberDescriptor const& member = type.members[i];
        if (test(member) || (member.type != nullptr && AnyMember(*member.type, test, seen)))
            return true;
    }
    return false;
}

bool AnyMember(ModuleKind const& kind, bool (*test)(ParameterMemberDescriptor const&))
{
    std::vector<ParameterTypeDescriptor const*> seen;
    return AnyMember(*kind.descriptor, test, seen);
}

bool KnownOnlyByHash(ParameterMemberDescriptor const& member)
{
    return !member.hidden && ParserCRC64::HashName(member.name) != member.nameHash;
}

using RoundTripCase = std::tuple<ModuleKind, TuningWriter::FileVersion, bool>;

// Every kind in 6.0.0 and 7.0.0 files, with and without a definition section; a written
// definition section cannot name members known only by their hash, so those kinds go without.
std::vector<RoundTripCase> RoundTripCases()
{
    std::vector<RoundTripCase> cases;
    for (ModuleKind const& kind : Kinds) {
        for (TuningWriter::FileVersion version :
             {TuningWriter::FileVersion{6, 0, 0}, TuningWriter::FileVersion{7, 0, 0}}) {
            cases.emplace_back(kind, version, false);
            if (!AnyMember(kind, &KnownOnlyByHash))
                cases.emplace_back(kind, version, true);
        }
    }
    return cases;
}

class CatalogueRoundTripTest : public testing::TestWithParam<RoundTripCase>
{
};

TEST_P(CatalogueRoundTripTest, EveryMemberComesBack)
{
    auto const& [kind, version, withDefinitions] = GetParam();
    ParamTest::LogCapture log;
    LoadedModule loaded(kind, version, withDefinitions);
    ASSERT_TRUE(loaded.Loaded()) << kind.label;
    loaded.ExpectEveryMember();
    // A file that carries the very schema the module reads has nothing to complain about.
    // (Without a schema the reader cannot know the width of a short optional number and warns
    // about its block; the values still come back.)
    if (withDefinitions) {
        for (std::string const& message : log.Messages())
            ADD_FAILURE() << "logged: " << message;
        loaded.ExpectSameSchema();
    }
}

std::string RoundTripName(testing::TestParamInfo<RoundTripCase> const& testCase)
{
    auto const& [kind, version, withDefinitions] = testCase.param;
    return std::string(kind.label) + "_V" + std::to_string(version.major) +
           (withDefinitions ? "WithDefinitions" : "WithoutDefinitions");
}

INSTANTIATE_TEST_SUITE_P(Families, CatalogueRoundTripTest, testing::ValuesIn(RoundTripCases()),
                         &RoundTripName);

ModuleKind const& KindOf(char const* label)
{
    for (ModuleKind const& known : Kinds) {
        if (std::strcmp(known.label, label) == 0)
            return known;
    }
    ADD_FAILURE() << "no module kind " << label;
    return Kinds[0];
}

/// The shapes in which the catalogue leaves structures open (frames, gaps), by kind label.
char const* const OpenShapes[] = {
    "gamma_1_6_0", // a first-generation nest (private information known by name only)
    "abf_4_0_0",   // a nest of unknown levels: the core holds nothing known
    "abf_4_0_1",   // a tree whose region is known in part
    "tf_2_3_1",    // passes below the tree's leaf
    "anr_1_3_1",   // an optional region of passes
    "cst_1_2_0",   // no core, a reserve known by name only
    // A data bank whose rows' values are known by name only, with a member after the bank.
    "aecxdbconvdrc",
    // A sensor description: optional members, and members known only by their hash, which a
    // written schema cannot name, so they read as missing.
    "CameraModuleData",
    // A network stage: known members between members known by name only.
    "statsnnmlawb",
};

using OpenShapeCase = std::tuple<char const*, TuningWriter::FileVersion>;

class CatalogueOpenShapeTest : public testing::TestWithParam<OpenShapeCase>
{
};

// A file written from a schema that holds more in every structure than the catalogue knows (as
// a tuning tool's full schema does where the catalogue has frames and gaps) loads every known
// value exactly; what the catalogue does not know is stepped over and touches nothing.
TEST_P(CatalogueOpenShapeTest, KnownValuesComeBackAndUnknownMembersAreSkipped)
{
    auto const& [label, version] = GetParam();
    ParamTest::LogCapture log;
    LoadedModule loaded(KindOf(label), version, true, true);
    ASSERT_TRUE(loaded.Loaded()) << label;
    loaded.ExpectEveryMember();
    // The reader did meet the unknown members: the top structure's two were stepped over.
    std::string const top = std::strrchr(KindOf(label).topType, ':') + 1;
    EXPECT_EQ(log.Count("Structure " + top + " of the file differs from compiled " + top +
                        ": 2 members stepped over, 0 missing, 0 in another form"),
              1u);
}

INSTANTIATE_TEST_SUITE_P(Shapes, CatalogueOpenShapeTest,
                         testing::Combine(testing::ValuesIn(OpenShapes),
                                          testing::Values(TuningWriter::FileVersion{6, 0, 0},
                                                          TuningWriter::FileVersion{7, 0, 0})),
                         [](testing::TestParamInfo<OpenShapeCase> const& testCase) {
                             return std::string(std::get<0>(testCase.param)) + "_V" +
                                    std::to_string(std::get<1>(testCase.param).major);
                         });

/// A concrete set manager and the catalogue of the instances it lists.
struct ManagerCase
{
    char const* label;
    TuningWriter::InstanceCatalogue const& (*catalogue)();
    std::unique_ptr<ParameterSetManager> (*make)();
    bool valueAccess; ///< its modules answer value paths
};

void PrintTo(ManagerCase const& manager, std::ostream* out)
{
    *out << manager.label;
}

template <typename Manager> std::unique_ptr<ParameterSetManager> MakeManager()
{
    return std::make_unique<Manager>(nullptr);
}

ManagerCase const Managers[] = {
    {"TuningSetManager", &ParamSchema::TuningSetManager::Instances,
     [] { return std::unique_ptr<ParameterSetManager>(new ManagerTest::QuietTuningSetManager); },
     true},
    {"ImageSensorModuleSetManager", &ParamSchema::ImageSensorModuleSetManager::Instances,
     &MakeManager<ImageSensorModuleSetManager>, false},
    {"fdSetManager", &ParamSchema::fdSetManager::Instances, &MakeManager<fdSetManager>, false},
    {"bitmlSetManager", &ParamSchema::bitmlSetManager::Instances, &MakeManager<bitmlSetManager>,
     false},
};

bool HasMember(ParameterTypeDescriptor const& type, char const* name)
{
    for (uint32_t i = 0; i < type.memberCount; ++i) {
        if (std::strcmp(type.members[i].name, name) == 0)
            return true;
    }
    return false;
}

class CatalogueSweepTest : public testing::TestWithParam<ManagerCase>
{
};

// One file holds a module of every instance the manager lists, each written from its own
// schema: the manager finds every one by its name and loads it, and a module version written
// into each comes back through the module's value paths.
TEST_P(CatalogueSweepTest, EveryInstanceLoadsByItsName)
{
    ManagerCase const& manager = GetParam();
    TuningWriter::InstanceCatalogue const& catalogue = manager.catalogue();
    std::string text = "version 7.0.0\nmodetable sweep\n  path Default\n";
    for (size_t i = 0; i < catalogue.count; ++i) {
        TuningWriter::InstanceSchema const& instance = catalogue.instances[i];
        text += std::string("instance ") + instance.instanceName + " " + instance.topType +
                " mode Default\n";
        if (HasMember(*instance.type, "module_version"))
            text += "  value module_version.minor_revision 7\n";
    }
    TuningWriter::TuningDescription description({&catalogue});
    ASSERT_TRUE(description.Parse(text)) << description.Error();
    std::vector<uint8_t> file = description.MakeWriter().Build();
    std::unique_ptr<ParameterSetManager> loader = manager.make();
    ASSERT_TRUE(loader->LoadBinaryParameters(file.data(), file.size())) << loader->GetErrorString();

    TuningMode const root[] = {ManagerTest::Step(ModeDefault)};
    for (size_t i = 0; i < catalogue.count; ++i) {
        TuningWriter::InstanceSchema const& instance = catalogue.instances[i];
        ParameterModule* module =
            loader->GetModuleInternal(0, instance.instanceName, root, 1, nullptr, true);
        ASSERT_NE(module, nullptr) << instance.instanceName;
        EXPECT_STREQ(module->moduleName, instance.instanceName);
        char minor[16] = {};
        bool const answered =
            module->GetValue("module_version.minor_revision", minor, sizeof(minor));
        if (manager.valueAccess && HasMember(*instance.type, "module_version")) {
            EXPECT_TRUE(answered && std::strcmp(minor, "7") == 0) << instance.instanceName;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(AllManagers, CatalogueSweepTest, testing::ValuesIn(Managers),
                         [](testing::TestParamInfo<ManagerCase> const& testCase) {
                             return std::string(testCase.param.label);
                         });

// The two smoothers of one convergence entry hold the same nodes: one array, given back once
// by each and freed with the last.
TEST(CatalogueSharingTest, AliasedMembersShareOneArray)
{
    size_t const before = Vorn::Testing::AllocatedBytes();
    {
        LoadedModule loaded(KindOf("aecxconvergence"), {}, true);
        ASSERT_TRUE(loaded.Loaded());
        auto const* convergence = loaded.As<aecxconvergence::AECXConvergenceTypeClass>();
        ASSERT_EQ(convergence->smoothADRC.nodesCount, 2u);
        EXPECT_EQ(convergence->smoothDarkBoost.nodes, convergence->smoothADRC.nodes);
        loaded.Module()->UnloadModule();
        EXPECT_EQ(convergence->smoothADRC.nodes, nullptr);
        EXPECT_EQ(convergence->smoothDarkBoost.nodes, nullptr);
    }
    EXPECT_EQ(Vorn::Testing::AllocatedBytes(), before);
}

// Modules without value access keep the base operations: nothing is reachable by path.
TEST(CatalogueValueAccessTest, ModulesWithoutAccessAnswerNoPath)
{
    LoadedModule loaded(KindOf("vornflindices"), {}, true);
    ASSERT_TRUE(loaded.Loaded());
    auto const* indices = loaded.As<vornflindices::FLIndicesTypeClass>();
    EXPECT_NE(indices->numPoints, 0u);
    char text[32] = {};
    EXPECT_FALSE(loaded.Module()->GetValue("numPoints", text, sizeof(text)));
    PList<ParameterParserInfo> info;
    EXPECT_FALSE(loaded.Module()->GetInfo(nullptr, info));
}

class CatalogueCreateTest : public testing::TestWithParam<ModuleKind>
{
};

std::string VersionMessage(char const* className, VersionUnion file, VersionUnion source)
{
    char text[256];
    snprintf(text, sizeof(text),
             "Unable to create %s, binary version (%lld) does not match source version (%lld)\n",
             className, static_cast<long long>(file.Raw), static_cast<long long>(source.Raw));
    return text;
}

std::string HashMessage(char const* className, unsigned long file, unsigned long source)
{
    char text[256];
    snprintf(text, sizeof(text),
             "Unable to create %s, binary name hash (0x%016llx) does not match source name hash "
             "(0x%016llx)\n",
             className, static_cast<unsigned long long>(file),
             static_cast<unsigned long long>(source));
    return text;
}

// Create makes an instance for a record of its own name and version only. Any other version
// (one generation's patch against the other's, as between gamma_1_6_0 and gamma_1_6_1) is
// refused first, even when the name differs too; then any other name.
TEST_P(CatalogueCreateTest, AcceptsOnlyItsOwnVersionAndName)
{
    ModuleKind const& param = GetParam();
    ParamTest::TestSetManager manager;
    ModuleTest::Detail::SingleModeTable modes;
    ParameterModule* factory = param.makeFactory(InstanceName);
    VersionUnion const own = factory->version;
    unsigned long const ownHash = ParserCRC64::HashName(InstanceName);
    unsigned long const otherHash = ParserCRC64::HashName("otherModule");
    ModuleData accepted(ownHash, 5, 0, own, 0, &modes, &manager, nullptr);
    DefaultModule registry(factory);

    ParameterModule* instance = factory->Create(&accepted, &registry);
    ASSERT_NE(instance, nullptr);
    EXPECT_NE(instance, factory);
    EXPECT_EQ(registry.Find(5), instance);

    struct Refusal
    {
        VersionUnion version;
        unsigned long nameHash;
        bool versionMessage;
    };
    Refusal const refusals[] = {
        {VersionUnion(own.Parts.Major, own.Parts.Minor, own.Parts.Patch ^ 1u), ownHash, true},
        {VersionUnion(own.Parts.Major, static_cast<unsigned short>(own.Parts.Minor + 1),
                      own.Parts.Patch),
         ownHash, true},
        {VersionUnion(static_cast<unsigned short>(own.Parts.Major + 1), own.Parts.Minor,
                      own.Parts.Patch),
         otherHash, true},
        {own, otherHash, false},
    };
    for (Refusal const& refusal : refusals) {
        ParamTest::LogCapture log;
        ModuleData record(refusal.nameHash, 6, 0, refusal.version, 0, &modes, &manager, nullptr);
        EXPECT_EQ(factory->Create(&record, &registry), nullptr);
        std::string const expected = refusal.versionMessage
                                         ? VersionMessage(param.className, refusal.version, own)
                                         : HashMessage(param.className, refusal.nameHash, ownHash);
        EXPECT_TRUE(log.HasMessage(expected)) << expected;
    }
    EXPECT_EQ(registry.Find(6), nullptr);
}

INSTANTIATE_TEST_SUITE_P(AllModules, CatalogueCreateTest, testing::ValuesIn(Kinds),
                         [](testing::TestParamInfo<ModuleKind> const& testCase) {
                             return std::string(testCase.param.label);
                         });

} // namespace
