// SPDX-License-Identifier: Apache-2.0
// Files written from another schema than the compiled one, changed at one place and in one way at
// a time: every known value comes back exactly, nothing else is touched, and the difference is
// told once a load. And files built to make a load decode the same blocks again and again.
#include <algorithm>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/defaultmodule.h"
#include "parameterparser/parameterloadcontext.h"
#include "parameterparser/parameterschemadifference.h"
#include "tools/writer/definitiontablebuilder.h"

#include "paramgen/shapetest.h"
#include "tests/common/logcapture.h"
#include "tests/parametermodules/modulefixture.h"
#include "tests/parametermodules/modulevalues.h"

namespace {

using ModuleTest::ModuleFile;
using ModuleTest::ValueChecker;
using ModuleTest::ValueMaker;
using TuningWriter::DefinitionElement;
using TuningWriter::DefinitionStructure;
using TuningWriter::ElementType;
using TuningWriter::EntryValue;
using TuningWriter::FileVersion;

constexpr char const* InstanceName = "shapeTest";

ModuleTest::ModuleSchema ShapeSchema()
{
    return {
        &shapetest::shapeTestType::Descriptor, "shapetest::shapeTestType", InstanceName, {1, 0, 0}};
}

/// The module of entry id, created and loaded through its class as a set manager does.
class LoadedShape
{
public:
    LoadedShape(ModuleFile& file, uint32_t id)
        : m_factory(new shapetest::shapeTestTypeClass(InstanceName)), m_registry(m_factory)
    {
        m_module = static_cast<shapetest::shapeTestTypeClass*>(
            m_factory->Create(file.Record(id), &m_registry));
        m_loaded = m_module != nullptr && m_module->LoadModule(&file.Table());
    }

    bool Loaded() const { return m_loaded; }
    shapetest::shapeTestType const& Value() const { return *m_module; }

private:
    ParameterModule* m_factory; ///< owned by m_registry
    DefaultModule m_registry;
    shapetest::shapeTestTypeClass* m_module = nullptr;
    bool m_loaded = false;
};

EntryValue& Field(EntryValue& value, std::string const& name)
{
    for (size_t i = 0; i < value.fieldNames.size(); ++i) {
        if (value.fieldNames[i] == name)
            return value.items[i];
    }
    ADD_FAILURE() << "no field " << name;
    return value;
}

DefinitionStructure& StructureNamed(std::vector<DefinitionStructure>& schema,
                                    std::string const& name)
{
    for (DefinitionStructure& structure : schema) {
        if (structure.name == name)
            return structure;
    }
    ADD_FAILURE() << "no structure " << name;
    return schema.front();
}

DefinitionElement Member(std::string name, ElementType type, uint32_t minCount = 1,
                         uint32_t maxCount = 1, uint32_t id = 0)
{
    DefinitionElement element;
    element.name = std::move(name);
    element.type = type;
    element.minCount = minCount;
    element.maxCount = maxCount;
    element.id = id;
    return element;
}

DefinitionElement& ElementNamed(DefinitionStructure& structure, std::string const& name)
{
    for (DefinitionElement& element : structure.elements) {
        if (element.name == name)
            return element;
    }
    ADD_FAILURE() << "no member " << name;
    return structure.elements.front();
}

/// What a member reads as when the file lacks it: zeros, and no text.
EntryValue Zeroed(EntryValue const& value)
{
    EntryValue zero;
    zero.kind = value.kind;
    zero.fieldNames = value.fieldNames;
    for (EntryValue const& item : value.items)
        zero.items.push_back(Zeroed(item));
    if (value.kind == EntryValue::Kind::Text)
        zero.text = "<null>";
    return zero;
}

/// The places where the part type stands, and the module's top structure.
enum class Place
{
    Top,
    Nested,
    Fixed,
    Counted,
    Optional,
};

char const* MemberOf(Place place)
{
    switch (place) {
    case Place::Nested:
        return "nested";
    case Place::Fixed:
        return "fixed";
    case Place::Counted:
        return "counted";
    case Place::Optional:
        return "optional";
    case Place::Top:
        break;
    }
    return "";
}

/// The structure of the file's schema at place. The part type is given a structure of its own
/// there, so that a change touches no other place.
DefinitionStructure& StructureAt(std::vector<DefinitionStructure>& schema, Place place)
{
    if (place == Place::Top)
        return StructureNamed(schema, "shapeTestType");
    DefinitionStructure own = StructureNamed(schema, "partType");
    own.id = static_cast<uint32_t>(schema.size() + 1);
    ElementNamed(StructureNamed(schema, "shapeTestType"), MemberOf(place)).id = own.id;
    schema.push_back(own);
    return schema.back();
}

/// The values of every instance at place: each element of an array.
std::vector<EntryValue*> InstancesAt(EntryValue& value, Place place)
{
    if (place == Place::Top)
        return {&value};
    EntryValue& member = Field(value, MemberOf(place));
    if (place == Place::Nested)
        return {&member};
    std::vector<EntryValue*> instances;
    for (EntryValue& item : member.items)
        instances.push_back(&item);
    return instances;
}

using SchemaChange =
    std::function<void(std::vector<DefinitionStructure>& schema, DefinitionStructure& structure)>;
using ValueChange = std::function<void(EntryValue& written, EntryValue& expected)>;

/// A member the compiled type does not know, inserted at index (past the end: appended) and
/// written with value; a structure member is of the file's structure named structureName.
std::pair<SchemaChange, ValueChange> Extra(size_t index, DefinitionElement element,
                                           EntryValue value, char const* structureName = nullptr)
{
    std::string const name = element.name;
    return {[index, element, structureName](std::vector<DefinitionStructure>& schema,
                                            DefinitionStructure& structure) {
                DefinitionElement added = element;
                if (structureName != nullptr)
                    added.id = StructureNamed(schema, structureName).id;
                auto& elements = structure.elements;
                auto const at = static_cast<long>(std::min(index, elements.size()));
                elements.insert(elements.begin() + at, added);
            },
            [name, value](EntryValue& written, EntryValue&) { written.Set(name, value); }};
}

/// A member the file's structure lacks: it reads as zeros.
std::pair<SchemaChange, ValueChange> Missing(std::string const& name)
{
    return {[name](std::vector<DefinitionStructure>&, DefinitionStructure& structure) {
                auto& elements = structure.elements;
                for (auto it = elements.begin(); it != elements.end(); ++it) {
                    if (it->name == name) {
                        elements.erase(it);
                        return;
                    }
                }
                ADD_FAILURE() << "no member " << name;
            },
            [name](EntryValue&, EntryValue& expected) {
                Field(expected, name) = Zeroed(Field(expected, name));
            }};
}

EntryValue Reals(std::vector<double> const& values)
{
    std::vector<EntryValue> items;
    for (double value : values)
        items.push_back(EntryValue::Real(value));
    return EntryValue::List(std::move(items));
}

struct ShapeCase
{
    char const* name;
    Place place;
    std::pair<SchemaChange, ValueChange> change;
    ParameterSchemaDifference told; ///< what the load's summary says; nothing is logged for none
};

void PrintTo(ShapeCase const& shape, std::ostream* out)
{
    *out << shape.name;
}

std::vector<ShapeCase> ShapeCases()
{
    std::pair<SchemaChange, ValueChange> const none{
        [](std::vector<DefinitionStructure>&, DefinitionStructure&) {},
        [](EntryValue&, EntryValue&) {}};
    size_t const end = 100;
    return {
        {"Matching", Place::Top, none, {}},
        {"NumberAtTopStart",
         Place::Top,
         Extra(0, Member("addedFirst", ElementType::UInt32), EntryValue::UInt(77)),
         {1, 0, 0}},
        {"FixedArrayInNestedMiddle",
         Place::Nested,
         Extra(2, Member("addedGains", ElementType::Float, 5, 5), Reals({9, 8, 7, 6, 5})),
         {1, 0, 0}},
        {"CountedArrayAtTopEnd",
         Place::Top,
         Extra(end, Member("addedValues", ElementType::UInt32, 0, 65535),
               EntryValue::List({EntryValue::UInt(5), EntryValue::UInt(6)})),
         {1, 0, 0}},
        {"StringAtFixedElementStart",
         Place::Fixed,
         Extra(0, Member("addedLabel", ElementType::String), EntryValue::Text("added")),
         {1, 0, 0}},
        {"StructureInCountedElementMiddle",
         Place::Counted,
         Extra(2, Member("addedVersion", ElementType::Structure),
               EntryValue::Struct({{"major_revision", EntryValue::Int(9)},
                                   {"minor_revision", EntryValue::Int(8)},
                                   {"incr_revision", EntryValue::Int(7)}}),
               "module_versionStruct"),
         {1, 0, 0}},
        {"OptionalAtOptionalEnd",
         Place::Optional,
         Extra(end, Member("addedOptional", ElementType::UInt32, 0, 1),
               EntryValue::List({EntryValue::UInt(3)})),
         {1, 0, 0}},
        {"MissingAtTopStart", Place::Top, Missing("module_version"), {0, 1, 0}},
        {"MissingInNested", Place::Nested, Missing("id"), {0, 1, 0}},
        {"MissingAtFixedElementEnd", Place::Fixed, Missing("label"), {0, 1, 0}},
        {"MissingInCountedElementMiddle", Place::Counted, Missing("gains"), {0, 1, 0}},
        {"MissingInOptional", Place::Optional, Missing("offset"), {0, 1, 0}},
        {"OtherNumberTypesInNested",
         Place::Nested,
         {[](std::vector<DefinitionStructure>&, DefinitionStructure& structure) {
              ElementNamed(structure, "id").type = ElementType::UInt16;
              ElementNamed(structure, "offset").type = ElementType::Int32;
          },
          [](EntryValue&, EntryValue&) {}},
         {0, 0, 2}},
        {"LongerFixedArrayAtTop",
         Place::Top,
         {[](std::vector<DefinitionStructure>&, DefinitionStructure& structure) {
              DefinitionElement& table = ElementNamed(structure, "table");
              table.minCount = table.maxCount = 6;
          },
          [](EntryValue& written, EntryValue&) {
              Field(written, "table").items.push_back(EntryValue::Real(41.5));
              Field(written, "table").items.push_back(EntryValue::Real(42.5));
          }},
         {0, 0, 1}},
        {"ShorterFixedArrayInCountedElement",
         Place::Counted,
         {[](std::vector<DefinitionStructure>&, DefinitionStructure& structure) {
              DefinitionElement& gains = ElementNamed(structure, "gains");
              gains.minCount = gains.maxCount = 2;
          },
          [](EntryValue& written, EntryValue& expected) {
              Field(written, "gains").items.pop_back();
              Field(expected, "gains").items.back() = EntryValue::Real(0);
          }},
         {0, 0, 1}},
    };
}

std::string Summary(char const* structure, ParameterSchemaDifference const& told)
{
    return "Structure " + std::string(structure) + " of the file differs from compiled " +
           structure + ": " + std::to_string(told.steppedOver) + " members stepped over, " +
           std::to_string(told.missing) + " missing, " + std::to_string(told.changed) +
           " in another form";
}

using ShapeParam = std::tuple<ShapeCase, FileVersion>;

class SchemaToleranceTest : public testing::TestWithParam<ShapeParam>
{
};

TEST_P(SchemaToleranceTest, EveryKnownValueComesBackAndTheDifferenceIsToldOnce)
{
    auto const& [shape, version] = GetParam();
    ModuleFile file(version, true, ShapeSchema());
    std::vector<DefinitionStructure>& schema = file.FileSchema();
    shape.change.first(schema, StructureAt(schema, shape.place));

    EntryValue written = ValueMaker().Make(shapetest::shapeTestType::Descriptor);
    EntryValue expected = written;
    std::vector<EntryValue*> const writtenAt = InstancesAt(written, shape.place);
    std::vector<EntryValue*> const expectedAt = InstancesAt(expected, shape.place);
    ASSERT_FALSE(writtenAt.empty());
    for (size_t i = 0; i < writtenAt.size(); ++i)
        shape.change.second(*writtenAt[i], *expectedAt[i]);
    uint32_t const id = file.AddModule(written);
    ASSERT_TRUE(file.Build());

    ParamTest::LogCapture log;
    LoadedShape loaded(file, id);
    ASSERT_TRUE(loaded.Loaded());
    ValueChecker().Check(&loaded.Value(), shapetest::shapeTestType::Descriptor, expected, "");
    if (!shape.told.Any()) {
        for (std::string const& message : log.Messages())
            ADD_FAILURE() << "logged: " << message;
        return;
    }
    char const* structure = shape.place == Place::Top ? "shapeTestType" : "partType";
    EXPECT_EQ(log.Count(Summary(structure, shape.told)), 1u) << Summary(structure, shape.told);
}

std::string ShapeName(testing::TestParamInfo<ShapeParam> const& shape)
{
    return std::string(std::get<0>(shape.param).name) + "_V" +
           std::to_string(std::get<1>(shape.param).major);
}

INSTANTIATE_TEST_SUITE_P(Shapes, SchemaToleranceTest,
                         testing::Combine(testing::ValuesIn(ShapeCases()),
                                          testing::Values(FileVersion{6, 0, 0},
                                                          FileVersion{7, 0, 0})),
                         &ShapeName);

// A thousand elements of a changed structure: the first tells what differs, the rest are read
// without a word.
TEST(SchemaToleranceLogTest, ChangedStructureInALongArrayIsToldOnce)
{
    ModuleFile file({}, true, ShapeSchema());
    DefinitionStructure& part = StructureAt(file.FileSchema(), Place::Counted);
    part.elements.insert(part.elements.begin(), Member("addedFirst", ElementType::UInt32));
    EntryValue written = ValueMaker().Make(shapetest::shapeTestType::Descriptor);
    EntryValue& counted = Field(written, "counted");
    EntryValue const element = counted.items.front();
    counted.items.assign(1000, element);
    for (EntryValue& item : counted.items)
        item.Set("addedFirst", EntryValue::UInt(12345));
    uint32_t const id = file.AddModule(written);
    ASSERT_TRUE(file.Build());

    ParamTest::LogCapture log;
    LoadedShape loaded(file, id);
    ASSERT_TRUE(loaded.Loaded());
    ValueChecker().Check(&loaded.Value(), shapetest::shapeTestType::Descriptor, written, "");
    EXPECT_EQ(log.Count(Summary("partType", {1, 0, 0})), 1u);
    EXPECT_LE(log.Messages().size(), 8u);
}

size_t CountNodes(shapetest::nodeType const& node)
{
    size_t nodes = 1;
    for (uint32_t i = 0; node.children != nullptr && i < node.childrenCount; ++i)
        nodes += CountNodes(node.children[i]);
    return nodes;
}

// Every node of a level points its children at one block of the next level: read naively, the
// nodes multiply with each level (8 to the 7th) in a file of a few kilobytes. The load decodes no
// more than its bound for the file's size, says so once, and keeps every other member.
TEST(SchemaToleranceWorkTest, BlocksSharedByManyHoldersDoNotMultiplyTheWork)
{
    constexpr uint32_t Breadth = 8;
    constexpr uint32_t Levels = 7;
    ModuleFile file({}, true, ShapeSchema());
    // From the leaves up, each level is written as the tree of a module of its own, so that the
    // level above can point at its block.
    uint32_t below = 0;
    for (uint32_t level = Levels; level >= 1; --level) {
        std::vector<EntryValue> nodes;
        for (uint32_t i = 0; i < Breadth; ++i) {
            EntryValue children = EntryValue::List({});
            if (below != 0) {
                children.idOverride = below;
                children.countOverride = Breadth;
            }
            nodes.push_back(EntryValue::Struct(
                {{"value", EntryValue::UInt(level * 100 + i)}, {"children", children}}));
        }
        EntryValue block = EntryValue::List(std::move(nodes));
        block.blockName = "level" + std::to_string(level);
        (void)file.AddModule(EntryValue::Struct(
            {{"tree", EntryValue::Struct({{"value", EntryValue::UInt(0)}, {"children", block}})}}));
        below = file.BlockId(block.blockName);
        ASSERT_NE(below, 0u);
    }
    EntryValue written = ValueMaker().Make(shapetest::shapeTestType::Descriptor);
    EntryValue& children = Field(Field(written, "tree"), "children");
    children = EntryValue::List({});
    children.idOverride = below;
    children.countOverride = Breadth;
    uint32_t const id = file.AddModule(written);
    ASSERT_TRUE(file.Build());

    ParamTest::LogCapture log;
    LoadedShape loaded(file, id);
    ASSERT_TRUE(loaded.Loaded());
    size_t const nodes = CountNodes(loaded.Value().tree);
    EXPECT_GT(nodes, Breadth * Breadth);
    EXPECT_LE(nodes, MaxDecodedElementsPerFileByte * file.Table().GetFileLength());
    EXPECT_EQ(log.Count("Module load passes"), 1u);
    EXPECT_EQ(loaded.Value().last, Field(written, "last").unsignedValue);
    EXPECT_EQ(loaded.Value().counted[1].gains[2],
              static_cast<float>(Field(written, "counted").items[1].items[1].items[2].realValue));
}

} // namespace
