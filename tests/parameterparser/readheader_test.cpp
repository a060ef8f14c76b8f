// SPDX-License-Identifier: Apache-2.0
// Tests of the header and section table readers over writer-made files.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vornalloc.h"

#include "parameterparser/parameterfileheader.h"
#include "parameterparser/parametersetmanager.h"
#include "tools/writer/tuningfilewriter.h"

#include "tests/common/logcapture.h"
#include "tests/common/testsetmanager.h"

namespace {

using TuningWriter::Damage;
using TuningWriter::FileVersion;
using TuningWriter::SectionType;
using TuningWriter::TuningFileWriter;

template <typename Case> std::string CaseName(::testing::TestParamInfo<Case> const& test)
{
    return test.param.name;
}

VersionUnion VersionOf(FileVersion const& version)
{
    return VersionUnion(version.major, version.minor, version.patch);
}

TuningFileWriter SoundFile(FileVersion version)
{
    TuningFileWriter writer(version);
    writer.AddMinimalSections();
    return writer;
}

// A sentinel that shows whether the reader touched headerFlags.
constexpr unsigned long UntouchedFlags = 0xABCDEF;

struct AcceptedCase
{
    char const* name;
    FileVersion version;
    unsigned char alignment;
    bool tagPresent;
    bool flagsPresent;
};

class ReadHeaderAcceptTest : public ::testing::TestWithParam<AcceptedCase>
{
};

// Version gates of the header layout, the alignment and the checksum kind, through the manager's
// static reader: each sound file must pass, which it only does if the reader picks the checksum
// its writer used. Fields the version does not have stay as the caller gave them.
TEST_P(ReadHeaderAcceptTest, ReadsFieldsOfSoundFile)
{
    AcceptedCase const& param = GetParam();
    TuningFileWriter writer = SoundFile(param.version);
    writer.SetBinaryTag("rear-camera").SetHeaderFlags(0x10);
    std::vector<uint8_t> bytes = writer.Build();
    unsigned int pos = 0;
    unsigned int sectionOffset = 0;
    unsigned int sectionCount = 0;
    unsigned char alignment = 0;
    VersionUnion version;
    unsigned long flags = UntouchedFlags;
    char* tag = static_cast<char*>(VornCalloc(1, VornTagAllocData));
    char* const earlierTag = tag;
    char errorText[ParameterSetManager::ErrorStringLength] = {};
    EXPECT_TRUE(ParameterSetManager::ReadHeader(
        bytes.data(), static_cast<unsigned int>(bytes.size()), pos, sectionOffset, alignment,
        version, tag, flags, sectionCount, errorText, nullptr))
        << errorText;

    EXPECT_EQ(alignment, param.alignment);
    EXPECT_EQ(version, VersionOf(param.version));
    EXPECT_EQ(sectionOffset, writer.HeaderSize());
    EXPECT_EQ(sectionCount, 2u);
    EXPECT_EQ(pos, writer.HeaderSize());
    EXPECT_EQ(flags, param.flagsPresent ? 0x10 : UntouchedFlags);
    // A tag replaces (and frees) the caller's earlier one; without a tag field it stays.
    EXPECT_EQ(tag == earlierTag, !param.tagPresent);
    EXPECT_STREQ(tag, param.tagPresent ? "rear-camera" : "");
    VornFree(tag, VornTagRelease);
}

INSTANTIATE_TEST_SUITE_P(Versions, ReadHeaderAcceptTest,
                         ::testing::Values(AcceptedCase{"V1_0_1", {1, 0, 1}, 1, false, false},
                                           AcceptedCase{"V1_0_2", {1, 0, 2}, 1, true, false},
                                           AcceptedCase{"V1_1_0", {1, 1, 0}, 8, true, false},
                                           AcceptedCase{"V3_0_0", {3, 0, 0}, 8, true, true},
                                           AcceptedCase{"V3_0_1", {3, 0, 1}, 1, true, true},
                                           AcceptedCase{"V5_9_9", {5, 9, 9}, 1, true, true},
                                           AcceptedCase{"V6_0_0", {6, 0, 0}, 1, true, true},
                                           AcceptedCase{"V7_0_0", {7, 0, 0}, 1, true, true}),
                         CaseName<AcceptedCase>);

constexpr char const* OlderFormat =
    "Warning: This is an older binary format, only Default mode data is supported. To support "
    "multiple modes, please re-generate binary using the latest version of Varitonal";
constexpr char const* ShortHeader = "General error parsing binary header data header";
constexpr char const* BadChecksum = "Binary file CRC validation failed";

struct HeaderCase
{
    char const* name;
    FileVersion version;
    Damage damage;
    bool accepted;
    char const* errorText;
    /// An exact message expected in the log, or null.
    char const* logged;
    /// Width of the checksums in the logged mismatch; 0 when none is logged.
    size_t checksumDigits;
};

class ReadHeaderTest : public ::testing::TestWithParam<HeaderCase>
{
};

// Every refusal and the one warning, each by the first check that the damage trips: the order of
// the checks decides the message. An unreadable version counts as 0.0.0.
TEST_P(ReadHeaderTest, ChecksInOrder)
{
    HeaderCase const& param = GetParam();
    ParamTest::LogCapture log;
    ParamTest::TestSetManager logger;
    std::vector<uint8_t> bytes = SoundFile(param.version).SetDamage(param.damage).Build();
    ParameterFileHeader header;
    char errorText[ParameterSetManager::ErrorStringLength] = "stale";
    EXPECT_EQ(ReadFileHeader(bytes.data(), static_cast<unsigned int>(bytes.size()), header,
                             errorText, &logger),
              param.accepted);
    EXPECT_STREQ(errorText, param.errorText);
    if (param.logged != nullptr) {
        EXPECT_TRUE(log.HasMessage(param.logged)) << param.logged;
    }
    bool const versionRead = param.damage.cutAt == 0 || param.damage.cutAt >= 40;
    EXPECT_EQ(header.layout.version, versionRead ? VersionOf(param.version) : VersionUnion());
    if (param.checksumDigits != 0) {
        // "Binary file CRC validation failed. Expected: %x, Actual: %x\n" at the checksum's width.
        std::string const lead = std::string(BadChecksum) + ". Expected: ";
        size_t const length = lead.size() + 2 * param.checksumDigits + 11;
        bool found = false;
        for (std::string const& message : log.Messages())
            found = found || (message.rfind(lead, 0) == 0 && message.size() == length);
        EXPECT_TRUE(found);
    }
}

Damage CutAt(size_t size)
{
    Damage damage;
    damage.cutAt = size;
    return damage;
}

Damage WithTag(std::string const& tag, std::optional<uint32_t> fileSize = std::nullopt)
{
    Damage damage;
    damage.headerTag = tag;
    damage.fileSize = fileSize;
    return damage;
}

Damage WithFileSize(uint32_t fileSize)
{
    Damage damage;
    damage.fileSize = fileSize;
    return damage;
}

Damage ChecksumFlipped()
{
    Damage damage;
    damage.badChecksum = true;
    return damage;
}

Damage EmptyTag()
{
    Damage damage;
    damage.emptyHeaderTag = true;
    return damage;
}

Damage Appended()
{
    Damage damage;
    damage.appended = {0, 0, 0, 0, 0, 0, 0, 0};
    return damage;
}

HeaderCase Row(char const* name, FileVersion version, Damage damage, char const* errorText,
               char const* logged = nullptr, size_t checksumDigits = 0)
{
    bool const accepted = errorText[0] == '\0' || errorText == OlderFormat;
    return {name, version, std::move(damage), accepted, errorText, logged, checksumDigits};
}

// A short header is told by the first field that does not fit.
HeaderCase ShortRow(char const* name, FileVersion version, size_t cutAt, char const* logged)
{
    return Row(name, version, CutAt(cutAt), ShortHeader, logged);
}

constexpr char const* Unsupported7_0_1 = "Unsupported binary header version : 7.0.1. Please "
                                         "re-generate parser code using the latest version of "
                                         "ParameterParser";
constexpr char const* Unsupported7_1_0 = "Unsupported binary header version : 7.1.0. Please "
                                         "re-generate parser code using the latest version of "
                                         "ParameterParser";

INSTANTIATE_TEST_SUITE_P(
    Faults, ReadHeaderTest,
    ::testing::Values(
        Row("OlderFormatWarns", {1, 0, 1}, Damage{}, OlderFormat), Row("Sound", {7, 0, 0}, {}, ""),
        ShortRow("CutInTag", {7, 0, 0}, 20,
                 "Failed to read 4 bytes from binary file offset 28, length 20\n"),
        ShortRow("CutInFileSize", {7, 0, 0}, 30,
                 "Failed to read 4 bytes from binary file offset 28, length 30\n"),
        ShortRow("CutInVersion", {7, 0, 0}, 36,
                 "Failed to read 8 bytes from binary file offset 32, length 36\n"),
        ShortRow("CutInBinaryTag", {7, 0, 0}, 100,
                 "Failed to read 8 bytes from binary file offset 152, length 100\n"),
        ShortRow("CutInFlags", {7, 0, 0}, 156,
                 "Failed to read 8 bytes from binary file offset 152, length 156\n"),
        ShortRow("CutInSectionOffset", {7, 0, 0}, 162,
                 "Failed to read 4 bytes from binary file offset 160, length 162\n"),
        // The last field ends exactly at the bound: one byte short of it fails.
        ShortRow("CutOneShortOfSectionCount", {7, 0, 0}, 167,
                 "Failed to read 4 bytes from binary file offset 164, length 167\n"),
        // Below 3.0.0 there is no flags word: the section offset follows the tag.
        ShortRow("CutBehindTagBelow3", {2, 0, 0}, 154,
                 "Failed to read 4 bytes from binary file offset 152, length 154\n"),
        ShortRow("CutInOldHeader", {1, 0, 1}, 42,
                 "Failed to read 4 bytes from binary file offset 40, length 42\n"),
        Row("EmptyTag", {7, 0, 0}, EmptyTag(), "Failed to read binary header tag"),
        Row("TagWithMoreCharacters", {7, 0, 0}, WithTag("ZEL Varitonal Header2"),
            "Invalid binary header tag: ZEL Varitonal Header2"),
        Row("TagOtherCase", {7, 0, 0}, WithTag("ZEL VARITONAL HEADER"),
            "Invalid binary header tag: ZEL VARITONAL HEADER"),
        // The tag is checked before the size, the version before the checksum.
        Row("WrongTagAndTooSmall", {7, 0, 0}, WithTag("Other", 1u << 20),
            "Invalid binary header tag: Other"),
        Row("Version7_0_1", {7, 0, 1}, Damage{}, Unsupported7_0_1),
        Row("Version7_1_0WithBadChecksum", {7, 1, 0}, ChecksumFlipped(), Unsupported7_1_0),
        // The checksum width follows the version, and its place follows the buffer's length:
        // bytes appended behind a sound file move it.
        Row("Crc32Below6", {5, 9, 9}, ChecksumFlipped(), BadChecksum, nullptr, 8),
        Row("Crc32OldFormat", {1, 0, 1}, ChecksumFlipped(), BadChecksum, nullptr, 8),
        Row("Crc64From6", {6, 0, 0}, ChecksumFlipped(), BadChecksum, nullptr, 16),
        Row("BufferLongerThanFileSize", {7, 0, 0}, Appended(), BadChecksum, nullptr, 16)),
    CaseName<HeaderCase>);

// FileSize at the buffer's length passes; one byte more is refused.
TEST(ReadHeaderSizeTest, RefusesBufferSmallerThanFileSize)
{
    std::vector<uint8_t> bytes = SoundFile({7, 0, 0}).Build();
    auto const length = static_cast<unsigned int>(bytes.size());
    char errorText[ParameterSetManager::ErrorStringLength] = {};
    for (unsigned int const fileSize : {length, length + 1}) {
        bytes = SoundFile({7, 0, 0}).SetDamage(WithFileSize(fileSize)).Build();
        ParameterFileHeader header;
        EXPECT_EQ(ReadFileHeader(bytes.data(), length, header, errorText, nullptr),
                  fileSize == length);
    }
    EXPECT_EQ(std::string(errorText),
              "Binary header data too small: Expected: " + std::to_string(length + 1) +
                  " bytes, Actual: " + std::to_string(length) + " bytes");
}

// A compressed file was short on purpose: the flag lets it past the size check.
TEST(ReadHeaderFlagsTest, CompressedFlagLetsShortBufferPass)
{
    TuningFileWriter writer = SoundFile({7, 0, 0});
    writer.SetHeaderFlags(ParameterSetManager::CompressedFlag).SetDamage(WithFileSize(1u << 20));
    std::vector<uint8_t> bytes = writer.Build();
    ParameterFileHeader header;
    EXPECT_TRUE(ReadFileHeader(bytes.data(), static_cast<unsigned int>(bytes.size()), header,
                               nullptr, nullptr));
    EXPECT_EQ(header.headerFlags, ParameterSetManager::CompressedFlag);
}

struct SectionResult
{
    bool ok = false;
    ParameterSectionTable sections;
    std::string errorText;
};

void ReadSectionsOf(std::vector<uint8_t> bytes, unsigned int offset, unsigned int count,
                    unsigned char alignment, SectionResult& result,
                    IParameterLoggingAPI* logger = nullptr)
{
    char errorText[ParameterSetManager::ErrorStringLength] = {};
    unsigned int pos = offset;
    result.ok = ReadSectionRecords(bytes.data(), static_cast<unsigned int>(bytes.size()), pos,
                                   alignment, count, result.sections, errorText, logger);
    result.errorText = errorText;
}

class ReadSectionInfoTest : public ::testing::TestWithParam<FileVersion>
{
};

// Records are 12 bytes at alignment 1 and 24 at alignment 8; mode sections keep file order. The
// manager's static form hands the same records out one by one.
TEST_P(ReadSectionInfoTest, StoresEveryTypeInOrder)
{
    TuningFileWriter writer(GetParam());
    writer.AddSection(SectionType::Mode, std::vector<uint8_t>(16, 1))
        .AddSection(SectionType::Symbol, std::vector<uint8_t>(24, 2))
        .AddSection(SectionType::Data, std::vector<uint8_t>(32, 3))
        .AddSection(SectionType::Mode, std::vector<uint8_t>(40, 4))
        .AddSection(SectionType::DataTable, std::vector<uint8_t>(48, 5))
        .AddSection(SectionType::Definition, std::vector<uint8_t>(56, 6));
    std::vector<uint8_t> bytes = writer.Build();
    unsigned int pos = static_cast<unsigned int>(writer.HeaderSize());
    ParameterSetManager::SectionInfo symbol{}, dataTable{}, data{}, definitions{};
    PList<ParameterSetManager::SectionInfo> modes;
    ASSERT_TRUE(ParameterSetManager::ReadSectionInfo(
        bytes.data(), static_cast<unsigned int>(bytes.size()), pos, writer.Alignment(), 6, symbol,
        dataTable, modes, data, definitions, nullptr, nullptr));

    ASSERT_EQ(modes.Count(), 2u);
    EXPECT_EQ(modes[0].Offset, writer.SectionOffsetAt(0));
    EXPECT_EQ(modes[0].Size, 16u);
    EXPECT_EQ(symbol.Offset, writer.SectionOffsetAt(1));
    EXPECT_EQ(symbol.Size, 24u);
    EXPECT_EQ(data.Offset, writer.SectionOffsetAt(2));
    EXPECT_EQ(modes[1].Offset, writer.SectionOffsetAt(3));
    EXPECT_EQ(modes[1].Size, 40u);
    EXPECT_EQ(dataTable.Offset, writer.SectionOffsetAt(4));
    EXPECT_EQ(definitions.Offset, writer.SectionOffsetAt(5));
    EXPECT_EQ(definitions.Size, 56u);
    EXPECT_EQ(pos, writer.HeaderSize() + 6 * (writer.Alignment() == 1 ? 12u : 24u));
}

INSTANTIATE_TEST_SUITE_P(Alignments, ReadSectionInfoTest,
                         ::testing::Values(FileVersion{2, 0, 0}, FileVersion{7, 0, 0}));

TEST(ReadSectionInfoFaultTest, RefusesSingleRecord)
{
    ParamTest::LogCapture log;
    ParamTest::TestSetManager logger;
    TuningFileWriter writer = SoundFile({7, 0, 0});
    auto const offset = static_cast<unsigned int>(writer.HeaderSize());
    SectionResult result;
    // Without a logger the refusal is silent and leaves no text.
    ReadSectionsOf(writer.Build(), offset, 1, 1, result);
    EXPECT_FALSE(result.ok);
    EXPECT_TRUE(log.Messages().empty());
    ReadSectionsOf(writer.Build(), offset, 1, 1, result, &logger);
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.errorText, "");
    EXPECT_TRUE(log.HasMessage("ReadSectionInfo: Section count 1 is less than Min sections 2\n"));
    EXPECT_EQ(result.sections.symbol.Offset, 0u);
    // The least count a table may have passes.
    ReadSectionsOf(writer.Build(), offset, 2, 1, result, &logger);
    EXPECT_TRUE(result.ok);
}

TEST(ReadSectionInfoFaultTest, UnknownTypeKeepsEarlierRecords)
{
    ParamTest::LogCapture log;
    TuningFileWriter writer = SoundFile({7, 0, 0});
    writer.AddRawSectionRecord(9, 0, 0);
    ParamTest::TestSetManager logger;
    SectionResult result;
    ReadSectionsOf(writer.Build(), static_cast<unsigned int>(writer.HeaderSize()), 3, 1, result,
                   &logger);
    EXPECT_FALSE(result.ok);
    EXPECT_TRUE(log.HasMessage("Invalid binary section type 9\n"));
    EXPECT_EQ(result.sections.symbol.Offset, writer.SectionOffsetAt(0));
    EXPECT_EQ(result.sections.data.Offset, writer.SectionOffsetAt(1));
}

TEST(ReadSectionInfoFaultTest, RefusesTableRunningPastBuffer)
{
    ParamTest::LogCapture log;
    std::vector<uint8_t> const bytes = SoundFile({7, 0, 0}).Build();
    auto const length = static_cast<unsigned int>(bytes.size());
    // A table that ends exactly at the end of the buffer is read; the last record's Size field
    // one byte further is not.
    SectionResult result;
    ReadSectionsOf(bytes, length - 24, 2, 1, result);
    EXPECT_TRUE(result.ok);
    ReadSectionsOf(bytes, length - 8, 2, 1, result);
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.errorText, "Error reading data from header sections");
    EXPECT_TRUE(log.HasMessage("Failed to read 4 bytes from binary file offset " +
                               std::to_string(length) + ", length " + std::to_string(length) +
                               "\n"));
    unsigned int pos = 0;
    char errorText[ParameterSetManager::ErrorStringLength] = {};
    EXPECT_FALSE(ReadSectionRecords(nullptr, 0, pos, 1, 2, result.sections, errorText, nullptr));
    EXPECT_STREQ(errorText, "ReadSectionInfo: buffer is nullptr");
}

} // namespace
