// SPDX-License-Identifier: Apache-2.0
// Catalogue modules end to end: one instance of every shape the set managers' catalogues hold is
// written from its schema and loads back through its module class, also from a fuller schema
// than the catalogue knows; and every instance of every set manager loads by its name.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/parametermodule.h"
#include "tools/writer/tuningdescription.h"

#include "paramgen/ImageSensorModuleSetManager.h"
#include "paramgen/ImageSensorModuleSetManager.writer.h"
#include "paramgen/bitmlSetManager.h"
#include "paramgen/bitmlSetManager.writer.h"
#include "paramgen/fdSetManager.h"
#include "paramgen/fdSetManager.writer.h"
#include "paramgen/moduletest.h"
#include "tests/common/logcapture.h"
#include "tests/common/modulefile.h"
#include "tests/parametermodules/managerfixture.h"
#include "tests/parametermodules/modulevalues.h"

namespace {

using ModuleTest::Leaves;
using ModuleTest::ValueMaker;
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
/// whether it holds members known only by their hash (bit 15), members outside the file or itself.
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

/// One instance of a set manager's catalogue.
struct Representative
{
    ManagerCase const* manager;
    InstanceSchema const* instance;
};

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

/// Gives every structure of value the members AddUnknownMembers adds.
void AddUnknownValues(EntryValue& value)
{
    for (EntryValue& item : value.items)
        AddUnknownValues(item);
    EntryValue const entry =
        EntryValue::Struct({{"start", EntryValue::Real(0.25)}, {"end", EntryValue::Real(0.75)}});
    if (value.kind == EntryValue::Kind::Structure)
        value.Set("unknownFront", EntryValue::UInt(0xC0FFEE))
            .Set("unknownGroups", EntryValue::List({entry, entry}));
}

/// Makes the file's schema fuller than the compiled one everywhere: every structure gains a
/// number at its start and a counted array of a structure of its own at its end, as an unknown
/// nest level or region group would be; and every structure of value the values of both.
void AddUnknownMembers(std::vector<TuningWriter::DefinitionStructure>& schema, EntryValue& value)
{
    uint32_t group = 0;
    for (auto const& structure : schema)
        group = std::max(group, structure.id + 1);
    for (auto& structure : schema) {
        structure.elements.insert(structure.elements.begin(),
                                  SchemaElement("unknownFront", ElementType::UInt32, 0, 1, 1));
        structure.elements.push_back(
            SchemaElement("unknownGroups", ElementType::Structure, group, 0, 65535));
    }
    TuningWriter::DefinitionStructure groupType;
    groupType.id = group;
    groupType.name = "unknownGroupType";
    groupType.elements = {SchemaElement("start", ElementType::Float, 0, 1, 1),
                          SchemaElement("end", ElementType::Float, 0, 1, 1)};
    schema.push_back(groupType);

    AddUnknownValues(value);
}

class CatalogueRoundTripTest : public testing::TestWithParam<Representative>
{
};

// Every representative in 6.0.0 and 7.0.0 files with each kind of schema section reads what a
// 7.0.0 file without one gives. A written schema cannot name members known only by their hash,
// so those are left out of what is written with one (and such shapes come without the same one).
TEST_P(CatalogueRoundTripTest, EveryKnownMemberComesBack)
{
    Representative const& item = GetParam();
    InstanceSchema const& instance = *item.instance;
    std::unique_ptr<ParameterSetManager> manager = item.manager->make();
    DefaultModule* kind = manager->GetDefaultModule(ParserCRC64::HashName(instance.instanceName));
    ASSERT_NE(kind, nullptr);
    auto load = [&](TuningWriter::FileVersion version, FileSchema schema, EntryValue written,
                    std::vector<std::string>& messages) {
        ParamTest::ModuleFile file(
            {instance.type, instance.topType, instance.instanceName, instance.version}, version,
            schema != FileSchema::None);
        if (schema == FileSchema::Fuller)
            AddUnknownMembers(file.FileSchema(), written);
        uint32_t const id = file.AddModule(written);
        EXPECT_TRUE(file.Build());
        ParamTest::LogCapture log;
        ParameterModule* module = kind->module->Create(file.Record(id), kind);
        EXPECT_NE(module, nullptr);
        if (module == nullptr)
            return Leaves();
        EXPECT_TRUE(module->LoadModule(&file.Table()));
        messages = log.Messages();
        // A module class derives from ParameterModule first and its top structure second.
        Leaves const leaves = ModuleTest::ReadLeaves(
            reinterpret_cast<unsigned char*>(module) + sizeof(ParameterModule), *instance.type);
        kind->RemoveModule(module);
        delete module;
        return leaves;
    };
    std::vector<ParameterTypeDescriptor const*> open;
    unsigned int const hashOnly = Shape(*instance.type, open) & (1u << 15);
    std::vector<std::string> messages;
    EntryValue const all = ValueMaker().Make(*instance.type);
    EntryValue const named = ValueMaker(true).Make(*instance.type);
    Leaves const reference = load({7, 0, 0}, FileSchema::None, all, messages);
    Leaves const namedReference = load({7, 0, 0}, FileSchema::None, named, messages);
    for (uint16_t const major : {6, 7}) {
        for (FileSchema const schema : {FileSchema::None, FileSchema::Same, FileSchema::Fuller}) {
            if (schema == FileSchema::Same && hashOnly != 0)
                continue;
            SCOPED_TRACE(std::to_string(major) + " schema " +
                         std::to_string(static_cast<int>(schema)));
            bool const none = schema == FileSchema::None;
            ModuleTest::ExpectSameLeaves(load({major, 0, 0}, schema, none ? all : named, messages),
                                         none ? reference : namedReference);
            // The very schema has nothing to complain about; a fuller one is told about once for
            // the top structure. (Without a schema the reader cannot know the width of a short
            // optional number and warns about its block.) A top structure with members known
            // only by their hash counts them among both.
            std::string const top = std::strrchr(instance.topType, ':') + 1;
            std::string const told = "Structure " + top + " of the file differs from compiled " +
                                     top +
                                     ": 2 members stepped over, 0 missing, 0 in another form\n";
            if (schema == FileSchema::Same) {
                EXPECT_EQ(messages, std::vector<std::string>());
            } else if (schema == FileSchema::Fuller && hashOnly == 0) {
                EXPECT_EQ(std::count(messages.begin(), messages.end(), told), 1);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Shapes, CatalogueRoundTripTest, testing::ValuesIn(Representatives()),
                         [](testing::TestParamInfo<Representative> const& item) {
                             return std::string(item.param.instance->instanceName);
                         });

// The test schema's own class holds its top structure right behind the module base, where the
// round trip above reads every top structure.
TEST(CatalogueRoundTripLayoutTest, TopStructureFollowsTheModuleBase)
{
    moduletest::moduleTestTypeClass module("layout");
    EXPECT_EQ(
        static_cast<void*>(static_cast<moduletest::moduleTestType*>(&module)),
        static_cast<void*>(reinterpret_cast<unsigned char*>(&module) + sizeof(ParameterModule)));
}

class CatalogueSweepTest : public testing::TestWithParam<ManagerCase>
{
};

// One file holds a module of every instance the manager lists, each written from its own
// schema: the manager finds every one by its name and loads it, and a module version written
// into each comes back through the value paths of the managers whose modules have them; the
// others answer no path and list no member.
TEST_P(CatalogueSweepTest, EveryInstanceLoadsByItsName)
{
    ManagerCase const& manager = GetParam();
    TuningWriter::InstanceCatalogue const& catalogue = manager.catalogue();
    auto hasVersion = [](InstanceSchema const& instance) {
        for (uint32_t i = 0; i < instance.type->memberCount; ++i) {
            if (std::strcmp(instance.type->members[i].name, "module_version") == 0)
                return true;
        }
        return false;
    };
    std::string text = "version 7.0.0\nmodetable sweep\n  path Default\n";
    for (size_t i = 0; i < catalogue.count; ++i) {
        InstanceSchema const& instance = catalogue.instances[i];
        text += std::string("instance ") + instance.instanceName + " " + instance.topType +
                " mode Default\n";
        if (hasVersion(instance))
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
        SCOPED_TRACE(instance.instanceName);
        ParameterModule* module =
            loader->GetModuleInternal(0, instance.instanceName, root, 1, nullptr, true);
        ASSERT_NE(module, nullptr);
        EXPECT_STREQ(module->moduleName, instance.instanceName);
        char minor[16] = {};
        bool const answered =
            module->GetValue("module_version.minor_revision", minor, sizeof(minor));
        EXPECT_EQ(answered, manager.valueAccess && hasVersion(instance));
        EXPECT_STREQ(minor, answered ? "7" : "");
        PList<ParameterParserInfo> info;
        EXPECT_EQ(module->GetInfo("", info), manager.valueAccess);
    }
}

INSTANTIATE_TEST_SUITE_P(AllManagers, CatalogueSweepTest, testing::ValuesIn(Managers),
                         [](testing::TestParamInfo<ManagerCase> const& item) {
                             return std::string(item.param.label);
                         });

} // namespace
