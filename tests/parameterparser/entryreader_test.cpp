// SPDX-License-Identifier: Apache-2.0
// The entry reader against files whose schema differs from the compiled-in one in one way each.
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/parameterparser/entryreaderfixture.h"

namespace EntryReaderTest {
namespace {

class ParameterFileSymbolTableEntryTest : public testing::Test
{
protected:
    /// Writes value into file, builds it and loads the module into sample; the capture then
    /// holds what the load logged, and only that.
    void WriteAndLoad(EntryFile& file, LoadedSample& sample, EntryValue const& value)
    {
        uint32_t const id = file.AddModule(value);
        ASSERT_TRUE(file.Build());
        m_log.Clear();
        ASSERT_TRUE(file.Load(id, sample));
    }

    bool LoggedPositionDifference() const { return m_log.Contains("differs from expected"); }

    ParamTest::LogCapture m_log;
};

TEST_F(ParameterFileSymbolTableEntryTest, MatchingSchemaReadsEveryMemberSilentlyAndProvesIt)
{
    EntryFile file;
    LoadedSample sample;
    WriteAndLoad(file, sample, SampleValue());
    ExpectSampleValues(sample.value);
    EXPECT_TRUE(m_log.Messages().empty()) << m_log.Messages().front();

    for (DefinitionElement const& element : Schema::Source().sample) {
        ParameterDefinitionElement* fileElement = file.SampleElement(element.name.c_str());
        ASSERT_NE(fileElement, nullptr) << element.name;
        EXPECT_EQ(fileElement->Verified, 1) << element.name;
    }
    // Proven all the way down, the module's schema is given back.
    file.Table().ClearDefinitions(false);
    EXPECT_EQ(file.Table().FindModuleStructure(Hash(ModuleName)), nullptr);
}

TEST_F(ParameterFileSymbolTableEntryTest, WithoutDefinitionsEachVersionReadsItsOwnLayout)
{
    // 7.0.0 counts fixed arrays, 6.0.0 does not, 5.0.0 has no structure lengths either.
    for (FileVersion const version :
         {FileVersion{7, 0, 0}, FileVersion{6, 0, 0}, FileVersion{5, 0, 0}}) {
        SCOPED_TRACE(version.major);
        EntryFile file(version, Schema::Source(), false);
        LoadedSample sample;
        WriteAndLoad(file, sample, SampleValue());
        ExpectSampleValues(sample.value);
        EXPECT_TRUE(m_log.Messages().empty()) << m_log.Messages().front();
    }
}

TEST_F(ParameterFileSymbolTableEntryTest, OlderVersionsWithDefinitionsLayOutTheirOwnForm)
{
    // The definitions are laid out as these versions write: no count ahead of a fixed array
    // below 7.0.0, no length word ahead of a structure below 6.0.0. Every position matches.
    for (FileVersion const version : {FileVersion{6, 0, 0}, FileVersion{5, 0, 0}}) {
        SCOPED_TRACE(version.major);
        EntryFile file(version);
        LoadedSample sample;
        WriteAndLoad(file, sample, SampleValue());
        ExpectSampleValues(sample.value);
        EXPECT_TRUE(m_log.Messages().empty()) << m_log.Messages().front();
    }
}

// A structure proven and cleared, inside one that is not: its members are read straight.
TEST_F(ParameterFileSymbolTableEntryTest, ClearedDefinitionsTrustTheCompiledInSchema)
{
    Schema schema = Schema::Source();
    schema.Member("gains").type = ElementType::Double; // keeps the top structure unproven
    EntryFile file(FileVersion{}, schema);
    uint32_t const id = file.AddModule(SampleValue());
    ASSERT_TRUE(file.Build());
    {
        LoadedSample first;
        ASSERT_TRUE(file.Load(id, first));
        ExpectSampleValues(first.value);
    }
    file.Table().ClearDefinitions(false);
    ParameterDefinitionElement* inner = file.SampleElement("inner");
    ASSERT_NE(inner, nullptr);
    ASSERT_EQ(inner->Info, nullptr);
    ASSERT_EQ(inner->Verified, 1);

    m_log.Clear();
    LoadedSample again;
    ASSERT_TRUE(file.Load(id, again));
    ExpectSampleValues(again.value);
    EXPECT_TRUE(m_log.Messages().empty()) << m_log.Messages().front();
}

// A structure whose position matched, described by the file without one of its members: the
// member takes no bytes, so the next one is read in its right place.
TEST_F(ParameterFileSymbolTableEntryTest, MemberMissingInMatchedStructureConsumesNothing)
{
    Schema schema = Schema::Source();
    schema.inner = {Element("b", ElementType::Float, 2, 2)};
    EntryFile file(FileVersion{}, schema);
    LoadedSample sample;
    WriteAndLoad(file, sample, SampleValue());

    EXPECT_EQ(sample->inner.a, 0);
    EXPECT_FLOAT_EQ(sample->inner.b[0], 0.25f);
    EXPECT_FLOAT_EQ(sample->inner.b[1], 0.5f);
    EXPECT_FLOAT_EQ(sample->pairs[1].b[0], 3.0f);
    ASSERT_NE(sample->items, nullptr);
    EXPECT_FLOAT_EQ(sample->items[1].b[1], 8.0f);
    EXPECT_TRUE(m_log.HasMessage(NotFound("ReadSimpleTypeFixedArray", "a")));
    EXPECT_FALSE(LoggedPositionDifference());
    ExpectSampleValues(sample.value, {"inner", "pairs", "items", "optionalInner"});
}

TEST_F(ParameterFileSymbolTableEntryTest, MissingMemberReadsZeroWithItsReadersMessage)
{
    struct Case
    {
        char const* member;
        char const* reader;
        size_t begin; ///< the member's storage in SampleType, which must stay zero
        size_t end;
    };
    Case const cases[] = {
        {"shortValue", "ReadSimpleTypeFixedArray", offsetof(SampleType, shortValue),
         offsetof(SampleType, gains)},
        {"gains", "ReadSimpleTypeFixedArray", offsetof(SampleType, gains),
         offsetof(SampleType, inner)},
        {"inner", "Load", offsetof(SampleType, inner), offsetof(SampleType, pairs)},
        {"pairs", "ReadStructureFixedArray", offsetof(SampleType, pairs),
         offsetof(SampleType, countedCount)},
        {"counted", "ReadSimpleTypeArray", offsetof(SampleType, countedCount),
         offsetof(SampleType, optionalValue)},
        {"optionalValue", "ReadOptionalSimpleType", offsetof(SampleType, optionalValue),
         offsetof(SampleType, itemsCount)},
        {"items", "ReadStructureArray", offsetof(SampleType, itemsCount),
         offsetof(SampleType, optionalInner)},
        {"optionalInner", "ReadOptionalStructure", offsetof(SampleType, optionalInner),
         offsetof(SampleType, name)},
        {"name", "ReadStringFixedArray", offsetof(SampleType, name),
         offsetof(SampleType, labelsCount)},
        {"labels", "ReadStringArray", offsetof(SampleType, labelsCount),
         offsetof(SampleType, optionalName)},
        {"optionalName", "ReadOptionalString", offsetof(SampleType, optionalName),
         offsetof(SampleType, last)},
        {"last", "ReadSimpleTypeFixedArray", offsetof(SampleType, last), sizeof(SampleType)},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(test.member);
        Schema schema = Schema::Source();
        schema.Remove(test.member);
        EntryFile file(FileVersion{}, schema);
        LoadedSample sample;
        WriteAndLoad(file, sample, SampleValue());

        auto const* bytes = reinterpret_cast<unsigned char const*>(&sample.value);
        for (size_t i = test.begin; i < test.end; ++i)
            ASSERT_EQ(bytes[i], 0) << "byte " << i - test.begin;
        EXPECT_TRUE(m_log.HasMessage(NotFound(test.reader, test.member)));
        EXPECT_FALSE(LoggedPositionDifference());
        ExpectSampleValues(sample.value, {test.member});
    }
}

// The sample's inner structure starts at byte 26 of a 7.0.0 entry: length word 4, first 4,
// shortValue 2, gains count 4 and 3 x 4.
constexpr unsigned int InnerStart = 26;

// A field is read where the file's own layout puts it: past a member the compiled schema does not
// know, back and forth for another order; a place beyond its structure's length is not read.
TEST_F(ParameterFileSymbolTableEntryTest, FieldsAreReadWhereTheFileLaysThemOut)
{
    auto const moved = [](unsigned int expected, unsigned int cursor) {
        return Format("Binary file position (%u) differs from expected (%u), XSD structure "
                      "modified\n",
                      expected, cursor);
    };
    struct Case
    {
        char const* name;
        std::vector<DefinitionElement> inner; ///< the file's inner structure
        std::function<void(EntryValue& inner)> value;
        bool bThere; ///< inner.b can be read
        std::vector<std::string> messages;
    };
    DefinitionElement const a = Element("a", ElementType::Int32);
    DefinitionElement const b = Element("b", ElementType::Float, 2, 2);
    DefinitionElement const extra = Element("extra", ElementType::UInt32);
    Case const cases[] = {
        {"member inserted",
         {a, extra, b},
         [](EntryValue& inner) { inner.Set("extra", EntryValue::UInt(2)); },
         true,
         {moved(InnerStart + 12, InnerStart + 8)}},
        {"order changed",
         {b, a},
         [](EntryValue&) {},
         true,
         {moved(InnerStart + 16, InnerStart + 4), moved(InnerStart + 4, InnerStart + 20),
          Format("Binary file structure bytes (%u) does not match expected bytes (%u). XSD "
                 "structure modified\n",
                 InnerStart + 20, InnerStart + 16)}},
        // The length word covers a and extra only: b would stand behind the structure's end.
        {"beyond the length",
         {a, extra, b},
         [](EntryValue& inner) {
             inner.Set("extra", EntryValue::UInt(2));
             inner.loadLimitOverride = 8;
         },
         false,
         {moved(InnerStart + 12, InnerStart + 8),
          Format("Error Reading 0x%llx: Adjusted position (%u) exceeds load limit (%u)\n",
                 static_cast<unsigned long long>(Hash("b")), InnerStart + 12, InnerStart + 12),
          NotFound("ReadSimpleTypeFixedArray", "b")}},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(test.name);
        Schema schema = Schema::Source();
        schema.inner = test.inner;
        EntryFile file(FileVersion{}, schema);
        LoadedSample sample;
        EntryValue value = SampleValue();
        EntryValue inner = Inner(11, 0.25, 0.5);
        test.value(inner);
        value.Set("inner", inner);
        WriteAndLoad(file, sample, value);

        EXPECT_EQ(sample->inner.a, 11);
        EXPECT_FLOAT_EQ(sample->inner.b[1], test.bThere ? 0.5f : 0.0f);
        for (std::string const& message : test.messages)
            EXPECT_TRUE(m_log.HasMessage(message)) << message;
        // The other places of the inner type are described alike and read alike.
        ExpectSampleValues(sample.value, {"inner"});
    }
}

struct VariantCase
{
    char const* name;
    std::function<void(Schema&, EntryValue&)> change;
    std::function<void(SampleType const&)> check;
    std::set<std::string> changed;     ///< members the check covers
    std::vector<std::string> messages; ///< must all be logged
};

class ParameterFileSymbolTableEntryVariantTest : public ParameterFileSymbolTableEntryTest
{
protected:
    void Run(std::vector<VariantCase> const& cases, bool expectNoPositionDifference = true)
    {
        for (VariantCase const& test : cases) {
            SCOPED_TRACE(test.name);
            Schema schema = Schema::Source();
            EntryValue value = SampleValue();
            test.change(schema, value);
            EntryFile file(FileVersion{}, schema);
            LoadedSample sample;
            WriteAndLoad(file, sample, value);
            test.check(sample.value);
            for (std::string const& message : test.messages)
                EXPECT_TRUE(m_log.HasMessage(message)) << message;
            if (test.messages.empty()) {
                EXPECT_TRUE(m_log.Messages().empty()) << m_log.Messages().front();
            }
            if (expectNoPositionDifference) {
                EXPECT_FALSE(LoggedPositionDifference());
            }
            ExpectSampleValues(sample.value, test.changed);
        }
    }
};

EntryValue Numbers(std::vector<double> values)
{
    std::vector<EntryValue> items;
    for (double item : values)
        items.push_back(EntryValue::Real(item));
    return EntryValue::List(std::move(items));
}

// What a counted array that comes out empty logs.
std::vector<std::string> EmptyArrayMessages(char const* member)
{
    return {"Insufficient data to read array from symbol table entry\n",
            Format("Failed to allocate %llx\n", static_cast<unsigned long long>(Hash(member)))};
}

TEST_F(ParameterFileSymbolTableEntryVariantTest, OtherNumericTypesConvert)
{
    std::vector<std::string> const emptyArray = EmptyArrayMessages("counted");
    Run({
        // Fixed arrays, single values included, keep what another integer width converts to
        // and say that the read was not exact.
        {"scalar u16 into u32",
         [](Schema& s, EntryValue&) { s.Member("first").type = ElementType::UInt16; },
         [](SampleType const& v) { EXPECT_EQ(v.first, 101u); },
         {"first"},
         {"Insufficient data to read array of symbol table entry\n"}},
        {"scalar i32 into i16",
         [](Schema& s, EntryValue&) { s.Member("shortValue").type = ElementType::Int32; },
         [](SampleType const& v) { EXPECT_EQ(v.shortValue, -7); },
         {"shortValue"},
         {"Insufficient data to read array of symbol table entry\n"}},
        {"four-byte float into u32",
         [](Schema& s, EntryValue& v) {
             s.Member("first").flags = TuningWriter::ElementFourByte;
             v.Set("first", EntryValue::Real(101.75));
         },
         [](SampleType const& v) { EXPECT_EQ(v.first, 101u); },
         {"first"},
         {}},
        {"fixed doubles into floats",
         [](Schema& s, EntryValue&) { s.Member("gains").type = ElementType::Double; },
         [](SampleType const& v) {
             EXPECT_FLOAT_EQ(v.gains[0], 1.5f);
             EXPECT_FLOAT_EQ(v.gains[2], 3.5f);
         },
         {"gains"},
         {}},
        {"fixed integers into floats keep their values and report",
         [](Schema& s, EntryValue& v) {
             s.Member("gains").type = ElementType::Int32;
             v.Set("gains", Numbers({-1, 2, 3}));
         },
         [](SampleType const& v) {
             EXPECT_FLOAT_EQ(v.gains[0], -1.0f);
             EXPECT_FLOAT_EQ(v.gains[2], 3.0f);
         },
         {"gains"},
         {"Insufficient data to read array of symbol table entry\n"}},
        {"optional float into double",
         [](Schema& s, EntryValue&) { s.Member("optionalValue").type = ElementType::Float; },
         [](SampleType const& v) {
             EXPECT_EQ(v.optionalValueCount, 1u);
             EXPECT_DOUBLE_EQ(v.optionalValue, 6.25);
         },
         {"optionalValue"},
         {}},
        {"counted floats into u32 truncate",
         [](Schema& s, EntryValue& v) {
             s.Member("counted").type = ElementType::Float;
             v.Set("counted", Numbers({7.9, 8.2, 9.99}));
         },
         [](SampleType const& v) {
             ASSERT_EQ(v.countedCount, 3u);
             ASSERT_NE(v.counted, nullptr);
             EXPECT_EQ(v.counted[0], 7u);
             EXPECT_EQ(v.counted[2], 9u);
         },
         {"counted"},
         {}},
        {"counted u16 into u32 comes out empty",
         [](Schema& s, EntryValue&) { s.Member("counted").type = ElementType::UInt16; },
         [](SampleType const& v) {
             EXPECT_EQ(v.countedCount, 0u);
             EXPECT_EQ(v.counted, nullptr);
         },
         {"counted"},
         emptyArray},
        {"counted code 22 into u32 comes out empty",
         [](Schema& s, EntryValue&) { s.Member("counted").type = ElementType::IntLike; },
         [](SampleType const& v) {
             EXPECT_EQ(v.countedCount, 0u);
             EXPECT_EQ(v.counted, nullptr);
         },
         {"counted"},
         emptyArray},
    });
}

std::string CountMessage(char const* member, unsigned int expected, unsigned int binary)
{
    return Format("0x%llx expected count (%u) != the binary count (%u), the binary XSD != the "
                  "source XSD\n",
                  static_cast<unsigned long long>(Hash(member)), expected, binary);
}

TEST_F(ParameterFileSymbolTableEntryVariantTest, FixedArrayOfOtherLengthReadsTheLesserCount)
{
    Run({
        {"shorter numbers",
         [](Schema& s, EntryValue& v) {
             s.Member("gains").minCount = s.Member("gains").maxCount = 2;
             v.Set("gains", Numbers({1.5, 2.5}));
         },
         [](SampleType const& v) {
             EXPECT_FLOAT_EQ(v.gains[1], 2.5f);
             EXPECT_EQ(v.gains[2], 0.0f);
         },
         {"gains"},
         {CountMessage("gains", 3, 2)}},
        {"longer numbers at a structure's end",
         [](Schema& s, EntryValue& v) {
             s.inner[1].minCount = s.inner[1].maxCount = 3;
             EntryValue inner = Inner(11, 0.25, 0.5);
             inner.Set("b", Numbers({0.25, 0.5, 0.75}));
             v.Set("inner", inner);
         },
         [](SampleType const& v) {
             EXPECT_FLOAT_EQ(v.inner.b[1], 0.5f);
             EXPECT_EQ(v.inner.a, 11);
         },
         {"inner"},
         {CountMessage("b", 2, 3),
          Format("Binary file structure bytes (%u) does not match expected bytes (%u). XSD "
                 "structure modified\n",
                 InnerStart + 24, InnerStart + 20)}},
    });
}

TEST_F(ParameterFileSymbolTableEntryTest, LongerStructureArrayLoadsTheCompiledInCount)
{
    Schema schema = Schema::Source();
    schema.Member("pairs").minCount = schema.Member("pairs").maxCount = 3;
    EntryFile file(FileVersion{}, schema);
    LoadedSample sample;
    EntryValue value = SampleValue();
    value.Set("pairs", EntryValue::List({Inner(21, 1, 2), Inner(22, 3, 4), Inner(23, 5, 6)}));
    WriteAndLoad(file, sample, value);

    EXPECT_EQ(sample->pairs[0].a, 21);
    EXPECT_EQ(sample->pairs[1].a, 22);
    EXPECT_TRUE(m_log.HasMessage(CountMessage("pairs", 2, 3)));
    ExpectSampleValues(sample.value, {"pairs", "counted", "optionalValue", "items", "optionalInner",
                                      "name", "labels", "optionalName", "last"});
}

TEST_F(ParameterFileSymbolTableEntryVariantTest, FixedAndVariableFormsReadEachOther)
{
    uint32_t const moduleId = 1; // the only module of each file
    Run({
        {"fixed in the source, variable in the file",
         [](Schema& s, EntryValue&) {
             s.Member("gains").minCount = 1;
             s.Member("gains").maxCount = 8;
         },
         [](SampleType const&) {},
         {},
         {}},
        {"fixed in the source, fewer in the file's pointer form",
         [](Schema& s, EntryValue& v) {
             s.Member("gains").minCount = 0;
             s.Member("gains").maxCount = 8;
             v.Set("gains", Numbers({1.5, 2.5}));
         },
         [](SampleType const& v) {
             EXPECT_FLOAT_EQ(v.gains[1], 2.5f);
             EXPECT_EQ(v.gains[2], 0.0f);
         },
         {"gains"},
         {CountMessage("gains", 3, 2)}},
        {"variable in the source, fixed in the file",
         [](Schema& s, EntryValue&) {
             s.Member("counted").minCount = 3;
             s.Member("counted").maxCount = 3;
         },
         [moduleId](SampleType const& v) { EXPECT_EQ(v.countedID, moduleId); },
         {},
         {}},
        {"variable in the source, single in the file",
         [](Schema& s, EntryValue& v) {
             s.Member("counted").maxCount = 1;
             v.Set("counted", EntryValue::UInt(42));
         },
         [moduleId](SampleType const& v) {
             ASSERT_EQ(v.countedCount, 1u);
             ASSERT_NE(v.counted, nullptr);
             EXPECT_EQ(v.counted[0], 42u);
             EXPECT_EQ(v.countedID, moduleId);
         },
         {"counted"},
         {}},
        {"structure array fixed in the file",
         [](Schema& s, EntryValue&) {
             s.Member("items").minCount = 2;
             s.Member("items").maxCount = 2;
         },
         [moduleId](SampleType const& v) { EXPECT_EQ(v.itemsID, moduleId); },
         {},
         {}},
        {"optional single in the file",
         [](Schema& s, EntryValue&) { s.Member("optionalValue").minCount = 1; },
         [moduleId](SampleType const& v) { EXPECT_EQ(v.optionalValueID, moduleId); },
         {},
         {}},
    });
}

TEST_F(ParameterFileSymbolTableEntryTest, SmallerStructureWithoutDefinitionsStopsAtItsLength)
{
    Schema schema = Schema::Source();
    schema.inner = {Element("a", ElementType::Int32)};
    EntryFile file(FileVersion{}, schema, false);
    LoadedSample sample;
    WriteAndLoad(file, sample, SampleValue());

    // b's count would lie behind the structure's end: it is not read, and b stays 0.
    EXPECT_EQ(sample->inner.a, 11);
    EXPECT_EQ(sample->inner.b[0], 0.0f);
    EXPECT_TRUE(
        m_log.HasMessage(Format("Failed to read 4 bytes from binary file offset %u, length %u\n",
                                InnerStart + 8, InnerStart + 8)));
    EXPECT_TRUE(m_log.HasMessage("Insufficient data to read variable from symbol table entry\n"));
    EXPECT_TRUE(m_log.HasMessage(CountMessage("b", 2, 0)));
    ASSERT_NE(sample->items, nullptr);
    EXPECT_EQ(sample->items[1].a, 32);
    ExpectSampleValues(sample.value, {"inner", "pairs", "items", "optionalInner"});
}

// The sample's value with the count written for member replaced by count.
EntryValue SampleWithCount(char const* member, uint32_t count, EntryValue value = SampleValue())
{
    EntryValue changed = *value.Find(member);
    changed.countOverride = count;
    value.Set(member, changed);
    return value;
}

// What cutting a count from the file to its data logs; with available and fitting left out, the
// start of the line.
std::string CountCutMessage(char const* member, unsigned int size, unsigned int count)
{
    return Format("Minimun %ld size (%u) * count (%u) exceeds avaialable data (",
                  static_cast<long>(Hash(member)), size, count);
}

std::string CountCutMessage(char const* member, unsigned int size, unsigned int count,
                            unsigned int available, unsigned int fitting)
{
    return CountCutMessage(member, size, count) +
           Format("%u), setting count to %u to prevent allocation errors\n", available, fitting);
}

TEST_F(ParameterFileSymbolTableEntryTest, CountBeyondTheDataIsCutToWhatFits)
{
    EntryFile file;
    LoadedSample sample;
    WriteAndLoad(file, sample, SampleWithCount("items", 50, SampleWithCount("counted", 100)));

    EXPECT_TRUE(m_log.HasMessage(CountCutMessage("counted", 4, 100, 12, 3)));
    // An item in the file: length word, a, and b's count and two values.
    EXPECT_TRUE(m_log.HasMessage(CountCutMessage("items", 20, 50, 40, 2)));
    ExpectSampleValues(sample.value);
}

TEST_F(ParameterFileSymbolTableEntryTest, CountOfElementsWithoutASizeIsCutAtOneByteEach)
{
    // The file's items are of a structure it does not define, so their size is unknown: a
    // damaged count is still cut to the bytes of their data block.
    Schema schema = Schema::Source();
    schema.Member("items").id = 99;
    EntryFile file(FileVersion{}, schema);
    LoadedSample sample;
    WriteAndLoad(file, sample, SampleWithCount("items", 1000000000));

    std::string const prefix = CountCutMessage("items", 1, 1000000000);
    EXPECT_TRUE(m_log.Contains(prefix)) << prefix;
    EXPECT_LE(sample->itemsCount, 64u);
}

TEST_F(ParameterFileSymbolTableEntryTest, InlineCountBeyondTheEntryIsCutBeforeAllocating)
{
    // Variable in the source, fixed in a 7.0.0 file: the count stands in the entry itself, ahead
    // of the values, and a damaged one must not size an allocation of gigabytes.
    Schema schema = Schema::Source();
    schema.Member("counted").minCount = 3;
    schema.Member("counted").maxCount = 3;
    EntryFile file(FileVersion{}, schema);
    LoadedSample sample;
    WriteAndLoad(file, sample, SampleWithCount("counted", 1000000000));

    EXPECT_TRUE(m_log.HasMessage(CountCutMessage("counted", 4, 1000000000, 64, 16)));
    ASSERT_EQ(sample->countedCount, 16u);
    ASSERT_NE(sample->counted, nullptr);
    EXPECT_EQ(sample->counted[2], 9u);
}

TEST_F(ParameterFileSymbolTableEntryTest, LoadLimitsBoundWhatAStructureReads)
{
    // A length of 0: the structure ends behind its length word, so b's count is not there.
    {
        EntryFile file;
        LoadedSample sample;
        EntryValue value = SampleValue();
        EntryValue inner = Inner(11, 0.25, 0.5);
        inner.loadLimitOverride = 0;
        value.Set("inner", inner);
        WriteAndLoad(file, sample, value);

        EXPECT_EQ(sample->inner.a, 11); // single numbers are bounded by the entry alone
        EXPECT_EQ(sample->inner.b[0], 0.0f);
        EXPECT_TRUE(m_log.HasMessage(
            Format("Failed to read 4 bytes from binary file offset %u, length %u\n", InnerStart + 8,
                   InnerStart + 4)));
        EXPECT_TRUE(m_log.HasMessage(Format("Binary file structure bytes (%u) does not match "
                                            "expected bytes (%u). XSD structure modified\n",
                                            InnerStart + 4, InnerStart + 8)));
    }
    // A length past the enclosing structure's end is cut back to it.
    {
        EntryFile file;
        LoadedSample sample;
        EntryValue value = SampleValue();
        EntryValue inner = Inner(11, 0.25, 0.5);
        inner.loadLimitOverride = 1000;
        value.Set("inner", inner);
        std::vector<uint8_t> bytes = file.Encoder().Encode(SampleStructureId, &value);
        auto const sampleEnd = static_cast<unsigned int>(bytes.size());
        uint32_t const id = file.AddModuleBytes(std::move(bytes));
        ASSERT_TRUE(file.Build());
        m_log.Clear();
        ASSERT_TRUE(file.Load(id, sample));

        EXPECT_TRUE(m_log.HasMessage(
            Format("Load limit (%u) exceeds available size (%u). XSD structure modified\n",
                   InnerStart + 4 + 1000, sampleEnd)));
        EXPECT_EQ(sample->inner.a, 11);
        EXPECT_FLOAT_EQ(sample->inner.b[1], 0.5f);
        // The inner structure ends where the sample ends; the members behind it are still read
        // where the file puts them.
        ExpectSampleValues(sample.value);
    }
}

TEST_F(ParameterFileSymbolTableEntryTest, TruncatedEntryNeverReadsPastItsSize)
{
    for (bool const withDefinitions : {false, true}) {
        SCOPED_TRACE(withDefinitions ? "with definitions" : "without definitions");
        EntryFile file(FileVersion{}, Schema::Source(), withDefinitions);
        EntryValue const value = SampleValue();
        std::vector<uint8_t> bytes = file.Encoder().Encode(SampleStructureId, &value);
        bytes.resize(InnerStart + 8); // through inner.a
        uint32_t const id = file.AddModuleBytes(std::move(bytes));
        // Whatever follows in the data section is not zero: a read past the end would show.
        file.AddModuleBytes(std::vector<uint8_t>(256, 0x5A));
        ASSERT_TRUE(file.Build());
        m_log.Clear();
        LoadedSample sample;
        ASSERT_TRUE(file.Load(id, sample));

        EXPECT_EQ(sample->first, 101u);
        EXPECT_FLOAT_EQ(sample->gains[2], 3.5f);
        EXPECT_EQ(sample->inner.a, 11);
        EXPECT_EQ(sample->inner.b[0], 0.0f);
        EXPECT_EQ(sample->pairs[1].a, 0);
        EXPECT_EQ(sample->countedCount, 0u);
        EXPECT_EQ(sample->counted, nullptr);
        EXPECT_EQ(sample->items, nullptr);
        EXPECT_EQ(sample->optionalInner.a, 0);
        EXPECT_EQ(sample->name, nullptr);
        EXPECT_EQ(sample->labels, nullptr);
        EXPECT_EQ(sample->optionalName, nullptr);
        EXPECT_EQ(sample->last, 0u);
        EXPECT_TRUE(m_log.Contains("Failed to read 4 bytes from binary file offset"));
    }
}

TEST_F(ParameterFileSymbolTableEntryTest, SharedBlocksAreLoadedOnceAndReleasedByTheLastHolder)
{
    EntryFile file;
    EntryValue first = SampleValue();
    EntryValue second = SampleValue();
    for (char const* member : {"counted", "items", "labels", "name"}) {
        EntryValue shared = *first.Find(member);
        shared.blockName = member;
        first.Set(member, shared);
        shared.blockName.clear();
        shared.duplicateOf = member;
        second.Set(member, shared);
    }
    uint32_t const firstId = file.AddModule(first);
    uint32_t const secondId = file.AddModule(second);
    ASSERT_TRUE(file.Build());

    auto one = std::make_unique<LoadedSample>();
    LoadedSample two;
    ASSERT_TRUE(file.Load(firstId, *one));
    ASSERT_TRUE(file.Load(secondId, two));
    ExpectSampleValues(two.value);

    ParameterFileSymbolTable& table = file.Table();
    void* const pointers[][2] = {{(*one)->counted, two->counted},
                                 {(*one)->items, two->items},
                                 {(*one)->labels, two->labels},
                                 {(*one)->name, two->name}};
    for (auto const& pair : pointers) {
        ASSERT_NE(pair[0], nullptr);
        EXPECT_EQ(pair[0], pair[1]);
        DupObjInfo* info = table.FindDupObject(pair[0]);
        ASSERT_NE(info, nullptr);
        EXPECT_EQ(info->RefCount.load(), 2u);
    }
    one.reset(); // the first holder lets go; the arrays stay for the second
    for (auto const& pair : pointers) {
        DupObjInfo* info = table.FindDupObject(pair[1]);
        ASSERT_NE(info, nullptr);
        EXPECT_EQ(info->RefCount.load(), 1u);
    }
    ExpectSampleValues(two.value);
}

} // namespace
} // namespace EntryReaderTest
