// SPDX-License-Identifier: Apache-2.0
// Typed number reads: each source code of the file into each target type, with saturation,
// four-byte floats, short reads and codes that are no numbers.
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vornalloc.h"

#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterentryreader.h"
#include "parameterparser/parameterfilesymboltableentry.h"
#include "parameterparser/parameterutils.h"
#include "parameterparser/parameterutilsread.h"
#include "tools/writer/bytesink.h"

#include "tests/common/logcapture.h"

namespace {

using TuningWriter::ByteSink;

/// An element of the file with one type code, as a definition record would make it.
struct FileElement
{
    explicit FileElement(ParameterDefinitionType type, uint16_t flags = 0)
        : element(0x1234, new ParameterDefinitionElementInfo(type, 0, flags, 1, 1))
    {
    }
    ParameterDefinitionElement element;
};

uint32_t FloatBits(float value)
{
    uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof(bits));
    return bits;
}

uint64_t DoubleBits(double value)
{
    uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof(bits));
    return bits;
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

struct ScalarCase
{
    char const* name;
    ParameterDefinitionType type;
    uint16_t flags;
    std::vector<uint8_t> bytes;
    int asInt;
    unsigned int asUInt;
    unsigned short asUShort;
    unsigned char asUChar;
    float asFloat;
    double asDouble;
};

std::vector<uint8_t> Field(uint64_t bits, unsigned int width)
{
    ByteSink sink;
    switch (width) {
    case 1:
        sink.PutU8(static_cast<uint8_t>(bits));
        break;
    case 2:
        sink.PutU16(static_cast<uint16_t>(bits));
        break;
    case 4:
        sink.PutU32(static_cast<uint32_t>(bits));
        break;
    default:
        sink.PutU64(bits);
        break;
    }
    return sink.Take();
}

TEST(ParameterUtilsReadTest, ConvertsEachSourceCodeIntoEachTarget)
{
    float const single39 = 3.9f;
    ScalarCase const cases[] = {
        {"int8 -5", TypeInt8, 0, Field(0xFB, 1), -5, 0xFFFFFFFBu, 0xFFFB, 0xFB, -5.0f, -5.0},
        {"uint16 max", TypeUInt16, 0, Field(0xFFFF, 2), 65535, 65535u, 65535, 0xFF, 65535.0f,
         65535.0},
        {"int32 -1", TypeInt32, 0, Field(0xFFFFFFFF, 4), -1, 0xFFFFFFFFu, 0xFFFF, 0xFF, -1.0f,
         -1.0},
        // Code 22 is signed into integers but unsigned into a single float or double.
        {"code 22 all ones", TypeIntLike, 0, Field(0xFFFFFFFF, 4), -1, 0xFFFFFFFFu, 0xFFFF, 0xFF,
         4294967295.0f, 4294967295.0},
        {"uint64 above 32 bits", TypeUInt64, 0, Field(0x100000005ull, 8), 5, 5u, 5, 5,
         4294967301.0f, 4294967301.0},
        {"int64 -2", TypeInt64, 0, Field(static_cast<uint64_t>(-2), 8), -2, 0xFFFFFFFEu, 0xFFFE,
         0xFE, -2.0f, -2.0},
        {"float 3.9 truncates", TypeFloat, 0, Field(FloatBits(3.9f), 4), 3, 3u, 3, 3, 3.9f,
         static_cast<double>(single39)},
        {"float -3.9 saturates unsigned", TypeFloat, 0, Field(FloatBits(-3.9f), 4), -3, 0u, 0, 0,
         -3.9f, static_cast<double>(-single39)},
        {"float 1e10 saturates", TypeFloat, 0, Field(FloatBits(1e10f), 4), INT_MAX, UINT_MAX, 65535,
         255, 1e10f, 1e10},
        {"double -1e30 saturates", TypeDouble, 0, Field(DoubleBits(-1e30), 8), INT_MIN, 0u, 0, 0,
         -1e30f, -1e30},
        {"four-byte flag makes a float", TypeUInt32, 1, Field(FloatBits(7.75f), 4), 7, 7u, 7, 7,
         7.75f, 7.75},
    };
    for (ScalarCase const& test : cases) {
        SCOPED_TRACE(test.name);
        FileElement file(test.type, test.flags);
        ParameterDefinitionElement* element = &file.element;
        bool ok = false;
        EXPECT_EQ(ReadOne<int>(test.bytes, element, ok), test.asInt);
        EXPECT_TRUE(ok);
        EXPECT_EQ(ReadOne<unsigned int>(test.bytes, element, ok), test.asUInt);
        EXPECT_TRUE(ok);
        EXPECT_EQ(ReadOne<unsigned short>(test.bytes, element, ok), test.asUShort);
        EXPECT_TRUE(ok);
        EXPECT_EQ(ReadOne<unsigned char>(test.bytes, element, ok), test.asUChar);
        EXPECT_TRUE(ok);
        EXPECT_EQ(ReadOne<float>(test.bytes, element, ok), test.asFloat);
        EXPECT_TRUE(ok);
        EXPECT_EQ(ReadOne<double>(test.bytes, element, ok), test.asDouble);
        EXPECT_TRUE(ok);
    }
}

TEST(ParameterUtilsReadTest, UndefinedFloatBecomesZeroInIntegers)
{
    FileElement file(TypeFloat);
    bool ok = false;
    EXPECT_EQ(ReadOne<int>(Field(FloatBits(NAN), 4), &file.element, ok), 0);
    EXPECT_EQ(ReadOne<unsigned char>(Field(FloatBits(NAN), 4), &file.element, ok), 0);
}

TEST(ParameterUtilsReadTest, ShortReadFailsOnlyTheReadOfTheTargetsOwnWidth)
{
    ParamTest::LogCapture log;
    std::vector<uint8_t> const twoBytes = Field(0x0102, 2);
    bool ok = true;
    // Without an element the target's own four bytes are wanted: the read fails.
    EXPECT_EQ(ReadOne<int>(twoBytes, nullptr, ok), 0);
    EXPECT_FALSE(ok);
    EXPECT_TRUE(log.HasMessage("Failed to read 4 bytes from binary file offset 0, length 2\n"));
    // A converted value that is not there reads as 0 and the field still counts as read.
    log.Clear();
    FileElement file(TypeUInt32);
    EXPECT_EQ(ReadOne<double>(twoBytes, &file.element, ok), 0.0);
    EXPECT_TRUE(ok);
    EXPECT_TRUE(log.HasMessage("Failed to read 4 bytes from binary file offset 0, length 2\n"));
}

TEST(ParameterUtilsReadTest, CodeThatIsNoNumberIsRefused)
{
    ParamTest::LogCapture log;
    FileElement file(TypeStructure);
    bool ok = true;
    ReadOne<unsigned int>(Field(1, 4), &file.element, ok);
    EXPECT_FALSE(ok);
    EXPECT_TRUE(log.HasMessage("Read: Invalid read type 5\n"));
    unsigned int pos = 0;
    EXPECT_FALSE(ParameterUtils::Read<int>(nullptr, nullptr, nullptr, 0, pos, 1, nullptr));
}

// ---- Arrays ----------------------------------------------------------------------------------

template <typename T>
std::vector<T> ReadMany(std::vector<uint8_t> const& bytes, ParameterDefinitionElement* element,
                        unsigned int count, bool& ok, bool noFloat = false)
{
    std::vector<T> values(count);
    unsigned int pos = 0;
    auto const length = static_cast<unsigned int>(bytes.size());
    if constexpr (sizeof(T) == 4 && !std::is_floating_point_v<T>) {
        if (noFloat) {
            ok = ParameterUtils::ReadArrayNoFloat<T>(values.data(), element, bytes.data(), length,
                                                     pos, count, 1, nullptr);
            return values;
        }
    }
    ok = ParameterUtils::ReadArray<T>(values.data(), element, bytes.data(), length, pos, count, 1,
                                      nullptr);
    return values;
}

std::vector<uint8_t> Fields(std::vector<uint64_t> const& values, unsigned int width)
{
    std::vector<uint8_t> bytes;
    for (uint64_t value : values) {
        std::vector<uint8_t> const one = Field(value, width);
        bytes.insert(bytes.end(), one.begin(), one.end());
    }
    return bytes;
}

TEST(ParameterUtilsReadArrayTest, ConvertsByCodeAndFailsOtherIntegerWidths)
{
    bool ok = false;
    {
        FileElement file(TypeInt16);
        std::vector<int> const values =
            ReadMany<int>(Fields({0xFFFF, 300}, 2), &file.element, 2, ok);
        EXPECT_EQ(values, (std::vector<int>{-1, 300}));
        EXPECT_FALSE(ok) << "another integer width is converted but reported";
    }
    {
        FileElement file(TypeFloat);
        std::vector<int> const values =
            ReadMany<int>(Fields({FloatBits(2.9f), FloatBits(-2.9f)}, 4), &file.element, 2, ok);
        EXPECT_EQ(values, (std::vector<int>{2, -2}));
        EXPECT_TRUE(ok);
    }
    {
        FileElement file(TypeDouble);
        std::vector<float> const values =
            ReadMany<float>(Fields({DoubleBits(1.5), DoubleBits(-0.25)}, 8), &file.element, 2, ok);
        EXPECT_EQ(values, (std::vector<float>{1.5f, -0.25f}));
        EXPECT_TRUE(ok);
    }
    {
        // In arrays code 22 is signed, also into floating types.
        FileElement file(TypeIntLike);
        std::vector<double> const values =
            ReadMany<double>(Fields({0xFFFFFFFF}, 4), &file.element, 1, ok);
        EXPECT_EQ(values, (std::vector<double>{-1.0}));
        EXPECT_FALSE(ok);
    }
    {
        FileElement file(TypeUInt32);
        EXPECT_EQ(ReadMany<unsigned int>(Fields({7, 8}, 4), &file.element, 2, ok),
                  (std::vector<unsigned int>{7, 8}));
        EXPECT_TRUE(ok);
        EXPECT_EQ(ReadMany<int>(Fields({7, 8}, 4), &file.element, 2, ok), (std::vector<int>{7, 8}));
        EXPECT_FALSE(ok) << "code 13 is no direct code of int";
    }
}

TEST(ParameterUtilsReadArrayTest, ShortAndInvalidReadsFail)
{
    ParamTest::LogCapture log;
    bool ok = true;
    std::vector<unsigned int> const values =
        ReadMany<unsigned int>(Fields({5, 6}, 4), nullptr, 3, ok);
    EXPECT_FALSE(ok);
    EXPECT_EQ(values, (std::vector<unsigned int>{5, 6, 0}));
    EXPECT_TRUE(log.HasMessage("ReadBuffer failed, read 8 bytes, expected 12 bytes\n"));

    log.Clear();
    FileElement text(TypeString);
    ReadMany<int>(Fields({5}, 4), &text.element, 1, ok);
    EXPECT_FALSE(ok);
    EXPECT_TRUE(log.HasMessage("ReadArrayNoFloat: Invalid read type 24. XSD structure modified\n"));
}

enum class SampleEnum : uint32_t
{
    Zero,
    One,
    Two,
    Three,
};

TEST(ParameterUtilsReadArrayTest, EnumerationsKeepConvertedValues)
{
    bool ok = false;
    FileElement narrow(TypeUInt16);
    EXPECT_EQ(ReadMany<SampleEnum>(Fields({3, 1}, 2), &narrow.element, 2, ok, true),
              (std::vector<SampleEnum>{SampleEnum::Three, SampleEnum::One}));
    EXPECT_TRUE(ok) << "the no-float form reports the byte read, not the conversion";

    FileElement real(TypeFloat);
    EXPECT_EQ(ReadMany<SampleEnum>(Fields({FloatBits(2.9f)}, 4), &real.element, 1, ok, true),
              (std::vector<SampleEnum>{SampleEnum::Two}));
    EXPECT_TRUE(ok);

    // Four-byte values are taken as they stand, not as floats.
    FileElement fourByte(TypeUInt32, ElementFourByte);
    EXPECT_EQ(ReadMany<SampleEnum>(Fields({1}, 4), &fourByte.element, 1, ok, true),
              (std::vector<SampleEnum>{SampleEnum::One}));
    EXPECT_TRUE(ok);
}

TEST(ParameterFileSymbolTableEntryReadArrayTest, AllocatingFloatReadDropsIntegerSources)
{
    ParamTest::LogCapture log;
    std::vector<uint8_t> bytes = Fields({FloatBits(0.5f), FloatBits(1.5f)}, 4);
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

} // namespace
