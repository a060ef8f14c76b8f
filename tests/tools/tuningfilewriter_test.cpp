// SPDX-License-Identifier: Apache-2.0
// The file writer read back through the library's byte reader and checksum validators.
#include "tools/writer/tuningfilewriter.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parsercrc.h"

#include "tests/common/logcapture.h"
#include "tests/common/tempfile.h"
#include "tests/common/testsetmanager.h"
#include "tests/tools/readback.h"

namespace {

using TuningWriter::Damage;
using TuningWriter::FileVersion;
using TuningWriter::SectionType;
using TuningWriter::TuningFileWriter;
using WriterTest::ReadField;
using WriterTest::ReadText;
using WriterTest::U32At;

std::string Name(FileVersion version)
{
    return std::to_string(version.major) + "_" + std::to_string(version.minor) + "_" +
           std::to_string(version.patch);
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
    TuningFileWriter const writer = DescribeFile(c.version);
    std::vector<uint8_t> const file = writer.Build();
    auto const length = static_cast<unsigned int>(file.size());
    EXPECT_EQ(writer.HeaderSize(), c.headerSize);

    // Header, read field by field at alignment 1.
    unsigned int pos = 0;
    ParameterByteReader header(file.data(), length, pos, 1, nullptr);
    EXPECT_EQ(ReadText(header, 28), "ZEL Varitonal Header");
    EXPECT_EQ(ReadField(header, 4), length);
    EXPECT_EQ(ReadField(header, 2), c.version.major);
    EXPECT_EQ(ReadField(header, 2), c.version.minor);
    EXPECT_EQ(ReadField(header, 4), c.version.patch);
    if (c.headerSize >= 160) {
        EXPECT_EQ(ReadText(header, 48), "unit test");
        EXPECT_EQ(ReadText(header, 64), "label-1");
    }
    if (c.headerSize == 168) {
        EXPECT_EQ(ReadField(header, 8), 0x0102030405060708u);
    }
    EXPECT_EQ(ReadField(header, 4), c.headerSize); // SectionOffset
    EXPECT_EQ(ReadField(header, 4), 3u);           // SectionCount
    EXPECT_EQ(pos, c.headerSize);

    // Section table, directly behind, stepping at the file's alignment.
    ParameterByteReader table(file.data(), length, pos, c.alignment, nullptr);
    uint64_t records[3][3] = {};
    for (auto& record : records)
        for (uint64_t& field : record)
            field = ReadField(table, 4);
    EXPECT_EQ(pos, c.headerSize + 3 * (c.alignment == 8 ? 24u : 12u));
    EXPECT_EQ(writer.SectionTableSize(), pos - c.headerSize);
    EXPECT_EQ(records[0][0], 0u);
    EXPECT_EQ(records[1][0], 9u);
    EXPECT_EQ(records[1][1], 0x1234u);
    EXPECT_EQ(records[1][2], 77u);
    EXPECT_EQ(records[2][0], 4u);
    // Placed sections start at the first aligned offset behind what precedes them.
    EXPECT_EQ(records[0][1], pos);
    EXPECT_EQ(records[2][1], records[0][1] + (c.alignment == 8 ? 8 : 5));
    for (size_t i : {0, 2})
        EXPECT_EQ(records[i][1], writer.SectionOffsetAt(i));
    ASSERT_EQ(records[0][2], 5u);
    ASSERT_EQ(records[2][2], 3u);
    EXPECT_EQ(std::vector<uint8_t>(file.begin() + records[0][1], file.begin() + records[0][1] + 5),
              (std::vector<uint8_t>{1, 2, 3, 4, 5}));
    EXPECT_EQ(std::vector<uint8_t>(file.begin() + records[2][1], file.begin() + records[2][1] + 3),
              (std::vector<uint8_t>{6, 7, 8}));

    // The checksum follows the last section at once and is of the version's kind.
    EXPECT_EQ(length, records[2][1] + 3 + (c.crc64 ? 8u : 4u));
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

// A header override changes its own field and nothing else before the checksum, and the checksum
// is computed over the changed header, so it still validates.
TEST(FileDamageTest, HeaderOverridesChangeOnlyTheirField)
{
    struct Case
    {
        char const* name;
        Damage damage;
        bool fromHeaderEnd; ///< offset counts back from the end of the header
        unsigned int offset;
        unsigned int width;
        uint32_t value; ///< the u32 now in the field (tag fields: not read)
    };
    Damage tag, empty, size, offset, count;
    tag.headerTag = "ZEL Varitonal Header and far too long";
    empty.emptyHeaderTag = true;
    size.fileSize = 12;
    offset.sectionOffset = 3000;
    count.sectionCount = 1;
    Case const cases[] = {{"headerTag", tag, false, 0, 28, 0},
                          {"emptyHeaderTag", empty, false, 0, 28, 0},
                          {"fileSize", size, false, 28, 4, 12},
                          {"sectionOffset", offset, true, 8, 4, 3000},
                          {"sectionCount", count, true, 4, 4, 1}};
    for (FileVersion version : {FileVersion{1, 0, 0}, FileVersion{2, 0, 0}, FileVersion{7, 0, 0}}) {
        TuningFileWriter writer = DescribeFile(version);
        std::vector<uint8_t> const sound = writer.Build();
        size_t const checksumStart = sound.size() - writer.ChecksumSize();
        for (Case const& c : cases) {
            SCOPED_TRACE(Name(version) + " " + c.name);
            std::vector<uint8_t> const damaged = writer.SetDamage(c.damage).Build();
            ASSERT_EQ(damaged.size(), sound.size());
            EXPECT_TRUE(ChecksumValid(damaged, TuningWriter::UsesCrc64(version)));
            size_t const start = c.fromHeaderEnd ? writer.HeaderSize() - c.offset : c.offset;
            for (size_t i = 0; i < checksumStart; ++i) {
                if (i < start || i >= start + c.width) {
                    EXPECT_EQ(damaged[i], sound[i]) << "byte " << i;
                }
            }
            auto const field = damaged.begin() + start;
            if (c.width == 4) {
                EXPECT_EQ(U32At(damaged.data(), static_cast<unsigned int>(damaged.size()),
                                static_cast<unsigned int>(start)),
                          c.value);
            } else if (c.damage.emptyHeaderTag) {
                EXPECT_TRUE(std::all_of(field, field + 28, [](uint8_t b) { return b == 0; }));
            } else { // cut to the field, with no NUL left in it
                EXPECT_EQ(std::string(field, field + 28), c.damage.headerTag->substr(0, 28));
            }
        }
        writer.SetDamage({});
    }
}

TEST(FileDamageTest, TailFaultsActOnTheFinishedFile)
{
    for (FileVersion version : {FileVersion{2, 0, 0}, FileVersion{6, 0, 0}}) {
        SCOPED_TRACE(Name(version));
        TuningFileWriter writer = DescribeFile(version);
        std::vector<uint8_t> const sound = writer.Build();
        size_t const checksumStart = sound.size() - writer.ChecksumSize();

        Damage damage;
        damage.badChecksum = true;
        std::vector<uint8_t> const badFile = writer.SetDamage(damage).Build();
        ASSERT_EQ(badFile.size(), sound.size());
        EXPECT_FALSE(ChecksumValid(badFile, TuningWriter::UsesCrc64(version)));
        for (size_t i = 0; i < sound.size(); ++i)
            EXPECT_EQ(badFile[i], i < checksumStart ? sound[i] : static_cast<uint8_t>(~sound[i]));

        damage = {};
        damage.truncate = 3;
        EXPECT_EQ(writer.SetDamage(damage).Build(),
                  std::vector<uint8_t>(sound.begin(), sound.end() - 3));
        damage = {};
        damage.cutAt = 40;
        EXPECT_EQ(writer.SetDamage(damage).Build(),
                  std::vector<uint8_t>(sound.begin(), sound.begin() + 40));

        // Appended bytes leave FileSize at the sound length.
        damage = {};
        damage.appended = {0xAA, 0xBB};
        std::vector<uint8_t> expected = sound;
        expected.insert(expected.end(), {0xAA, 0xBB});
        EXPECT_EQ(writer.SetDamage(damage).Build(), expected);
        EXPECT_EQ(U32At(expected.data(), 48, 28), sound.size());

        // Truncate and append together replace the tail.
        damage.truncate = writer.ChecksumSize();
        damage.appended = std::vector<uint8_t>(writer.ChecksumSize(), 0);
        expected = sound;
        std::fill(expected.begin() + checksumStart, expected.end(), 0);
        EXPECT_EQ(writer.SetDamage(damage).Build(), expected);
    }
}

TEST(FileWriterTest, MinimalSectionsLoadAsSoundTablesWithoutModules)
{
    for (FileVersion version : {FileVersion{1, 0, 2}, FileVersion{1, 1, 0}, FileVersion{3, 0, 1},
                                FileVersion{5, 0, 0}, FileVersion{7, 0, 0}}) {
        SCOPED_TRACE(Name(version));
        TuningFileWriter writer(version);
        std::vector<uint8_t> file = writer.AddMinimalSections().Build();
        ParamTest::TestSetManager manager;
        ASSERT_TRUE(manager.LoadBinaryParameters(file.data(), file.size()))
            << manager.GetErrorString();
        EXPECT_EQ(manager.GetSectionCount(), 2u);
        EXPECT_NE(manager.GetSymbolSection().Size, 0u);
        EXPECT_NE(manager.GetDataSection().Size, 0u);
        ASSERT_NE(manager.GetSymbolTable(), nullptr);
        EXPECT_EQ(manager.GetSymbolTable()->Modules().Count(), 0u);
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

} // namespace
