// SPDX-License-Identifier: Apache-2.0
// Bounded byte reads: ParameterByteReader's field steps and sticky failure, ParameterUtils' reads
// with their cursor rule and texts, typed number reads of every source code into every target,
// text scanning, and the locale-free conversions between numbers and text.
#include "parameterparser/parameterutils.h"

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vornalloc.h"

#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterentryreader.h"
#include "parameterparser/parameterfilesymboltableentry.h"
#include "parameterparser/parameterutilsread.h"
#include "tools/writer/bytesink.h"

#include "tests/common/logcapture.h"

namespace {

using Messages = std::vector<std::string>;

// ---- ParameterByteReader ------------------------------------------------------------------------

// A read that does not fit logs once; the reader has failed then, and every later read fails
// with no bytes and no further message, even one that would fit. A null buffer holds nothing.
TEST(ParameterByteReaderTest, ShortReadLogsOnceAndFailsEveryLaterRead)
{
    std::vector<uint8_t> const bytes(8, 0x11);
    ParamTest::LogCapture capture;
    uint32_t word = 0xFFFFFFFFu;
    uint8_t byte = 0xFF;
    // At the bound the last word fits; one byte further it does not.
    ParameterByteReader atBound(bytes.data(), 8, 1, nullptr, 4);
    ASSERT_TRUE(atBound.ReadU32(word));
    ParameterByteReader reader(bytes.data(), 8, 1, nullptr, 5);
    EXPECT_FALSE(reader.ReadU32(word) || reader.ReadU8(byte) || reader.Skip(1));
    EXPECT_EQ(word + byte, 0u);
    EXPECT_TRUE(reader.Failed() && reader.ReadCountedString(1) == nullptr &&
                reader.Peek(1) == nullptr);
    EXPECT_EQ(reader.Position(), 5u);
    ParameterByteReader empty(nullptr, 100, 1, nullptr);
    EXPECT_FALSE(empty.ReadU8(byte));
    EXPECT_EQ(empty.Remaining(), 0u);
    EXPECT_EQ(capture.Messages(),
              (Messages{"Failed to read 4 bytes from binary file offset 5, length 8\n",
                        "Failed to read 1 bytes from binary file offset 0, length 0\n"}));
    EXPECT_EQ(capture.Lines()[0].severity, 'E');
}

// A text field keeps what the buffer holds of it and moves by the whole field, rounded, without
// failing the reader: "ame" of a field cut by the buffer's end, then nothing past it.
TEST(ParameterByteReaderTest, TextFieldKeepsWhatTheBufferHolds)
{
    TuningWriter::ByteSink sink(8);
    sink.PutFixedString("name", 16);
    std::vector<uint8_t> const bytes = sink.Take();
    ParamTest::LogCapture capture;
    ParameterByteReader text(bytes.data(), 4, 8, nullptr, 1);
    for (char const* expected : {"ame", ""}) {
        char* field = text.ReadTextField(5);
        EXPECT_STREQ(field, expected);
        VornFree(field, VornTagRelease);
    }
    EXPECT_EQ(text.Position(), 17u);
    EXPECT_FALSE(text.Failed());
    EXPECT_TRUE(capture.Messages().empty());
    ParameterByteReader none(nullptr, 4, 1, nullptr);
    EXPECT_EQ(none.ReadTextField(4), nullptr);
}

// A section or a record reads within its parent's bounds and no further, even where the buffer
// goes on; it fails on its own while its parent goes on. A failed reader hands its failure down.
TEST(ParameterByteReaderTest, SubReadersStayWithinTheirParent)
{
    std::vector<uint8_t> bytes(16);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<uint8_t>(i);
    ParamTest::LogCapture capture;
    ParameterByteReader file(bytes.data(), 16, 1, nullptr);
    ParameterByteReader section = file.Section(4, 8);
    ParameterByteReader record = section.Sub(6);
    uint32_t word = 0;
    uint16_t half = 0;
    uint8_t byte = 0;
    EXPECT_TRUE(record.ReadU32(word) && word == 0x07060504u);
    EXPECT_FALSE(record.ReadU32(word));
    EXPECT_TRUE(record.Failed() && !section.Failed() && !file.Failed());
    EXPECT_EQ(section.Position(), 10u);
    ParameterByteReader tail = section.Sub(6);
    EXPECT_TRUE(tail.ReadU16(half) && half == 0x0B0Au);
    EXPECT_FALSE(tail.ReadU8(byte));
    EXPECT_EQ(section.Position(), 12u);
    // Nothing before the section's start or behind its end can be cut out of it.
    EXPECT_EQ(section.Section(2, 4).Remaining(), 0u);
    EXPECT_EQ(section.Section(11, 100).Remaining(), 1u);
    EXPECT_TRUE(record.Sub(1).Failed() && record.Section(4, 1).Peek(1) == nullptr);
    EXPECT_EQ(capture.Messages(),
              (Messages{"Failed to read 4 bytes from binary file offset 8, length 10\n",
                        "Failed to read 1 bytes from binary file offset 12, length 12\n"}));
}

// ---- ParameterUtils reads and writes ------------------------------------------------------------

// A buffer of `size` bytes holding text at offset `at` (with its NUL if it fits), the rest 0xEE.
std::vector<unsigned char> BufferWithText(size_t size, size_t at, std::string const& text)
{
    std::vector<unsigned char> buffer(size, 0xEE);
    for (size_t i = 0; i <= text.size() && at + i < size; ++i)
        buffer[at + i] = i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
    return buffer;
}

// The allocating read takes the text up to the maximum or the buffer's end and moves by the
// field's size rounded to the alignment, whatever the text holds.
TEST(ParameterUtilsReadTest, AllocatingReadStringMovesByTheFieldSize)
{
    // Text, what is read, buffer size, start, maximum, where the read ends, alignment.
    std::tuple<char const*, char const*, size_t, unsigned int, unsigned int, unsigned int,
               unsigned char> const cases[] = {
        {"twenty characters!!!", "twenty characters!!!", 40, 0, 28, 28, 1},
        {"abc", "abc", 40, 0, 13, 16, 8},                 // field rounded to alignment 8
        {"abc", "abc", 40, 8, 16, 24, 8},                 // field already a multiple
        {"abcdefgh", "abcde", 40, 0, 5, 5, 1},            // text cut at the maximum
        {"abcdefghijklmnop", "abcdef", 10, 4, 20, 24, 4}, // no NUL before the buffer ends
        {"", "", 10, 12, 4, 16, 1},                       // cursor past the end
        {"abc", "", 10, 2, 0, 2, 8},                      // empty field
    };
    for (auto const& [text, expected, size, start, maximum, end, alignment] : cases) {
        SCOPED_TRACE(text);
        std::vector<unsigned char> buffer = BufferWithText(size, start, text);
        unsigned int pos = start;
        char* read = ParameterUtils::ReadString(buffer.data(), static_cast<unsigned int>(size), pos,
                                                maximum, alignment);
        EXPECT_STREQ(read, expected);
        EXPECT_EQ(pos, end);
        VornFree(read, VornTagRelease);
    }
    unsigned int pos = 4;
    EXPECT_EQ(ParameterUtils::ReadString(nullptr, 100, pos, 8, 1), nullptr);
    EXPECT_EQ(pos, 4u);
}

// Reading into an array: a full field gives its last character to the terminator, a short buffer
// copies what is there with the NUL still at size - 1, a count above the array never writes past
// it; into null it logs and still moves.
TEST(ParameterUtilsReadTest, ArrayReadStringTerminatesAtTheArrayEnd)
{
    std::vector<unsigned char> buffer = BufferWithText(12, 0, "abcdefghijkl");
    // Start, array size, count, alignment, what the array holds, where the read ends.
    std::tuple<unsigned int, unsigned int, unsigned int, unsigned char, char const*,
               unsigned int> const cases[] = {
        {0, 8, 8, 8, "abcdefg", 8}, {9, 8, 8, 4, "jklxxxx", 17}, {0, 4, 10, 1, "abc", 10}};
    ParamTest::LogCapture capture;
    for (auto const& [start, size, count, alignment, expected, end] : cases) {
        char value[8] = {'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'};
        unsigned int pos = start;
        EXPECT_TRUE(ParameterUtils::ReadString(value, buffer.data(), 12, pos, size, count,
                                               alignment, nullptr));
        EXPECT_STREQ(value, expected);
        EXPECT_EQ(pos, end);
    }
    unsigned int pos = 0;
    EXPECT_FALSE(ParameterUtils::ReadString(nullptr, buffer.data(), 12, pos, 8, 13, 8, nullptr));
    EXPECT_EQ(pos, 16u);
    EXPECT_EQ(capture.Messages(),
              Messages{"ReadBuffer failed to allocate space for a string of 13 length\n"});
}

// ReadBuffer copies count bytes and moves by the count rounded; a short read keeps what was there
// and fails, and null arguments log and stay (a count of 0 still succeeds).
TEST(ParameterUtilsReadTest, ReadBufferCopiesAndMovesByCountRounded)
{
    std::vector<unsigned char> buffer = BufferWithText(16, 0, "0123456789ABCDE");
    // Start, count, alignment, whether buffer or value is null, the result, where the read ends,
    // what the value holds then, the message.
    std::tuple<unsigned int, unsigned int, unsigned char, bool, bool, bool, unsigned int,
               std::string, char const*> const cases[] = {
        {2, 5, 8, false, false, true, 10, "23456", nullptr},
        {11, 5, 1, false, false, true, 16, "BCDE\0", nullptr}, // ends at the buffer's end
        {12, 5, 1, false, false, false, 17, std::string("CDE\0-", 5),
         "ReadBuffer failed, read 4 bytes, expected 5 bytes\n"},
        {13, 5, 4, false, false, false, 21, std::string("DE\0--", 5),
         "ReadBuffer failed, read 3 bytes, expected 5 bytes\n"},
        {21, 2, 1, false, false, false, 23, "--",
         "ReadBuffer failed, read 0 bytes, expected 2 bytes\n"},
        {3, 4, 1, true, false, false, 3, "----", "ReadBuffer called with nullptr buffer\n"},
        {3, 4, 1, false, true, false, 3, "", "ReadBuffer called with nullptr value\n"},
        {3, 0, 1, false, true, true, 3, "", "ReadBuffer called with nullptr value\n"},
        {3, 0, 1, true, false, true, 3, "", "ReadBuffer called with nullptr buffer\n"},
    };
    for (auto const& [start, count, alignment, nullBuffer, nullValue, ok, end, copied, message] :
         cases) {
        SCOPED_TRACE(testing::Message() << start << " count " << count);
        ParamTest::LogCapture capture;
        unsigned char value[8] = {'-', '-', '-', '-', '-', '-', '-', '-'};
        unsigned int pos = start;
        EXPECT_EQ(ParameterUtils::ReadBuffer(nullValue ? nullptr : value,
                                             nullBuffer ? nullptr : buffer.data(), 16, pos, count,
                                             alignment, nullptr),
                  ok);
        EXPECT_EQ(pos, end);
        EXPECT_EQ(std::string(reinterpret_cast<char*>(value), copied.size()), copied);
        EXPECT_EQ(capture.Messages(), message ? Messages{message} : Messages{});
        EXPECT_TRUE(message == nullptr || capture.Lines()[0].severity == 'E');
    }
}

// A string and its NUL must end below the length; without the NUL the next write continues
// behind it, and a null string writes nothing.
TEST(ParameterUtilsWriteTest, WriteStringNeedsRoomBelowLength)
{
    ParamTest::LogCapture capture;
    char text[16] = "xxxxxx";
    auto* bytes = reinterpret_cast<unsigned char*>(text);
    unsigned int pos = 0;
    EXPECT_FALSE(ParameterUtils::WriteString("abcde", bytes, 6, pos, true, nullptr));
    EXPECT_EQ(text[0], 'x');
    EXPECT_TRUE(ParameterUtils::WriteString("abcd", bytes, 6, pos, true, nullptr));
    EXPECT_FALSE(ParameterUtils::WriteString(nullptr, bytes, 6, pos, true, nullptr));
    EXPECT_FALSE(ParameterUtils::WriteString("a", nullptr, 6, pos, true, nullptr));
    EXPECT_EQ(pos, 5u);
    EXPECT_EQ(capture.Messages(), (Messages{"Insufficient space in buffer to write string: abcde\n",
                                            "Insufficient space in buffer to write string\n",
                                            "Insufficient space in buffer to write string: a\n"}));
    pos = 2;
    EXPECT_TRUE(ParameterUtils::WriteString(nullptr, bytes, 16, pos, false, nullptr));
    EXPECT_TRUE(ParameterUtils::WriteString("cd", bytes, 16, pos, false, nullptr));
    EXPECT_TRUE(ParameterUtils::WriteString("e", bytes, 16, pos, true, nullptr));
    EXPECT_EQ(pos, 6u);
    EXPECT_EQ(std::string(text, 7), std::string("abcde\0\0", 7));
}

// ---- Typed number reads -------------------------------------------------------------------------

/// An element of the file with one type code, as a definition record would make it.
struct FileElement
{
    explicit FileElement(ParameterDefinitionType type, uint16_t flags = 0)
        : element(0x1234, new ParameterDefinitionElementInfo(type, 0, flags, 1, 1))
    {
    }
    ParameterDefinitionElement element;
};

template <typename T> uint64_t Bits(T value)
{
    std::conditional_t<sizeof(T) == 4, uint32_t, uint64_t> bits = 0;
    std::memcpy(&bits, &value, sizeof(bits));
    return bits;
}

std::vector<uint8_t> Fields(std::vector<uint64_t> const& values, unsigned int width)
{
    TuningWriter::ByteSink sink;
    for (uint64_t value : values) {
        if (width == 1)
            sink.PutU8(static_cast<uint8_t>(value));
        else if (width == 2)
            sink.PutU16(static_cast<uint16_t>(value));
        else if (width == 4)
            sink.PutU32(static_cast<uint32_t>(value));
        else
            sink.PutU64(value);
    }
    return sink.Take();
}

template <typename T>
T ReadOne(std::vector<uint8_t> const& bytes, ParameterDefinitionElement* element, bool& ok)
{
    T value{};
    unsigned int pos = 0;
    ok = ParameterUtils::Read<T>(&value, element, bytes.data(),
                                 static_cast<unsigned int>(bytes.size()), pos, 1, nullptr);
    return value;
}

// Each source code into each target: integers saturate, floats truncate, code 22 is signed into
// integers but unsigned into floating types, the four-byte flag makes a float, and an undefined
// float is 0 in integers.
TEST(ParameterUtilsReadTest, ConvertsEachSourceCodeIntoEachTarget)
{
    using Integers = std::tuple<int, unsigned int, unsigned short, unsigned char>;
    float const f39 = 3.9f; // the double holds the float's value, not 3.9
    struct
    {
        char const* name;
        ParameterDefinitionType type;
        uint16_t flags;
        std::vector<uint8_t> bytes;
        Integers integers;
        std::pair<float, double> floating;
    } const cases[] = {
        // clang-format off
        {"int8 -5", TypeInt8, 0, Fields({0xFB}, 1), {-5, 0xFFFFFFFBu, 0xFFFB, 0xFB}, {-5.0f, -5.0}},
        {"uint16", TypeUInt16, 0, Fields({0xFFFF}, 2), {65535, 65535u, 65535, 0xFF},
         {65535.0f, 65535.0}},
        {"int32 -1", TypeInt32, 0, Fields({0xFFFFFFFF}, 4), {-1, 0xFFFFFFFFu, 0xFFFF, 0xFF},
         {-1.0f, -1.0}},
        {"code 22", TypeIntLike, 0, Fields({0xFFFFFFFF}, 4), {-1, 0xFFFFFFFFu, 0xFFFF, 0xFF},
         {4294967295.0f, 4294967295.0}},
        {"uint64 above 32 bits", TypeUInt64, 0, Fields({0x100000005ull}, 8), {5, 5u, 5, 5},
         {4294967301.0f, 4294967301.0}},
        {"int64", TypeInt64, 0, Fields({static_cast<uint64_t>(-2)}, 8),
         {-2, 0xFFFFFFFEu, 0xFFFE, 0xFE}, {-2.0f, -2.0}},
        {"3.9", TypeFloat, 0, Fields({Bits(f39)}, 4), {3, 3u, 3, 3}, {f39, f39}},
        {"-3.9", TypeFloat, 0, Fields({Bits(-f39)}, 4), {-3, 0u, 0, 0}, {-f39, -f39}},
        {"1e10", TypeFloat, 0, Fields({Bits(1e10f)}, 4), {INT_MAX, UINT_MAX, 65535, 255},
         {1e10f, 1e10}},
        {"-1e30", TypeDouble, 0, Fields({Bits(-1e30)}, 8), {INT_MIN, 0u, 0, 0}, {-1e30f, -1e30}},
        {"four-byte flag", TypeUInt32, 1, Fields({Bits(7.75f)}, 4), {7, 7u, 7, 7}, {7.75f, 7.75}},
        {"undefined float", TypeFloat, 0, Fields({Bits(NAN)}, 4), {0, 0u, 0, 0}, {NAN, NAN}},
        // clang-format on
    };
    for (auto const& test : cases) {
        SCOPED_TRACE(test.name);
        FileElement file(test.type, test.flags);
        std::vector<uint8_t> const& bytes = test.bytes;
        bool ok[6] = {};
        EXPECT_EQ(Integers(ReadOne<int>(bytes, &file.element, ok[0]),
                           ReadOne<unsigned int>(bytes, &file.element, ok[1]),
                           ReadOne<unsigned short>(bytes, &file.element, ok[2]),
                           ReadOne<unsigned char>(bytes, &file.element, ok[3])),
                  test.integers);
        std::pair<float, double> const floating(ReadOne<float>(bytes, &file.element, ok[4]),
                                                ReadOne<double>(bytes, &file.element, ok[5]));
        if (!std::isnan(test.floating.first)) {
            EXPECT_EQ(floating, test.floating);
        }
        EXPECT_EQ(std::vector<bool>(ok, ok + 6), std::vector<bool>(6, true));
    }
}

// Without an element the target's own width is wanted: a short read fails. A converted value that
// is not there reads as 0 and the field still counts as read. A code that is no number is refused.
TEST(ParameterUtilsReadTest, ShortReadFailsOnlyTheReadOfTheTargetsOwnWidth)
{
    ParamTest::LogCapture log;
    std::vector<uint8_t> const twoBytes = Fields({0x0102}, 2);
    bool ok = true;
    EXPECT_EQ(ReadOne<int>(twoBytes, nullptr, ok), 0);
    EXPECT_FALSE(ok);
    FileElement file(TypeUInt32);
    EXPECT_EQ(ReadOne<double>(twoBytes, &file.element, ok), 0.0);
    EXPECT_TRUE(ok);
    FileElement structure(TypeStructure);
    ReadOne<unsigned int>(Fields({1}, 4), &structure.element, ok);
    EXPECT_FALSE(ok);
    unsigned int pos = 0;
    EXPECT_FALSE(ParameterUtils::Read<int>(nullptr, nullptr, nullptr, 0, pos, 1, nullptr));
    std::string const shortRead = "Failed to read 4 bytes from binary file offset 0, length 2\n";
    EXPECT_EQ(log.Messages(), (Messages{shortRead, shortRead, "Read: Invalid read type 5\n"}));
}

/// The values an array read leaves, and its result.
template <typename T> using Values = std::pair<std::vector<T>, bool>;

template <typename T>
Values<T> ReadMany(std::vector<uint8_t> const& bytes, ParameterDefinitionElement* element,
                   unsigned int count, bool noFloat = false)
{
    Values<T> read(std::vector<T>(count), false);
    unsigned int pos = 0;
    auto const length = static_cast<unsigned int>(bytes.size());
    if constexpr (sizeof(T) == 4 && !std::is_floating_point_v<T>) {
        if (noFloat) {
            read.second = ParameterUtils::ReadArrayNoFloat<T>(
                read.first.data(), element, bytes.data(), length, pos, count, 1, nullptr);
            return read;
        }
    }
    read.second = ParameterUtils::ReadArray<T>(read.first.data(), element, bytes.data(), length,
                                               pos, count, 1, nullptr);
    return read;
}

enum class SampleEnum : uint32_t
{
    Zero,
    One,
    Two,
    Three,
};

// Arrays convert by code; another integer width is converted but reported, and in arrays code 22
// is signed, also into floating types. Enumerations keep converted values: the no-float form
// reports the byte read, not the conversion, and takes four-byte values as they stand.
TEST(ParameterUtilsReadArrayTest, ConvertsByCodeAndFailsOtherIntegerWidths)
{
    FileElement int16(TypeInt16), single(TypeFloat), wide(TypeDouble), intLike(TypeIntLike),
        uint32(TypeUInt32), fourByte(TypeUInt32, ElementFourByte), text(TypeString);
    std::vector<uint8_t> const sevenEight = Fields({7, 8}, 4);
    EXPECT_EQ(ReadMany<int>(Fields({0xFFFF, 300}, 2), &int16.element, 2),
              Values<int>({-1, 300}, false));
    EXPECT_EQ(ReadMany<int>(Fields({Bits(2.9f), Bits(-2.9f)}, 4), &single.element, 2),
              Values<int>({2, -2}, true));
    EXPECT_EQ(ReadMany<float>(Fields({Bits(1.5), Bits(-0.25)}, 8), &wide.element, 2),
              Values<float>({1.5f, -0.25f}, true));
    EXPECT_EQ(ReadMany<double>(Fields({0xFFFFFFFF}, 4), &intLike.element, 1),
              Values<double>({-1.0}, false));
    EXPECT_EQ(ReadMany<unsigned int>(sevenEight, &uint32.element, 2),
              Values<unsigned int>({7, 8}, true));
    // Code 13 is no direct code of int.
    EXPECT_EQ(ReadMany<int>(sevenEight, &uint32.element, 2), Values<int>({7, 8}, false));

    EXPECT_EQ(ReadMany<SampleEnum>(Fields({3, 1}, 2), &int16.element, 2, true),
              Values<SampleEnum>({SampleEnum::Three, SampleEnum::One}, true));
    EXPECT_EQ(ReadMany<SampleEnum>(Fields({Bits(2.9f)}, 4), &single.element, 1, true),
              Values<SampleEnum>({SampleEnum::Two}, true));
    EXPECT_EQ(ReadMany<SampleEnum>(Fields({1}, 4), &fourByte.element, 1, true),
              Values<SampleEnum>({SampleEnum::One}, true));

    ParamTest::LogCapture log;
    EXPECT_EQ(ReadMany<unsigned int>(sevenEight, nullptr, 3),
              Values<unsigned int>({7, 8, 0}, false));
    EXPECT_FALSE(ReadMany<int>(Fields({5}, 4), &text.element, 1).second);
    EXPECT_EQ(log.Messages(), (Messages{"ReadBuffer failed, read 8 bytes, expected 12 bytes\n",
                                        "ReadArrayNoFloat: Invalid read type 24. XSD structure "
                                        "modified\n"}));
}

TEST(ParameterFileSymbolTableEntryReadArrayTest, AllocatingFloatReadDropsIntegerSources)
{
    ParamTest::LogCapture log;
    std::vector<uint8_t> bytes = Fields({Bits(0.5f), Bits(1.5f)}, 4);
    ParameterFileSymbolTableEntry entry;
    entry.Data = bytes.data();
    entry.Size = static_cast<uint32_t>(bytes.size());
    FileElement single(TypeFloat);
    float* values = entry.ReadArray(&single.element, 2, NoLoadLimit);
    ASSERT_NE(values, nullptr);
    EXPECT_EQ(values[1], 1.5f);
    VornFree(values, VornTagRelease);
    entry.Position = 0;
    FileElement integer(TypeInt32);
    EXPECT_EQ(entry.ReadArray(&integer.element, 2, NoLoadLimit), nullptr);
    EXPECT_TRUE(log.HasMessage("Insufficient data to read array from symbol table entry\n"));
    entry.Data = nullptr; // borrowed
}

// ---- Text scanning ------------------------------------------------------------------------------

TEST(ParameterUtilsTextTest, GetStringPosAndGetSubString)
{
    EXPECT_EQ(ParameterUtils::GetStringPos("a.b.c", '.'), 1);
    EXPECT_EQ(ParameterUtils::GetStringPos("abc", 'c'), 2);
    EXPECT_EQ(ParameterUtils::GetStringPos("abc", 'x'), -1);
    EXPECT_EQ(ParameterUtils::GetStringPos("", 'a'), -1);
    EXPECT_EQ(ParameterUtils::GetStringPos(nullptr, 'a'), -1);
    // Text, room, what is copied: up to the delimiter or the room.
    std::tuple<char const*, unsigned int, char const*> const cases[] = {
        {"mode.sub", 16, "mode"}, {"nodelimiter", 16, "nodelimiter"},
        {".lead", 16, ""},        {"abcdef", 4, "abc"},
        {"abc", 1, ""},           {"abc", 4, "abc"}};
    for (auto const& [text, room, expected] : cases) {
        SCOPED_TRACE(testing::Message() << text << " room " << room);
        char result[16] = "xxxxxxxxxxxxxxx";
        EXPECT_EQ(ParameterUtils::GetSubString(text, '.', result, room), strlen(expected));
        EXPECT_STREQ(result, expected);
    }
    char untouched[4] = {'x', 'x', 'x', '\0'};
    EXPECT_EQ(ParameterUtils::GetSubString("abc", '.', untouched, 0), 0u);
    EXPECT_EQ(ParameterUtils::GetSubString(nullptr, '.', untouched, 4), 0u);
    EXPECT_EQ(ParameterUtils::GetSubString("abc", '.', nullptr, 4), 0u);
    EXPECT_STREQ(untouched, "xxx");
}

// The first component of a value path, its index and the characters consumed; a component keeps
// at most 128 characters.
TEST(ParameterUtilsTextTest, GetVariableTakesTheFirstComponent)
{
    unsigned int const unchanged = 77;
    std::string const longest = std::string(128, 'n') + ".rest";
    std::string const tooLong = std::string(129, 'n') + ".rest";
    // Path, room for the name, the name, the index, the characters consumed.
    std::tuple<std::string, unsigned long, std::string, unsigned int, unsigned int> const cases[] =
        {
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
            {longest, 256, std::string(128, 'n'), unchanged, 129},
            {tooLong, 256, std::string(128, 'n'), unchanged, 128},
        };
    for (auto const& [path, room, expected, expectedIndex, consumed] : cases) {
        SCOPED_TRACE(path);
        char name[256];
        std::memset(name, 'x', sizeof(name));
        unsigned int index = unchanged;
        EXPECT_EQ(ParameterUtils::GetVariable(path.c_str(), name, index, room), consumed);
        EXPECT_EQ(std::string(name), expected);
        EXPECT_EQ(index, expectedIndex);
    }
}

// ---- Numbers and text ---------------------------------------------------------------------------

// A sign, digits and one point; what stands ahead of a "-" is ignored; everything else is refused
// as 0. A "-" alone is a negative zero.
TEST(ParameterUtilsNumberTest, StringToDoubleAcceptsSignDigitsAndOnePoint)
{
    std::tuple<char const*, double, bool> const cases[] = {
        {"12.5", 12.5, true},   {"0", 0.0, true},
        {"007", 7.0, true},     {"-3.25", -3.25, true},
        {".5", 0.5, true},      {"5.", 5.0, true},
        {"0.125", 0.125, true}, {"4294967295", 4294967295.0, true},
        {"x-2", -2.0, true},    {".", 0.0, true},
        {"1e3", 0, false},      {"1.2.3", 0, false},
        {"12a", 0, false},      {" 1", 0, false},
        {"+1", 0, false},       {"--1", 0, false},
        {"0x10", 0, false},     {"", 0, false},
        {nullptr, 0, false},
    };
    for (auto const& [text, value, valid] : cases) {
        SCOPED_TRACE(text != nullptr ? text : "null");
        bool ok = !valid;
        EXPECT_EQ(ParameterUtils::StringToDouble(text, ok), value);
        EXPECT_EQ(ok, valid);
    }
    bool ok = false;
    double const minusAlone = ParameterUtils::StringToDouble("-", ok);
    EXPECT_TRUE(ok && minusAlone == 0.0 && std::signbit(minusAlone));
}

// Rounding half up at the precision, carries across the point, cutting where the text is full,
// and failures that say nothing fits; never a byte past the given length.
TEST(ParameterUtilsNumberTest, DoubleToString)
{
    // Value, precision, length, the text, whether it fits.
    std::tuple<double, unsigned int, unsigned int, char const*, bool> const cases[] = {
        // clang-format off
        {0.0, 10, 64, "0.0", true}, {100.0, 10, 64, "100.0", true}, {1.5, 10, 64, "1.5", true},
        {0.1236, 3, 64, "0.124", true}, {5.0, 0, 64, "5", true},
        {5.7, 0, 64, "5", true}, // no point, so no rounding either
        {-1.25, 10, 64, "-1.25", true}, {-0.0, 10, 64, "0.0", true},
        {0.3, 10, 64, "0.3", true}, // 0.29999... rounds back up
        {0.05, 1, 64, "0.1", true}, // half up
        {0.04, 1, 64, "0.0", true},
        {1e-11, 10, 64, "0.0", true}, // zeros behind the point keep one digit
        {9.99, 1, 64, "10.0", true},  // carry across the point to a new leading digit
        {-999.96, 1, 64, "-1000.0", true}, {4294967295.0, 0, 64, "4294967295", true},
        {123.0, 10, 4, "123", true},   // no room for a point
        {12.345, 10, 5, "12.3", true}, // cut where the text is full
        {12.36, 10, 5, "12.4", true},  // and rounded there
        {123.0, 10, 3, "0", false},    // integer part does not fit
        {-15.0, 10, 3, "-", false},
        {-5.0, 10, 2, "-", false}, // room for the sign alone
        {-5.0, 10, 3, "-5", true}, {7.0, 10, 1, "", false},
        {9.96, 1, 4, "10", false}, // the carry's leading "1" pushes out the last digit
        {INFINITY, 10, 32, "0", false}, {-INFINITY, 10, 32, "-", false}, {NAN, 10, 32, "0", false},
        // clang-format on
    };
    for (auto const& [value, precision, length, expected, fits] : cases) {
        SCOPED_TRACE(testing::Message()
                     << value << " precision " << precision << " length " << length);
        char text[64];
        std::memset(text, 'x', sizeof(text));
        bool ok = !fits;
        EXPECT_EQ(ParameterUtils::DoubleToString(value, text, length, precision, ok),
                  std::strlen(expected));
        EXPECT_STREQ(text, expected);
        EXPECT_EQ(ok, fits);
        EXPECT_EQ(std::string(text + length, sizeof(text) - length),
                  std::string(sizeof(text) - length, 'x'));
    }
    char text[4] = {'x', 'x', 'x', 'x'};
    bool ok = true;
    EXPECT_EQ(ParameterUtils::DoubleToString(1.0, nullptr, 10, 10, ok), 0u);
    EXPECT_FALSE(ok);
    ok = true;
    EXPECT_EQ(ParameterUtils::DoubleToString(1.0, text, 0, 10, ok), 0u);
    EXPECT_FALSE(ok);
    EXPECT_EQ(text[0], 'x');
}

} // namespace
