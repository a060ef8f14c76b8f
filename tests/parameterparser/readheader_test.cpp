// SPDX-License-Identifier: Apache-2.0
// Tests of the header and section table readers over writer-made files.
#include <cstdint>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vornalloc.h"

#include "parameterparser/parametersetmanager.h"
#include "tools/writer/tuningfilewriter.h"

#include "tests/common/logcapture.h"
#include "tests/common/testsetmanager.h"

namespace {

// Names each instance of a table-driven test after its case.
template <typename Case> std::string CaseName(::testing::TestParamInfo<Case> const& test)
{
    return test.param.name;
}

using TuningWriter::Damage;
using TuningWriter::FileVersion;
using TuningWriter::SectionType;
using TuningWriter::TuningFileWriter;

// Everything the static header reader hands back.
struct HeaderResult
{
    bool ok = false;
    unsigned int pos = 0;
    unsigned int sectionOffset = 0;
    unsigned char alignment = 0;
    VersionUnion version;
    std::string binaryTag;
    bool hasTag = false;
    unsigned long headerFlags = 0;
    unsigned int sectionCount = 0;
    std::string errorText;
};

// A sentinel that shows whether the reader touched headerFlags.
constexpr unsigned long UntouchedFlags = 0xABCDEF;

HeaderResult ReadHeaderOf(std::vector<uint8_t> bytes)
{
    HeaderResult result;
    char* tag = nullptr;
    char errorText[ParameterSetManager::ErrorStringLength] = {};
    result.headerFlags = UntouchedFlags;
    result.ok = ParameterSetManager::ReadHeader(
        bytes.data(), static_cast<unsigned int>(bytes.size()), result.pos, result.sectionOffset,
        result.alignment, result.version, tag, result.headerFlags, result.sectionCount, errorText,
        nullptr);
    result.hasTag = tag != nullptr;
    result.binaryTag = tag != nullptr ? tag : "";
    VornFree(tag, VornTagRelease);
    result.errorText = errorText;
    return result;
}

TuningFileWriter SoundFile(FileVersion version)
{
    TuningFileWriter writer(version);
    writer.AddMinimalSections();
    return writer;
}

std::vector<uint8_t> Damaged(FileVersion version, Damage damage)
{
    return SoundFile(version).SetDamage(std::move(damage)).Build();
}

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

// Version gates of the header layout, the alignment and the checksum kind: each sound file must
// pass, which it only does if the reader picks the checksum its writer used.
TEST_P(ReadHeaderAcceptTest, ReadsFieldsOfSoundFile)
{
    AcceptedCase const& param = GetParam();
    TuningFileWriter writer = SoundFile(param.version);
    writer.SetBinaryTag("rear-camera").SetHeaderFlags(0x10);
    HeaderResult const result = ReadHeaderOf(writer.Build());

    EXPECT_TRUE(result.ok) << result.errorText;
    EXPECT_EQ(result.alignment, param.alignment);
    EXPECT_EQ(result.version,
              VersionUnion(param.version.major, param.version.minor, param.version.patch));
    EXPECT_EQ(result.sectionOffset, writer.HeaderSize());
    EXPECT_EQ(result.sectionCount, 2u);
    EXPECT_EQ(result.pos, writer.HeaderSize());
    EXPECT_EQ(result.hasTag, param.tagPresent);
    EXPECT_EQ(result.binaryTag, param.tagPresent ? "rear-camera" : "");
    EXPECT_EQ(result.headerFlags, param.flagsPresent ? 0x10 : UntouchedFlags);
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

TEST(ReadHeaderTest, OlderFormatPassesWithWarningText)
{
    HeaderResult const result = ReadHeaderOf(SoundFile({1, 0, 1}).Build());
    ASSERT_TRUE(result.ok);
    EXPECT_EQ(result.errorText,
              "Warning: This is an older binary format, only Default mode data is supported. To "
              "support multiple modes, please re-generate binary using the latest version of "
              "Varitonal");
}

struct RefusedCase
{
    char const* name;
    FileVersion version;
    Damage damage;
    char const* errorText;
    char const* logged; ///< an exact message expected in the log, or null
};

class ReadHeaderRefuseTest : public ::testing::TestWithParam<RefusedCase>
{
};

TEST_P(ReadHeaderRefuseTest, RefusesWithMessage)
{
    RefusedCase const& param = GetParam();
    ParamTest::LogCapture log;
    HeaderResult const result = ReadHeaderOf(Damaged(param.version, param.damage));

    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.errorText, param.errorText);
    if (param.logged != nullptr) {
        EXPECT_TRUE(log.HasMessage(param.logged)) << param.logged;
    }
    // An unreadable version counts as 0.0.0; the alignment is set on every path.
    bool const versionRead = param.damage.cutAt == 0 || param.damage.cutAt >= 40;
    EXPECT_EQ(result.alignment, versionRead ? TuningWriter::AlignmentFor(param.version) : 1);
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

constexpr char const* ShortHeader = "General error parsing binary header data header";

INSTANTIATE_TEST_SUITE_P(
    Faults, ReadHeaderRefuseTest,
    ::testing::Values(
        // A short header is told by the first field that does not fit.
        RefusedCase{"CutInTag",
                    {7, 0, 0},
                    CutAt(20),
                    ShortHeader,
                    "Failed to read 4 bytes from binary file offset 28, length 20\n"},
        RefusedCase{"CutInFileSize",
                    {7, 0, 0},
                    CutAt(30),
                    ShortHeader,
                    "Failed to read 4 bytes from binary file offset 28, length 30\n"},
        RefusedCase{"CutInVersion",
                    {7, 0, 0},
                    CutAt(36),
                    ShortHeader,
                    "Failed to read 8 bytes from binary file offset 32, length 36\n"},
        RefusedCase{"CutInBinaryTag",
                    {7, 0, 0},
                    CutAt(100),
                    ShortHeader,
                    "Failed to read 8 bytes from binary file offset 152, length 100\n"},
        RefusedCase{"CutInFlags",
                    {7, 0, 0},
                    CutAt(156),
                    ShortHeader,
                    "Failed to read 8 bytes from binary file offset 152, length 156\n"},
        RefusedCase{"CutInSectionOffset",
                    {7, 0, 0},
                    CutAt(162),
                    ShortHeader,
                    "Failed to read 4 bytes from binary file offset 160, length 162\n"},
        RefusedCase{"CutInSectionCount",
                    {7, 0, 0},
                    CutAt(166),
                    ShortHeader,
                    "Failed to read 4 bytes from binary file offset 164, length 166\n"},
        // Below 3.0.0 there is no flags word: the section offset follows the tag.
        RefusedCase{"CutBehindTagBelow3",
                    {2, 0, 0},
                    CutAt(154),
                    ShortHeader,
                    "Failed to read 4 bytes from binary file offset 152, length 154\n"},
        RefusedCase{"CutInOldHeader",
                    {1, 0, 1},
                    CutAt(42),
                    ShortHeader,
                    "Failed to read 4 bytes from binary file offset 40, length 42\n"},
        RefusedCase{"EmptyTag",
                    {7, 0, 0},
                    [] {
                        Damage damage;
                        damage.emptyHeaderTag = true;
                        return damage;
                    }(),
                    "Failed to read binary header tag",
                    nullptr},
        RefusedCase{"TagWithMoreCharacters",
                    {7, 0, 0},
                    WithTag("ZEL Varitonal Header2"),
                    "Invalid binary header tag: ZEL Varitonal Header2",
                    nullptr},
        RefusedCase{"TagOtherCase",
                    {7, 0, 0},
                    WithTag("ZEL VARITONAL HEADER"),
                    "Invalid binary header tag: ZEL VARITONAL HEADER",
                    nullptr},
        // The tag is checked before the size.
        RefusedCase{"WrongTagAndTooSmall",
                    {7, 0, 0},
                    WithTag("Other", 1u << 20),
                    "Invalid binary header tag: Other",
                    nullptr},
        RefusedCase{"Version7_0_1",
                    {7, 0, 1},
                    Damage{},
                    "Unsupported binary header version : 7.0.1. Please re-generate parser code "
                    "using the latest version of ParameterParser",
                    nullptr},
        RefusedCase{"Version7_1_0WithBadChecksum",
                    {7, 1, 0},
                    [] {
                        Damage damage;
                        damage.badChecksum = true;
                        return damage;
                    }(),
                    "Unsupported binary header version : 7.1.0. Please re-generate parser code "
                    "using the latest version of ParameterParser",
                    nullptr}),
    CaseName<RefusedCase>);

TEST(ReadHeaderTest, RefusesBufferSmallerThanFileSize)
{
    std::vector<uint8_t> const bytes = SoundFile({7, 0, 0}).Build();
    Damage damage;
    damage.fileSize = static_cast<uint32_t>(bytes.size() + 1);
    HeaderResult const result = ReadHeaderOf(Damaged({7, 0, 0}, damage));
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.errorText,
              "Binary header data too small: Expected: " + std::to_string(bytes.size() + 1) +
                  " bytes, Actual: " + std::to_string(bytes.size()) + " bytes");
}

TEST(ReadHeaderTest, CompressedFlagLetsShortBufferPass)
{
    TuningFileWriter writer = SoundFile({7, 0, 0});
    writer.SetHeaderFlags(ParameterSetManager::CompressedFlag);
    Damage damage;
    damage.fileSize = 1u << 20;
    writer.SetDamage(damage);
    HeaderResult const result = ReadHeaderOf(writer.Build());
    EXPECT_TRUE(result.ok) << result.errorText;
    EXPECT_EQ(result.headerFlags, ParameterSetManager::CompressedFlag);
}

struct ChecksumCase
{
    char const* name;
    FileVersion version;
    Damage damage;
    char const* pattern;
};

class ReadHeaderChecksumTest : public ::testing::TestWithParam<ChecksumCase>
{
};

// The checksum width follows the version, and its place follows the buffer's length: bytes
// appended behind a sound file move it.
TEST_P(ReadHeaderChecksumTest, RefusesDamagedChecksum)
{
    ChecksumCase const& param = GetParam();
    ParamTest::LogCapture log;
    HeaderResult const result = ReadHeaderOf(Damaged(param.version, param.damage));
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.errorText, "Binary file CRC validation failed");
    std::regex const expected(param.pattern);
    bool matched = false;
    for (std::string const& message : log.Messages())
        matched = matched || std::regex_match(message, expected);
    EXPECT_TRUE(matched) << param.pattern;
}

Damage BadChecksum()
{
    Damage damage;
    damage.badChecksum = true;
    return damage;
}

Damage Appended()
{
    Damage damage;
    damage.appended = {0, 0, 0, 0, 0, 0, 0, 0};
    return damage;
}

constexpr char const* Crc32Failure =
    "Binary file CRC validation failed\\. Expected: [0-9a-f]{8}, Actual: [0-9a-f]{8}\n";
constexpr char const* Crc64Failure =
    "Binary file CRC validation failed\\. Expected: [0-9a-f]{16}, Actual: [0-9a-f]{16}\n";

INSTANTIATE_TEST_SUITE_P(
    Checksums, ReadHeaderChecksumTest,
    ::testing::Values(ChecksumCase{"Crc32Below6", {5, 0, 0}, BadChecksum(), Crc32Failure},
                      ChecksumCase{"Crc32OldFormat", {1, 0, 1}, BadChecksum(), Crc32Failure},
                      ChecksumCase{"Crc64From6", {6, 0, 0}, BadChecksum(), Crc64Failure},
                      ChecksumCase{
                          "BufferLongerThanFileSize", {7, 0, 0}, Appended(), Crc64Failure}),
    CaseName<ChecksumCase>);

// Reads the section table of a writer-made file with the static reader.
struct SectionResult
{
    bool ok = false;
    ParameterSetManager::SectionInfo symbol = {};
    ParameterSetManager::SectionInfo dataTable = {};
    ParameterSetManager::SectionInfo data = {};
    ParameterSetManager::SectionInfo definitions = {};
    std::vector<ParameterSetManager::SectionInfo> modes;
    std::string errorText;
};

SectionResult ReadSectionsOf(std::vector<uint8_t> bytes, unsigned int sectionOffset,
                             unsigned int count, unsigned char alignment,
                             IParameterLoggingAPI* logger = nullptr)
{
    SectionResult result;
    PList<ParameterSetManager::SectionInfo> modes;
    char errorText[ParameterSetManager::ErrorStringLength] = {};
    unsigned int pos = sectionOffset;
    result.ok = ParameterSetManager::ReadSectionInfo(
        bytes.data(), static_cast<unsigned int>(bytes.size()), pos, alignment, count, result.symbol,
        result.dataTable, modes, result.data, result.definitions, errorText, logger);
    for (unsigned int i = 0; i < modes.Count(); ++i)
        result.modes.push_back(modes[i]);
    result.errorText = errorText;
    return result;
}

class ReadSectionInfoTest : public ::testing::TestWithParam<FileVersion>
{
};

// Records are 12 bytes at alignment 1 and 24 at alignment 8; mode sections keep file order.
TEST_P(ReadSectionInfoTest, StoresEveryTypeInOrder)
{
    TuningFileWriter writer(GetParam());
    writer.AddSection(SectionType::Mode, std::vector<uint8_t>(16, 1))
        .AddSection(SectionType::Symbol, std::vector<uint8_t>(24, 2))
        .AddSection(SectionType::Data, std::vector<uint8_t>(32, 3))
        .AddSection(SectionType::Mode, std::vector<uint8_t>(40, 4))
        .AddSection(SectionType::DataTable, std::vector<uint8_t>(48, 5))
        .AddSection(SectionType::Definition, std::vector<uint8_t>(56, 6));
    SectionResult const result = ReadSectionsOf(
        writer.Build(), static_cast<unsigned int>(writer.HeaderSize()), 6, writer.Alignment());

    ASSERT_TRUE(result.ok) << result.errorText;
    ASSERT_EQ(result.modes.size(), 2u);
    EXPECT_EQ(result.modes[0].Offset, writer.SectionOffsetAt(0));
    EXPECT_EQ(result.modes[0].Size, 16u);
    EXPECT_EQ(result.symbol.Offset, writer.SectionOffsetAt(1));
    EXPECT_EQ(result.symbol.Size, 24u);
    EXPECT_EQ(result.data.Offset, writer.SectionOffsetAt(2));
    EXPECT_EQ(result.modes[1].Offset, writer.SectionOffsetAt(3));
    EXPECT_EQ(result.modes[1].Size, 40u);
    EXPECT_EQ(result.dataTable.Offset, writer.SectionOffsetAt(4));
    EXPECT_EQ(result.definitions.Offset, writer.SectionOffsetAt(5));
    EXPECT_EQ(result.definitions.Size, 56u);
}

INSTANTIATE_TEST_SUITE_P(Alignments, ReadSectionInfoTest,
                         ::testing::Values(FileVersion{2, 0, 0}, FileVersion{7, 0, 0}));

TEST(ReadSectionInfoFaultTest, RefusesSingleRecord)
{
    ParamTest::LogCapture log;
    ParamTest::TestSetManager logger;
    TuningFileWriter writer = SoundFile({7, 0, 0});
    auto const offset = static_cast<unsigned int>(writer.HeaderSize());
    SectionResult result = ReadSectionsOf(writer.Build(), offset, 1, 1);
    EXPECT_FALSE(result.ok);
    // Without a logger the refusal is silent and leaves no text.
    EXPECT_TRUE(log.Messages().empty());
    result = ReadSectionsOf(writer.Build(), offset, 1, 1, &logger);
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.errorText, "");
    EXPECT_TRUE(log.HasMessage("ReadSectionInfo: Section count 1 is less than Min sections 2\n"));
    EXPECT_EQ(result.symbol.Offset, 0u);
}

TEST(ReadSectionInfoFaultTest, UnknownTypeKeepsEarlierRecords)
{
    ParamTest::LogCapture log;
    TuningFileWriter writer = SoundFile({7, 0, 0});
    writer.AddRawSectionRecord(9, 0, 0);
    ParamTest::TestSetManager logger;
    SectionResult const result = ReadSectionsOf(
        writer.Build(), static_cast<unsigned int>(writer.HeaderSize()), 3, 1, &logger);
    EXPECT_FALSE(result.ok);
    EXPECT_TRUE(log.HasMessage("Invalid binary section type 9\n"));
    EXPECT_EQ(result.symbol.Offset, writer.SectionOffsetAt(0));
    EXPECT_EQ(result.data.Offset, writer.SectionOffsetAt(1));
}

TEST(ReadSectionInfoFaultTest, RefusesTableRunningPastBuffer)
{
    ParamTest::LogCapture log;
    std::vector<uint8_t> const bytes = SoundFile({7, 0, 0}).Build();
    auto const length = static_cast<unsigned int>(bytes.size());
    // The last record's Size field would start exactly at the end of the buffer.
    SectionResult const result = ReadSectionsOf(bytes, length - 8, 2, 1);
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.errorText, "Error reading data from header sections");
    EXPECT_TRUE(log.HasMessage("Failed to read 4 bytes from binary file offset " +
                               std::to_string(length) + ", length " + std::to_string(length) +
                               "\n"));
}

} // namespace
