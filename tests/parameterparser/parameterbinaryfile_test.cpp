// SPDX-License-Identifier: Apache-2.0
// Tests of ParameterBinaryFile on real files: the read buffers, references and changes on disk.
#include "parameterparser/parameterbinaryfile.h"

#include <cstdint>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "platform/vornalloc.h"

#include "tests/common/formatfiles.h"
#include "tests/common/logcapture.h"
#include "tests/common/tempfile.h"

namespace {

using Messages = std::vector<std::string>;

class ParameterBinaryFileTest : public ::testing::Test
{
protected:
    void UseFile(size_t dataSize)
    {
        m_content = ParamTest::PatternFile(dataSize);
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

struct BufferCase
{
    char const* name;
    size_t dataSize;
    std::vector<std::pair<long, unsigned long>> reads; ///< position (below 0: from the end), count
    /// Offset (below 0: from the end) and length (-1: the whole file) of each buffer afterwards.
    std::vector<std::pair<long, long>> windows;
};

// Reads of up to BufferSize bytes fill a buffer at their position, slid back near the end and
// from the start in a small file; a read the buffer covers uses it. With all buffers in use, the
// one whose start is nearest the position is refilled, the lower index on a tie, however
// recently it was used.
TEST_F(ParameterBinaryFileTest, ReadsFillTheNearestBuffer)
{
    std::pair<long, unsigned long> const starts[] = {{0, 16}, {4096, 16}, {8192, 16}};
    auto all = [&](std::vector<std::pair<long, unsigned long>> more) {
        more.insert(more.begin(), std::begin(starts), std::end(starts));
        return more;
    };
    // clang-format off
    BufferCase const cases[] = {
        {"one byte", 5000, {{10, 1}}, {{10, 1024}, {0, 0}}},
        {"a whole buffer", 5000, {{10, 1024}}, {{10, 1024}, {0, 0}}},
        {"one byte more than a buffer", 5000, {{10, 1025}}, {{0, 0}}},
        {"near the end", 5000, {{-100, 16}, {-1000, 16}}, {{-1024, 1024}, {0, 0}}},
        {"small file", 200, {{-10, 10}}, {{0, -1}}},
        {"nearest", 20000, all({{4100, 16}, {6000, 16}}), {{0, 1024}, {6000, 1024}, {8192, 1024}}},
        {"recent", 20000, all({{8200, 16}, {7000, 16}}), {{0, 1024}, {4096, 1024}, {7000, 1024}}},
        {"tie", 20000, all({{10, 16}, {2048, 16}}), {{2048, 1024}, {4096, 1024}, {8192, 1024}}},
        {"tie above", 20000, all({{10, 16}, {6144, 16}}), {{0, 1024}, {6144, 1024}, {8192, 1024}}},
        {"far", 20000, all({{4100, 16}, {15000, 16}}), {{0, 1024}, {4096, 1024}, {15000, 1024}}},
    };
    // clang-format on
    for (BufferCase const& c : cases) {
        SCOPED_TRACE(c.name);
        UseFile(c.dataSize);
        auto const end = static_cast<long>(Length());
        for (auto const& [position, count] : c.reads)
            ExpectRead(static_cast<unsigned int>(position < 0 ? end + position : position), count);
        for (unsigned int i = 0; i < c.windows.size(); ++i) {
            ParameterBinaryFile::BufferWindow const window = m_binary->GetBufferWindow(i);
            auto const [offset, length] = c.windows[i];
            EXPECT_EQ(window.Offset, offset < 0 ? end + offset : offset) << "buffer " << i;
            EXPECT_EQ(window.Length, length < 0 ? end : length) << "buffer " << i;
        }
    }
}

// A name of 1022 characters is taken (a missing file is then logged on the first reference); one
// of 1023 is refused, as is none.
TEST(ParameterBinaryFileNameTest, BadNamesLeaveFileClosed)
{
    std::string const tooLong(1023, 'n');
    std::string const longest(1022, 'n');
    std::pair<char const*, std::string> const cases[] = {
        {nullptr, "ParameterBinaryFile constructor called with null file name\n"},
        {tooLong.c_str(),
         "ParameterBinaryFile constructor file name length (1023) exceeds max length: 1023\n"},
        {longest.c_str(), ""},
    };
    for (auto const& [name, message] : cases) {
        ParamTest::LogCapture log;
        ParameterBinaryFile file(name, nullptr);
        EXPECT_FALSE(file.IsValid());
        EXPECT_FALSE(file.IsOpen());
        EXPECT_EQ(file.GetLength(), 0u);
        if (!message.empty()) {
            EXPECT_EQ(log.Messages(), std::vector<std::string>{message});
            EXPECT_EQ(file.GetReferenceCount(), 0);
        } else {
            EXPECT_TRUE(log.Contains("FileReference Adjust: 1, RefCount: 0, Failed to open binary "
                                     "file '" +
                                     longest + "' errno: "));
            EXPECT_EQ(file.Read(0, 16), nullptr);
        }
    }
}

// Read moves pos by the count rounded to the alignment; the allocating form hands out a copy. A
// read that ends at the end of the file is served; one byte further is refused, as is a null
// value. A read of nothing only tells whether the file is still unchanged (a null value is still
// logged); the allocating form refuses a count of 0. An empty file serves no read at all.
TEST_F(ParameterBinaryFileTest, ReadsWithinTheFileOnly)
{
    UseFile(5000);
    EXPECT_EQ(m_binary->GetLength(), Length());
    std::vector<uint8_t> value(16);
    unsigned int pos = 3;
    ASSERT_TRUE(m_binary->Read(value.data(), 100, pos, 5, 8));
    EXPECT_EQ(pos, 11u);
    EXPECT_EQ(std::vector<uint8_t>(value.begin(), value.begin() + 5),
              std::vector<uint8_t>(m_content.begin() + 103, m_content.begin() + 108));
    unsigned char* block = m_binary->Read(200, 3000);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::vector<uint8_t>(block, block + 3000),
              std::vector<uint8_t>(m_content.begin() + 200, m_content.begin() + 3200));
    VornFree(block, VornTagRelease);
    pos = 0;
    EXPECT_TRUE(m_binary->Read(value.data(), Length() - 10, pos, 10, 1));
    pos = 4;
    EXPECT_FALSE(m_binary->Read(value.data(), Length() - 13, pos, 10, 1));
    EXPECT_EQ(pos, 4u);
    EXPECT_FALSE(m_binary->Read(nullptr, 0, pos, 4, 1));
    EXPECT_TRUE(m_binary->Read(nullptr, 0, pos, 0, 1));
    EXPECT_EQ(m_binary->Read(0, 0), nullptr);
    ParamTest::TempFile const empty(std::vector<uint8_t>{});
    ParameterBinaryFile nothing(empty.Path().c_str(), nullptr);
    EXPECT_FALSE(nothing.Read(value.data(), 0, pos = 0, 1, 1));
    EXPECT_EQ(m_log.Messages(),
              (Messages{"ParameterBinaryFile::Read attempted to read past the end of the file, "
                        "offset: " +
                            std::to_string(Length() - 13) +
                            ", pos: 4, count: 10, length: " + std::to_string(Length()) + "\n",
                        "ParameterBinaryFile::Read called with null value\n",
                        "ParameterBinaryFile::Read called with null value\n",
                        "ParameterBinaryFile::Read called with 0 count\n",
                        "ParameterBinaryFile::Read called with a zero length file\n"}));
}

TEST_F(ParameterBinaryFileTest, ReferencesOpenAndCloseTheFile)
{
    UseFile(100);
    EXPECT_EQ(m_binary->Reference(1), 2);
    EXPECT_EQ(m_binary->Reference(-2), 0);
    EXPECT_FALSE(m_binary->IsOpen());
    // An adjustment of 0 only asks.
    EXPECT_EQ(m_binary->Reference(0), 0);
    EXPECT_EQ(m_log.Count("FileReference"), 0u);
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

// A file rewritten behind the reader fails the read it shortened, whether the read goes to the
// file directly or fills a buffer first; the reopen that follows sees the new modification time,
// and from then on every read fails.
TEST_F(ParameterBinaryFileTest, FileChangedOnDiskFailsLaterReads)
{
    // The read's size (above BufferSize it goes to the file directly) and the bytes asked of the
    // file.
    for (auto const& [count, requested] : {std::pair{2000ul, "2000"}, std::pair{16ul, "1024"}}) {
        SCOPED_TRACE(count);
        UseFile(20000);
        ExpectRead(0, 16);
        m_log.Clear();
        m_file->Rewrite(std::vector<uint8_t>(100, 1));
        std::vector<uint8_t> value(count);
        unsigned int pos = 0;
        EXPECT_FALSE(m_binary->Read(value.data(), 10000, pos, count, 1));
        EXPECT_EQ(
            m_log.Messages(),
            (std::vector<std::string>{
                "Read failed to read from file, ferror: 0, offset: 10000, pos: 0, requested: " +
                    std::string(requested) + ", actual: 0\n",
                "ParameterBinaryFile::Read failed, retrying\n",
                "ParameterBinaryFile::Open, file modified, must reload\n"}));
        EXPECT_TRUE(m_binary->IsModified());
        m_log.Clear();
        EXPECT_FALSE(m_binary->Read(value.data(), 0, pos, 16, 1));
        EXPECT_FALSE(m_binary->Read(value.data(), 0, pos, 0, 1));
        EXPECT_EQ(m_binary->Read(0, 16), nullptr);
        EXPECT_TRUE(m_log.Messages().empty());
    }
}

// A tool may write the file again within the second of the first write; the time is then set
// by hand to the same second, so only the nanoseconds or the size can show the change. A file
// found modified on reopen refuses reads.
TEST_F(ParameterBinaryFileTest, ReopenComparesNanosecondsAndSize)
{
    // Name, nanoseconds added within the same second, the rewritten file's data size (the first
    // file has 100), whether the file counts as modified.
    std::tuple<char const*, long, size_t, bool> const cases[] = {
        {"other size", 0, 300, true},
        {"other nanoseconds", 1, 100, true},
        {"same time and size", 0, 100, false}};
    for (auto const& [name, step, dataSize, modified] : cases) {
        SCOPED_TRACE(name);
        UseFile(100);
        m_log.Clear();
        struct stat before = {};
        ASSERT_EQ(stat(m_file->Path().c_str(), &before), 0);
        EXPECT_EQ(m_binary->Reference(-1), 0);
        m_file->Rewrite(ParamTest::PatternFile(dataSize));
        timespec times[2] = {before.st_mtim, before.st_mtim};
        times[0].tv_nsec = times[1].tv_nsec = (before.st_mtim.tv_nsec + step) % 1000000000;
        ASSERT_EQ(utimensat(AT_FDCWD, m_file->Path().c_str(), times, 0), 0);
        EXPECT_EQ(m_binary->Reference(1), 1);
        EXPECT_EQ(m_binary->IsModified(), modified);
        EXPECT_EQ(m_log.HasMessage("ParameterBinaryFile::Open, file modified, must reload\n"),
                  modified);
        std::vector<uint8_t> value(4);
        unsigned int pos = 0;
        EXPECT_EQ(m_binary->Read(value.data(), 0, pos, 4, 1), !modified);
    }
}

} // namespace
