// SPDX-License-Identifier: Apache-2.0
// Tests of ParameterBinaryFile on real files: the read cache, references and changes on disk.
#include "parameterparser/parameterbinaryfile.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "platform/vornalloc.h"

#include "tools/writer/tuningfilewriter.h"

#include "tests/common/logcapture.h"
#include "tests/common/tempfile.h"

namespace {

using TuningWriter::SectionType;
using TuningWriter::TuningFileWriter;

// A tuning file of roughly dataSize bytes whose data section counts up, so that every position
// holds a recognisable byte.
std::vector<uint8_t> FileOfSize(size_t dataSize)
{
    std::vector<uint8_t> data(dataSize);
    for (size_t i = 0; i < dataSize; ++i)
        data[i] = static_cast<uint8_t>(i * 7 + i / 251);
    TuningFileWriter writer;
    writer.AddSection(SectionType::Symbol, std::vector<uint8_t>(8, 0))
        .AddSection(SectionType::Data, std::move(data));
    return writer.Build();
}

class ParameterBinaryFileTest : public ::testing::Test
{
protected:
    void UseFile(size_t dataSize)
    {
        m_content = FileOfSize(dataSize);
        m_file = std::make_unique<ParamTest::TempFile>(m_content);
        m_binary = std::make_unique<ParameterBinaryFile>(m_file->Path().c_str(), nullptr);
        ASSERT_TRUE(m_binary->IsValid());
    }

    // Reads count bytes at position and checks them against the file's content.
    void ExpectRead(unsigned int position, unsigned long count)
    {
        std::vector<uint8_t> value(count);
        unsigned int pos = 0;
        ASSERT_TRUE(m_binary->Read(value.data(), position, pos, count, 1)) << position;
        EXPECT_EQ(value, std::vector<uint8_t>(m_content.begin() + position,
                                              m_content.begin() + position + count));
    }

    unsigned int Length() const { return static_cast<unsigned int>(m_content.size()); }

    ParamTest::LogCapture m_log;
    std::vector<uint8_t> m_content;
    std::unique_ptr<ParamTest::TempFile> m_file;
    std::unique_ptr<ParameterBinaryFile> m_binary;
};

TEST_F(ParameterBinaryFileTest, ReadMovesPosByAlignedCount)
{
    UseFile(5000);
    EXPECT_EQ(m_binary->GetLength(), Length());
    std::vector<uint8_t> value(5);
    unsigned int pos = 3;
    ASSERT_TRUE(m_binary->Read(value.data(), 100, pos, 5, 8));
    EXPECT_EQ(pos, 11u);
    EXPECT_EQ(value, std::vector<uint8_t>(m_content.begin() + 103, m_content.begin() + 108));

    unsigned char* block = m_binary->Read(200, 3000);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::vector<uint8_t>(block, block + 3000),
              std::vector<uint8_t>(m_content.begin() + 200, m_content.begin() + 3200));
    VornFree(block, VornTagRelease);
}

struct CountCase
{
    unsigned long count;
    bool buffered;
};

class BufferedCountTest : public ParameterBinaryFileTest,
                          public ::testing::WithParamInterface<CountCase>
{
};

TEST_P(BufferedCountTest, OnlyReadsUpToBufferSizeUseABuffer)
{
    UseFile(5000);
    ExpectRead(10, GetParam().count);
    EXPECT_EQ(m_binary->GetBufferWindow(0).Length, GetParam().buffered ? 1024u : 0u);
}

INSTANTIATE_TEST_SUITE_P(Counts, BufferedCountTest,
                         ::testing::Values(CountCase{1, true}, CountCase{1024, true},
                                           CountCase{1025, false}));

TEST_F(ParameterBinaryFileTest, FillNearEndSlidesBack)
{
    UseFile(5000);
    ExpectRead(Length() - 100, 16);
    ParameterBinaryFile::BufferWindow const window = m_binary->GetBufferWindow(0);
    EXPECT_EQ(window.Offset, Length() - 1024);
    EXPECT_EQ(window.Length, 1024u);

    // A read in front of the first position is served by the same buffer.
    ExpectRead(Length() - 1000, 16);
    EXPECT_EQ(m_binary->GetBufferWindow(1).Length, 0u);
}

TEST_F(ParameterBinaryFileTest, SmallFileFillsFromStart)
{
    UseFile(200);
    ExpectRead(Length() - 10, 10);
    EXPECT_EQ(m_binary->GetBufferWindow(0).Offset, 0u);
    EXPECT_EQ(m_binary->GetBufferWindow(0).Length, Length());
}

struct ReplacementCase
{
    unsigned int lastUsed; ///< position read just before, to make one buffer the latest used
    unsigned int position;
    unsigned int replaced;
};

class BufferReplacementTest : public ParameterBinaryFileTest,
                              public ::testing::WithParamInterface<ReplacementCase>
{
};

// With all buffers in use, the one whose start is nearest the position is refilled, the lower
// index on a tie, however recently it was used.
TEST_P(BufferReplacementTest, ReplacesNearestOffset)
{
    UseFile(20000);
    unsigned int const starts[] = {0, 4096, 8192};
    for (unsigned int start : starts)
        ExpectRead(start, 16);
    ExpectRead(GetParam().lastUsed, 16);

    ExpectRead(GetParam().position, 16);
    for (unsigned int i = 0; i < ParameterBinaryFile::BufferCount; ++i) {
        unsigned int const expected = i == GetParam().replaced ? GetParam().position : starts[i];
        EXPECT_EQ(m_binary->GetBufferWindow(i).Offset, expected) << "buffer " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Positions, BufferReplacementTest,
                         ::testing::Values(ReplacementCase{4100, 6000, 1},
                                           ReplacementCase{8200, 7000, 2},
                                           ReplacementCase{10, 2048, 0},
                                           ReplacementCase{10, 6144, 1},
                                           ReplacementCase{4100, 15000, 2}));

TEST(ParameterBinaryFileNameTest, BadNamesLeaveFileClosed)
{
    std::string const tooLong(1023, 'n');
    std::string const longest(1022, 'n');
    struct
    {
        char const* name;
        char const* message;
    } const cases[] = {
        {nullptr, "ParameterBinaryFile constructor called with null file name\n"},
        {tooLong.c_str(),
         "ParameterBinaryFile constructor file name length (1023) exceeds max length: 1023\n"},
        // Accepted but absent: the reference it takes finds no file.
        {longest.c_str(), nullptr},
    };
    for (auto const& item : cases) {
        ParamTest::LogCapture log;
        ParameterBinaryFile file(item.name, nullptr);
        EXPECT_FALSE(file.IsValid());
        EXPECT_FALSE(file.IsOpen());
        EXPECT_EQ(file.GetLength(), 0u);
        if (item.message != nullptr) {
            EXPECT_TRUE(log.HasMessage(item.message)) << item.message;
            EXPECT_EQ(file.GetReferenceCount(), 0);
        } else {
            EXPECT_TRUE(log.Contains("FileReference Adjust: 1, RefCount: 0, Failed to open binary "
                                     "file '" +
                                     longest + "' errno: "));
            EXPECT_EQ(file.Read(0, 16), nullptr);
        }
    }
}

TEST_F(ParameterBinaryFileTest, RefusesReadsOutsideTheFile)
{
    UseFile(100);
    std::vector<uint8_t> value(16);
    unsigned int pos = 4;
    EXPECT_FALSE(m_binary->Read(value.data(), Length() - 10, pos, 10, 1));
    EXPECT_TRUE(m_log.HasMessage("ParameterBinaryFile::Read attempted to read past the end of the "
                                 "file, offset: " +
                                 std::to_string(Length() - 10) + ", pos: 4, count: 10, length: " +
                                 std::to_string(Length()) + "\n"));
    EXPECT_EQ(pos, 4u);
    EXPECT_FALSE(m_binary->Read(nullptr, 0, pos, 4, 1));
    EXPECT_TRUE(m_log.HasMessage("ParameterBinaryFile::Read called with null value\n"));
    // A read of nothing only tells whether the file is still unchanged.
    EXPECT_TRUE(m_binary->Read(nullptr, 0, pos, 0, 1));
    EXPECT_EQ(m_binary->Read(0, 0), nullptr);
    EXPECT_TRUE(m_log.HasMessage("ParameterBinaryFile::Read called with 0 count\n"));
}

TEST_F(ParameterBinaryFileTest, ReferencesOpenAndCloseTheFile)
{
    UseFile(100);
    EXPECT_EQ(m_binary->Reference(1), 2);
    EXPECT_EQ(m_binary->Reference(-2), 0);
    EXPECT_FALSE(m_binary->IsOpen());

    std::vector<uint8_t> value(4);
    unsigned int pos = 0;
    EXPECT_FALSE(m_binary->Read(value.data(), 0, pos, 4, 1));
    EXPECT_TRUE(m_log.HasMessage("ParameterBinaryFile::Read called with null file\n"));
    EXPECT_EQ(m_binary->Reference(-1), 0);
    EXPECT_TRUE(m_log.HasMessage(
        "FileReference Remove: -1, RefCount: 0, Called when file was already closed\n"));

    EXPECT_EQ(m_binary->Reference(2), 2);
    EXPECT_TRUE(m_binary->IsOpen());
    EXPECT_FALSE(m_binary->IsModified());
    ExpectRead(0, 4);
    m_binary.reset();
    EXPECT_TRUE(m_log.HasMessage("ParameterBinaryFile deleted with outstanding references: 2\n"));
}

// A file rewritten behind the reader fails the read it shortened; the reopen that follows sees
// the new modification time, and from then on every read fails.
TEST_F(ParameterBinaryFileTest, FileChangedOnDiskFailsLaterReads)
{
    UseFile(20000);
    ExpectRead(0, 16);
    m_file->Rewrite(std::vector<uint8_t>(100, 1));

    std::vector<uint8_t> value(2000);
    unsigned int pos = 0;
    EXPECT_FALSE(m_binary->Read(value.data(), 10000, pos, 2000, 1));
    EXPECT_TRUE(m_log.HasMessage("Read failed to read from file, ferror: 0, offset: 10000, pos: 0, "
                                 "requested: 2000, actual: 0\n"));
    EXPECT_TRUE(m_log.HasMessage("ParameterBinaryFile::Read failed, retrying\n"));
    EXPECT_TRUE(m_log.HasMessage("ParameterBinaryFile::Open, file modified, must reload\n"));
    EXPECT_TRUE(m_binary->IsModified());
    EXPECT_EQ(m_log.Count("retrying"), 1u);

    m_log.Clear();
    EXPECT_FALSE(m_binary->Read(value.data(), 0, pos, 16, 1));
    EXPECT_FALSE(m_binary->Read(value.data(), 0, pos, 0, 1));
    EXPECT_EQ(m_binary->Read(0, 16), nullptr);
    EXPECT_TRUE(m_log.Messages().empty());
}

TEST_F(ParameterBinaryFileTest, ReopenNoticesChange)
{
    UseFile(100);
    EXPECT_EQ(m_binary->Reference(-1), 0);
    m_file->Rewrite(FileOfSize(300));
    EXPECT_EQ(m_binary->Reference(1), 1);
    EXPECT_TRUE(m_binary->IsModified());
    EXPECT_TRUE(m_log.HasMessage("ParameterBinaryFile::Open, file modified, must reload\n"));
    std::vector<uint8_t> value(4);
    unsigned int pos = 0;
    EXPECT_FALSE(m_binary->Read(value.data(), 0, pos, 4, 1));
}

struct SameSecondCase
{
    char const* name;
    long nanosecondStep; ///< added to the old nanoseconds, within the same second
    size_t dataSize;     ///< the rewritten file's data size (the first file has 100)
    bool modified;
};

class SameSecondRewriteTest : public ParameterBinaryFileTest,
                              public ::testing::WithParamInterface<SameSecondCase>
{
};

// A tool may write the file again within the second of the first write; the time is then set
// by hand to the same second, so only the nanoseconds or the size can show the change.
TEST_P(SameSecondRewriteTest, ReopenComparesNanosecondsAndSize)
{
    SameSecondCase const& param = GetParam();
    UseFile(100);
    struct stat before = {};
    ASSERT_EQ(stat(m_file->Path().c_str(), &before), 0);
    EXPECT_EQ(m_binary->Reference(-1), 0);

    m_file->Rewrite(FileOfSize(param.dataSize));
    timespec times[2] = {before.st_mtim, before.st_mtim};
    times[0].tv_nsec = (before.st_mtim.tv_nsec + param.nanosecondStep) % 1000000000;
    times[1].tv_nsec = times[0].tv_nsec;
    ASSERT_EQ(utimensat(AT_FDCWD, m_file->Path().c_str(), times, 0), 0);
    EXPECT_EQ(m_binary->Reference(1), 1);
    EXPECT_EQ(m_binary->IsModified(), param.modified);
    EXPECT_EQ(m_log.HasMessage("ParameterBinaryFile::Open, file modified, must reload\n"),
              param.modified);
}

INSTANTIATE_TEST_SUITE_P(Rewrites, SameSecondRewriteTest,
                         ::testing::Values(SameSecondCase{"OtherSize", 0, 300, true},
                                           SameSecondCase{"OtherNanoseconds", 1, 100, true},
                                           SameSecondCase{"SameTimeAndSize", 0, 100, false}),
                         [](::testing::TestParamInfo<SameSecondCase> const& caseInfo) {
                             return caseInfo.param.name;
                         });

} // namespace
