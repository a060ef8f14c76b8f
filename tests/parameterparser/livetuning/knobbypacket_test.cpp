// SPDX-License-Identifier: Apache-2.0
// Tests of the packet helpers: the head parser in both directions, the response builder and the
// printable test, each at the bounds of its sizes.
#include <string>

#include <gtest/gtest.h>

#include "parameterparser/livetuning/parameterknobbyworker.h"

#include "tests/common/livetuningfixture.h"
#include "tests/common/logcapture.h"
#include "tests/common/loopbackclient.h"

namespace {

namespace Wire = ParameterKnobbyPacket;
using namespace ParamTest;

// Names and gates the helpers' log lines; the capture collects them.
FakeDataAPI g_logger;

struct Parsed
{
    bool ok;
    unsigned short command = 99;
    unsigned long id = 99;
    unsigned int requestId = 99;
    unsigned char const* payload = nullptr;
    unsigned int length = 99;
};

Parsed Parse(bool response, unsigned char const* packet, unsigned int size)
{
    Parsed out;
    auto const parse =
        response ? ParameterKnobbyWorker::ParseResponse : ParameterKnobbyWorker::ParseRequest;
    out.ok =
        parse(packet, size, out.command, out.id, out.requestId, out.payload, out.length, &g_logger);
    return out;
}

struct ParseCase
{
    bool response;
    uint16_t command;
    char const* payload;
    unsigned int size; ///< the packet cut to this size; 0 keeps it whole
    bool ok;
    unsigned int sessionAt; ///< 0: the session ID is not read
    unsigned int payloadAt; ///< 0: no payload
};

TEST(KnobbyPacketTest, ParseFindsSessionRequestIdAndPayloadByDirectionAndCommand)
{
    constexpr bool Rsp = true;
    ParseCase const cases[] = {{false, Wire::ActiveModes, "", 0, true, 6, 0},
                               {false, Wire::ActiveModes, "", 7, true, 0, 0},
                               {false, Wire::ActiveModes, "", 6, false, 0, 0},
                               {false, Wire::ControlValues, "", 13, true, 0, 0},
                               {false, Wire::Modes, "", 13, false, 0, 0},
                               {false, Wire::Custom, "x", 13, false, 0, 0},
                               {false, Wire::ModeIndex, "5", 13, true, 0, 0},
                               {false, Wire::ModeIndex, "5", 0, true, 6, 0},
                               {false, Wire::Modes, "Default", 0, true, 6, 18},
                               {false, Wire::Modes, "Default", 19, true, 6, 18},
                               {false, Wire::Modes, "Default", 18, false, 6, 0},
                               {false, Wire::TriggerValues, "0.0:m:p", 0, true, 6, 14},
                               {false, Wire::TriggerValues, "0.0:m:p", 18, false, 6, 0},
                               {Rsp, Wire::DeviceInfo, "name", 0, true, 8, 16},
                               {Rsp, Wire::DeviceInfo, "name", 18, false, 8, 0},
                               {Rsp, Wire::DeviceInfo, "name", 15, false, 0, 0},
                               {Rsp, Wire::ActiveModes, "", 13, true, 0, 0},
                               {Rsp, Wire::TriggerValues, "0.0:m:p", 13, false, 0, 0},
                               {Rsp, Wire::ModeIndex, "5", 13, true, 0, 0},
                               {Rsp, Wire::Info, "text", 0, true, 6, 18}};
    for (ParseCase const& test : cases) {
        LogCapture log;
        Bytes const packet = Request(test.command, test.payload, 0x01020304, 0x1122334455667788);
        auto const size = static_cast<unsigned int>(test.size != 0 ? test.size : packet.size());
        Parsed const parsed = Parse(test.response, packet.data(), size);
        SCOPED_TRACE(std::to_string(test.command) + (test.response ? " response " : " request ") +
                     std::to_string(size));
        EXPECT_EQ(parsed.ok, test.ok);
        EXPECT_EQ(parsed.command, size < 7 ? 0 : test.command);
        EXPECT_EQ(parsed.id,
                  test.sessionAt != 0 ? Wire::GetU64(packet.data() + test.sessionAt) : 0u);
        bool const withId = test.payloadAt != 0 && Wire::HasRequestId(test.command);
        EXPECT_EQ(parsed.requestId, withId ? 0x01020304u : 0u);
        EXPECT_EQ(parsed.payload, test.payloadAt != 0 ? packet.data() + test.payloadAt : nullptr);
        EXPECT_EQ(parsed.length, test.payloadAt != 0 ? size - test.payloadAt : 0u);
        // Too short for the session ID: the short read is logged once.
        unsigned int const idAt = test.response && test.command == Wire::DeviceInfo ? 8 : 6;
        EXPECT_EQ(log.Count("Failed to read 8 bytes from binary file offset " +
                            std::to_string(idAt) + ", length " + std::to_string(size) + "\n"),
                  size >= 7 && size < idAt + 8 ? 1u : 0u);
    }
    // No packet, and one without the start tag, are no heads.
    Bytes foreign = Request(Wire::ActiveModes);
    Wire::PutU16(foreign.data(), 0x4242);
    EXPECT_FALSE(Parse(false, nullptr, 20).ok);
    EXPECT_EQ(Parse(false, foreign.data(), 14).command, 0u);
}

// Each field is read only where it fits: at the end of the bytes, and not one byte past, which
// reads as zero.
TEST(KnobbyPacketTest, ViewReadsFieldsOnlyWithinItsBytes)
{
    Bytes const bytes = {1, 2, 3, 4, 5, 6, 7, 8};
    Wire::View const view(bytes.data(), 8);
    uint16_t u16 = 9;
    uint32_t u32 = 9;
    uint64_t u64 = 9;
    EXPECT_TRUE(view.U16(6, u16) && u16 == 0x0807u);
    EXPECT_FALSE(view.U16(7, u16) || u16 != 0u);
    EXPECT_TRUE(view.U32(4, u32) && u32 == 0x08070605u);
    EXPECT_FALSE(view.U32(5, u32) || u32 != 0u);
    EXPECT_TRUE(view.U64(0, u64) && u64 == 0x0807060504030201u);
    EXPECT_FALSE(view.U64(1, u64) || u64 != 0u);
    EXPECT_EQ(view.From(8), nullptr);
    EXPECT_EQ(view.CountFrom(7), 1u);
    EXPECT_EQ(Wire::View(nullptr, 8).Size(), 0u);
}

struct BuildCase
{
    uint16_t command;
    unsigned int bufferSize;
    unsigned int payloadLength;
    bool ok;
    unsigned int total;
    unsigned int copied; ///< payload bytes that land behind the head
};

// The length counts the head without the session ID's 8 bytes: a caller passes 8 more than its
// payload to get the packet's real size.
TEST(KnobbyPacketTest, BuildResponseWritesTheHeadAndCutsThePayloadToTheBuffer)
{
    BuildCase const cases[] = {
        {Wire::DeviceInfo, 64, 4, false, 0, 0}, {Wire::Info, 14, 0, false, 0, 0},
        {Wire::Info, 64, 4 + 8, true, 22, 12},  {Wire::Info, 22, 4 + 8, false, 22, 0},
        {Wire::Info, 23, 4 + 8, true, 22, 5},   {Wire::Info, 17, 0, false, 10, 0},
        {Wire::Info, 18, 0, true, 10, 0},       {Wire::ControlValues, 15, 4, true, 10, 0},
    };
    Bytes const text = {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 'k', 'l'};
    for (BuildCase const& test : cases) {
        LogCapture log;
        Bytes buffer(test.bufferSize + 8, 0);
        unsigned int total = 99;
        bool const ok = ParameterKnobbyWorker::BuildResponse(buffer.data(), test.bufferSize, total,
                                                             test.command, 0xABCD, 77, text.data(),
                                                             test.payloadLength, &g_logger);
        SCOPED_TRACE(std::to_string(test.command) + "/" + std::to_string(test.bufferSize));
        EXPECT_EQ(ok, test.ok);
        EXPECT_EQ(total, test.total);
        EXPECT_EQ(log.Count("Failed to write 4 bytes to binary offset 14, length 17\n"),
                  test.bufferSize == 17 ? 1u : 0u);
        if (!ok)
            continue;
        EXPECT_EQ(Wire::GetU16(buffer.data() + Wire::LengthOffset), test.total);
        EXPECT_EQ(Wire::GetU64(buffer.data() + Wire::SessionOffset), 0xABCDu);
        EXPECT_EQ(Wire::GetU32(buffer.data() + 14), Wire::HasRequestId(test.command) ? 77u : 0u);
        // Nothing is written past the buffer.
        Bytes expected(buffer.size() - 18, 0);
        std::copy(text.begin(), text.begin() + test.copied, expected.begin());
        EXPECT_EQ(Bytes(buffer.begin() + 18, buffer.end()), expected);
    }
}

TEST(KnobbyPacketTest, PrintableMeansTextOrZeroBytes)
{
    for (auto const& [bytes, printable] : {std::pair{Bytes{'P', ' ', '1', 0}, true},
                                           {Bytes{32, 126}, true},
                                           {Bytes{'a', 31}, false},
                                           {Bytes{'a', 127}, false},
                                           {Bytes{}, false}})
        EXPECT_EQ(ParameterKnobbyWorker::IsPrintable(bytes.data(),
                                                     static_cast<unsigned int>(bytes.size())),
                  printable);
    EXPECT_FALSE(ParameterKnobbyWorker::IsPrintable(nullptr, 3));
}

} // namespace
