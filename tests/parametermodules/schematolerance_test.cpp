// SPDX-License-Identifier: Apache-2.0
// Files written from another schema than the compiled one, changed at one place and in one way at
// a time: every known value comes back exactly, nothing else is touched, and the difference is
// told once a load. And files built to make a load decode the same blocks again and again.
#include <algorithm>
#include <cstdint>
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
    auto const found = std::find_if(schema.begin(), schema.end(),
                                    [&](DefinitionStructure const& s) { return s.name == name; });
    EXPECT_NE(found, schema.end()) << name;
    return found != schema.end() ? *found : schema.front();
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

/// Where the part type stands (its member in the top structure), or the top structure itself.
enum class Place
{
    Top,
    Nested,
    Fixed,
    Counted,
    Optional,
};

char const* const PlaceMembers[] = {"", "nested", "fixed", "counted", "optional"};

/// How the file's structure at the place differs from the compiled type.
enum class Change
{
    None,
    Insert,  ///< member stands at index (past the end: appended), holding value
    Remove,  ///< member.name is not in the file
    Retype,  ///< member.name has member.type
    Recount, ///< the fixed array member.name has member.maxCount elements
};

struct ShapeCase
{
    char const* name;
    Place place;
    Change change;
    DefinitionElement member;
    size_t index;
    EntryValue value;
    ParameterSchemaDifference told; ///< what the load's summary says; nothing is logged for none
};

void PrintTo(ShapeCase const& shape, std::ostream* out)
{
    *out << shape.name;
}

DefinitionElement Member(std::string name, ElementType type, uint32_t minCount = 1,
                         uint32_t maxCount = 1)
{
    DefinitionElement element;
    element.name = std::move(name);
    element.type = type;
    element.minCount = minCount;
    element.maxCount = maxCount;
    return element;
}

/// The elements of every instance at place.
std::vector<EntryValue*> InstancesAt(EntryValue& value, Place place)
{
    if (place == Place::Top)
        return {&value};
    EntryValue& member = Field(value, PlaceMembers[static_cast<int>(place)]);
    if (place == Place::Nested)
        return {&member};
    std::vector<EntryValue*> instances;
    for (EntryValue& item : member.items)
        instances.push_back(&item);
    return instances;
}

/// Makes the case's change in the file's schema (the part type at a place gets a structure of its
/// own, so that no other place changes) and in what every instance there is written with and
/// expected to read back.
void Apply(ShapeCase const& shape, std::vector<DefinitionStructure>& schema, EntryValue& written,
           EntryValue& expected)
{
    DefinitionElement member = shape.member;
    if (member.type == ElementType::Structure)
        member.id = StructureNamed(schema, "module_versionStruct").id;
    DefinitionStructure* structure = &StructureNamed(schema, "shapeTestType");
    if (shape.place != Place::Top) {
        DefinitionStructure own = StructureNamed(schema, "partType");
        own.id = static_cast<uint32_t>(schema.size() + 1);
        for (DefinitionElement& element : structure->elements) {
            if (element.name == PlaceMembers[static_cast<int>(shape.place)])
                element.id = own.id;
        }
        schema.push_back(own);
        structure = &schema.back();
    }
    auto& elements = structure->elements;
    auto const found =
        std::find_if(elements.begin(), elements.end(),
                     [&](DefinitionElement const& e) { return e.name == member.name; });
    ASSERT_TRUE(shape.change == Change::None || shape.change == Change::Insert ||
                found != elements.end());
    std::vector<EntryValue*> const writtenAt = InstancesAt(written, shape.place);
    std::vector<EntryValue*> const expectedAt = InstancesAt(expected, shape.place);
    for (size_t i = 0; i < writtenAt.size(); ++i) {
        if (shape.change == Change::Insert)
            writtenAt[i]->Set(member.name, shape.value);
        if (shape.change == Change::Remove)
            Field(*expectedAt[i], member.name) = Zeroed(Field(*expectedAt[i], member.name));
        if (shape.change == Change::Recount) {
            Field(*writtenAt[i], member.name).items.resize(member.maxCount, EntryValue::Real(40.5));
            auto& back = Field(*expectedAt[i], member.name).items;
            for (size_t k = member.maxCount; k < back.size(); ++k)
                back[k] = EntryValue::Real(0);
        }
    }
    switch (shape.change) {
    case Change::Insert:
        elements.insert(
            elements.begin() + static_cast<long>(std::min(shape.index, elements.size())), member);
        break;
    case Change::Remove:
        elements.erase(found);
        break;
    case Change::Retype:
        found->type = member.type;
        break;
    case Change::Recount:
        found->minCount = found->maxCount = member.maxCount;
        break;
    case Change::None:
        break;
    }
}

std::vector<ShapeCase> ShapeCases()
{
    EntryValue const none;
    size_t const end = 100;
    EntryValue const version = EntryValue::Struct({{"major_revision", EntryValue::Int(9)},
                                                   {"minor_revision", EntryValue::Int(8)},
                                                   {"incr_revision", EntryValue::Int(7)}});
    EntryValue const five =
        EntryValue::List({EntryValue::Real(9), EntryValue::Real(8), EntryValue::Real(7),
                          EntryValue::Real(6), EntryValue::Real(5)});
    return {
        {"Matching", Place::Top, Change::None, {}, 0, none, {}},
        // Members the compiled type does not know, of every kind, at the start, middle and end.
        {"NumberAtTopStart",
         Place::Top,
         Change::Insert,
         Member("added", ElementType::UInt32),
         0,
         EntryValue::UInt(77),
         {1, 0, 0}},
        {"FixedArrayInNestedMiddle",
         Place::Nested,
         Change::Insert,
         Member("added", ElementType::Float, 5, 5),
         2,
         five,
         {1, 0, 0}},
        {"CountedArrayAtTopEnd",
         Place::Top,
         Change::Insert,
         Member("added", ElementType::UInt32, 0, 65535),
         end,
         EntryValue::List({EntryValue::UInt(5), EntryValue::UInt(6)}),
         {1, 0, 0}},
        {"StringAtFixedElementStart",
         Place::Fixed,
         Change::Insert,
         Member("added", ElementType::String),
         0,
         EntryValue::Text("added"),
         {1, 0, 0}},
        {"StructureInCountedElementMiddle",
         Place::Counted,
         Change::Insert,
         Member("added", ElementType::Structure),
         2,
         version,
         {1, 0, 0}},
        {"OptionalAtOptionalEnd",
         Place::Optional,
         Change::Insert,
         Member("added", ElementType::UInt32, 0, 1),
         end,
         EntryValue::List({EntryValue::UInt(3)}),
         {1, 0, 0}},
        // Members the file lacks.
        {"MissingAtTopStart",
         Place::Top,
         Change::Remove,
         Member("module_version", {}),
         0,
         none,
         {0, 1, 0}},
        {"MissingInNested", Place::Nested, Change::Remove, Member("id", {}), 0, none, {0, 1, 0}},
        {"MissingAtFixedElementEnd",
         Place::Fixed,
         Change::Remove,
         Member("label", {}),
         0,
         none,
         {0, 1, 0}},
        {"MissingInCountedElement",
         Place::Counted,
         Change::Remove,
         Member("gains", {}),
         0,
         none,
         {0, 1, 0}},
        {"MissingInOptional",
         Place::Optional,
         Change::Remove,
         Member("offset", {}),
         0,
         none,
         {0, 1, 0}},
        // Members of another type or count.
        {"WiderNumberInNested",
         Place::Nested,
         Change::Retype,
         Member("offset", ElementType::Int32),
         0,
         none,
         {0, 0, 1}},
        {"NarrowerNumberInOptional",
         Place::Optional,
         Change::Retype,
         Member("id", ElementType::UInt16),
         0,
         none,
         {0, 0, 1}},
        {"LongerFixedArrayAtTop",
         Place::Top,
         Change::Recount,
         Member("table", {}, 6, 6),
         0,
         none,
         {0, 0, 1}},
        {"ShorterFixedArrayInCountedElement",
         Place::Counted,
         Change::Recount,
         Member("gains", {}, 2, 2),
         0,
         none,
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

// The counted array holds a thousand parts: whatever differs is told with the first of them, and
// then once for the structure, not once a part.
TEST_P(SchemaToleranceTest, EveryKnownValueComesBackAndTheDifferenceIsToldOnce)
{
    auto const& [shape, version] = GetParam();
    EntryValue written = ValueMaker().Make(shapetest::shapeTestType::Descriptor);
    std::vector<EntryValue>& parts = Field(written, "counted").items;
    parts.resize(1000, parts.front());
    EntryValue expected = written;
    ModuleFile file(version, true, ShapeSchema());
    Apply(shape, file.FileSchema(), written, expected);
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
    EXPECT_LE(log.Messages().size(), 6u);
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
