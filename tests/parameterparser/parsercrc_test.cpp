// SPDX-License-Identifier: Apache-2.0
// The checksums and the name hash: check values, the sliced form against the bytewise reference,
// seeds, and Validate with its failure texts.
#include "parameterparser/parsercrc.h"

#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tools/writer/bytesink.h"

#include "tests/common/logcapture.h"

namespace {

unsigned char const* Bytes(char const* text)
{
    return reinterpret_cast<unsigned char const*>(text);
}

std::vector<unsigned char> RandomBytes(size_t size, unsigned int seed)
{
    std::mt19937 generator(seed);
    std::vector<unsigned char> bytes(size);
    for (unsigned char& byte : bytes)
        byte = static_cast<unsigned char>(generator());
    return bytes;
}

TEST(ParserCRCTest, StandardCheckValues)
{
    char const* text = "123456789";
    EXPECT_EQ(ParserCRC32::GetCRC(Bytes(text), 9, 0), 0xCBF43926u);
    EXPECT_EQ(ParserCRC32::GetCRCBytewise(Bytes(text), 9, 0), 0xCBF43926u);
    EXPECT_EQ(ParserCRC64::GetCRC(Bytes(text), 9, false, 0), 0xB86883E6FA710A9Ful);
    EXPECT_EQ(ParserCRC64::GetCRC(Bytes(text), 9, true, 0), 0xAB8C87CA648D9480ul);
    EXPECT_EQ(ParserCRC64::GetCRCBytewise(Bytes(text), 9, false, 0), 0xB86883E6FA710A9Ful);
    EXPECT_EQ(ParserCRC64::GetCRCBytewise(Bytes(text), 9, true, 0), 0xAB8C87CA648D9480ul);
}

TEST(ParserCRCTest, NameHashes)
{
    struct
    {
        char const* name;
        unsigned long hash;
    } const cases[] = {
        {"triggerPt", 0xCB944A716851FFCEul},
        {"triggerData", 0xD5DC9FCB428AF073ul},
        {"rollShrinkFactor", 0xF11C6C41C908FAABul},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(ParserCRC64::HashName(c.name), c.hash) << c.name;
        EXPECT_EQ(
            ParserCRC64::GetCRC(Bytes(c.name), static_cast<unsigned int>(strlen(c.name)), true, 0),
            c.hash)
            << c.name;
    }
    EXPECT_EQ(ParserCRC64::HashName(nullptr), ParserCRC64::HashName(""));
}

TEST(ParserCRCTest, EmptyInput)
{
    // CRC-32 hands back the seed untouched; the 64-bit CRC with the length added still runs the
    // four zero bytes of the length through the table.
    unsigned char const zeros[4] = {0, 0, 0, 0};
    for (unsigned int seed : {0u, 0x12345678u, 0xFFFFFFFFu}) {
        EXPECT_EQ(ParserCRC32::GetCRC(nullptr, 0, seed), seed);
        EXPECT_EQ(ParserCRC32::GetCRCBytewise(nullptr, 0, seed), seed);
    }
    EXPECT_EQ(ParserCRC64::GetCRC(nullptr, 0, false, 0), 0ul);
    EXPECT_EQ(ParserCRC64::GetCRC(nullptr, 0, true, 0), ParserCRC64::GetCRC(zeros, 4, false, 0));
    EXPECT_NE(ParserCRC64::GetCRC(nullptr, 0, true, 0), 0ul);
    EXPECT_EQ(ParserCRC64::HashName(""), ParserCRC64::GetCRC(zeros, 4, false, 0));
}

TEST(ParserCRCTest, SeedContinuesAnEarlierChecksum)
{
    std::vector<unsigned char> const data = RandomBytes(1000, 7);
    for (unsigned int split : {0u, 1u, 7u, 8u, 9u, 500u, 999u}) {
        SCOPED_TRACE(split);
        unsigned int const first32 = ParserCRC32::GetCRC(data.data(), split, 0);
        EXPECT_EQ(ParserCRC32::GetCRC(data.data() + split, 1000 - split, first32),
                  ParserCRC32::GetCRC(data.data(), 1000, 0));
        unsigned long const first64 = ParserCRC64::GetCRC(data.data(), split, false, 0);
        EXPECT_EQ(ParserCRC64::GetCRC(data.data() + split, 1000 - split, false, first64),
                  ParserCRC64::GetCRC(data.data(), 1000, false, 0));
    }
}

// Every form must give the bytewise reference's result for every length around the fold paths'
// minimums (all tail sizes behind whole blocks), every start alignment within a lane, and any
// seed; large buffers run the fold loops many times.
TEST(ParserCRCTest, EveryFormEqualsBytewiseForm)
{
    std::vector<unsigned char> const data = RandomBytes((1u << 20) + 32, 1);
    std::mt19937_64 seeds(5);
    std::vector<unsigned int> lengths;
    for (unsigned int length = 0; length <= 640; ++length)
        lengths.push_back(length);
    lengths.insert(lengths.end(), {4096u, 65536u + 3u, (1u << 20) + 5u});
    for (ParserCRCForm form :
         {ParserCRCForm::Sliced, ParserCRCForm::Clmul, ParserCRCForm::Clmul512}) {
        if (!ParserCRCFormAvailable(form)) {
            std::printf("form %d: not on this processor, computed as sliced\n",
                        static_cast<int>(form));
        }
        for (unsigned int length : lengths) {
            for (unsigned int offset : {0u, 1u, 8u, 15u}) {
                unsigned char const* start = data.data() + offset;
                auto const seed = seeds();
                auto const seed32 = static_cast<unsigned int>(seed);
                ASSERT_EQ(ParserCRC32::GetCRCWith(form, start, length, seed32),
                          ParserCRC32::GetCRCBytewise(start, length, seed32))
                    << "form " << static_cast<int>(form) << " offset " << offset << " length "
                    << length << " seed " << seed32;
                bool const addLength = (length & 1) != 0;
                ASSERT_EQ(ParserCRC64::GetCRCWith(form, start, length, addLength, seed),
                          ParserCRC64::GetCRCBytewise(start, length, addLength, seed))
                    << "form " << static_cast<int>(form) << " offset " << offset << " length "
                    << length << " seed " << seed;
            }
        }
    }
    // GetCRC is one of those forms.
    EXPECT_EQ(ParserCRC64::GetCRC(data.data(), 1000, true, 9),
              ParserCRC64::GetCRCBytewise(data.data(), 1000, true, 9));
}

// A payload followed by its checksum, little-endian, as a file stores it.
std::vector<unsigned char> WithCrc32(std::vector<unsigned char> payload)
{
    TuningWriter::ByteSink sink(1);
    sink.PutBytes(payload);
    sink.PutU32(
        ParserCRC32::GetCRCBytewise(payload.data(), static_cast<unsigned int>(payload.size()), 0));
    return sink.Take();
}

std::vector<unsigned char> WithCrc64(std::vector<unsigned char> payload, bool addLength)
{
    TuningWriter::ByteSink sink(1);
    sink.PutBytes(payload);
    sink.PutU64(ParserCRC64::GetCRCBytewise(
        payload.data(), static_cast<unsigned int>(payload.size()), addLength, 0));
    return sink.Take();
}

unsigned int Size(std::vector<unsigned char> const& bytes)
{
    return static_cast<unsigned int>(bytes.size());
}

TEST(ParserCRCTest, ValidateAcceptsStoredChecksum)
{
    ParamTest::LogCapture capture;
    for (size_t payload : {1u, 8u, 300u}) {
        std::vector<unsigned char> const file32 = WithCrc32(RandomBytes(payload, 3));
        EXPECT_TRUE(ParserCRC32::Validate(file32.data(), Size(file32), nullptr)) << payload;
        for (bool addLength : {false, true}) {
            std::vector<unsigned char> const file64 = WithCrc64(RandomBytes(payload, 4), addLength);
            EXPECT_TRUE(ParserCRC64::Validate(file64.data(), Size(file64), addLength, nullptr))
                << payload;
        }
    }
    EXPECT_TRUE(capture.Messages().empty());
}

TEST(ParserCRCTest, ValidateRejectsTooSmallBuffers)
{
    std::vector<unsigned char> const bytes(8, 0);
    ParamTest::LogCapture capture;
    EXPECT_FALSE(ParserCRC32::Validate(bytes.data(), 4, nullptr));
    EXPECT_FALSE(ParserCRC64::Validate(bytes.data(), 8, true, nullptr));
    EXPECT_FALSE(ParserCRC64::Validate(nullptr, 100, true, nullptr));
    std::string const tooSmall = "Binary file CRC validation failed. Buffer too small\n";
    EXPECT_EQ(capture.Messages(), (std::vector<std::string>{tooSmall, tooSmall, tooSmall}));
    EXPECT_EQ(capture.Lines()[0].severity, 'E');
}

TEST(ParserCRCTest, ValidateReportsComputedThenStoredValue)
{
    std::vector<unsigned char> file32 = WithCrc32({'a', 'b', 'c'});
    file32[1] ^= 0x01;
    unsigned int const actual32 = ParserCRC32::GetCRC(file32.data(), 3, 0);

    // The length is part of the 64-bit checksum: a file checked the other way round fails.
    std::vector<unsigned char> const file64 = WithCrc64({'a', 'b', 'c'}, true);
    unsigned long const without = ParserCRC64::GetCRC(file64.data(), 3, false, 0);

    ParamTest::LogCapture capture;
    EXPECT_FALSE(ParserCRC32::Validate(file32.data(), Size(file32), nullptr));
    EXPECT_FALSE(ParserCRC64::Validate(file64.data(), Size(file64), false, nullptr));

    char expected32[128];
    std::snprintf(expected32, sizeof(expected32),
                  "Binary file CRC validation failed. Expected: %08x, Actual: %08x\n", actual32,
                  0x352441C2u); // the CRC-32 of "abc"
    char expected64[128];
    std::snprintf(expected64, sizeof(expected64),
                  "Binary file CRC validation failed. Expected: %016lx, Actual: %016lx\n", without,
                  ParserCRC64::GetCRC(Bytes("abc"), 3, true, 0));
    EXPECT_EQ(capture.Messages(), (std::vector<std::string>{expected32, expected64}));
}

} // namespace
