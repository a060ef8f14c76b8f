// SPDX-License-Identifier: Apache-2.0
// The file writer and its section builders read back through the library's byte reader and
// checksum validators; the text form of a file and the number rule that pack and set share.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vornalloc.h"

#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parsercrc.h"
#include "tools/writer/modesectionbuilder.h"
#include "tools/writer/numbertext.h"
#include "tools/writer/symboltablebuilder.h"
#include "tools/writer/tuningdescription.h"
#include "tools/writer/tuningfilewriter.h"

#include "paramgen/TuningSetManager.writer.h"
#include "tests/common/logcapture.h"
#include "tests/common/tempfile.h"
#include "tests/common/testsetmanager.h"

namespace {

using namespace TuningWriter;

std::string Name(FileVersion version)
{
    return std::to_string(version.major) + "_" + std::to_string(version.minor) + "_" +
           std::to_string(version.patch);
}

/// A counted text (count bytes, stepped at the reader's alignment); "<missing>" if not there.
std::string ReadText(ParameterByteReader& reader, unsigned int count)
{
    char* text = reader.ReadCountedString(count);
    if (text == nullptr)
        return "<missing>";
    std::string result(text);
    VornFree(text, VornTagRelease);
    return result;
}

/// A field of width 1, 2, 4 or 8 at the reader's step; all ones when the read failed.
uint64_t ReadField(ParameterByteReader& reader, unsigned int width)
{
    uint8_t u8 = 0;
    uint16_t u16 = 0;
    uint32_t u32 = 0;
    uint64_t u64 = 0;
    switch (width) {
    case 1:
        return reader.ReadU8(u8) ? u8 : ~0ull;
    case 2:
        return reader.ReadU16(u16) ? u16 : ~0ull;
    case 4:
        return reader.ReadU32(u32) ? u32 : ~0ull;
    default:
        return reader.ReadU64(u64) ? u64 : ~0ull;
    }
}

bool ChecksumValid(std::vector<uint8_t> const& file, bool crc64)
{
    ParamTest::LogCapture quiet; // a mismatch is an expected outcome here, not noise for the log
    auto const length = static_cast<unsigned int>(file.size());
    return crc64 ? ParserCRC64::Validate(file.data(), length, true, nullptr)
                 : ParserCRC32::Validate(file.data(), length, nullptr);
}

// Sections of odd sizes, so that the second placed section needs padding at alignment 8, and a
// raw record between them that must be written as given.
TuningFileWriter DescribeFile(FileVersion version)
{
    TuningFileWriter writer(version);
    writer.SetCreatedBy("unit test").SetBinaryTag("label-1").SetHeaderFlags(0x0102030405060708);
    writer.AddSection(SectionType::Symbol, {1, 2, 3, 4, 5});
    writer.AddRawSectionRecord(9, 0x1234, 77);
    writer.AddSection(SectionType::Definition, {6, 7, 8});
    return writer;
}

struct VersionCase
{
    FileVersion version;
    unsigned int headerSize;
    unsigned char alignment;
    bool crc64;
};

class FileLayoutTest : public testing::TestWithParam<VersionCase>
{
};

TEST_P(FileLayoutTest, HeaderTableSectionsAndChecksumFollowTheVersion)
{
    VersionCase const& c = GetParam();
    std::vector<uint8_t> const file = DescribeFile(c.version).Build();
    auto const length = static_cast<unsigned int>(file.size());

    // Header, read field by field at alignment 1.
    ParameterByteReader header(file.data(), length, 1, nullptr);
    EXPECT_EQ(ReadText(header, 28), "ZEL Varitonal Header");
    uint64_t const sizeAndVersion[] = {ReadField(header, 4), ReadField(header, 2),
                                       ReadField(header, 2), ReadField(header, 4)};
    EXPECT_EQ(std::vector<uint64_t>(std::begin(sizeAndVersion), std::end(sizeAndVersion)),
              (std::vector<uint64_t>{length, c.version.major, c.version.minor, c.version.patch}));
    if (c.headerSize >= 160) {
        EXPECT_EQ(ReadText(header, 48), "unit test");
        EXPECT_EQ(ReadText(header, 64), "label-1");
    }
    if (c.headerSize == 168) {
        EXPECT_EQ(ReadField(header, 8), 0x0102030405060708u);
    }
    EXPECT_EQ(ReadField(header, 4), c.headerSize); // SectionOffset
    EXPECT_EQ(ReadField(header, 4), 3u);           // SectionCount
    EXPECT_EQ(header.Position(), c.headerSize);

    // Section table (type, offset, size), directly behind, stepping at the file's alignment. The
    // raw record is written as given; placed sections start at the first aligned offset behind
    // what precedes them.
    ParameterByteReader table(file.data(), length, c.alignment, nullptr, c.headerSize);
    std::vector<uint64_t> records(9);
    for (uint64_t& field : records)
        field = ReadField(table, 4);
    uint64_t const first = table.Position();
    uint64_t const second = first + (c.alignment == 8 ? 8 : 5);
    EXPECT_EQ(first, c.headerSize + 3 * (c.alignment == 8 ? 24u : 12u));
    EXPECT_EQ(records, (std::vector<uint64_t>{0, first, 5, 9, 0x1234, 77, 4, second, 3}));
    EXPECT_EQ(std::vector<uint8_t>(file.begin() + first, file.begin() + first + 5),
              (std::vector<uint8_t>{1, 2, 3, 4, 5}));
    EXPECT_EQ(std::vector<uint8_t>(file.begin() + second, file.begin() + second + 3),
              (std::vector<uint8_t>{6, 7, 8}));

    // The checksum follows the last section at once and is of the version's kind.
    EXPECT_EQ(length, second + 3 + (c.crc64 ? 8u : 4u));
    EXPECT_TRUE(ChecksumValid(file, c.crc64));
    EXPECT_FALSE(ChecksumValid(file, !c.crc64));
}

INSTANTIATE_TEST_SUITE_P(
    Versions, FileLayoutTest,
    testing::Values(VersionCase{{1, 0, 0}, 48, 1, false}, VersionCase{{1, 0, 2}, 160, 1, false},
                    VersionCase{{1, 1, 0}, 160, 8, false}, VersionCase{{2, 0, 0}, 160, 8, false},
                    VersionCase{{3, 0, 0}, 168, 8, false}, VersionCase{{3, 0, 1}, 168, 1, false},
                    VersionCase{{4, 0, 0}, 168, 1, false}, VersionCase{{6, 0, 0}, 168, 1, true},
                    VersionCase{{7, 0, 0}, 168, 1, true}),
    [](testing::TestParamInfo<VersionCase> const& param) { return Name(param.param.version); });

void PutU32(std::vector<uint8_t>& bytes, size_t at, uint32_t value)
{
    for (unsigned int i = 0; i < 4; ++i)
        bytes[at + i] = static_cast<uint8_t>(value >> (8 * i));
}

// Each damage changes what it names and nothing else. A header override changes its own field,
// and the checksum is computed over the changed header, so it still validates; the tail faults
// act on the finished file.
TEST(FileDamageTest, EachDamageChangesOnlyWhatItNames)
{
    using Bytes = std::vector<uint8_t>;
    enum Checksum
    {
        Restamped,
        Broken,
        Unchecked
    };
    struct Case
    {
        char const* name;
        std::function<void(Damage&)> damage;
        /// The sound file as the damage must leave it, given the header and checksum sizes.
        std::function<void(Bytes&, size_t header, size_t checksum)> expect;
        Checksum checksum;
    } const cases[] = {
        // A tag too long is cut to its field, with no NUL left in it.
        {"headerTag", [](Damage& d) { d.headerTag = "ZEL Varitonal Header and far too long"; },
         [](Bytes& b, size_t, size_t) {
             std::memcpy(b.data(), "ZEL Varitonal Header and far", 28);
         },
         Restamped},
        {"emptyHeaderTag", [](Damage& d) { d.emptyHeaderTag = true; },
         [](Bytes& b, size_t, size_t) { std::fill_n(b.begin(), 28, 0); }, Restamped},
        {"fileSize", [](Damage& d) { d.fileSize = 12; },
         [](Bytes& b, size_t, size_t) { PutU32(b, 28, 12); }, Restamped},
        {"sectionOffset", [](Damage& d) { d.sectionOffset = 3000; },
         [](Bytes& b, size_t header, size_t) { PutU32(b, header - 8, 3000); }, Restamped},
        {"sectionCount", [](Damage& d) { d.sectionCount = 1; },
         [](Bytes& b, size_t header, size_t) { PutU32(b, header - 4, 1); }, Restamped},
        {"badChecksum", [](Damage& d) { d.badChecksum = true; },
         [](Bytes& b, size_t, size_t checksum) {
             std::transform(b.end() - checksum, b.end(), b.end() - checksum,
                            [](uint8_t byte) { return static_cast<uint8_t>(~byte); });
         },
         Broken},
        {"truncate", [](Damage& d) { d.truncate = 3; },
         [](Bytes& b, size_t, size_t) { b.resize(b.size() - 3); }, Unchecked},
        {"cutAt", [](Damage& d) { d.cutAt = 40; }, [](Bytes& b, size_t, size_t) { b.resize(40); },
         Unchecked},
        // Appended bytes leave FileSize at the sound length.
        {"appended",
         [](Damage& d) {
             d.appended = {0xAA, 0xBB};
         },
         [](Bytes& b, size_t, size_t) {
             b.insert(b.end(), {0xAA, 0xBB});
         },
         Unchecked},
        // Truncate and append together replace the tail.
        {"truncate and append",
         [](Damage& d) {
             d.truncate = 8;
             d.appended = Bytes(8, 0);
         },
         [](Bytes& b, size_t, size_t) { std::fill(b.end() - 8, b.end(), 0); }, Unchecked},
    };
    for (FileVersion version : {FileVersion{1, 0, 0}, FileVersion{2, 0, 0}, FileVersion{7, 0, 0}}) {
        TuningFileWriter writer = DescribeFile(version);
        Bytes const sound = writer.Build();
        size_t const checksumStart = sound.size() - writer.ChecksumSize();
        for (Case const& c : cases) {
            SCOPED_TRACE(Name(version) + " " + c.name);
            Damage damage;
            c.damage(damage);
            Bytes const damaged = writer.SetDamage(damage).Build();
            Bytes expected = sound;
            c.expect(expected, writer.HeaderSize(), writer.ChecksumSize());
            if (c.checksum == Restamped) {
                ASSERT_EQ(damaged.size(), sound.size());
                EXPECT_EQ(Bytes(damaged.begin(), damaged.begin() + checksumStart),
                          Bytes(expected.begin(), expected.begin() + checksumStart));
            } else {
                EXPECT_EQ(damaged, expected);
            }
            if (c.checksum != Unchecked) {
                EXPECT_EQ(ChecksumValid(damaged, UsesCrc64(version)), c.checksum == Restamped);
            }
        }
        writer.SetDamage({});
    }
}

TEST(FileWriterTest, WriteFileStoresWhatBuildGives)
{
    ParamTest::TempFile temp;
    TuningFileWriter const writer = DescribeFile({5, 0, 0});
    ASSERT_TRUE(writer.WriteFile(temp.Path()));
    FILE* stream = std::fopen(temp.Path().c_str(), "rb");
    ASSERT_NE(stream, nullptr);
    std::vector<uint8_t> stored(4096);
    stored.resize(std::fread(stored.data(), 1, stored.size(), stream));
    std::fclose(stream);
    EXPECT_EQ(stored, writer.Build());
    EXPECT_FALSE(writer.WriteFile("/nonexistent-folder/file.bin"));
}

ModuleEntry Module(std::string name, std::vector<uint8_t> data)
{
    ModuleEntry entry;
    entry.name = std::move(name);
    entry.moduleVersion = {3, 4, 0};
    entry.modeId = 0x01000002;
    entry.data = std::move(data);
    return entry;
}

// Identifiers and section sizes: modules and data share one sequence below 4.0.0; from 6.0.0 a
// placeholder takes position 0 of both tables; a padded file's size counts 76 bytes an entry.
TEST(SymbolTableBuilderTest, IdentifiersAndSectionSizesFollowTheVersion)
{
    struct Case
    {
        FileVersion version;
        std::vector<uint32_t> ids; ///< of module, module, data in the order added
        size_t symbolSize;
        size_t dataTableSize;
    } const cases[] = {{{1, 0, 1}, {1, 2, 3}, 192, 0},  {{1, 1, 0}, {1, 2, 3}, 228, 0},
                       {{3, 0, 1}, {1, 2, 3}, 168, 0},  {{3, 1, 0}, {1, 2, 3}, 180, 0},
                       {{4, 0, 0}, {1, 2, 1}, 120, 16}, {{7, 0, 0}, {1, 2, 1}, 96, 24}};
    for (Case const& test : cases) {
        SCOPED_TRACE(Name(test.version));
        SymbolTableBuilder builder(test.version);
        std::vector<uint32_t> ids;
        ids.push_back(builder.AddModule(Module("a", {1, 2, 3})));
        ids.push_back(builder.AddModule(Module("b", {4})));
        ids.push_back(builder.AddData({5, 6}));
        EXPECT_EQ(ids, test.ids);
        SymbolTableBuilder::Sections const sections = builder.Build();
        EXPECT_EQ(sections.symbol.size(), test.symbolSize);
        EXPECT_EQ(sections.dataTable.size(), test.dataTableSize);
        EXPECT_EQ(sections.symbol.size() % SymbolTableBuilder::SymbolEntrySize(test.version), 0u);
    }
}

// The name field holds 32 characters: a name that fills it has no NUL, a longer one is cut.
TEST(SymbolTableBuilderTest, PaddedEntriesStep72BytesWithTheCountedRestAtTheEnd)
{
    for (std::string const& name :
         {std::string("second"), std::string(32, 'n'), std::string(33, 'n')}) {
        SCOPED_TRACE(name.size());
        SymbolTableBuilder builder({2, 0, 0});
        builder.AddModule(Module("first", {1, 2, 3}));
        builder.AddModule(Module(name, {4}));
        std::vector<uint8_t> const symbol = builder.Build().symbol;
        ASSERT_EQ(symbol.size(), 152u);

        ParameterByteReader reader(symbol.data(), static_cast<unsigned int>(symbol.size()), 8,
                                   nullptr, 72);
        EXPECT_EQ(ReadField(reader, 4), 2u);
        EXPECT_EQ(ReadText(reader, 32), name.substr(0, 32));
        EXPECT_EQ(ReadField(reader, 8), 0x0000000000040003ull);
        EXPECT_EQ(ReadField(reader, 4), 0x01000002u);
        EXPECT_EQ(ReadField(reader, 4), 8u); // the first block padded to 8 bytes
        EXPECT_EQ(ReadField(reader, 4), 1u);
        EXPECT_EQ(reader.Position(), 144u);
        EXPECT_EQ(ReadField(reader, 8), 0u);
    }
}

TEST(ModeSectionBuilderTest, NamedPathsShareStepsAndNumberNewOnes)
{
    ModeSectionBuilder table(2, "front");
    uint32_t const preview = table.AddPath("Default|Sensor.0|Usecase.Preview");
    uint32_t const video = table.AddPath("Default|Sensor.0|Usecase.Video");
    uint32_t const numeric = table.AddPath("0|1.0|2.2");

    constexpr uint32_t Table2 = 2u << 24;
    EXPECT_EQ(preview, Table2 | 2);
    EXPECT_EQ(video, Table2 | 3);
    EXPECT_EQ(numeric, video);
    EXPECT_EQ(table.Find("Default|Sensor.0"), Table2 | 1);
    EXPECT_EQ(table.Find("Default|Sensor.1"), InvalidModeId);
    ASSERT_EQ(table.Entries().size(), 4u);
    ModeEntryRecord const& root = table.Entries()[0];
    EXPECT_EQ(root.parentId, root.modeId);
    EXPECT_EQ(table.Entries()[3].parentId, Table2 | 1);
    EXPECT_EQ(table.Entries()[3].subMode, 2u);

    // Unknown names and a root other than the existing one are refused and add nothing.
    EXPECT_EQ(table.AddPath("Default|Sideways.0"), InvalidModeId);
    EXPECT_EQ(table.AddPath("Default|Usecase.Nope"), InvalidModeId);
    EXPECT_EQ(table.AddPath("Sensor.0|Usecase.Preview"), InvalidModeId);
    EXPECT_EQ(table.Entries().size(), 4u);
}

constexpr char Sample[] = R"(
version 7.0.0
binary-tag demo-front   # trailing comment
created-by unit test tool
structure 2 module_versionStruct
  member major_revision Int32
  member minor_revision Int32
structure 1 TopType
  member module_version struct:2
  member numPoints UInt32
  member indices UInt32[300]
  member limits Float[] four-byte
  member label String?
module TopType 1
)";

TEST(TuningDescriptionTest, PackedFileLoadsWithItsSchema)
{
    TuningDescription description;
    ASSERT_TRUE(description.Parse(Sample)) << description.Error();
    std::vector<uint8_t> bytes = description.MakeWriter().Build();
    EXPECT_GE(bytes.size(), FileModeWindow);

    ParamTest::TestSetManager manager;
    ASSERT_TRUE(manager.LoadBinaryParameters(bytes.data(), bytes.size()))
        << manager.GetErrorString();
    EXPECT_STREQ(manager.GetBinaryTag(), "demo-front");

    ParameterSetManager::SectionInfo const section = manager.GetDefinitionSection();
    ParameterFileSymbolTable table(&manager, 1, manager.GetBinaryVersion());
    unsigned int pos = section.Offset;
    ASSERT_TRUE(table.ReadDefinitions(bytes.data(), static_cast<unsigned int>(bytes.size()), pos,
                                      section.Size, true));
    ParameterDefinitionStructure const* top =
        table.FindModuleStructure(ParserCRC64::HashName("TopType"));
    ASSERT_NE(top, nullptr);
    // Load limit 4, version record 4 + 2 x 4, count 4, fixed array count 4 + 300 x 4, counted
    // floats 8, optional string 8.
    EXPECT_EQ(top->Size, 4u + 12u + 4u + 1204u + 8u + 8u);
    ParameterDefinitionElement const* limits = top->FindChild(ParserCRC64::HashName("limits"));
    ASSERT_NE(limits, nullptr);
    EXPECT_EQ(limits->Info->Flags, ::ElementFourByte | ::ElementVariableCount);
}

// Malformed lines are refused with their number; every limit is taken at its bound and refused
// one past it.
TEST(TuningDescriptionTest, RefusesMalformedLinesWithTheirNumber)
{
    std::string const gamma = "modetable\ninstance gamma16_bps varitonal_gamma16Type mode Default\n"
                              "  value control_variables.control_var_type ";
    std::string tables;
    for (unsigned int i = 0; i < 256; ++i)
        tables += "modetable\n";
    struct Case
    {
        std::string text;
        std::string error; ///< empty when the text is taken
    } const cases[] = {
        {"version 7.0", "line 1: bad version '7.0'"},
        {"version 7.0.0.1", "line 1: bad version '7.0.0.1'"},
        {"version 65536.0.0", "line 1: bad version '65536.0.0'"},
        {"version 7.65536.0", "line 1: bad version '7.65536.0'"},
        {"version 65535.0.0",
         "line 1: version 65535.0.0 is above 7.0.0, the latest the loader reads"},
        {"\nmember a UInt32", "line 2: member outside a structure"},
        {"structure 1 A\n member a Bogus", "line 2: unknown member type 'Bogus'"},
        {"structure 1 A\n member a UInt32[0]", "line 2: bad array length in 'UInt32[0]'"},
        {"structure 1 A\n member a struct:x", "line 2: bad structure ID in 'struct:x'"},
        {"structure 1 A\n member a UInt32 eight-byte",
         "line 2: unknown member option 'eight-byte'"},
        {"structure 1 A\n member a UInt32 four-byte more",
         "line 2: expected: member NAME TYPE [four-byte]"},
        {"module A", "line 1: cannot read 'module' with 1 argument(s)"},
        {"flags nope", "line 1: bad flags 'nope'"},
        {"version 7.0.1", "line 1: version 7.0.1 is above 7.0.0, the latest the loader reads"},
        {"binary-tag " + std::string(64, 't'), ""},
        {"binary-tag " + std::string(65, 't'),
         "line 1: a binary tag of 65 characters does not fit its 64-byte field"},
        {"created-by " + std::string(48, 'c'), ""},
        {"created-by " + std::string(49, 'c'),
         "line 1: a creator name of 49 characters does not fit its 48-byte field"},
        {"modetable " + std::string(32, 'm') + "\nversion 6.0.0", ""},
        {"modetable " + std::string(33, 'm') + "\nversion 6.0.0",
         "line 1: a mode table name of 33 characters does not fit its 32-byte field"},
        {"modetable " + std::string(128, 'm'), ""},
        {"modetable " + std::string(129, 'm'),
         "line 1: a mode table name of 129 characters does not fit its 128-byte field"},
        {tables, ""},
        {tables + "modetable", "line 257: too many mode tables"},
        {gamma + "0,0,0,0,0", ""},
        {gamma + "0,0,0,0,0,0", "line 3: value of 'control_variables.control_var_type': 6 "
                                "elements where at most 5 fit"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text.substr(0, 80));
        TuningDescription description({&ParamSchema::TuningSetManager::Instances()});
        EXPECT_EQ(description.Parse(c.text), c.error.empty());
        EXPECT_EQ(description.Error(), c.error);
    }
}

TEST(NumberTextTest, ReadsWithinRangeAndRefusesEverythingElse)
{
    struct Case
    {
        NumberKind kind;
        char const* text;
        bool accepted;
        long double value;  ///< when accepted
        char const* reason; ///< when refused
    };
    Case const cases[] = {
        {NumberKind::UInt32, "0x10", true, 16, ""},
        {NumberKind::UInt32, "010", true, 10, ""}, // decimal, not octal
        {NumberKind::Int32, "-0x10", true, -16, ""},
        {NumberKind::UInt8, "+255", true, 255, ""},
        {NumberKind::UInt8, "256", false, 0, "'256' is outside UInt8 (0 to 255)"},
        {NumberKind::Int8, "-128", true, -128, ""},
        {NumberKind::Int8, "-129", false, 0, "'-129' is outside Int8 (-128 to 127)"},
        {NumberKind::UInt32, "-0", true, 0, ""},
        {NumberKind::UInt64, "18446744073709551615", true, 18446744073709551615.0L, ""},
        {NumberKind::UInt64, "18446744073709551616", false, 0,
         "'18446744073709551616' is outside UInt64 (0 to 18446744073709551615)"},
        {NumberKind::Int64, "-9223372036854775808", true, -9223372036854775808.0L, ""},
        {NumberKind::Int64, "9223372036854775808", false, 0,
         "'9223372036854775808' is outside Int64 (-9223372036854775808 to 9223372036854775807)"},
        {NumberKind::Int32, "1e3", false, 0, "'1e3' is not an integer (Int32)"},
        {NumberKind::UInt32, " 5", false, 0, "' 5' is not a number (UInt32)"},
        {NumberKind::UInt32, "", false, 0, "an empty text is no value (UInt32)"},
        {NumberKind::Float, "0x1p3", true, 8, ""},
        {NumberKind::Float, "3.5e38", false, 0,
         "'3.5e38' is outside Float (-3.40282347e+38 to 3.40282347e+38)"},
        {NumberKind::Double, "1e308", true, 1e308L, ""},
        {NumberKind::Double, "1e309", false, 0,
         "'1e309' is outside Double (-1.79769313e+308 to 1.79769313e+308)"},
        {NumberKind::Double, "-inf", false, 0, "'-inf' is not a finite number (Double)"},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(test.text);
        NumberValue value;
        std::string reason;
        ASSERT_EQ(ParseNumber(test.kind, test.text, value, reason), test.accepted) << reason;
        if (!test.accepted) {
            EXPECT_EQ(reason, test.reason);
            continue;
        }
        bool const real = test.kind == NumberKind::Float || test.kind == NumberKind::Double;
        bool const isSigned = test.kind == NumberKind::Int8 || test.kind == NumberKind::Int32 ||
                              test.kind == NumberKind::Int64;
        if (real)
            EXPECT_EQ(value.real, static_cast<double>(test.value));
        else if (isSigned)
            EXPECT_EQ(static_cast<long double>(value.integer), test.value);
        else
            EXPECT_EQ(static_cast<long double>(value.unsignedInteger), test.value);
    }
}

} // namespace
