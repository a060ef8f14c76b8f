// SPDX-License-Identifier: Apache-2.0
// The entry reader through a generated module with a member of every reader kind: files written
// from another schema than the compiled one, changed at one place and in one way at a time;
// every version's own layout; damaged lengths, counts and pointers; and files built to make a
// load decode the same blocks again and again. Each load is compared with a load of the values
// it should give from a 7.0.0 file without a schema, which the reader takes by the compiled
// layout: a fault of either way of reading shows as a difference.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vornalloc.h"

#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterloadcontext.h"
#include "parameterparser/parametermemberaccess.h"
#include "parameterparser/parameterparserinfo.h"
#include "parameterparser/parameterschemadifference.h"
#include "parameterparser/parametervaluepath.h"
#include "tools/writer/entryencoder.h"

#include "paramgen/shapetest.h"
#include "tests/common/definitionmember.h"
#include "tests/common/logcapture.h"
#include "tests/common/modulefile.h"

namespace {

using ParamTest::Member;
using ParamTest::ModuleFile;
using ParamTest::Reals;
using shapetest::shapeTestType;
using TuningWriter::DefinitionElement;
using TuningWriter::DefinitionStructure;
using TuningWriter::ElementType;
using TuningWriter::EntryValue;
using TuningWriter::FileVersion;

/// Values for every member a type descriptor lists, each number distinct, so that a member read
/// from a neighbour's place shows. Counted arrays get two elements; a type that holds itself is
/// cut off below its third level, so trees end in leaves.
class ValueMaker
{
public:
    EntryValue Make(ParameterTypeDescriptor const& type)
    {
        std::vector<std::pair<std::string, EntryValue>> fields;
        m_open.push_back(&type);
        for (uint32_t i = 0; i < type.memberCount; ++i) {
            if (!type.members[i].hidden)
                fields.emplace_back(type.members[i].name, Member(type.members[i]));
        }
        m_open.pop_back();
        return EntryValue::Struct(std::move(fields));
    }

private:
    using Kind = ParameterMemberKind;

    EntryValue Member(ParameterMemberDescriptor const& member)
    {
        if (member.kind == Kind::Structure || member.kind == Kind::Scalar ||
            member.kind == Kind::String)
            return One(member);
        uint32_t count = member.length; // the fixed arrays
        if (member.kind == Kind::OptionalScalar || member.kind == Kind::OptionalStructure ||
            member.kind == Kind::OptionalString)
            count = 1;
        if (member.kind == Kind::CountedArray || member.kind == Kind::StringArray)
            count = 2;
        if (member.kind == Kind::StructureArray)
            count = std::count(m_open.begin(), m_open.end(), member.type) < 3 ? 2 : 0;
        std::vector<EntryValue> items;
        for (uint32_t i = 0; i < count; ++i)
            items.push_back(One(member));
        return EntryValue::List(std::move(items));
    }

    /// One element of the member: a structure, a text or a number of its storage.
    EntryValue One(ParameterMemberDescriptor const& member)
    {
        int64_t const seed = ++m_seed;
        ParameterStorage const storage = member.storage;
        if (member.type != nullptr)
            return Make(*member.type);
        if (member.kind == Kind::String || member.kind == Kind::StringFixedArray ||
            member.kind == Kind::OptionalString || member.kind == Kind::StringArray)
            return EntryValue::Text("text" + std::to_string(seed));
        if (storage == ParameterStorage::Float || storage == ParameterStorage::Double)
            return EntryValue::Real(static_cast<double>(seed) + 0.25);
        if (storage == ParameterStorage::Int8 || storage == ParameterStorage::Int16 ||
            storage == ParameterStorage::Int32 || storage == ParameterStorage::Int64)
            return EntryValue::Int(-(seed % 120) - 1);
        return EntryValue::UInt(static_cast<uint64_t>(seed % 250) + 1);
    }

    int64_t m_seed = 0;
    std::vector<ParameterTypeDescriptor const*> m_open;
};

/// Value path to the text value access gives it: every number and text of a structure, arrays
/// of numbers and texts whole, arrays of structures element by element.
using Leaves = std::map<std::string, std::string>;

inline void CollectLeaves(void* object, ParameterTypeDescriptor const& type,
                          std::string const& path, Leaves& leaves)
{
    PList<ParameterParserInfo> records;
    if (!ParameterValuePath::GetInfo(object, type, path.c_str(), records))
        return;
    for (unsigned int i = 0; i < records.Count(); ++i) {
        ParameterParserInfo const& record = records[i];
        if (record.name == nullptr)
            continue;
        std::string const member = path.empty() ? record.name : path + "." + record.name;
        if (record.type == ParameterTypeNames::Structure && !record.isArray) {
            CollectLeaves(object, type, member, leaves);
        } else if (record.type == ParameterTypeNames::Structure) {
            for (unsigned int index = 0; index < record.count; ++index)
                CollectLeaves(object, type, member + "[" + std::to_string(index) + "]", leaves);
        } else if (record.isArray) {
            char text[4096] = "";
            ParameterValuePath::GetValue(object, type, member.c_str(), text, sizeof(text));
            leaves[member] = std::to_string(record.count) + ":" + text;
        } else {
            leaves[member] = record.value;
        }
    }
}

inline Leaves ReadLeaves(void* object, ParameterTypeDescriptor const& type)
{
    Leaves leaves;
    CollectLeaves(object, type, "", leaves);
    return leaves;
}

constexpr char const* InstanceName = "shapeTest";
ParamTest::ModuleSchema const Shape{
    &shapeTestType::Descriptor, "shapetest::shapeTestType", InstanceName, {1, 0, 0}};
using LoadedShape = ParamTest::LoadedModule<shapetest::shapeTestTypeClass>;

EntryValue& Field(EntryValue& value, std::string const& name)
{
    EntryValue const* field = value.Find(name);
    EXPECT_NE(field, nullptr) << "no field " << name;
    return field != nullptr ? const_cast<EntryValue&>(*field) : value;
}

/// Leaves the field out, so that it is written as zeros, no elements or no text: what a member
/// the file lacks reads as.
void Erase(EntryValue& value, std::string const& name)
{
    auto const at = std::find(value.fieldNames.begin(), value.fieldNames.end(), name);
    ASSERT_NE(at, value.fieldNames.end()) << name;
    value.items.erase(value.items.begin() + (at - value.fieldNames.begin()));
    value.fieldNames.erase(at);
}

DefinitionStructure& StructureNamed(std::vector<DefinitionStructure>& schema,
                                    std::string const& name)
{
    auto const found = std::find_if(schema.begin(), schema.end(),
                                    [&](DefinitionStructure const& s) { return s.name == name; });
    EXPECT_NE(found, schema.end()) << name;
    return found != schema.end() ? *found : schema.front();
}

/// The loaded values; none when the module was not created.
Leaves LeavesOf(LoadedShape& loaded)
{
    return ReadLeaves(static_cast<shapeTestType*>(loaded.module), shapeTestType::Descriptor);
}

/// What a load of expected gives from a 7.0.0 file without a schema.
Leaves Reference(EntryValue const& expected)
{
    ModuleFile file(Shape, {}, false);
    uint32_t const id = file.AddModule(expected);
    EXPECT_TRUE(file.Build());
    LoadedShape loaded(file, id, InstanceName);
    EXPECT_TRUE(loaded.loadResult);
    return LeavesOf(loaded);
}

/// Changes the file's schema (or its tables' damage), what is written and what is expected back.
using Prepare = std::function<void(ModuleFile&, EntryValue& written, EntryValue& expected)>;

/// Loads written from a file of version, after prepare, and compares every value with the
/// reference's but for the paths that start with one of unchecked (their bytes are not defined
/// by the damage); check sees the module as well. Every allocation must be given back. Returns
/// the messages the load logged.
std::vector<std::string> LoadAndCompare(FileVersion version, bool withDefinitions,
                                        EntryValue written, Prepare const& prepare,
                                        std::vector<std::string> const& unchecked = {},
                                        std::function<void(shapeTestType const&)> const& check = {})
{
    size_t const before = Vorn::Testing::AllocatedBytes();
    std::vector<std::string> messages;
    {
        ModuleFile file(Shape, version, withDefinitions);
        EntryValue expected = written;
        if (prepare)
            prepare(file, written, expected);
        Leaves want = Reference(expected);
        uint32_t const id = file.AddModule(written);
        EXPECT_TRUE(file.Build());
        ParamTest::LogCapture log;
        LoadedShape loaded(file, id, InstanceName);
        EXPECT_TRUE(loaded.loadResult) << "damaged data never fails the load";
        Leaves got = LeavesOf(loaded);
        for (std::string const& prefix : unchecked) {
            for (Leaves* leaves : {&got, &want}) {
                for (auto at = leaves->lower_bound(prefix);
                     at != leaves->end() && at->first.compare(0, prefix.size(), prefix) == 0;)
                    at = leaves->erase(at);
            }
        }
        EXPECT_EQ(got, want);
        if (check && loaded.module != nullptr)
            check(*loaded.module);
        messages = log.Messages();
    }
    EXPECT_EQ(Vorn::Testing::AllocatedBytes(), before);
    return messages;
}

bool Logged(std::vector<std::string> const& messages, std::string const& text)
{
    return std::any_of(messages.begin(), messages.end(),
                       [&](std::string const& m) { return m.find(text) != std::string::npos; });
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

/// How the file's structure at the place differs from the compiled type.
enum class Change
{
    None,
    Insert,   ///< member stands at index (past the end: appended), holding value
    Remove,   ///< member.name is not in the file
    Redefine, ///< member.name has member's counts, flags and type (unless none is given); a fixed
              ///< array gets as many elements
    Move,     ///< member.name stands at index
};

struct ShapeCase
{
    char const* name;
    Place place;
    Change change;
    DefinitionElement member;
    ParameterSchemaDifference told; ///< what the load's summary says
    std::string logged = "";        ///< a line (or the start of one) the load logs as well
    size_t index = 0;
    std::optional<EntryValue> value = {};  ///< what the member is written with, if not the made one
    std::optional<EntryValue> expect = {}; ///< what it reads back as, if not what was written
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
    if (shape.change == Change::None)
        return;
    DefinitionElement member = shape.member;
    if (member.type == ElementType::Structure)
        member.id = StructureNamed(schema, "module_versionStruct").id;
    auto& elements = StructureAt(schema, shape.place).elements;
    auto const found =
        std::find_if(elements.begin(), elements.end(),
                     [&](DefinitionElement const& e) { return e.name == member.name; });
    ASSERT_TRUE(shape.change == Change::Insert || found != elements.end());
    std::vector<EntryValue*> const writtenAt = InstancesAt(written, shape.place);
    std::vector<EntryValue*> const expectedAt = InstancesAt(expected, shape.place);
    for (size_t i = 0; i < writtenAt.size(); ++i) {
        if (shape.change == Change::Insert) {
            writtenAt[i]->Set(member.name, *shape.value);
            continue;
        }
        if (shape.change == Change::Remove) {
            Erase(*expectedAt[i], member.name);
            continue;
        }
        EntryValue& back = Field(*expectedAt[i], member.name);
        EntryValue& front = Field(*writtenAt[i], member.name);
        if (member.minCount == member.maxCount && front.kind == EntryValue::Kind::List) {
            front.items.resize(member.maxCount, EntryValue::Real(40.5));
            for (size_t k = member.maxCount; k < back.items.size(); ++k)
                back.items[k] = EntryValue::Real(0);
        }
        if (shape.value)
            front = back = *shape.value;
        if (shape.expect)
            back = *shape.expect;
    }
    if (shape.change == Change::Insert) {
        elements.insert(
            elements.begin() + static_cast<long>(std::min(shape.index, elements.size())), member);
    } else if (shape.change == Change::Remove) {
        elements.erase(found);
    } else if (shape.change == Change::Redefine) {
        found->type = member.type != ElementType{} ? member.type : found->type;
        found->flags = member.flags;
        found->minCount = member.minCount;
        found->maxCount = member.maxCount;
    } else {
        DefinitionElement const moved = *found;
        elements.erase(found);
        elements.insert(elements.begin() + static_cast<long>(shape.index), moved);
    }
}

/// "<reader>: 0x<hash> entry not found in the binary file": what a missing member logs.
std::string NotFound(char const* reader, char const* member)
{
    char hash[32];
    std::snprintf(hash, sizeof(hash), "%llx",
                  static_cast<unsigned long long>(ParserCRC64::HashName(member)));
    return std::string(reader) + ": 0x" + hash + " entry not found in the binary file";
}

ShapeCase Missing(char const* name, char const* member, char const* reader)
{
    return {name, Place::Top, Change::Remove, Member(member), {0, 1, 0}, NotFound(reader, member)};
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
    ParameterSchemaDifference const none{};
    return {
        {"Matching", Place::Top, Change::None, {}, none},
        // Members the compiled type does not know, of every kind, at the start, middle and end:
        // stepped over, the known ones read where the file puts them.
        {"NumberAtTopStart", Place::Top, Change::Insert, Member("added", ElementType::UInt32),
         stepped, "", 0, EntryValue::UInt(77)},
        {"FixedArrayInNestedMiddle", Place::Nested, Change::Insert,
         Member("added", ElementType::Float, 5, 5), stepped, "differs from expected", 2,
         Reals({9, 8, 7, 6, 5})},
        {"CountedArrayAtTopEnd", Place::Top, Change::Insert,
         Member("added", ElementType::UInt32, 0, 65535), stepped, "", end,
         EntryValue::List({EntryValue::UInt(5), EntryValue::UInt(6)})},
        {"StringAtFixedElementStart", Place::Fixed, Change::Insert,
         Member("added", ElementType::String), stepped, "", 0, EntryValue::Text("added")},
        {"StructureInCountedElementMiddle", Place::Counted, Change::Insert,
         Member("added", ElementType::Structure), stepped, "", 2, version},
        {"OptionalAtOptionalEnd", Place::Optional, Change::Insert,
         Member("added", ElementType::UInt32, 0, 1), stepped, "", end,
         EntryValue::List({EntryValue::UInt(3)})},
        // Members the file lacks read as zero, no elements or no text, and nothing else moves;
        // every reader says so in its own words.
        {"MissingAtFixedElementEnd", Place::Fixed, Change::Remove, Member("label"), missing},
        {"MissingInCountedElement", Place::Counted, Change::Remove, Member("gains"), missing},
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
        {"OrderChangedInNested", Place::Nested, Change::Move, Member("label"), none,
         "does not match expected bytes"},
        // Numbers of another type convert; counted arrays of another width come out empty.
        {"WiderNumberInNested", Place::Nested, Change::Redefine,
         Member("offset", ElementType::Int32), changed},
        {"NarrowerNumberInOptional", Place::Optional, Change::Redefine,
         Member("id", ElementType::UInt16), changed,
         "Insufficient data to read array of symbol table entry"},
        {"FourByteFloatIntoInteger", Place::Top, Change::Redefine,
         Member("first", ElementType::UInt32, 1, 1, TuningWriter::ElementFourByte), changed, "", 0,
         EntryValue::Real(101.75), EntryValue::UInt(101)},
        {"OptionalFloatIntoDouble", Place::Top, Change::Redefine,
         Member("optionalValue", ElementType::Float, 0, 1), changed},
        {"CountedFloatsIntoIntegersTruncate", Place::Top, Change::Redefine,
         Member("values", ElementType::Float, 0, 65535), changed, "", 0, Reals({7.9, 9.99}),
         EntryValue::List({EntryValue::Int(7), EntryValue::Int(9)})},
        {"NarrowerCountedArrayComesOutEmpty", Place::Top, Change::Redefine,
         Member("values", ElementType::Int16, 0, 65535), changed,
         "Insufficient data to read array from symbol table entry", 0, std::nullopt,
         EntryValue::List({})},
        // Fixed arrays of another length read the lesser count.
        {"LongerFixedArrayAtTop", Place::Top, Change::Redefine, Member("table", {}, 6, 6), changed,
         "expected count (4) != the binary count (6)"},
        {"ShorterFixedArrayInCountedElement", Place::Counted, Change::Redefine,
         Member("gains", {}, 2, 2), changed},
        {"LongerStructureArrayAtTop", Place::Top, Change::Redefine, Member("fixed", {}, 3, 3),
         changed, "expected count (2) != the binary count (3)"},
        // Fixed, counted and optional forms read each other.
        {"FixedArrayCountedInTheFile", Place::Top, Change::Redefine, Member("table", {}, 1, 8),
         changed},
        {"FixedArrayShorterInTheFile", Place::Top, Change::Redefine, Member("table", {}, 0, 8),
         changed, "expected count (4) != the binary count (2)", 0, Reals({1.5, 2.5}),
         Reals({1.5, 2.5, 0, 0})},
        {"CountedArrayFixedInTheFile", Place::Top, Change::Redefine, Member("values", {}, 2, 2),
         changed},
        {"CountedArraySingleInTheFile", Place::Top, Change::Redefine, Member("values", {}, 1, 1),
         changed, "", 0, EntryValue::Int(-42), EntryValue::List({EntryValue::Int(-42)})},
        {"StructureArrayFixedInTheFile", Place::Top, Change::Redefine,
         Member("counted", {}, 1000, 1000), changed},
        {"OptionalSingleInTheFile", Place::Top, Change::Redefine, Member("optionalValue", {}, 1, 1),
         changed, "", 0, EntryValue::Real(6.25), EntryValue::List({EntryValue::Real(6.25)})},
    };
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
    std::vector<std::string> const messages = LoadAndCompare(
        version, true, written, [&](ModuleFile& file, EntryValue& w, EntryValue& expected) {
            Apply(shape, file.FileSchema(), w, expected);
        });
    EXPECT_TRUE(shape.logged.empty() || Logged(messages, shape.logged)) << shape.logged;
    if (shape.change == Change::None) {
        EXPECT_EQ(messages, std::vector<std::string>());
        return;
    }
    // Told once for the structure, even where the counts come out 0 (members in another order).
    std::string const structure = shape.place == Place::Top ? "shapeTestType" : "partType";
    std::string const summary = "Structure " + structure + " of the file differs from compiled " +
                                structure + ": " + std::to_string(shape.told.steppedOver) +
                                " members stepped over, " + std::to_string(shape.told.missing) +
                                " missing, " + std::to_string(shape.told.changed) +
                                " in another form";
    EXPECT_EQ(std::count(messages.begin(), messages.end(), summary + "\n"), 1) << summary;
    EXPECT_LE(messages.size(), 6u);
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
            EXPECT_EQ(LoadAndCompare(version, withDefinitions,
                                     ValueMaker().Make(shapeTestType::Descriptor), {}),
                      std::vector<std::string>());
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
        Leaves const expected = Reference(written);
        ModuleFile file(Shape);
        if (topChanged)
            StructureNamed(file.FileSchema(), "shapeTestType").elements[1].type =
                ElementType::UInt64;
        uint32_t const id = file.AddModule(written);
        ASSERT_TRUE(file.Build());
        {
            LoadedShape first(file, id, InstanceName);
        }
        file.Table().ClearDefinitions(false);
        EXPECT_EQ(file.Table().FindModuleStructure(ParserCRC64::HashName(InstanceName)) == nullptr,
                  !topChanged);
        ParamTest::LogCapture log;
        LoadedShape again(file, id, InstanceName);
        ASSERT_TRUE(again.loadResult);
        EXPECT_EQ(LeavesOf(again), expected);
        EXPECT_EQ(log.Count("[ERROR]"), 0u);
    }
}

/// One damaged entry: a line the load logs (empty: nothing at all is logged), what damage
/// changes, the paths whose values the damage leaves undefined, and a check
/// of the loaded module.
struct DamageCase
{
    char const* name;
    std::string logged;
    bool withDefinitions;
    Prepare damage;
    std::vector<std::string> unchecked = {};
    std::function<void(shapeTestType const&)> check = {};
};

Prepare CutEntry()
{
    // The entry's size ends inside the fixed array: what stands behind it is never read.
    return [](ModuleFile& file, EntryValue&, EntryValue& expected) {
        TuningWriter::TableDamage damage;
        damage.sizes[1] = 24;
        file.Damage(damage);
        while (expected.fieldNames.size() > 2)
            Erase(expected, expected.fieldNames.back());
    };
}

/// Changes how the counted numbers are written; readsEmpty: they come back as no elements.
Prepare SetValues(std::function<void(EntryValue&)> change, bool readsEmpty = false)
{
    return [=](ModuleFile&, EntryValue& written, EntryValue& expected) {
        Field(expected, "values") = Field(written, "values") =
            EntryValue::List({EntryValue::Int(-5), EntryValue::Int(-6)});
        change(Field(written, "values"));
        if (readsEmpty)
            Field(expected, "values") = EntryValue::List({});
    };
}

/// The file's top structure gives member a structure ID the file does not define (its elements
/// have no size), or holds it as a fixed array of fixedCount.
void Redefine(ModuleFile& file, char const* member, uint32_t id, uint32_t fixedCount = 0)
{
    for (DefinitionElement& element : StructureNamed(file.FileSchema(), "shapeTestType").elements) {
        if (element.name == member && fixedCount == 0)
            element.id = id;
        if (element.name == member && fixedCount != 0)
            element.minCount = element.maxCount = fixedCount;
    }
}

TEST(EntryReaderDamageTest, DamagedEntryLoadsWhatItCanAndZeroesTheRest)
{
    // The nested part ends behind its id: gains reads as missing, what follows is not defined.
    auto const nestedCut = [](uint32_t length) {
        return [=](ModuleFile&, EntryValue& written, EntryValue& expected) {
            Field(written, "nested").loadLimitOverride = length;
            Erase(Field(expected, "nested"), "gains");
        };
    };
    std::vector<std::string> const partTail = {"nested.label", "nested.offset"};
    DamageCase const cases[] = {
        {"entry cut short", "Failed to read 4 bytes from binary file", true, CutEntry()},
        {"entry cut short, without definitions", "Failed to read 4 bytes from binary file", false,
         CutEntry()},
        // A structure length of 0 ends it behind its length word: single numbers are bounded by
        // the entry alone, arrays by the structure.
        {"structure length 0", "does not match expected bytes", true, nestedCut(0), partTail},
        // A length past the enclosing structure is cut back to it, and all is read.
        {"structure length past the entry", "exceeds available size", true,
         [](ModuleFile&, EntryValue& written, EntryValue&) {
             Field(written, "nested").loadLimitOverride = 0x100000;
         }},
        // Without definitions a smaller structure is read up to its length only.
        {"smaller structure without definitions",
         "Insufficient data to read variable from symbol table entry", false,
         [](ModuleFile& file, EntryValue&, EntryValue& expected) {
             StructureAt(file.FileSchema(), Place::Nested).elements.resize(1);
             Erase(Field(expected, "nested"), "gains");
         },
         partTail},
        // A member that the file puts behind its structure's length is not there.
        {"member beyond its structure's length", "exceeds load limit", true,
         [](ModuleFile& file, EntryValue& written, EntryValue& expected) {
             auto& elements = StructureAt(file.FileSchema(), Place::Nested).elements;
             elements.insert(elements.begin() + 1, Member("added", ElementType::UInt32));
             Field(written, "nested").Set("added", EntryValue::UInt(5)).loadLimitOverride = 8;
             for (char const* member : {"gains", "offset", "label"})
                 Erase(Field(expected, "nested"), member);
         }},
        // Counts at the bound of their data load whole and silently; one past, and far past,
        // they are cut to what fits.
        {"count at the bound", "", true, SetValues([](EntryValue& v) { v.countOverride = 2; })},
        {"count one past the bound", "exceeds avaialable data (8), setting count to 2", true,
         SetValues([](EntryValue& v) { v.countOverride = 3; })},
        {"structure count far past its data", "setting count to 2 to prevent allocation errors",
         true,
         [](ModuleFile&, EntryValue& written, EntryValue&) {
             Field(written, "counted").countOverride = 50;
         }},
        // Elements of a structure the file does not define have no size: the count is still cut
        // to the bytes of their block, one a byte.
        {"count of elements without a size",
         "size (1) * count (1000000000) exceeds avaialable data",
         true,
         [](ModuleFile& file, EntryValue& written, EntryValue&) {
             Redefine(file, "counted", 99);
             Field(written, "counted").countOverride = 1000000000;
         },
         {"counted"},
         [](shapeTestType const& loaded) { EXPECT_LE(loaded.countedCount, 64u); }},
        // A count inline in the entry (counted in the source, fixed in the file) is cut before
        // it sizes an allocation.
        {"inline count past the entry",
         "count (1000000000) exceeds avaialable data",
         true,
         [](ModuleFile& file, EntryValue& written, EntryValue& expected) {
             Redefine(file, "values", 0, 2);
             SetValues([](EntryValue& v) { v.countOverride = 1000000000; })(file, written,
                                                                            expected);
         },
         {"values"},
         [](shapeTestType const& loaded) {
             ASSERT_GE(loaded.valuesCount, 2u);
             EXPECT_LT(loaded.valuesCount, 1000u);
             EXPECT_EQ(loaded.values[1], -6);
         }},
        {"pointer ID 0", "ReadPointerEntry: Unable to read pointer entry from Symbol table", true,
         SetValues([](EntryValue& v) { v.idOverride = 0; }, true)},
        {"pointer ID past the table", "entry not found in the binary file", true,
         SetValues([](EntryValue& v) { v.idOverride = 5000; }, true)},
    };
    for (DamageCase const& test : cases) {
        SCOPED_TRACE(test.name);
        std::vector<std::string> const messages = LoadAndCompare(
            {7, 0, 0}, test.withDefinitions, ValueMaker().Make(shapeTestType::Descriptor),
            test.damage, test.unchecked, test.check);
        EXPECT_TRUE(test.logged.empty() ? messages.empty() : Logged(messages, test.logged))
            << testing::PrintToString(messages);
    }
}

/// A tree node: value and the list of its children.
EntryValue Node(uint32_t value, EntryValue children)
{
    return EntryValue::Struct({{"value", EntryValue::UInt(value)}, {"children", children}});
}

/// A list that points at data entry id (holding count elements) instead of a block of its own.
EntryValue PointerTo(uint32_t id, uint32_t count)
{
    EntryValue list = EntryValue::List({});
    list.idOverride = id;
    list.countOverride = count;
    return list;
}

// A list that points back at an entry being read above it (a node's children at the node's own
// list, a grandchild's at the root list) is cut there, once, and left empty; the rest loads.
TEST(EntryReaderDamageTest, PointerBackIntoTheTreeIsCutAndLeftEmpty)
{
    for (bool const grandchild : {false, true}) {
        SCOPED_TRACE(grandchild ? "grandchild points at the root" : "node points at its own list");
        auto const roots = [&](EntryValue back) {
            EntryValue list = EntryValue::List(
                {grandchild ? Node(1, EntryValue::List({Node(10, back)})) : Node(1, back),
                 Node(2, EntryValue::List({}))});
            list.blockName = "roots";
            return list;
        };
        // The identifiers are fixed by the layout: a file of the same shape tells the root's.
        EntryValue written = ValueMaker().Make(shapeTestType::Descriptor);
        Field(Field(written, "tree"), "children") = roots(PointerTo(0, 0));
        ModuleFile probe(Shape);
        probe.AddModule(written);
        Field(Field(written, "tree"), "children") = roots(EntryValue::List({}));
        uint32_t const rootId = probe.BlockId("roots");
        ASSERT_NE(rootId, 0u);
        std::vector<std::string> const messages =
            LoadAndCompare({7, 0, 0}, true, written, [&](ModuleFile&, EntryValue& w, EntryValue&) {
                Field(Field(w, "tree"), "children") = roots(PointerTo(rootId, 2));
            });
        std::string const cut =
            "data entry " + std::to_string(rootId) + " points back into itself, left empty\n";
        EXPECT_EQ(std::count_if(messages.begin(), messages.end(),
                                [&](std::string const& m) { return m.find(cut) != m.npos; }),
                  1)
            << testing::PrintToString(messages);
    }
}

size_t CountNodes(shapetest::nodeType const& node)
{
    size_t nodes = 1;
    for (uint32_t i = 0; node.children != nullptr && i < node.childrenCount; ++i)
        nodes += CountNodes(node.children[i]);
    return nodes;
}

/// Writes levels blocks of breadth nodes, each node's children pointing at the whole block of the
/// level below, and then a module (written) whose tree's children point at the top block; returns
/// that module's ID, 0 if a block could not be written. From the leaves up, each level is the
/// tree of a module of its own, so that the level above can point at it.
uint32_t AddTree(ModuleFile& file, uint32_t levels, uint32_t breadth, EntryValue& written)
{
    uint32_t below = 0;
    for (uint32_t level = levels; level >= 1; --level) {
        std::vector<EntryValue> nodes;
        for (uint32_t i = 0; i < breadth; ++i)
            nodes.push_back(Node(level * 100 + i,
                                 below != 0 ? PointerTo(below, breadth) : EntryValue::List({})));
        EntryValue block = EntryValue::List(std::move(nodes));
        block.blockName = "level" + std::to_string(level);
        (void)file.AddModule(EntryValue::Struct({{"tree", Node(0, block)}}));
        below = file.BlockId(block.blockName);
        if (below == 0)
            return 0;
    }
    written = ValueMaker().Make(shapeTestType::Descriptor);
    Field(Field(written, "tree"), "children") = PointerTo(below, breadth);
    return file.AddModule(written);
}

size_t Depth(shapetest::nodeType const& node)
{
    return node.childrenCount != 0 && node.children != nullptr ? 1 + Depth(node.children[0]) : 0;
}

// A chain of data entries is read 32 entries deep; the 33rd is left empty, and the load says
// where. Below 32 levels of nodes, their empty lists are the 33rd entry.
TEST(EntryReaderDamageTest, PointerChainsAreReadTo32EntriesDeep)
{
    for (uint32_t const levels : {31u, 32u, 33u}) {
        SCOPED_TRACE(levels);
        ModuleFile file(Shape);
        EntryValue written;
        uint32_t const id = AddTree(file, levels, 1, written);
        ASSERT_NE(id, 0u);
        ASSERT_TRUE(file.Build());
        ParamTest::LogCapture log;
        LoadedShape loaded(file, id, InstanceName);
        ASSERT_TRUE(loaded.loadResult);
        EXPECT_EQ(Depth(loaded.module->tree), std::min(levels, 32u));
        EXPECT_EQ(log.Count("nested deeper than 32 entries, left empty\n"), levels >= 32 ? 1u : 0u);
        EXPECT_EQ(loaded.module->last, Field(written, "last").unsignedValue);
    }
}

// Every node of a level points its children at one block of the next level: read naively, the
// nodes multiply with each level (8 to the 7th) in a file of a few kilobytes. The load decodes no
// more than its bound for the file's size, says so once, and keeps every other member.
TEST(EntryReaderWorkTest, BlocksSharedByManyHoldersDoNotMultiplyTheWork)
{
    constexpr uint32_t Breadth = 8;
    ModuleFile file(Shape);
    EntryValue written;
    uint32_t const id = AddTree(file, 7, Breadth, written);
    ASSERT_NE(id, 0u);
    ASSERT_TRUE(file.Build());

    ParamTest::LogCapture log;
    LoadedShape loaded(file, id, InstanceName);
    ASSERT_TRUE(loaded.loadResult);
    size_t const nodes = CountNodes(loaded.module->tree);
    EXPECT_GT(nodes, Breadth * Breadth);
    EXPECT_LE(nodes, MaxDecodedElementsPerFileByte * file.Table().GetFileLength());
    EXPECT_EQ(log.Count("Module load passes"), 1u);
    EXPECT_EQ(loaded.module->last, Field(written, "last").unsignedValue);
    EXPECT_EQ(loaded.module->counted[1].gains[2],
              static_cast<float>(Field(written, "counted").items[1].items[1].items[2].realValue));
}

} // namespace
