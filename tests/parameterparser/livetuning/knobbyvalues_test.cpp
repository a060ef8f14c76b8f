// SPDX-License-Identifier: Apache-2.0
// Tests of control values, trigger requests and the packet head helpers of the live tuning worker.
#include <chrono>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/livetuning/parameterknobbyworker.h"
#include "parameterparser/parsercrc.h"

#include "tests/common/logcapture.h"
#include "tests/parameterparser/livetuning/livetuningsupport.h"

namespace {

using LiveTuningTest::Bytes;
using LiveTuningTest::FakeDataAPI;
using LiveTuningTest::LoopbackClient;
using LiveTuningTest::Request;
using LiveTuningTest::TextAt;
using LiveTuningTest::WaitFor;
namespace Wire = ParameterKnobbyPacket;

class KnobbyValuesTest : public ::testing::Test
{
protected:
    void TearDown() override
    {
        m_client.Close();
        m_worker.Stop();
    }

    void StartWorker()
    {
        m_worker.Start();
        ASSERT_NE(m_worker.GetPort(), 0);
        ASSERT_TRUE(m_client.Connect(m_worker.GetPort()));
    }

    std::string ControlText()
    {
        EXPECT_TRUE(m_client.Send(Request(Wire::ControlValues)));
        Bytes const response = m_client.ReadPacket();
        EXPECT_GE(response.size(), 15u);
        if (response.size() < 15)
            return "<no response>";
        EXPECT_EQ(Wire::GetU16(response.data() + Wire::CommandOffset), Wire::ControlValues);
        EXPECT_EQ(Wire::GetU16(response.data() + Wire::LengthOffset), response.size());
        std::string const text = TextAt(response, 14);
        EXPECT_EQ(response.size(), text.size() + 15);
        return text;
    }

    ParamTest::LogCapture m_log;
    FakeDataAPI m_store;
    ParameterKnobbyWorker m_worker{&m_store};
    LoopbackClient m_client;
};

TEST_F(KnobbyValuesTest, SingleControlValuesStaySortedAndReplaceInPlace)
{
    StartWorker();
    EXPECT_EQ(ControlText(), "");
    for (uint32_t identifier : {3u, 1u, 2u})
        m_worker.SetControlValue({identifier, identifier * 1.5});
    EXPECT_EQ(ControlText(), "1=1.500000,2=3.000000,3=4.500000");

    m_worker.SetControlValue({2, -0.25});
    EXPECT_EQ(ControlText(), "1=1.500000,2=-0.250000,3=4.500000");

    // A whole list replaces everything, in its own order.
    PList<ParameterCTValue> list;
    list.Add({9, 1.0});
    list.Add({4, 2.0});
    m_worker.SetControlValues(list);
    EXPECT_EQ(ControlText(), "9=1.000000,4=2.000000");
}

TEST_F(KnobbyValuesTest, ControlValuesThatDoNotFitTheRoomLeftAreLeftOut)
{
    StartWorker();
    // Each long value prints as about 118 characters, so some of them no longer fit the 4082
    // bytes of text; a short value behind them still goes in.
    unsigned int const longCount = 40;
    for (uint32_t identifier = 1; identifier <= longCount; ++identifier)
        m_worker.SetControlValue({identifier, 1e100});
    m_worker.SetControlValue({longCount + 1, 7.0});

    std::string const text = ControlText();
    EXPECT_LE(text.size(), 4096u - 14u);
    size_t longShown = 0;
    for (size_t at = text.find("=1000"); at != std::string::npos; at = text.find("=1000", at + 1))
        ++longShown;
    EXPECT_GT(longShown, 0u);
    EXPECT_LT(longShown, longCount);
    EXPECT_EQ(text.substr(text.size() - 12), ",41=7.000000");
}

// Answers every trigger notice for two instances at once, in a fixed order, and keeps what the
// notice carried.
class TriggerAnswer : public KnobbyHandler
{
public:
    explicit TriggerAnswer(ParameterKnobbyWorker& worker) : m_worker(worker) {}

    unsigned short Custom(unsigned char const*, unsigned int, unsigned short, unsigned char*,
                          unsigned short&) override
    {
        return 0;
    }

    void TriggerNotice(char const* modePath, char const* module, unsigned long moduleHash,
                       char const* pipeline) override
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_notices.push_back(std::string(modePath) + "|" + module + "|" + pipeline);
            m_hash = moduleHash;
        }
        ParameterCTValue const second[] = {{7, 0.5}, {8, -2.0}};
        ParameterCTValue const first[] = {{1, 42.0}};
        m_worker.SetTriggerValues(modePath, module, pipeline, "ife1", second, 2);
        m_worker.SetTriggerValues(modePath, module, pipeline, "ife0", first, 1);
    }

    std::vector<std::string> Notices()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_notices;
    }
    unsigned long Hash()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_hash;
    }

private:
    ParameterKnobbyWorker& m_worker;
    std::mutex m_mutex;
    std::vector<std::string> m_notices;
    unsigned long m_hash = 0;
};

// Spends processor time until clock() has moved past the answer threshold, which on its own
// only measures this process's CPU use.
void BurnClockTicks(clock_t ticks)
{
    clock_t const start = clock();
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    volatile double sink = 0;
    while (clock() - start <= ticks && std::chrono::steady_clock::now() < end)
        sink = sink + 1.0;
}

TEST_F(KnobbyValuesTest, TriggerRequestIsAnsweredOnALaterRoundWithInstancesInCallOrder)
{
    TriggerAnswer handler(m_worker);
    m_worker.SetHandler(&handler);
    StartWorker();
    ASSERT_TRUE(m_client.Send(Request(Wire::TriggerValues, "0.0|1.2:abf40_ife:3")));
    ASSERT_TRUE(WaitFor([&] { return handler.Notices().size() == 1; }));
    EXPECT_EQ(handler.Notices()[0], "0.0|1.2|abf40_ife|3");
    EXPECT_EQ(handler.Hash(), ParserCRC64::HashName("abf40_ife"));
    EXPECT_TRUE(m_worker.TriggerRequestExists("0.0|1.2", "abf40_ife", "3"));
    EXPECT_FALSE(m_worker.SetTriggerValues("0.0|1.2", "abf40_ife", "4", "x", nullptr, 0));
    // Nothing is sent at once.
    EXPECT_TRUE(m_client.Silent());

    BurnClockTicks(ParameterKnobbyWorker::TriggerResponseTicks + 1000);
    // Answers leave only in the round after a further packet.
    ASSERT_TRUE(m_client.Send(Request(Wire::ActiveModes)));
    Bytes trigger;
    for (int i = 0; i < 2 && trigger.empty(); ++i) {
        Bytes const packet = m_client.ReadPacket();
        ASSERT_FALSE(packet.empty());
        if (Wire::GetU16(packet.data() + Wire::CommandOffset) == Wire::TriggerValues)
            trigger = packet;
    }
    ASSERT_FALSE(trigger.empty());
    EXPECT_EQ(Wire::GetU16(trigger.data() + Wire::LengthOffset), trigger.size());

    std::string const text = "0.0|1.2:abf40_ife:3#";
    ASSERT_GE(trigger.size(), 14 + text.size());
    EXPECT_EQ(std::string(trigger.begin() + 14, trigger.begin() + 14 + text.size()), text);
    // Instances in the order the host answered: name, ":", a 2-byte count, 12-byte values.
    struct Value
    {
        uint32_t identifier;
        double value;
    };
    std::vector<std::pair<std::string, std::vector<Value>>> instances;
    size_t at = 14 + text.size();
    while (at < trigger.size()) {
        size_t const colon = std::string(trigger.begin() + at, trigger.end()).find(':');
        ASSERT_NE(colon, std::string::npos);
        std::string const name(trigger.begin() + at, trigger.begin() + at + colon);
        at += colon + 1;
        unsigned int const count = Wire::GetU16(trigger.data() + at);
        at += 2;
        ASSERT_LE(at + count * 12, trigger.size());
        std::vector<Value> values;
        for (unsigned int v = 0; v < count; ++v, at += 12) {
            uint64_t const bits = Wire::GetU64(trigger.data() + at + 4);
            double number = 0;
            std::memcpy(&number, &bits, sizeof(number));
            values.push_back({Wire::GetU32(trigger.data() + at), number});
        }
        instances.emplace_back(name, values);
    }
    ASSERT_EQ(instances.size(), 2u);
    EXPECT_EQ(instances[0].first, "ife1");
    ASSERT_EQ(instances[0].second.size(), 2u);
    EXPECT_EQ(instances[0].second[1].identifier, 8u);
    EXPECT_EQ(instances[0].second[1].value, -2.0);
    EXPECT_EQ(instances[1].first, "ife0");
    ASSERT_EQ(instances[1].second.size(), 1u);
    EXPECT_EQ(instances[1].second[0].identifier, 1u);
    EXPECT_EQ(instances[1].second[0].value, 42.0);

    EXPECT_TRUE(
        WaitFor([&] { return !m_worker.TriggerRequestExists("0.0|1.2", "abf40_ife", "3"); }));
    m_worker.SetHandler(nullptr);
}

TEST_F(KnobbyValuesTest, TriggerRequestWithTwoFieldsMatchesAnEmptyPipeline)
{
    StartWorker();
    ASSERT_TRUE(m_client.Send(Request(Wire::TriggerValues, "0.0:module")));
    ASSERT_TRUE(WaitFor([&] { return m_worker.TriggerRequestExists("0.0", "module", ""); }));
    EXPECT_FALSE(m_worker.TriggerRequestExists("0.0", "module", "0"));
    ParameterCTValue const value = {5, 1.0};
    EXPECT_TRUE(m_worker.SetTriggerValues("0.0", "module", "", "unit", &value, 1));
}

// Parsing and building heads needs no socket.
TEST(KnobbyHeadTest, ParseRequestFindsIdsAndPayloadByCommand)
{
    struct Case
    {
        uint16_t command;
        char const* payload;
        bool ok;
        unsigned int payloadStart; ///< 0: no payload
    } const cases[] = {
        {Wire::DeviceInfo, "", true, 0},     {Wire::Modes, "Default", true, 18},
        {Wire::Modes, "", false, 0},         {Wire::TriggerValues, "0.0:m:p", true, 14},
        {Wire::TriggerValues, "", false, 0}, {Wire::ModeIndex, "2", true, 0},
    };
    for (Case const& test : cases) {
        Bytes const packet = Request(test.command, test.payload, 0x01020304, 0x1122334455667788);
        unsigned short command = 0;
        unsigned long id = 0;
        unsigned int requestId = 0;
        unsigned char const* payload = nullptr;
        unsigned int payloadLength = 0;
        bool const ok = ParameterKnobbyWorker::ParseRequest(
            packet.data(), static_cast<unsigned int>(packet.size()), command, id, requestId,
            payload, payloadLength);
        EXPECT_EQ(ok, test.ok) << test.command << " " << test.payload;
        EXPECT_EQ(command, test.command);
        if (!test.ok)
            continue;
        EXPECT_EQ(id, 0x1122334455667788u);
        EXPECT_EQ(requestId, Wire::HasRequestId(test.command) ? 0x01020304u : 0u);
        if (test.payloadStart == 0) {
            EXPECT_EQ(payload, nullptr);
        } else {
            EXPECT_EQ(payload, packet.data() + test.payloadStart);
            EXPECT_EQ(payloadLength, packet.size() - test.payloadStart);
        }
    }
}

TEST(KnobbyHeadTest, ShortOrForeignPacketsAreRefused)
{
    ParamTest::LogCapture log;
    Bytes const modes = Request(Wire::Modes, "Default", 1);
    Bytes const active = Request(Wire::ActiveModes);
    Bytes foreign = active;
    Wire::PutU16(foreign.data(), 0x4242);
    unsigned short command = 0;
    unsigned long id = 0;
    unsigned int requestId = 0;
    unsigned char const* payload = nullptr;
    unsigned int length = 0;

    EXPECT_FALSE(
        ParameterKnobbyWorker::ParseRequest(nullptr, 20, command, id, requestId, payload, length));
    EXPECT_FALSE(ParameterKnobbyWorker::ParseRequest(active.data(), 6, command, id, requestId,
                                                     payload, length));
    EXPECT_FALSE(ParameterKnobbyWorker::ParseRequest(foreign.data(), 14, command, id, requestId,
                                                     payload, length));
    // Too short for the session ID: commands without a payload still pass.
    EXPECT_TRUE(ParameterKnobbyWorker::ParseRequest(active.data(), 10, command, id, requestId,
                                                    payload, length));
    EXPECT_FALSE(ParameterKnobbyWorker::ParseRequest(modes.data(), 10, command, id, requestId,
                                                     payload, length));
    EXPECT_EQ(log.Count("Failed to read 8 bytes from binary file offset 6, length 10\n"), 2u);
}

TEST(KnobbyHeadTest, BuildResponseCountsTheHeadWithoutTheSessionId)
{
    unsigned char buffer[64] = {};
    unsigned int total = 99;
    // Room for the 8 bytes the caller adds to the length below.
    unsigned char const text[12] = "abc";
    EXPECT_FALSE(ParameterKnobbyWorker::BuildResponse(buffer, sizeof(buffer), total,
                                                      Wire::DeviceInfo, 1, 2, text, 4));
    EXPECT_EQ(total, 0u);

    // A caller that wants the real packet size passes 8 more than its payload.
    ASSERT_TRUE(ParameterKnobbyWorker::BuildResponse(buffer, sizeof(buffer), total, Wire::Info,
                                                     0xABCD, 77, text, 4 + 8));
    EXPECT_EQ(total, 22u);
    EXPECT_EQ(Wire::GetU16(buffer + Wire::LengthOffset), 22u);
    EXPECT_EQ(Wire::GetU64(buffer + Wire::SessionOffset), 0xABCDu);
    EXPECT_EQ(Wire::GetU32(buffer + Wire::RequestIdOffset), 77u);
    EXPECT_STREQ(reinterpret_cast<char const*>(buffer + 18), "abc");

    // Control Values has no request ID and gets no payload copied.
    unsigned char bare[32] = {};
    ASSERT_TRUE(ParameterKnobbyWorker::BuildResponse(bare, sizeof(bare), total, Wire::ControlValues,
                                                     1, 2, text, 4));
    EXPECT_EQ(total, 10u);
    EXPECT_EQ(bare[14], 0);

    // The buffer must be larger than the counted length.
    EXPECT_FALSE(ParameterKnobbyWorker::BuildResponse(bare, 20, total, Wire::Info, 1, 2, text, 10));
    EXPECT_EQ(total, 20u);
}

TEST(KnobbyHeadTest, PrintableMeansTextOrZeroBytes)
{
    unsigned char const text[] = "Preview 1";
    unsigned char const binary[] = {'a', 0x7F};
    EXPECT_TRUE(ParameterKnobbyWorker::IsPrintable(text, sizeof(text)));
    EXPECT_FALSE(ParameterKnobbyWorker::IsPrintable(binary, sizeof(binary)));
    EXPECT_FALSE(ParameterKnobbyWorker::IsPrintable(text, 0));
    EXPECT_FALSE(ParameterKnobbyWorker::IsPrintable(nullptr, 3));
}

} // namespace
