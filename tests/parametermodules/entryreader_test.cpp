// SPDX-License-Identifier: Apache-2.0
// The entry reader through a generated module with a member of every reader kind: files written
// from another schema than the compiled one, changed at one place and in one way at a time;
// every version's own layout; damaged lengths, counts and pointers; and files built to make a
// load decode the same blocks again and again.
#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vornalloc.h"

#include "parameterparser/defaultmodule.h"
#include "parameterparser/parameterdefinitions.h"
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
using shapetest::shapeTestType;
using TuningWriter::DefinitionElement;
using TuningWriter::DefinitionStructure;
using TuningWriter::ElementType;
using TuningWriter::EntryValue;
using TuningWriter::FileVersion;

constexpr char const* InstanceName = "shapeTest";

ModuleTest::ModuleSchema ShapeSchema()
{
    return {&shapeTestType::Descriptor, "shapetest::shapeTestType", InstanceName, {1, 0, 0}};
}

using LoadedShape = ModuleTest::LoadedModule<shapetest::shapeTestTypeClass>;

shapeTestType const& Value(LoadedShape const& loaded)
{
    return *loaded.module;
}

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

/// The file's structure at place: the part type there gets a structure of its own, so that a
/// change to it touches no other place.
DefinitionStructure& StructureAt(std::vector<DefinitionStructure>& schema, Place place)
{
    DefinitionStructure& top = StructureNamed(schema, "shapeTestType");
    if (place == Place::Top)
        return top;
    DefinitionStructure own = StructureNamed(schema, "partType");
    own.id = static_cast<uint32_t>(schema.size() + 1);
    for (DefinitionElement& element : top.elements) {
        if (element.name == PlaceMembers[static_cast<int>(place)])
            element.id = own.id;
    }
    schema.push_back(own);
    return schema.back();
}

/// The compiled member that a file member at place reads into.
ParameterMemberDescriptor const& CompiledMember(Place place, std::string const& name)
{
    ParameterTypeDescriptor const* type = &shapeTestType::Descriptor;
    if (place != Place::Top)
        type = &shapetest::partType::Descriptor;
    for (uint32_t i = 0; i < type->memberCount; ++i) {
        if (name == type->members[i].name)
            return type->members[i];
    }
    ADD_FAILURE() << "no compiled member " << name;
    return type->members[0];
}

/// How the file's structure at the place differs from the compiled type.
enum class Change
{
    None,
    Insert,  ///< member stands at index (past the end: appended), holding value
    Remove,  ///< member.name is not in the file
    Retype,  ///< member.name has member.type and member.flags
    Recount, ///< the fixed array member.name has member.maxCount elements
    Reform,  ///< member.name has member.minCount and member.maxCount (fixed, counted, optional)
    Move,    ///< member.name stands at index
};

struct ShapeCase
{
    char const* name;
    Place place;
    Change change;
    DefinitionElement member;
    size_t index;
    std::optional<EntryValue> value;  ///< what the member is written with, if not the made one
    std::optional<EntryValue> expect; ///< what it reads back as, if not what was written
    ParameterSchemaDifference told;   ///< what the load's summary says
    std::string logged;               ///< a line (or the start of one) the load logs as well
};

void PrintTo(ShapeCase const& shape, std::ostream* out)
{
    *out << shape.name;
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

/// Makes the case's change in the file's schema and in what every instance at its place is
/// written with and expected to read back.
void Apply(ShapeCase const& shape, std::vector<DefinitionStructure>& schema, EntryValue& written,
           EntryValue& expected)
{
    DefinitionElement member = shape.member;
    if (member.type == ElementType::Structure)
        member.id = StructureNamed(schema, "module_versionStruct").id;
    auto& elements = StructureAt(schema, shape.place).elements;
    auto const found =
        std::find_if(elements.begin(), elements.end(),
                     [&](DefinitionElement const& e) { return e.name == member.name; });
    ASSERT_TRUE(shape.change == Change::None || shape.change == Change::Insert ||
                found != elements.end());
    std::vector<EntryValue*> const writtenAt = InstancesAt(written, shape.place);
    std::vector<EntryValue*> const expectedAt = InstancesAt(expected, shape.place);
    for (size_t i = 0; i < writtenAt.size(); ++i) {
        if (shape.change == Change::None)
            break;
        if (shape.change == Change::Insert) {
            writtenAt[i]->Set(member.name, *shape.value);
            continue;
        }
        EntryValue& back = Field(*expectedAt[i], member.name);
        if (shape.change == Change::Remove)
            back = ValueMaker::Missing(CompiledMember(shape.place, member.name));
        if (shape.change == Change::Recount) {
            Field(*writtenAt[i], member.name).items.resize(member.maxCount, EntryValue::Real(40.5));
            for (size_t k = member.maxCount; k < back.items.size(); ++k)
                back.items[k] = EntryValue::Real(0);
        }
        if (shape.value)
            Field(*writtenAt[i], member.name) = back = *shape.value;
        if (shape.expect)
            back = *shape.expect;
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
        found->flags = member.flags;
        break;
    case Change::Recount:
        found->minCount = found->maxCount = member.maxCount;
        break;
    case Change::Reform:
        found->minCount = member.minCount;
        found->maxCount = member.maxCount;
        break;
    case Change::Move: {
        DefinitionElement const moved = *found;
        elements.erase(found);
        elements.insert(elements.begin() + static_cast<long>(shape.index), moved);
        break;
    }
    case Change::None:
        break;
    }
}

DefinitionElement Member(std::string name, ElementType type = {}, uint32_t minCount = 1,
                         uint32_t maxCount = 1, uint16_t flags = 0)
{
    DefinitionElement element;
    element.name = std::move(name);
    element.type = type;
    element.minCount = minCount;
    element.maxCount = maxCount;
    element.flags = flags;
    return element;
}

/// "<reader>: 0x<hash> entry not found in the binary file": what a missing member logs.
std::string NotFound(char const* reader, char const* member)
{
    char hash[32];
    std::snprintf(hash, sizeof(hash), "%llx",
                  static_cast<unsigned long long>(ParserCRC64::HashName(member)));
    return std::string(reader) + ": 0x" + hash + " entry not found in the binary file";
}

EntryValue Reals(std::vector<double> const& values)
{
    std::vector<EntryValue> items;
    for (double value : values)
        items.push_back(EntryValue::Real(value));
    return EntryValue::List(std::move(items));
}

ShapeCase Case(char const* name, Place place, Change change, DefinitionElement member,
               ParameterSchemaDifference told, std::string logged = "", size_t index = 0,
               std::optional<EntryValue> value = {}, std::optional<EntryValue> expect = {})
{
    return {name,
            place,
            change,
            std::move(member),
            index,
            std::move(value),
            std::move(expect),
            told,
            std::move(logged)};
}

ShapeCase Missing(char const* name, char const* member, char const* reader)
{
    return Case(name, Place::Top, Change::Remove, Member(member), {0, 1, 0},
                NotFound(reader, member));
}

std::vector<ShapeCase> ShapeCases()
{
    size_t const end = 100;
    EntryValue const version = EntryValue::Struct({{"major_revision", EntryValue::Int(9)},
                                                   {"minor_revision", EntryValue::Int(8)},
                                                   {"incr_revision", EntryValue::Int(7)}});
    ParameterSchemaDifference const stepped{1, 0, 0};
    ParameterSchemaDifference const missing{0, 1, 0};
    ParameterSchemaDifference const changed{0, 0, 1};
    return {
        Case("Matching", Place::Top, Change::None, {}, {}),
        // Members the compiled type does not know, of every kind, at the start, middle and end:
        // stepped over, the known ones read where the file puts them.
        Case("NumberAtTopStart", Place::Top, Change::Insert, Member("added", ElementType::UInt32),
             stepped, "", 0, EntryValue::UInt(77)),
        Case("FixedArrayInNestedMiddle", Place::Nested, Change::Insert,
             Member("added", ElementType::Float, 5, 5), stepped, "differs from expected", 2,
             Reals({9, 8, 7, 6, 5})),
        Case("CountedArrayAtTopEnd", Place::Top, Change::Insert,
             Member("added", ElementType::UInt32, 0, 65535), stepped, "", end,
             EntryValue::List({EntryValue::UInt(5), EntryValue::UInt(6)})),
        Case("StringAtFixedElementStart", Place::Fixed, Change::Insert,
             Member("added", ElementType::String), stepped, "", 0, EntryValue::Text("added")),
        Case("StructureInCountedElementMiddle", Place::Counted, Change::Insert,
             Member("added", ElementType::Structure), stepped, "", 2, version),
        Case("OptionalAtOptionalEnd", Place::Optional, Change::Insert,
             Member("added", ElementType::UInt32, 0, 1), stepped, "", end,
             EntryValue::List({EntryValue::UInt(3)})),
        // Members the file lacks read as zero, no elements or no text, and nothing else moves;
        // every reader says so in its own words.
        Case("MissingInNested", Place::Nested, Change::Remove, Member("id"), missing),
        Case("MissingAtFixedElementEnd", Place::Fixed, Change::Remove, Member("label"), missing),
        Case("MissingInCountedElement", Place::Counted, Change::Remove, Member("gains"), missing),
        Case("MissingInOptional", Place::Optional, Change::Remove, Member("offset"), missing),
        Missing("MissingModuleVersion", "module_version", "Load"),
        Missing("MissingNumber", "first", "ReadSimpleTypeFixedArray"),
        Missing("MissingFixedArray", "table", "ReadSimpleTypeFixedArray"),
        Missing("MissingStructure", "nested", "Load"),
        Missing("MissingStructureFixedArray", "fixed", "ReadStructureFixedArray"),
        Missing("MissingStructureArray", "counted", "ReadStructureArray"),
        Missing("MissingOptionalStructure", "optional", "ReadOptionalStructure"),
        Missing("MissingCountedArray", "values", "ReadSimpleTypeArray"),
        Missing("MissingString", "name", "ReadStringFixedArray"),
        Missing("MissingOptionalNumber", "optionalValue", "ReadOptionalSimpleType"),
        Missing("MissingStringArray", "labels", "ReadStringArray"),
        Missing("MissingOptionalString", "note", "ReadOptionalString"),
        // Members in another order are read where the file puts them, back and forth.
        Case("OrderChangedInNested", Place::Nested, Change::Move, Member("label"), {},
             "does not match expected bytes"),
        // Numbers of another type convert; counted arrays of another width come out empty.
        Case("WiderNumberInNested", Place::Nested, Change::Retype,
             Member("offset", ElementType::Int32), changed),
        Case("NarrowerNumberInOptional", Place::Optional, Change::Retype,
             Member("id", ElementType::UInt16), changed,
             "Insufficient data to read array of symbol table entry"),
        Case("FourByteFloatIntoInteger", Place::Top, Change::Retype,
             Member("first", ElementType::UInt32, 1, 1, TuningWriter::ElementFourByte), changed, "",
             0, EntryValue::Real(101.75), EntryValue::UInt(101)),
        Case("OptionalFloatIntoDouble", Place::Top, Change::Retype,
             Member("optionalValue", ElementType::Float, 0, 1), changed),
        Case("CountedFloatsIntoIntegersTruncate", Place::Top, Change::Retype,
             Member("values", ElementType::Float, 0, 65535), changed, "", 0, Reals({7.9, 9.99}),
             EntryValue::List({EntryValue::Int(7), EntryValue::Int(9)})),
        Case("NarrowerCountedArrayComesOutEmpty", Place::Top, Change::Retype,
             Member("values", ElementType::Int16, 0, 65535), changed,
             "Insufficient data to read array from symbol table entry", 0, {},
             EntryValue::List({})),
        // Fixed arrays of another length read the lesser count.
        Case("LongerFixedArrayAtTop", Place::Top, Change::Recount, Member("table", {}, 6, 6),
             changed, "expected count (4) != the binary count (6)"),
        Case("ShorterFixedArrayInCountedElement", Place::Counted, Change::Recount,
             Member("gains", {}, 2, 2), changed),
        Case("LongerStructureArrayAtTop", Place::Top, Change::Recount, Member("fixed", {}, 3, 3),
             changed, "expected count (2) != the binary count (3)"),
        // Fixed, counted and optional forms read each other.
        Case("FixedArrayCountedInTheFile", Place::Top, Change::Reform, Member("table", {}, 1, 8),
             changed),
        Case("FixedArrayShorterInTheFile", Place::Top, Change::Reform, Member("table", {}, 0, 8),
             changed, "expected count (4) != the binary count (2)", 0, Reals({1.5, 2.5}),
             Reals({1.5, 2.5, 0, 0})),
        Case("CountedArrayFixedInTheFile", Place::Top, Change::Reform, Member("values", {}, 2, 2),
             changed),
        Case("CountedArraySingleInTheFile", Place::Top, Change::Reform, Member("values", {}, 1, 1),
             changed, "", 0, EntryValue::Int(-42), EntryValue::List({EntryValue::Int(-42)})),
        Case("StructureArrayFixedInTheFile", Place::Top, Change::Reform,
             Member("counted", {}, 1000, 1000), changed),
        Case("OptionalSingleInTheFile", Place::Top, Change::Reform,
             Member("optionalValue", {}, 1, 1), changed, "", 0, EntryValue::Real(6.25),
             EntryValue::List({EntryValue::Real(6.25)})),
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

class EntryReaderToleranceTest : public testing::TestWithParam<ShapeParam>
{
};

// The counted array holds a thousand parts: whatever differs is told with the first of them, and
// then once for the structure, not once a part.
TEST_P(EntryReaderToleranceTest, EveryKnownValueComesBackAndTheDifferenceIsToldOnce)
{
    auto const& [shape, version] = GetParam();
    EntryValue written = ValueMaker().Make(shapeTestType::Descriptor);
    std::vector<EntryValue>& parts = Field(written, "counted").items;
    parts.resize(1000, parts.front());
    EntryValue expected = written;
    ModuleFile file(version, true, ShapeSchema());
    Apply(shape, file.FileSchema(), written, expected);
    uint32_t const id = file.AddModule(written);
    ASSERT_TRUE(file.Build());

    ParamTest::LogCapture log;
    LoadedShape loaded(file, id, InstanceName);
    ASSERT_TRUE(loaded.loadResult);
    ValueChecker().Check(&Value(loaded), shapeTestType::Descriptor, expected, "");
    if (!shape.logged.empty()) {
        EXPECT_TRUE(log.Contains(shape.logged)) << shape.logged;
    }
    if (shape.change == Change::None) {
        EXPECT_EQ(log.Messages(), std::vector<std::string>());
        return;
    }
    // Told once for the structure, even where the counts come out 0 (members in another order).
    char const* structure = shape.place == Place::Top ? "shapeTestType" : "partType";
    EXPECT_EQ(log.Count(Summary(structure, shape.told)), 1u) << Summary(structure, shape.told);
    EXPECT_LE(log.Messages().size(), 6u);
}

std::string ShapeName(testing::TestParamInfo<ShapeParam> const& shape)
{
    return std::string(std::get<0>(shape.param).name) + "_V" +
           std::to_string(std::get<1>(shape.param).major);
}

INSTANTIATE_TEST_SUITE_P(Shapes, EntryReaderToleranceTest,
                         testing::Combine(testing::ValuesIn(ShapeCases()),
                                          testing::Values(FileVersion{6, 0, 0},
                                                          FileVersion{7, 0, 0})),
                         &ShapeName);

// 7.0.0 counts fixed arrays, 6.0.0 does not, 5.0.0 has no structure lengths either: a file of
// each, with or without its schema, reads back whole and silently.
TEST(EntryReaderLayoutTest, EachVersionReadsItsOwnLayout)
{
    for (FileVersion const version :
         {FileVersion{7, 0, 0}, FileVersion{6, 0, 0}, FileVersion{5, 0, 0}}) {
        for (bool const withDefinitions : {true, false}) {
            SCOPED_TRACE(std::to_string(version.major) + (withDefinitions ? " with" : " without"));
            EntryValue const written = ValueMaker().Make(shapeTestType::Descriptor);
            ModuleFile file(version, withDefinitions, ShapeSchema());
            uint32_t const id = file.AddModule(written);
            ASSERT_TRUE(file.Build());
            ParamTest::LogCapture log;
            LoadedShape loaded(file, id, InstanceName);
            ASSERT_TRUE(loaded.loadResult);
            ValueChecker().Check(&Value(loaded), shapeTestType::Descriptor, written, "");
            EXPECT_EQ(log.Messages(), std::vector<std::string>());
        }
    }
}

// A structure proven against the compiled one has its definitions given back; a load after that
// trusts the compiled layout there, even inside a structure that is not proven.
TEST(EntryReaderLayoutTest, ProvenStructuresAreClearedAndTrusted)
{
    for (bool const topChanged : {false, true}) {
        SCOPED_TRACE(topChanged ? "top structure changed" : "matching");
        EntryValue const written = ValueMaker().Make(shapeTestType::Descriptor);
        ModuleFile file({}, true, ShapeSchema());
        if (topChanged)
            StructureNamed(file.FileSchema(), "shapeTestType").elements[1].type =
                ElementType::UInt64;
        uint32_t const id = file.AddModule(written);
        ASSERT_TRUE(file.Build());
        {
            LoadedShape first(file, id, InstanceName);
        }
        file.Table().ClearDefinitions(false);
        unsigned long const module = ParserCRC64::HashName(InstanceName);
        ParameterDefinitionStructure* top = file.Table().FindModuleStructure(module);
        EXPECT_EQ(top == nullptr, !topChanged);
        if (top != nullptr) {
            ParameterDefinitionElement* nested = top->FindChild(ParserCRC64::HashName("nested"));
            ASSERT_NE(nested, nullptr);
            EXPECT_EQ(nested->Info, nullptr);
            EXPECT_EQ(nested->Verified, 1);
        }
        ParamTest::LogCapture log;
        LoadedShape again(file, id, InstanceName);
        ASSERT_TRUE(again.loadResult);
        ValueChecker().Check(&Value(again), shapeTestType::Descriptor, written, "");
        EXPECT_EQ(log.Count("[ERROR]"), 0u);
    }
}

/// One damaged entry: the change to the file's schema and to what is written, what the module
/// reads back instead (members left out of expected are not compared) and a line the load logs.
struct DamageCase
{
    char const* name;
    bool withDefinitions;
    std::function<void(ModuleFile&, EntryValue& written)> damage;
    std::function<void(EntryValue& expected, shapeTestType const&)> expect;
    std::string logged; ///< empty: nothing at all is logged
};

/// Every member from name on reads as missing: what an entry cut short gives.
void MissingFrom(EntryValue& expected, std::string const& name)
{
    bool cut = false;
    for (size_t i = 0; i < expected.fieldNames.size(); ++i) {
        cut = cut || expected.fieldNames[i] == name;
        if (cut)
            expected.items[i] =
                ValueMaker::Missing(CompiledMember(Place::Top, expected.fieldNames[i]));
    }
}

/// Leaves member out of the comparison: its bytes are not defined by the damage.
void Unchecked(EntryValue& value, char const* member)
{
    for (size_t i = 0; i < value.fieldNames.size(); ++i) {
        if (value.fieldNames[i] == member) {
            value.fieldNames.erase(value.fieldNames.begin() + static_cast<long>(i));
            value.items.erase(value.items.begin() + static_cast<long>(i));
            return;
        }
    }
    ADD_FAILURE() << "no field " << member;
}

EntryValue& Values(EntryValue& written)
{
    return Field(written, "values");
}

TEST(EntryReaderDamageTest, DamagedEntryLoadsWhatItCanAndZeroesTheRest)
{
    auto none = [](EntryValue&, shapeTestType const&) {};
    DamageCase const cases[] = {
        // The entry's size ends inside the fixed array: what stands behind it is never read.
        {"entry cut short", true,
         [](ModuleFile& file, EntryValue&) {
             TuningWriter::TableDamage damage;
             damage.sizes[1] = 24;
             file.Damage(damage);
         },
         [](EntryValue& expected, shapeTestType const&) { MissingFrom(expected, "table"); },
         "Failed to read 4 bytes from binary file offset"},
        {"entry cut short, without definitions", false,
         [](ModuleFile& file, EntryValue&) {
             TuningWriter::TableDamage damage;
             damage.sizes[1] = 24;
             file.Damage(damage);
         },
         [](EntryValue& expected, shapeTestType const&) { MissingFrom(expected, "table"); },
         "Failed to read 4 bytes from binary file offset"},
        // A structure length of 0 ends it behind its length word: single numbers are bounded by
        // the entry alone, arrays by the structure.
        {"structure length 0", true,
         [](ModuleFile&, EntryValue& written) { Field(written, "nested").loadLimitOverride = 0; },
         [](EntryValue& expected, shapeTestType const&) {
             EntryValue& nested = Field(expected, "nested");
             Field(nested, "gains") = Reals({0, 0, 0});
             Unchecked(nested, "offset");
             Unchecked(nested, "label");
         },
         "does not match expected bytes"},
        // A length past the enclosing structure is cut back to it, and all is read.
        {"structure length past the entry", true,
         [](ModuleFile&, EntryValue& written) {
             Field(written, "nested").loadLimitOverride = 0x100000;
         },
         none, "exceeds available size"},
        // Without definitions a smaller structure is read up to its length only.
        {"smaller structure without definitions", false,
         [](ModuleFile& file, EntryValue&) {
             StructureAt(file.FileSchema(), Place::Nested).elements.resize(1);
         },
         [](EntryValue& expected, shapeTestType const&) {
             EntryValue& nested = Field(expected, "nested");
             Field(nested, "gains") = Reals({0, 0, 0});
             Unchecked(nested, "offset");
             Unchecked(nested, "label");
         },
         "Insufficient data to read variable from symbol table entry"},
        // A member that the file puts behind its structure's length is not there.
        {"member beyond its structure's length", true,
         [](ModuleFile& file, EntryValue& written) {
             auto& elements = StructureAt(file.FileSchema(), Place::Nested).elements;
             elements.insert(elements.begin() + 1, Member("added", ElementType::UInt32));
             EntryValue& nested = Field(written, "nested");
             nested.Set("added", EntryValue::UInt(5));
             nested.loadLimitOverride = 8;
         },
         [](EntryValue& expected, shapeTestType const&) {
             EntryValue& nested = Field(expected, "nested");
             for (char const* member : {"gains", "offset", "label"})
                 Field(nested, member) = ValueMaker::Missing(CompiledMember(Place::Nested, member));
         },
         "exceeds load limit"},
        // Counts at the bound of their data load whole and silently; one past, and far past,
        // they are cut to what fits.
        {"count at the bound", true,
         [](ModuleFile&, EntryValue& written) { Values(written).countOverride = 2; }, none, ""},
        {"count one past the bound", true,
         [](ModuleFile&, EntryValue& written) { Values(written).countOverride = 3; }, none,
         "exceeds avaialable data (8), setting count to 2"},
        {"structure count far past its data", true,
         [](ModuleFile&, EntryValue& written) { Field(written, "counted").countOverride = 50; },
         none, "setting count to 2 to prevent allocation errors"},
        // Elements of a structure the file does not define have no size: the count is still cut
        // to the bytes of their block, one a byte.
        {"count of elements without a size", true,
         [](ModuleFile& file, EntryValue& written) {
             for (DefinitionElement& element :
                  StructureNamed(file.FileSchema(), "shapeTestType").elements) {
                 if (element.name == "counted")
                     element.id = 99;
             }
             Field(written, "counted").countOverride = 1000000000;
         },
         [](EntryValue& expected, shapeTestType const& loaded) {
             EXPECT_LE(loaded.countedCount, 64u);
             Unchecked(expected, "counted");
         },
         "size (1) * count (1000000000) exceeds avaialable data"},
        // A count inline in the entry (counted in the source, fixed in the file) is cut before
        // it sizes an allocation.
        {"inline count past the entry", true,
         [](ModuleFile& file, EntryValue& written) {
             for (DefinitionElement& element :
                  StructureNamed(file.FileSchema(), "shapeTestType").elements) {
                 if (element.name == "values")
                     element.minCount = element.maxCount = 2;
             }
             Values(written).countOverride = 1000000000;
         },
         [](EntryValue& expected, shapeTestType const& loaded) {
             ASSERT_GE(loaded.valuesCount, 2u);
             EXPECT_LT(loaded.valuesCount, 1000u);
             EXPECT_EQ(loaded.values[1], Values(expected).items[1].signedValue);
             Unchecked(expected, "values");
         },
         "count (1000000000) exceeds avaialable data"},
        {"pointer ID 0", true,
         [](ModuleFile&, EntryValue& written) { Values(written).idOverride = 0; },
         [](EntryValue& expected, shapeTestType const&) {
             Field(expected, "values") = EntryValue::List({});
         },
         "ReadPointerEntry: Unable to read pointer entry from Symbol table"},
        {"pointer ID past the table", true,
         [](ModuleFile&, EntryValue& written) { Values(written).idOverride = 5000; },
         [](EntryValue& expected, shapeTestType const&) {
             Field(expected, "values") = EntryValue::List({});
         },
         "entry not found in the binary file"},
    };
    for (DamageCase const& test : cases) {
        SCOPED_TRACE(test.name);
        size_t const before = Vorn::Testing::AllocatedBytes();
        {
            ModuleFile file({7, 0, 0}, test.withDefinitions, ShapeSchema());
            EntryValue written = ValueMaker().Make(shapeTestType::Descriptor);
            EntryValue expected = written;
            test.damage(file, written);
            uint32_t const id = file.AddModule(written);
            ASSERT_EQ(id, 1u);
            ASSERT_TRUE(file.Build());
            ParamTest::LogCapture log;
            LoadedShape loaded(file, id, InstanceName);
            ASSERT_TRUE(loaded.loadResult) << "damaged data never fails the load";
            if (test.expect)
                test.expect(expected, Value(loaded));
            ValueChecker().Check(&Value(loaded), shapeTestType::Descriptor, expected, "");
            if (test.logged.empty()) {
                EXPECT_EQ(log.Messages(), std::vector<std::string>());
            } else {
                EXPECT_TRUE(log.Contains(test.logged)) << testing::PrintToString(log.Messages());
            }
        }
        EXPECT_EQ(Vorn::Testing::AllocatedBytes(), before);
    }
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
TEST(EntryReaderWorkTest, BlocksSharedByManyHoldersDoNotMultiplyTheWork)
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
    EntryValue written = ValueMaker().Make(shapeTestType::Descriptor);
    EntryValue& children = Field(Field(written, "tree"), "children");
    children = EntryValue::List({});
    children.idOverride = below;
    children.countOverride = Breadth;
    uint32_t const id = file.AddModule(written);
    ASSERT_TRUE(file.Build());

    ParamTest::LogCapture log;
    LoadedShape loaded(file, id, InstanceName);
    ASSERT_TRUE(loaded.loadResult);
    size_t const nodes = CountNodes(Value(loaded).tree);
    EXPECT_GT(nodes, Breadth * Breadth);
    EXPECT_LE(nodes, MaxDecodedElementsPerFileByte * file.Table().GetFileLength());
    EXPECT_EQ(log.Count("Module load passes"), 1u);
    EXPECT_EQ(Value(loaded).last, Field(written, "last").unsignedValue);
    EXPECT_EQ(Value(loaded).counted[1].gains[2],
              static_cast<float>(Field(written, "counted").items[1].items[1].items[2].realValue));
}

} // namespace
