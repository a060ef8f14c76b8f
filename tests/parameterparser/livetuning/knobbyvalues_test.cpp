// SPDX-License-Identifier: Apache-2.0
// Tests of the values the host publishes through the live tuning worker: control values and the
// answers to trigger requests, each read back over loopback.
#include <chrono>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/livetuning/parameterknobbyworker.h"
#include "parameterparser/parsercrc.h"

#include "tests/common/livetuningfixture.h"
#include "tests/common/logcapture.h"
#include "tests/common/loopbackclient.h"

namespace {

namespace Wire = ParameterKnobbyPacket;
using ParamTest::Bytes;
using ParamTest::Request;
using ParamTest::TextAt;

class KnobbyValuesTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_worker.SetListenAddress("127.0.0.1", 0));
        m_worker.Start();
        ASSERT_TRUE(m_client.Connect(m_worker.GetPort()));
    }
    void TearDown() override
    {
        m_client.Close();
        m_worker.Stop();
    }

    // The control value text, after checking that the length field counts it and its terminator.
    std::string ControlText()
    {
        EXPECT_TRUE(m_client.Send(Request(Wire::ControlValues)));
        Bytes const response = m_client.ReadPacket();
        std::string const text = TextAt(response, 14);
        EXPECT_EQ(response.size(), text.size() + 15);
        return text;
    }

    ParamTest::LogCapture m_log;
    ParamTest::FakeDataAPI m_store;
    ParameterKnobbyWorker m_worker{&m_store};
    ParamTest::LoopbackClient m_client;
};

TEST_F(KnobbyValuesTest, ControlValuesStaySortedReplaceInPlaceAndLeaveOutWhatDoesNotFit)
{
    for (uint32_t identifier : {3u, 1u, 2u})
        m_worker.SetControlValue({identifier, identifier * 1.5});
    m_worker.SetControlValue({2, -0.25});
    EXPECT_EQ(ControlText(), "1=1.500000,2=-0.250000,3=4.500000");

    // A whole list replaces everything, in its own order.
    PList<ParameterCTValue> list;
    list.Add({9, 1.0});
    list.Add({4, 2.0});
    m_worker.SetControlValues(list);
    EXPECT_EQ(ControlText(), "9=1.000000,4=2.000000");

    // Each long value prints as 111 characters: with their separators 36 of them take 4031 of
    // the 4082 bytes of text, the 37th (46) would pass the end, and a short value behind it fits.
    m_worker.SetControlValues(PList<ParameterCTValue>());
    for (uint32_t identifier = 10; identifier < 47; ++identifier)
        m_worker.SetControlValue({identifier, 1e100});
    m_worker.SetControlValue({47, 7.0});
    std::string const text = ControlText();
    EXPECT_EQ(text.size(), 36 * 111 + 35 + 12);
    EXPECT_EQ(text.find("46="), std::string::npos);
    EXPECT_EQ(text.substr(text.size() - 12), ",47=7.000000");
}

// Answers every trigger notice for two instances at once and keeps what the notice carried.
class TriggerAnswer : public KnobbyHandler
{
public:
    explicit TriggerAnswer(ParameterKnobbyWorker& worker) : m_worker(worker) {}

    unsigned short Custom(unsigned char const*, unsigned int, unsigned short, unsigned char*,
                          unsigned short&) override
    {
        return 0;
    }
    void TriggerNotice(char const* modePath, char const* module, unsigned long hash,
                       char const* pipeline) override
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_notice =
                std::string(modePath) + "|" + module + "|" + pipeline + "|" + std::to_string(hash);
        }
        ParameterCTValue const second[] = {{7, 0.5}, {8, -2.0}};
        ParameterCTValue const first[] = {{1, 42.0}};
        m_worker.SetTriggerValues(modePath, module, pipeline, "ife1", second, 2);
        m_worker.SetTriggerValues(modePath, module, pipeline, "ife0", first, 1);
    }
    std::string Notice()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_notice;
    }

private:
    ParameterKnobbyWorker& m_worker;
    std::mutex m_mutex;
    std::string m_notice;
};

// The request is answered on a later round, once clock() has moved past the threshold: it
// measures this process's processor time only, so the test spends some.
TEST_F(KnobbyValuesTest, TriggerRequestIsAnsweredLaterWithInstancesInCallOrder)
{
    TriggerAnswer handler(m_worker);
    m_worker.SetHandler(&handler);
    ASSERT_TRUE(m_client.Send(Request(Wire::TriggerValues, "0.0|1.2:abf40_ife:3")));
    ASSERT_TRUE(ParamTest::WaitFor([&] { return !handler.Notice().empty(); }));
    EXPECT_EQ(handler.Notice(),
              "0.0|1.2|abf40_ife|3|" + std::to_string(ParserCRC64::HashName("abf40_ife")));
    EXPECT_TRUE(m_worker.TriggerRequestExists("0.0|1.2", "abf40_ife", "3"));
    EXPECT_FALSE(m_worker.SetTriggerValues("0.0|1.2", "abf40_ife", "4", "x", nullptr, 0));
    EXPECT_TRUE(m_client.Silent());

    clock_t const start = clock();
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (volatile double sink = 0;
         clock() - start <= ParameterKnobbyWorker::TriggerResponseTicks + 1000 &&
         std::chrono::steady_clock::now() < end;)
        sink = sink + 1.0;
    ASSERT_TRUE(m_client.Send(Request(Wire::ActiveModes)));
    Bytes trigger = m_client.ReadPacket();
    if (!trigger.empty() &&
        Wire::GetU16(trigger.data() + Wire::CommandOffset) != Wire::TriggerValues)
        trigger = m_client.ReadPacket();
    ASSERT_FALSE(trigger.empty());
    EXPECT_EQ(Wire::GetU16(trigger.data() + Wire::LengthOffset), trigger.size());
    // Per instance: its name, ":", a 2-byte count and 12-byte values (identifier, double).
    std::string const head = "0.0|1.2:abf40_ife:3#";
    Bytes expected(trigger.begin(), trigger.begin() + 14);
    expected.insert(expected.end(), head.begin(), head.end());
    auto const instance = [&expected](char const* name,
                                      std::vector<ParameterCTValue> const& values) {
        expected.insert(expected.end(), name, name + std::strlen(name));
        expected.push_back(':');
        expected.insert(expected.end(), {static_cast<uint8_t>(values.size()), 0});
        for (ParameterCTValue const& value : values) {
            uint8_t field[12];
            double const number = value.value;
            uint64_t bits = 0;
            std::memcpy(&bits, &number, sizeof(bits));
            Wire::PutU32(field, value.identifier);
            Wire::PutU64(field + 4, bits);
            expected.insert(expected.end(), field, field + 12);
        }
    };
    instance("ife1", {{7, 0.5}, {8, -2.0}});
    instance("ife0", {{1, 42.0}});
    EXPECT_EQ(trigger, expected);
    EXPECT_TRUE(ParamTest::WaitFor(
        [&] { return !m_worker.TriggerRequestExists("0.0|1.2", "abf40_ife", "3"); }));
    m_worker.SetHandler(nullptr);
}

TEST_F(KnobbyValuesTest, TriggerRequestWithTwoFieldsMatchesAnEmptyPipeline)
{
    ASSERT_TRUE(m_client.Send(Request(Wire::TriggerValues, "0.0:module")));
    ASSERT_TRUE(
        ParamTest::WaitFor([&] { return m_worker.TriggerRequestExists("0.0", "module", ""); }));
    EXPECT_FALSE(m_worker.TriggerRequestExists("0.0", "module", "0"));
    ParameterCTValue const value = {5, 1.0};
    EXPECT_TRUE(m_worker.SetTriggerValues("0.0", "module", "", "unit", &value, 1));
}

} // namespace
