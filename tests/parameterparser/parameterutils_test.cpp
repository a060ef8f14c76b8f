// SPDX-License-Identifier: Apache-2.0
// ParameterUtils: bounded byte reads with their cursor rule and texts, text scanning, and the
// locale-free conversions between numbers and text.
#include "parameterparser/parameterutils.h"

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vornalloc.h"

#include "tests/common/logcapture.h"

namespace {

// A buffer of `size` bytes holding text at offset `at` (with its NUL if it fits), the rest 0xEE.
std::vector<unsigned char> BufferWithText(size_t size, size_t at, std::string const& text)
{
    std::vector<unsigned char> buffer(size, 0xEE);
    for (size_t i = 0; i <= text.size() && at + i < size; ++i)
        buffer[at + i] = i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
    return buffer;
}

struct AllocatingReadCase
{
    char const* what;
    char const* text;
    char const* expected;
    size_t bufferSize;
    unsigned int pos;
    unsigned int maximum;
    unsigned int expectedPos;
    unsigned char alignment;
};

TEST(ParameterUtilsReadTest, AllocatingReadStringMovesByTheFieldSize)
{
    // what, text at pos, expected string, buffer size, pos, maximum, pos after, alignment
    AllocatingReadCase const cases[] = {
        {"text shorter than the field", "twenty characters!!!", "twenty characters!!!", 40, 0, 28,
         28, 1},
        {"field rounded to alignment 8", "abc", "abc", 40, 0, 13, 16, 8},
        {"field already a multiple", "abc", "abc", 40, 8, 16, 24, 8},
        {"text cut at maximum", "abcdefgh", "abcde", 40, 0, 5, 5, 1},
        {"no NUL before the buffer ends", "abcdefghijklmnop", "abcdef", 10, 4, 20, 24, 4},
        {"cursor past the end", "", "", 10, 12, 4, 16, 1},
        {"empty field", "abc", "", 10, 2, 0, 2, 8},
    };
    for (AllocatingReadCase const& c : cases) {
        SCOPED_TRACE(c.what);
        std::vector<unsigned char> buffer = BufferWithText(c.bufferSize, c.pos, c.text);
        unsigned int pos = c.pos;
        char* text = ParameterUtils::ReadString(
            buffer.data(), static_cast<unsigned int>(c.bufferSize), pos, c.maximum, c.alignment);
        ASSERT_NE(text, nullptr);
        EXPECT_EQ(std::string(text), c.expected);
        EXPECT_EQ(pos, c.expectedPos);
        VornFree(text, VornTagRelease);
    }
}

TEST(ParameterUtilsReadTest, AllocatingReadStringFromNullBufferGivesNull)
{
    unsigned int pos = 4;
    EXPECT_EQ(ParameterUtils::ReadString(nullptr, 100, pos, 8, 1), nullptr);
    EXPECT_EQ(pos, 4u);
}

TEST(ParameterUtilsReadTest, ArrayReadStringTerminatesAtTheArrayEnd)
{
    std::vector<unsigned char> buffer = BufferWithText(12, 0, "abcdefghijkl");
    ParamTest::LogCapture capture;

    // A full field: the last character gives way to the terminator.
    char value[8];
    unsigned int pos = 0;
    EXPECT_TRUE(
        ParameterUtils::ReadString(value, buffer.data(), 12, pos, sizeof(value), 8, 8, nullptr));
    EXPECT_STREQ(value, "abcdefg");
    EXPECT_EQ(pos, 8u);

    // A short buffer copies what is there; the NUL still goes at size - 1, not behind the copy.
    std::memset(value, 'x', sizeof(value));
    pos = 9;
    EXPECT_TRUE(
        ParameterUtils::ReadString(value, buffer.data(), 12, pos, sizeof(value), 8, 4, nullptr));
    EXPECT_STREQ(value, "jklxxxx");
    EXPECT_EQ(pos, 17u);

    // A count above the array never writes past it.
    char small[4];
    pos = 0;
    EXPECT_TRUE(
        ParameterUtils::ReadString(small, buffer.data(), 12, pos, sizeof(small), 10, 1, nullptr));
    EXPECT_STREQ(small, "abc");
    EXPECT_EQ(pos, 10u);
    EXPECT_TRUE(capture.Messages().empty());
}

TEST(ParameterUtilsReadTest, ArrayReadStringIntoNullLogsAndStillMoves)
{
    std::vector<unsigned char> buffer(32, 'a');
    ParamTest::LogCapture capture;
    unsigned int pos = 0;
    EXPECT_FALSE(ParameterUtils::ReadString(nullptr, buffer.data(), 32, pos, 8, 13, 8, nullptr));
    EXPECT_EQ(pos, 16u);
    EXPECT_EQ(capture.Messages(),
              (std::vector<std::string>{
                  "ReadBuffer failed to allocate space for a string of 13 length\n"}));
}

TEST(ParameterUtilsReadTest, ReadBufferCopiesAndMovesByCountRounded)
{
    std::vector<unsigned char> buffer = BufferWithText(16, 0, "0123456789ABCDE");
    ParamTest::LogCapture capture;
    unsigned char value[8] = {};
    unsigned int pos = 2;
    EXPECT_TRUE(ParameterUtils::ReadBuffer(value, buffer.data(), 16, pos, 5, 8, nullptr));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(value), 5), "23456");
    EXPECT_EQ(pos, 10u);
    EXPECT_TRUE(capture.Messages().empty());
}

TEST(ParameterUtilsReadTest, ShortReadBufferKeepsWhatWasThereAndFails)
{
    std::vector<unsigned char> buffer = BufferWithText(16, 0, "0123456789ABCDE");
    ParamTest::LogCapture capture;
    unsigned char value[8];
    std::memset(value, '-', sizeof(value));
    unsigned int pos = 13;
    EXPECT_FALSE(ParameterUtils::ReadBuffer(value, buffer.data(), 16, pos, 5, 4, nullptr));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(value), 5), std::string("DE\0--", 5));
    EXPECT_EQ(pos, 21u);

    // A cursor already past the end reads nothing rather than wrapping.
    EXPECT_FALSE(ParameterUtils::ReadBuffer(value, buffer.data(), 16, pos, 2, 1, nullptr));
    EXPECT_EQ(pos, 23u);
    EXPECT_EQ(capture.Messages(),
              (std::vector<std::string>{"ReadBuffer failed, read 3 bytes, expected 5 bytes\n",
                                        "ReadBuffer failed, read 0 bytes, expected 2 bytes\n"}));
}

TEST(ParameterUtilsReadTest, ReadBufferWithNullArgumentsLogsAndStays)
{
    unsigned char buffer[8] = {};
    unsigned char value[8] = {};
    ParamTest::LogCapture capture;
    unsigned int pos = 3;
    EXPECT_FALSE(ParameterUtils::ReadBuffer(value, nullptr, 8, pos, 4, 1, nullptr));
    EXPECT_FALSE(ParameterUtils::ReadBuffer(nullptr, buffer, 8, pos, 4, 1, nullptr));
    EXPECT_TRUE(ParameterUtils::ReadBuffer(nullptr, buffer, 8, pos, 0, 1, nullptr));
    EXPECT_TRUE(ParameterUtils::ReadBuffer(value, nullptr, 8, pos, 0, 1, nullptr));
    EXPECT_EQ(pos, 3u);
    EXPECT_EQ(capture.Messages(), (std::vector<std::string>{
                                      "ReadBuffer called with nullptr buffer\n",
                                      "ReadBuffer called with nullptr value\n",
                                      "ReadBuffer called with nullptr value\n",
                                      "ReadBuffer called with nullptr buffer\n",
                                  }));
    EXPECT_EQ(capture.Lines()[0].severity, 'E');
}

TEST(ParameterUtilsWriteTest, WriteStringNeedsRoomBelowLength)
{
    ParamTest::LogCapture capture;
    unsigned char buffer[6];
    std::memset(buffer, 'x', sizeof(buffer));

    // "abcd" and its NUL end one byte below the length: accepted.
    unsigned int pos = 0;
    EXPECT_TRUE(ParameterUtils::WriteString("abcd", buffer, 6, pos, true, nullptr));
    EXPECT_STREQ(reinterpret_cast<char*>(buffer), "abcd");
    EXPECT_EQ(pos, 5u);

    // "abcde" with its NUL would exactly fill the buffer: refused, nothing written.
    std::memset(buffer, 'x', sizeof(buffer));
    pos = 0;
    EXPECT_FALSE(ParameterUtils::WriteString("abcde", buffer, 6, pos, true, nullptr));
    EXPECT_EQ(pos, 0u);
    EXPECT_EQ(buffer[0], 'x');

    pos = 5;
    EXPECT_FALSE(ParameterUtils::WriteString(nullptr, buffer, 6, pos, true, nullptr));
    EXPECT_FALSE(ParameterUtils::WriteString("a", nullptr, 6, pos, true, nullptr));
    EXPECT_EQ(pos, 5u);
    EXPECT_EQ(capture.Messages(),
              (std::vector<std::string>{"Insufficient space in buffer to write string: abcde\n",
                                        "Insufficient space in buffer to write string\n",
                                        "Insufficient space in buffer to write string: a\n"}));
}

TEST(ParameterUtilsWriteTest, WriteStringWithoutNulLetsTheNextWriteContinue)
{
    char buffer[16];
    std::memset(buffer, 'x', sizeof(buffer));
    auto* bytes = reinterpret_cast<unsigned char*>(buffer);
    unsigned int pos = 0;
    EXPECT_TRUE(ParameterUtils::WriteString("ab", bytes, 16, pos, false, nullptr));
    EXPECT_EQ(pos, 2u);
    EXPECT_TRUE(ParameterUtils::WriteString(nullptr, bytes, 16, pos, false, nullptr));
    EXPECT_EQ(pos, 2u);
    EXPECT_TRUE(ParameterUtils::WriteString("cd", bytes, 16, pos, true, nullptr));
    EXPECT_EQ(pos, 5u);
    EXPECT_TRUE(ParameterUtils::WriteString("e", bytes, 16, pos, true, nullptr));
    EXPECT_EQ(pos, 7u);
    EXPECT_EQ(std::string(buffer, 7), std::string("abcd\0e\0", 7));
}

TEST(ParameterUtilsTextTest, GetStringPos)
{
    EXPECT_EQ(ParameterUtils::GetStringPos("a.b.c", '.'), 1);
    EXPECT_EQ(ParameterUtils::GetStringPos("abc", 'c'), 2);
    EXPECT_EQ(ParameterUtils::GetStringPos("abc", 'x'), -1);
    EXPECT_EQ(ParameterUtils::GetStringPos("", 'a'), -1);
    EXPECT_EQ(ParameterUtils::GetStringPos(nullptr, 'a'), -1);
}

struct SubStringCase
{
    char const* text;
    char delimiter;
    unsigned int resultLength;
    char const* expected;
    unsigned int copied;
};

TEST(ParameterUtilsTextTest, GetSubStringCopiesUpToDelimiterOrRoom)
{
    SubStringCase const cases[] = {
        {"mode.sub", '.', 16, "mode", 4}, {"nodelimiter", '.', 16, "nodelimiter", 11},
        {".lead", '.', 16, "", 0},        {"abcdef", '.', 4, "abc", 3},
        {"abc", '.', 1, "", 0},           {"abc", '.', 4, "abc", 3},
    };
    for (SubStringCase const& c : cases) {
        SCOPED_TRACE(testing::Message() << c.text << " room " << c.resultLength);
        char result[16];
        std::memset(result, 'x', sizeof(result));
        EXPECT_EQ(ParameterUtils::GetSubString(c.text, c.delimiter, result, c.resultLength),
                  c.copied);
        EXPECT_STREQ(result, c.expected);
    }

    char untouched[4] = {'x', 'x', 'x', '\0'};
    EXPECT_EQ(ParameterUtils::GetSubString("abc", '.', untouched, 0), 0u);
    EXPECT_EQ(ParameterUtils::GetSubString(nullptr, '.', untouched, 4), 0u);
    EXPECT_EQ(ParameterUtils::GetSubString("abc", '.', nullptr, 4), 0u);
    EXPECT_STREQ(untouched, "xxx");
}

struct VariableCase
{
    char const* path;
    unsigned long nameLength;
    char const* name;
    unsigned int index;
    unsigned int consumed;
};

TEST(ParameterUtilsTextTest, GetVariableTakesTheFirstComponent)
{
    unsigned int const unchanged = 77;
    VariableCase const cases[] = {
        {"abc[3].def", 64, "abc", 3, 7},
        {"abc", 64, "abc", unchanged, 3},
        {"abc.def", 64, "abc", unchanged, 4},
        {"table[12]", 64, "table", 12, 9},
        {"abc[", 64, "abc", unchanged, 4},  // a bare "[" is cut, the index left alone
        {"abc[]", 64, "abc", unchanged, 5}, // an empty index leaves it alone too
        {"abc[2.9]", 64, "abc", 2, 6},      // a point ends the component, even inside brackets
        {"abc[x]", 64, "abc", 0, 6},        // not a number: reads as 0, unchecked
        {"longname[1]", 5, "long", 1, 11},  // the name is cut to its room
        {"", 64, "", unchanged, 0},
        {".abc", 64, "", unchanged, 0}, // an empty component consumes nothing
    };
    for (VariableCase const& c : cases) {
        SCOPED_TRACE(c.path);
        char name[64];
        std::memset(name, 'x', sizeof(name));
        unsigned int index = unchanged;
        EXPECT_EQ(ParameterUtils::GetVariable(c.path, name, index, c.nameLength), c.consumed);
        EXPECT_STREQ(name, c.name);
        EXPECT_EQ(index, c.index);
    }
}

TEST(ParameterUtilsTextTest, GetVariableKeepsAtMost128CharactersOfAComponent)
{
    std::string const path = std::string(200, 'n') + ".rest";
    char name[256];
    unsigned int index = 0;
    EXPECT_EQ(ParameterUtils::GetVariable(path.c_str(), name, index, sizeof(name)), 128u);
    EXPECT_EQ(std::string(name), std::string(128, 'n'));
}

struct ParseCase
{
    char const* text;
    double value;
};

TEST(ParameterUtilsNumberTest, StringToDoubleAcceptsSignDigitsAndOnePoint)
{
    ParseCase const cases[] = {
        {"12.5", 12.5},
        {"0", 0.0},
        {"007", 7.0},
        {"-3.25", -3.25},
        {".5", 0.5},
        {"5.", 5.0},
        {"4294967295", 4294967295.0},
        {"0.125", 0.125},
        {"x-2", -2.0}, // what stands ahead of the "-" is ignored
        {".", 0.0},
    };
    for (ParseCase const& c : cases) {
        SCOPED_TRACE(c.text);
        bool ok = false;
        EXPECT_EQ(ParameterUtils::StringToDouble(c.text, ok), c.value);
        EXPECT_TRUE(ok);
    }

    bool ok = false;
    double const minusAlone = ParameterUtils::StringToDouble("-", ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(minusAlone, 0.0);
    EXPECT_TRUE(std::signbit(minusAlone));
}

TEST(ParameterUtilsNumberTest, StringToDoubleRefusesEverythingElse)
{
    char const* const texts[] = {"1e3", "1.2.3", "12a", " 1", "+1", "--1", "0x10", ""};
    for (char const* text : texts) {
        SCOPED_TRACE(text);
        bool ok = true;
        EXPECT_EQ(ParameterUtils::StringToDouble(text, ok), 0.0);
        EXPECT_FALSE(ok);
    }
    bool ok = true;
    EXPECT_EQ(ParameterUtils::StringToDouble(nullptr, ok), 0.0);
    EXPECT_FALSE(ok);
}

struct FormatCase
{
    double value;
    unsigned int precision;
    unsigned int length;
    char const* text;
    bool ok;
};

TEST(ParameterUtilsNumberTest, DoubleToString)
{
    FormatCase const cases[] = {
        {0.0, 10, 64, "0.0", true},
        {100.0, 10, 64, "100.0", true},
        {1.5, 10, 64, "1.5", true},
        {0.1236, 3, 64, "0.124", true},
        {5.0, 0, 64, "5", true},
        {5.7, 0, 64, "5", true}, // no point, so no rounding either
        {-1.25, 10, 64, "-1.25", true},
        {-0.0, 10, 64, "0.0", true},
        {0.3, 10, 64, "0.3", true}, // 0.29999... rounds back up
        {0.05, 1, 64, "0.1", true}, // half up
        {0.04, 1, 64, "0.0", true},
        {1e-11, 10, 64, "0.0", true}, // zeros behind the point keep one digit
        {9.99, 1, 64, "10.0", true},  // carry across the point to a new leading digit
        {-999.96, 1, 64, "-1000.0", true},
        {4294967295.0, 0, 64, "4294967295", true},
        {123.0, 10, 4, "123", true},   // no room for a point
        {12.345, 10, 5, "12.3", true}, // cut where the text is full
        {12.36, 10, 5, "12.4", true},  // and rounded there
        {123.0, 10, 3, "0", false},    // integer part does not fit
        {-15.0, 10, 3, "-", false},
        {-5.0, 10, 2, "-", false}, // room for the sign alone
        {-5.0, 10, 3, "-5", true},
        {7.0, 10, 1, "", false},
        {9.96, 1, 4, "10", false}, // the carry's leading "1" pushes out the last digit
    };
    for (FormatCase const& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << c.value << " precision " << c.precision << " length " << c.length);
        char text[64];
        std::memset(text, 'x', sizeof(text));
        bool ok = !c.ok;
        unsigned int const written =
            ParameterUtils::DoubleToString(c.value, text, c.length, c.precision, ok);
        EXPECT_STREQ(text, c.text);
        EXPECT_EQ(written, std::strlen(c.text));
        EXPECT_EQ(ok, c.ok);
        // Never a byte past the given length.
        for (unsigned int i = c.length; i < sizeof(text); ++i)
            ASSERT_EQ(text[i], 'x') << "byte " << i;
    }
}

TEST(ParameterUtilsNumberTest, DoubleToStringOfNothingWritesNothing)
{
    char text[4] = {'x', 'x', 'x', 'x'};
    bool ok = true;
    EXPECT_EQ(ParameterUtils::DoubleToString(1.0, nullptr, 10, 10, ok), 0u);
    EXPECT_FALSE(ok);
    ok = true;
    EXPECT_EQ(ParameterUtils::DoubleToString(1.0, text, 0, 10, ok), 0u);
    EXPECT_FALSE(ok);
    EXPECT_EQ(text[0], 'x');
}

TEST(ParameterUtilsNumberTest, DoubleToStringOfNonFiniteValuesSaysNothingFits)
{
    char text[32];
    bool ok = true;
    ParameterUtils::DoubleToString(INFINITY, text, sizeof(text), 10, ok);
    EXPECT_STREQ(text, "0");
    EXPECT_FALSE(ok);
    ParameterUtils::DoubleToString(-INFINITY, text, sizeof(text), 10, ok);
    EXPECT_STREQ(text, "-");
    EXPECT_FALSE(ok);
    ParameterUtils::DoubleToString(NAN, text, sizeof(text), 10, ok);
    EXPECT_STREQ(text, "0");
    EXPECT_FALSE(ok);
}

TEST(ParameterUtilsNumberTest, TextRoundTripsThroughBothConversions)
{
    for (double value : {0.5, 12.25, -7.125, 1234567.0, 0.0001}) {
        char text[64];
        bool formatted = false;
        ParameterUtils::DoubleToString(value, text, sizeof(text), 10, formatted);
        bool parsed = false;
        EXPECT_DOUBLE_EQ(ParameterUtils::StringToDouble(text, parsed), value) << text;
        EXPECT_TRUE(formatted && parsed) << text;
    }
}

} // namespace
