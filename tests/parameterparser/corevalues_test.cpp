// SPDX-License-Identifier: Apache-2.0
// The core's small records, checksums and log writer: ParameterParserInfo records, the checksums
// and the name hash (check values, the sliced and folded forms against the bytewise reference,
// seeds, Validate), and ParameterLogging::Write's line format, level styles and per-level switches.
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vornlog.h"
#include "platform/vornosutils.h"

#include "parameterparser/parameterlogging.h"
#include "parameterparser/parameterparserinfo.h"
#include "parameterparser/parsercrc.h"
#include "tools/writer/bytesink.h"

#include "tests/common/logcapture.h"

namespace {

// What each constructor leaves in the record: a number as text, a text cut to the record (the
// longest that fits is kept whole), an array with its count.
TEST(ParameterParserInfoTest, ConstructorsFillNamesValueFlagsAndCount)
{
    EXPECT_STREQ(ParameterParserInfo("gain", "Float", 1.5, 10).value, "1.5");
    EXPECT_STREQ(ParameterParserInfo("gain", "UInt32", 7.0, 0).value, "7");
    EXPECT_STREQ(ParameterParserInfo("s", "String", static_cast<char const*>(nullptr)).value, "");
    std::string const longest(ParameterParserInfo::ValueLength - 1, 'v');
    EXPECT_EQ(ParameterParserInfo("s", "String", longest.c_str()).value, longest);
    EXPECT_EQ(ParameterParserInfo("s", "String", (longest + "w").c_str()).value, longest);
    ParameterParserInfo const array("table", "Float", true, false, 12);
    EXPECT_TRUE(array.value[0] == '\0' && array.isArray && !array.flag && array.count == 12u);
    ParameterParserInfo const blank, structure("nested", "Structure");
    EXPECT_TRUE(blank.name == nullptr && blank.value[0] == '\0' && !blank.isArray &&
                blank.count == 0u);
    EXPECT_TRUE(structure.value[0] == '\0' && !structure.isArray && structure.count == 0u);
}

// ---- Checksums ---------------------------------------------------------------------------------
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

// The standard check values of both checksums, known name hashes (the 64-bit CRC with the length
// added), and empty input: CRC-32 hands back the seed untouched, while the 64-bit CRC with the
// length added still runs the four zero bytes of the length through the table. A seed continues
// an earlier checksum.
TEST(ParserCRCTest, CheckValuesAndNameHashes)
{
    unsigned char const* text = Bytes("123456789");
    EXPECT_EQ(ParserCRC32::GetCRCBytewise(text, 9, 0), 0xCBF43926u);
    EXPECT_EQ(ParserCRC32::GetCRC(text + 4, 5, ParserCRC32::GetCRC(text, 4, 0)), 0xCBF43926u);
    EXPECT_EQ(ParserCRC64::GetCRCBytewise(text, 9, false, 0), 0xB86883E6FA710A9Ful);
    EXPECT_EQ(ParserCRC64::GetCRC(text + 4, 5, false, ParserCRC64::GetCRC(text, 4, false, 0)),
              0xB86883E6FA710A9Ful);
    EXPECT_EQ(ParserCRC64::GetCRCBytewise(text, 9, true, 0), 0xAB8C87CA648D9480ul);
    std::pair<char const*, unsigned long> const names[] = {
        {"triggerPt", 0xCB944A716851FFCEul},
        {"triggerData", 0xD5DC9FCB428AF073ul},
        {"rollShrinkFactor", 0xF11C6C41C908FAABul}};
    for (auto const& [name, hash] : names) {
        EXPECT_EQ(ParserCRC64::HashName(name), hash) << name;
    }
    for (unsigned int seed : {0u, 0x12345678u, 0xFFFFFFFFu}) {
        EXPECT_EQ(ParserCRC32::GetCRC(nullptr, 0, seed), seed);
        EXPECT_EQ(ParserCRC32::GetCRCBytewise(nullptr, 0, seed), seed);
    }
    unsigned char const zeros[4] = {0, 0, 0, 0};
    unsigned long const lengthOnly = ParserCRC64::GetCRC(zeros, 4, false, 0);
    EXPECT_NE(lengthOnly, 0ul);
    EXPECT_EQ(ParserCRC64::GetCRC(nullptr, 0, false, 0), 0ul);
    EXPECT_EQ(ParserCRC64::GetCRC(nullptr, 0, true, 0), lengthOnly);
    EXPECT_EQ(ParserCRC64::HashName(nullptr), lengthOnly);
    EXPECT_EQ(ParserCRC64::HashName(""), lengthOnly);
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
        if (!ParserCRCFormAvailable(form))
            std::printf("form %d: not on this processor, computed as sliced\n",
                        static_cast<int>(form));
        for (unsigned int length : lengths) {
            for (unsigned int offset : {0u, 1u, 8u, 15u}) {
                unsigned char const* start = data.data() + offset;
                auto const seed = seeds();
                auto const seed32 = static_cast<unsigned int>(seed);
                bool const addLength = (length & 1) != 0;
                ASSERT_EQ(ParserCRC32::GetCRCWith(form, start, length, seed32),
                          ParserCRC32::GetCRCBytewise(start, length, seed32))
                    << "form " << static_cast<int>(form) << " offset " << offset << " length "
                    << length << " seed " << seed32;
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

// A payload followed by its checksum, little-endian, as a file stores it: the 32-bit one, or the
// 64-bit one with or without the length.
std::vector<unsigned char> WithCrc(std::vector<unsigned char> payload, int width,
                                   bool addLength = false)
{
    TuningWriter::ByteSink sink(1);
    sink.PutBytes(payload);
    auto const size = static_cast<unsigned int>(payload.size());
    if (width == 32)
        sink.PutU32(ParserCRC32::GetCRCBytewise(payload.data(), size, 0));
    else
        sink.PutU64(ParserCRC64::GetCRCBytewise(payload.data(), size, addLength, 0));
    return sink.Take();
}

// Validate accepts a stored checksum down to a payload of one byte; a buffer no larger than the
// checksum is refused, and a mismatch names the computed value, then the stored one, at the
// checksum's width. The length is part of the 64-bit checksum: a file checked the other way round
// fails.
TEST(ParserCRCTest, ValidateComparesTheStoredChecksum)
{
    std::string const tooSmall = "Binary file CRC validation failed. Buffer too small\n";
    std::vector<unsigned char> damaged = WithCrc({'a', 'b', 'c'}, 32);
    damaged[1] ^= 0x01;
    char mismatch32[128], mismatch64[128];
    std::snprintf(mismatch32, sizeof(mismatch32),
                  "Binary file CRC validation failed. Expected: %08x, Actual: %08x\n",
                  ParserCRC32::GetCRC(damaged.data(), 3, 0), 0x352441C2u); // the CRC-32 of "abc"
    std::snprintf(mismatch64, sizeof(mismatch64),
                  "Binary file CRC validation failed. Expected: %016lx, Actual: %016lx\n",
                  ParserCRC64::GetCRC(Bytes("abc"), 3, false, 0),
                  ParserCRC64::GetCRC(Bytes("abc"), 3, true, 0));
    // Bytes, the length given (0: the whole buffer), the checksum's width, whether the length is
    // added, the result, the message.
    std::tuple<std::vector<unsigned char>, unsigned int, int, bool, bool, std::string> const
        cases[] = {
            {WithCrc(RandomBytes(1, 3), 32), 0, 32, false, true, ""},
            {WithCrc(RandomBytes(300, 3), 32), 0, 32, false, true, ""},
            {WithCrc(RandomBytes(1, 4), 64, false), 0, 64, false, true, ""},
            {WithCrc(RandomBytes(8, 4), 64, true), 0, 64, true, true, ""},
            {WithCrc(RandomBytes(300, 4), 64, true), 0, 64, true, true, ""},
            {std::vector<unsigned char>(8, 0), 4, 32, false, false, tooSmall},
            {std::vector<unsigned char>(8, 0), 8, 64, true, false, tooSmall},
            {{}, 100, 64, true, false, tooSmall},
            {damaged, 0, 32, false, false, mismatch32},
            {WithCrc({'a', 'b', 'c'}, 64, true), 0, 64, false, false, mismatch64},
        };
    for (auto const& [bytes, given, width, addLength, valid, message] : cases) {
        SCOPED_TRACE(testing::Message() << bytes.size() << " bytes, width " << width);
        ParamTest::LogCapture capture;
        unsigned char const* data = bytes.empty() ? nullptr : bytes.data();
        unsigned int const length = given != 0 ? given : static_cast<unsigned int>(bytes.size());
        EXPECT_EQ(width == 32 ? ParserCRC32::Validate(data, length, nullptr)
                              : ParserCRC64::Validate(data, length, addLength, nullptr),
                  valid);
        EXPECT_EQ(capture.Messages(),
                  message.empty() ? std::vector<std::string>{} : std::vector<std::string>{message});
        EXPECT_TRUE(valid || capture.Lines()[0].severity == 'E');
    }
}

// ---- Log lines ---------------------------------------------------------------------------------

// A logging owner with a settable identifier and one switch per level.
class TestLoggingApi : public IParameterLoggingAPI
{
public:
    explicit TestLoggingApi(char const* identifier) : m_identifier(identifier) {}
    char const* GetLoggingIdentifier() override { return m_identifier; }
    bool LoggingEnabled(ParameterLogging::ParameterLogLevel level) override
    {
        return m_enabled[level];
    }
    void Enable(ParameterLogging::ParameterLogLevel level, bool on) { m_enabled[level] = on; }

private:
    char const* m_identifier;
    bool m_enabled[3] = {true, true, true};
};

std::string Head(char const* tag)
{
    return std::string(tag) + " ParameterParser (Thread " +
           std::to_string(Vorn::OsUtils::GetThreadID()) + "): ";
}

std::string PointerText(void const* pointer)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%p", pointer);
    return text;
}

// The level chooses the tag, the severity letter and the platform level of a line of the parser's
// group; anything else logs as verbose. An owner adds its address and its identifier, and a
// disabled level drops only its own lines.
TEST(ParameterLoggingTest, LevelChoosesTagLetterAndPlatformLevel)
{
    std::tuple<int, char, char const*, uint32_t> const cases[] = {{0, 'V', "[VERBOSE]", 5},
                                                                  {1, 'W', "[WARNING]", 2},
                                                                  {2, 'E', "[ERROR]", 1},
                                                                  {3, 'V', "[VERBOSE]", 5}};
    for (auto const& [level, severity, tag, platformLevel] : cases) {
        SCOPED_TRACE(level);
        ParamTest::LogCapture capture;
        ParameterLogging::Write(nullptr, static_cast<ParameterLogging::ParameterLogLevel>(level),
                                "m%d\n", 1);
        auto const lines = capture.Lines();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(std::make_tuple(lines[0].group, lines[0].severity, lines[0].level, lines[0].text),
                  std::make_tuple(Vorn::Log::GroupParameterParser, severity, platformLevel,
                                  Head(tag) + "m1\n"));
    }
    TestLoggingApi api("camera0;BinaryTag=abc");
    api.Enable(ParameterLogging::LogVerbose, false);
    ParamTest::LogCapture capture;
    ParameterLogging::Write(&api, ParameterLogging::LogVerbose, "verbose\n");
    ParameterLogging::Write(&api, ParameterLogging::LogError, "error %u\n", 3u);
    ASSERT_EQ(capture.Lines().size(), 1u);
    EXPECT_EQ(capture.Lines()[0].text,
              Head("[ERROR]") + PointerText(&api) + " (camera0;BinaryTag=abc): error 3\n");
}

} // namespace
