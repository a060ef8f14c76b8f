// SPDX-License-Identifier: Apache-2.0
// Catalogue modules end to end: one instance of every shape the set managers' catalogues hold is
// written from its schema and loads back through its module class, also from a fuller schema
// than the catalogue knows; and every instance of every set manager loads by its name.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/defaultmodule.h"
#include "parameterparser/parametermemberaccess.h"
#include "parameterparser/parametermodule.h"
#include "parameterparser/parameterparserinfo.h"
#include "parameterparser/parsercrc.h"
#include "tools/generator/schemaset.h"
#include "tools/writer/tuningdescription.h"

#include "paramgen/ImageSensorModuleSetManager.h"
#include "paramgen/ImageSensorModuleSetManager.writer.h"
#include "paramgen/bitmlSetManager.h"
#include "paramgen/bitmlSetManager.writer.h"
#include "paramgen/fdSetManager.h"
#include "paramgen/fdSetManager.writer.h"
#include "tests/common/logcapture.h"
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
using TuningWriter::InstanceSchema;
using TuningWriter::SchemaElement;

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

/// What sets a type's shape apart for the reader: the member kinds it holds at any depth, and
/// whether it holds members known only by their hash, members outside the file, or itself.
unsigned int Shape(ParameterTypeDescriptor const& type,
                   std::vector<ParameterTypeDescriptor const*>& open)
{
    if (std::find(open.begin(), open.end(), &type) != open.end())
        return 1u << 16;
    open.push_back(&type);
    unsigned int shape = 0;
    for (uint32_t i = 0; i < type.memberCount; ++i) {
        ParameterMemberDescriptor const& member = type.members[i];
        shape |= 1u << static_cast<unsigned int>(member.kind);
        if (member.hidden)
            shape |= 1u << 14;
        else if (ParserCRC64::HashName(member.name) != member.nameHash)
            shape |= 1u << 15;
        if (member.type != nullptr)
            shape |= Shape(*member.type, open);
    }
    open.pop_back();
    return shape;
}

bool KnownOnlyByHash(ParameterTypeDescriptor const& type)
{
    std::vector<ParameterTypeDescriptor const*> open;
    return (Shape(type, open) & (1u << 15)) != 0;
}

/// The members of type known only by their hash, which a written schema cannot name.
unsigned int HashOnlyMembers(ParameterTypeDescriptor const& type)
{
    unsigned int count = 0;
    for (uint32_t i = 0; i < type.memberCount; ++i) {
        ParameterMemberDescriptor const& member = type.members[i];
        count += !member.hidden && ParserCRC64::HashName(member.name) != member.nameHash ? 1 : 0;
    }
    return count;
}

/// One instance of a set manager's catalogue.
struct Representative
{
    ManagerCase const* manager;
    InstanceSchema const* instance;
};

void PrintTo(Representative const& item, std::ostream* out)
{
    *out << item.instance->instanceName;
}

/// The first instance of every shape over all catalogues.
std::vector<Representative> Representatives()
{
    std::vector<Representative> chosen;
    std::set<unsigned int> shapes;
    for (ManagerCase const& manager : Managers) {
        TuningWriter::InstanceCatalogue const& catalogue = manager.catalogue();
        for (size_t i = 0; i < catalogue.count; ++i) {
            std::vector<ParameterTypeDescriptor const*> open;
            if (shapes.insert(Shape(*catalogue.instances[i].type, open)).second)
                chosen.push_back({&manager, &catalogue.instances[i]});
        }
    }
    return chosen;
}

/// How the file describes the module.
enum class FileSchema
{
    None,   ///< no schema section: the module reads by its compiled-in layout
    Same,   ///< the very schema the module was compiled from
    Fuller, ///< every structure holds more than the catalogue knows, at its start and end
};

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

using RoundTripCase = std::tuple<Representative, TuningWriter::FileVersion, FileSchema>;

// Every representative in 6.0.0 and 7.0.0 files, with each kind of schema section; a written
// schema cannot name members known only by their hash, so those shapes do not come with the
// same schema (they read as missing from a fuller one).
std::vector<RoundTripCase> RoundTripCases()
{
    std::vector<RoundTripCase> cases;
    for (Representative const& item : Representatives()) {
        for (TuningWriter::FileVersion version :
             {TuningWriter::FileVersion{6, 0, 0}, TuningWriter::FileVersion{7, 0, 0}}) {
            cases.emplace_back(item, version, FileSchema::None);
            cases.emplace_back(item, version, FileSchema::Fuller);
            if (!KnownOnlyByHash(*item.instance->type))
                cases.emplace_back(item, version, FileSchema::Same);
        }
    }
    return cases;
}

class CatalogueRoundTripTest : public testing::TestWithParam<RoundTripCase>
{
};

TEST_P(CatalogueRoundTripTest, EveryKnownMemberComesBack)
{
    auto const& [item, version, schema] = GetParam();
    InstanceSchema const& instance = *item.instance;
    std::unique_ptr<ParameterSetManager> manager = item.manager->make();
    DefaultModule* kind = manager->GetDefaultModule(ParserCRC64::HashName(instance.instanceName));
    ASSERT_NE(kind, nullptr);
    ModuleTest::ModuleFile file(
        version, schema != FileSchema::None,
        {instance.type, instance.topType, instance.instanceName, instance.version});
    EntryValue const expected = ValueMaker(schema != FileSchema::None).Make(*instance.type);
    EntryValue written = expected;
    if (schema == FileSchema::Fuller) {
        AddUnknownValues(written);
        AddUnknownMembers(file.FileSchema());
    }
    uint32_t const id = file.AddModule(written);
    ASSERT_TRUE(file.Build());

    ParamTest::LogCapture log;
    ParameterModule* module = kind->module->Create(file.Record(id), kind);
    ASSERT_NE(module, nullptr);
    ASSERT_TRUE(module->LoadModule(&file.Table()));
    // A module class derives from ParameterModule first and its top structure second.
    ValueChecker().Check(reinterpret_cast<unsigned char const*>(module) + sizeof(ParameterModule),
                         *instance.type, expected, "");
    // The very schema has nothing to complain about; a fuller one is told about once for the
    // top structure. (Without a schema the reader cannot know the width of a short optional
    // number and warns about its block; the values still come back.)
    if (schema == FileSchema::Same) {
        EXPECT_EQ(log.Messages(), std::vector<std::string>());
    }
    // (Members known only by their hash are written under their names: such a top structure
    // counts them among both, and its values are checked all the same.)
    if (schema == FileSchema::Fuller && HashOnlyMembers(*instance.type) == 0) {
        std::string const top = std::strrchr(instance.topType, ':') + 1;
        EXPECT_EQ(log.Count("Structure " + top + " of the file differs from compiled " + top +
                            ": 2 members stepped over, 0 missing, 0 in another form"),
                  1u);
    }
    module->UnloadModule();
}

std::string RoundTripName(testing::TestParamInfo<RoundTripCase> const& testCase)
{
    auto const& [item, version, schema] = testCase.param;
    char const* const schemas[] = {"WithoutSchema", "SameSchema", "FullerSchema"};
    return std::string(item.instance->instanceName) + "_V" + std::to_string(version.major) +
           schemas[static_cast<int>(schema)];
}

INSTANTIATE_TEST_SUITE_P(Shapes, CatalogueRoundTripTest, testing::ValuesIn(RoundTripCases()),
                         &RoundTripName);

// The module in the test schema's own class is read at the same place: the catalogue test
// above finds every top structure there.
TEST(CatalogueRoundTripLayoutTest, TopStructureFollowsTheModuleBase)
{
    moduletest::moduleTestTypeClass module("layout");
    EXPECT_EQ(
        static_cast<void*>(static_cast<moduletest::moduleTestType*>(&module)),
        static_cast<void*>(reinterpret_cast<unsigned char*>(&module) + sizeof(ParameterModule)));
}

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
// into each comes back through the value paths of the managers whose modules have them; the
// others answer no path.
TEST_P(CatalogueSweepTest, EveryInstanceLoadsByItsName)
{
    ManagerCase const& manager = GetParam();
    TuningWriter::InstanceCatalogue const& catalogue = manager.catalogue();
    std::string text = "version 7.0.0\nmodetable sweep\n  path Default\n";
    for (size_t i = 0; i < catalogue.count; ++i) {
        InstanceSchema const& instance = catalogue.instances[i];
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
        InstanceSchema const& instance = catalogue.instances[i];
        ParameterModule* module =
            loader->GetModuleInternal(0, instance.instanceName, root, 1, nullptr, true);
        ASSERT_NE(module, nullptr) << instance.instanceName;
        EXPECT_STREQ(module->moduleName, instance.instanceName);
        char minor[16] = {};
        bool const answered =
            module->GetValue("module_version.minor_revision", minor, sizeof(minor));
        bool const hasVersion = HasMember(*instance.type, "module_version");
        EXPECT_EQ(answered, manager.valueAccess && hasVersion) << instance.instanceName;
        if (answered) {
            EXPECT_STREQ(minor, "7") << instance.instanceName;
        }
        PList<ParameterParserInfo> info;
        EXPECT_EQ(module->GetInfo("", info), manager.valueAccess) << instance.instanceName;
    }
}

INSTANTIATE_TEST_SUITE_P(AllManagers, CatalogueSweepTest, testing::ValuesIn(Managers),
                         [](testing::TestParamInfo<ManagerCase> const& testCase) {
                             return std::string(testCase.param.label);
                         });

} // namespace
