// SPDX-License-Identifier: Apache-2.0
// ParameterByteReader: field steps at the file's alignment, little-endian assembly, and the
// sticky failure after one logged short read.
#include "parameterparser/parameterbytereader.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vornalloc.h"

#include "tools/writer/bytesink.h"

#include "tests/common/logcapture.h"

namespace {

struct StepCase
{
    unsigned char alignment;
    unsigned int afterU8;
    unsigned int afterU16;
    unsigned int afterU32;
    unsigned int afterU64;
};

TEST(ParameterByteReaderTest, EachFieldStepsByTheLargerOfWidthAndAlignment)
{
    StepCase const cases[] = {
        {1, 1, 3, 7, 15},
        {4, 4, 8, 12, 20},
        {8, 8, 16, 24, 32},
    };
    for (StepCase const& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.alignment));
        TuningWriter::ByteSink sink(c.alignment);
        sink.PutU8(0x11);
        sink.PutU16(0x2233);
        sink.PutU32(0x44556677u);
        sink.PutU64(0x8899AABBCCDDEEFFull);
        std::vector<uint8_t> const bytes = sink.Take();

        ParamTest::LogCapture capture;
        unsigned int pos = 0;
        ParameterByteReader reader(bytes.data(), static_cast<unsigned int>(bytes.size()), pos,
                                   c.alignment, nullptr);
        uint8_t u8 = 0;
        uint16_t u16 = 0;
        uint32_t u32 = 0;
        uint64_t u64 = 0;
        ASSERT_TRUE(reader.ReadU8(u8));
        EXPECT_EQ(pos, c.afterU8);
        ASSERT_TRUE(reader.ReadU16(u16));
        EXPECT_EQ(pos, c.afterU16);
        ASSERT_TRUE(reader.ReadU32(u32));
        EXPECT_EQ(pos, c.afterU32);
        ASSERT_TRUE(reader.ReadU64(u64));
        EXPECT_EQ(pos, c.afterU64);
        EXPECT_EQ(u8, 0x11);
        EXPECT_EQ(u16, 0x2233);
        EXPECT_EQ(u32, 0x44556677u);
        EXPECT_EQ(u64, 0x8899AABBCCDDEEFFull);
        EXPECT_FALSE(reader.Failed());
        EXPECT_EQ(reader.Remaining(), 0u);
        EXPECT_TRUE(capture.Lines().empty());
    }
}

TEST(ParameterByteReaderTest, AssemblesLittleEndianFromAnyOffset)
{
    std::vector<uint8_t> const bytes = {0xAA, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08};
    unsigned int pos = 1; // deliberately unaligned for the host
    ParameterByteReader reader(bytes.data(), 9, pos, 1, nullptr);
    uint64_t value = 0;
    ASSERT_TRUE(reader.ReadU64(value));
    EXPECT_EQ(value, 0x0807060504030201ull);

    pos = 1;
    ParameterByteReader narrow(bytes.data(), 9, pos, 1, nullptr);
    uint16_t half = 0;
    uint32_t word = 0;
    ASSERT_TRUE(narrow.ReadU16(half));
    ASSERT_TRUE(narrow.ReadU32(word));
    EXPECT_EQ(half, 0x0201);
    EXPECT_EQ(word, 0x06050403u);
}

TEST(ParameterByteReaderTest, ShortReadLogsOnceAndFailsEveryLaterRead)
{
    TuningWriter::ByteSink sink(1);
    sink.PutU32(0x01020304u);
    sink.PutU32(0x05060708u);
    std::vector<uint8_t> const bytes = sink.Take();

    ParamTest::LogCapture capture;
    unsigned int pos = 6;
    ParameterByteReader reader(bytes.data(), 8, pos, 1, nullptr);
    uint32_t word = 0xFFFFFFFFu;
    EXPECT_FALSE(reader.ReadU32(word));
    EXPECT_EQ(word, 0u);
    EXPECT_TRUE(reader.Failed());
    EXPECT_EQ(pos, 6u);

    // These would fit, but the reader has failed: no bytes, no further message.
    uint8_t byte = 0xFF;
    EXPECT_FALSE(reader.ReadU8(byte));
    EXPECT_EQ(byte, 0u);
    EXPECT_FALSE(reader.Skip(1));
    EXPECT_EQ(reader.ReadCountedString(1), nullptr);
    EXPECT_EQ(reader.Peek(1), nullptr);
    EXPECT_EQ(pos, 6u);
    EXPECT_EQ(
        capture.Messages(),
        (std::vector<std::string>{"Failed to read 4 bytes from binary file offset 6, length 8\n"}));
    EXPECT_EQ(capture.Lines()[0].severity, 'E');
}

TEST(ParameterByteReaderTest, SkipsAndStringsMoveByCountRounded)
{
    TuningWriter::ByteSink sink(8);
    sink.PutFixedString("name", 16); // a 13-byte field and its padding to 16
    sink.PutU32(42);
    std::vector<uint8_t> const bytes = sink.Take();
    ASSERT_EQ(bytes.size(), 24u);

    unsigned int pos = 0;
    ParameterByteReader reader(bytes.data(), 24, pos, 8, nullptr);
    char* name = reader.ReadCountedString(13);
    ASSERT_NE(name, nullptr);
    EXPECT_STREQ(name, "name");
    VornFree(name, VornTagRelease);
    EXPECT_EQ(pos, 16u);
    uint32_t value = 0;
    ASSERT_TRUE(reader.ReadU32(value));
    EXPECT_EQ(value, 42u);

    // A reader that owns its position starts where it is told.
    ParameterByteReader skipper(bytes.data(), 24, 8, nullptr, 0);
    ASSERT_TRUE(skipper.Skip(5));
    EXPECT_EQ(skipper.Position(), 8u);
    ASSERT_TRUE(skipper.SkipUnaligned(3));
    EXPECT_EQ(skipper.Position(), 11u);
}

// A text field keeps what the buffer holds of it and moves by the whole field, rounded, without
// failing the reader: "ame" of a field cut by the buffer's end, then nothing past it.
TEST(ParameterByteReaderTest, TextFieldsMoveByTheFieldWhateverTheyHold)
{
    std::vector<uint8_t> const bytes = {'n', 'a', 'm', 'e'};
    ParamTest::LogCapture capture;
    ParameterByteReader reader(bytes.data(), 4, 8, nullptr, 1);
    for (char const* expected : {"ame", ""}) {
        char* text = reader.ReadTextField(5);
        ASSERT_NE(text, nullptr);
        EXPECT_STREQ(text, expected);
        VornFree(text, VornTagRelease);
    }
    EXPECT_EQ(reader.Position(), 17u);
    EXPECT_FALSE(reader.Failed());
    EXPECT_TRUE(capture.Messages().empty());
    ParameterByteReader empty(nullptr, 4, 1, nullptr);
    EXPECT_EQ(empty.ReadTextField(4), nullptr);
}

TEST(ParameterByteReaderTest, NullBufferHoldsNothing)
{
    ParamTest::LogCapture capture;
    unsigned int pos = 0;
    ParameterByteReader reader(nullptr, 100, pos, 1, nullptr);
    uint8_t byte = 0;
    EXPECT_FALSE(reader.ReadU8(byte));
    EXPECT_EQ(reader.Remaining(), 0u);
    EXPECT_EQ(
        capture.Messages(),
        (std::vector<std::string>{"Failed to read 1 bytes from binary file offset 0, length 0\n"}));
}

} // namespace
