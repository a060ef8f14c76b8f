// SPDX-License-Identifier: Apache-2.0
// Tests of the live tuning commands over loopback, against a store with fixed answers.
#include <chrono>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/livetuning/parameterknobbyworker.h"

#include "tests/common/livetuningfixture.h"
#include "tests/common/logcapture.h"
#include "tests/common/loopbackclient.h"

namespace {

namespace Wire = ParameterKnobbyPacket;
using ParamTest::Bytes;
using ParamTest::FakeDataAPI;
using ParamTest::LoopbackClient;
using ParamTest::Request;
using ParamTest::TextAt;

class KnobbyWorkerTest : public ::testing::Test
{
protected:
    // No Stop: the destructor stops the running worker, the client still connected.
    void StartWorker()
    {
        ASSERT_TRUE(m_worker.SetListenAddress("127.0.0.1", 0));
        m_worker.Start();
        ASSERT_NE(m_worker.GetPort(), 0);
        ASSERT_TRUE(m_client.Connect(m_worker.GetPort()));
    }

    Bytes Ask(Bytes const& request)
    {
        EXPECT_TRUE(m_client.Send(request));
        return m_client.ReadPacket();
    }

    // The worker logs a command's line after queueing its response: wait for it.
    bool Logged(std::string const& message)
    {
        return ParamTest::WaitFor([&] { return m_log.HasMessage(message); });
    }

    uint64_t Session() const { return m_worker.GetSessionId(); }

    ParamTest::LogCapture m_log;
    FakeDataAPI m_store;
    ParameterKnobbyWorker m_worker{&m_store};
    LoopbackClient m_client;
};

struct CommandCase
{
    char const* name;
    std::function<void(FakeDataAPI&)> setup;
    Bytes request;
    size_t textAt;
    std::string text; ///< "<session>": the session ID as "0x%016lx"
    size_t trailing;  ///< bytes behind the text: its terminator, and more for Modes
    std::string call; ///< the store's last call; empty for none
    std::string log;  ///< a line the command logs; empty for none checked
};

class KnobbyCommandTest : public KnobbyWorkerTest, public ::testing::WithParamInterface<CommandCase>
{
};

// Each command's response: the request's command and ID echoed, a length field that counts the
// whole packet, and the text the store's answer makes.
TEST_P(KnobbyCommandTest, AnswersWithTheStoresText)
{
    CommandCase const& test = GetParam();
    if (test.setup)
        test.setup(m_store);
    StartWorker();
    Bytes const response = Ask(test.request);
    char session[32];
    std::snprintf(session, sizeof(session), "0x%016lx", static_cast<unsigned long>(Session()));
    std::string const text = test.text == "<session>" ? session : test.text;
    ASSERT_EQ(response.size(), test.textAt + text.size() + test.trailing);
    EXPECT_EQ(TextAt(response, test.textAt), text);
    EXPECT_EQ(Bytes(response.begin() + test.textAt + text.size(), response.end()),
              Bytes(test.trailing, 0));
    EXPECT_EQ(Wire::GetU16(response.data() + Wire::CommandOffset),
              Wire::GetU16(test.request.data() + 2));
    EXPECT_EQ(Wire::GetU16(response.data() + Wire::LengthOffset), response.size());
    if (test.textAt == Wire::RequestHeadSize) {
        EXPECT_EQ(Wire::GetU32(response.data() + Wire::RequestIdOffset), 7u);
    }
    std::vector<std::string> const calls = m_store.Calls();
    EXPECT_EQ(calls.empty() ? std::string() : calls.back(), test.call);
    if (!test.log.empty()) {
        EXPECT_TRUE(Logged(test.log)) << test.log;
    }
}

void TwoTables(FakeDataAPI& store)
{
    store.tables = {"rear", "front"};
}
void NoIdentifier(FakeDataAPI& store)
{
    store.identifier.clear();
}
void InfoRecords(FakeDataAPI& store)
{
    store.records = {ParameterParserInfo("gain", "Float", "1.5"),
                     ParameterParserInfo("table", "UInt32", true, false, 4),
                     ParameterParserInfo("nested", "Structure")};
}
void UnnamedRecord(FakeDataAPI& store)
{
    store.records = {ParameterParserInfo("", "UInt32", "2")};
}
void InfoFails(FakeDataAPI& store)
{
    store.infoSucceeds = false;
}
void Values(FakeDataAPI& store)
{
    store.values["module.gain/<null>"] = "gain=1.5";
    store.values["module/a,b"] = "a=1;b=2";
    store.failingNames["a"] = true;
}

constexpr char Rows[] = "gain=1.5,Float;table,UInt32,4;nested,Structure";

INSTANTIATE_TEST_SUITE_P(
    Commands, KnobbyCommandTest,
    ::testing::Values(
        CommandCase{"DeviceInfo", nullptr, Request(Wire::DeviceInfo), 16, "FakeStore", 1, "",
                    "Knobby queued command: Info(0), Version: 2.0, Name: FakeStore\n"},
        CommandCase{"DeviceInfoTables", TwoTables, Request(Wire::DeviceInfo), 16,
                    "FakeStore:rear,front", 1, "", ""},
        CommandCase{"DeviceInfoUnnamed", NoIdentifier, Request(Wire::DeviceInfo), 16, "<session>",
                    1, "", ""},
        CommandCase{"ActiveModes", nullptr, Request(Wire::ActiveModes), 14, "Default|Sensor.0#0", 1,
                    "", ""},
        CommandCase{"ControlValuesNone", nullptr, Request(Wire::ControlValues), 14, "", 1, "", ""},
        CommandCase{"Modes", nullptr, Request(Wire::Modes, "Default|Sensor.0"), 18,
                    "Usecase.Preview,Usecase.Video", 11, "children|short(Default|Sensor.0)", ""},
        CommandCase{"Info", InfoRecords, Request(Wire::Info, "Default|Sensor.0:module.block"), 18,
                    Rows, 1, "info|short(Default|Sensor.0)|module.block",
                    std::string("Knobby queued command: Info(4), ID: 7, Payload: ") + Rows + "\n"},
        CommandCase{"InfoOfAModule", InfoRecords, Request(Wire::Info, "Default"), 18, Rows, 1,
                    "info|short(Default)|<null>", ""},
        CommandCase{"InfoNamesAnUnnamedRecord", UnnamedRecord,
                    Request(Wire::Info, "Default:module.operationMode"), 18,
                    "operationMode=2,UInt32", 1, "info|short(Default)|module.operationMode", ""},
        CommandCase{"InfoFails", InfoFails, Request(Wire::Info, "Default:module"), 18, "", 1,
                    "info|short(Default)|module", ""},
        CommandCase{"GetValues", Values, Request(Wire::GetValues, "Default:module.gain"), 18,
                    "gain=1.5", 1, "get|short(Default)|module.gain|<null>|0",
                    "Knobby queued command: GetValues(5), ID: 7, Payload: gain=1.5\n"},
        CommandCase{"GetSubValues", Values, Request(Wire::GetValues, "Default:module:a,b"), 18,
                    "a=1;b=2", 1, "get|short(Default)|module|a,b|0", ""},
        CommandCase{"GetValuesModesOnly", Values, Request(Wire::GetValues, "Default"), 18, "", 1,
                    "", ""},
        // The last item decides the verdict; the answer holds the read-back of the items that worked.
        CommandCase{"SetValues", Values, Request(Wire::SetValues, "Default:module.block:a=1;b=2"),
                    18, "b=2", 1, "get|short(Default)|module.block|b|0",
                    "Knobby command succeeded: SetValues(6), ID: 7, Payload: b=2\n"},
        CommandCase{"SetValuesLastFails", Values,
                    Request(Wire::SetValues, "Default:module.block:b=3;c=;a=5"), 18, "b=3", 1,
                    "set|short(Default)|module.block|a=5",
                    "Knobby command failed: SetValues(6), ID: 7, Payload: b=3\n"},
        CommandCase{"SetValuesSkipsAnEmptyValue", Values,
                    Request(Wire::SetValues, "Default:module.block:b=4;c="), 18, "b=4", 1,
                    "get|short(Default)|module.block|b|0",
                    "Knobby command succeeded: SetValues(6), ID: 7, Payload: b=4\n"},
        // An empty read-back still takes its place between the separators.
        CommandCase{"SetValuesEmptyReadBack", Values,
                    Request(Wire::SetValues, "Default:module.block:q=1;b=5;q=2"), 18, ";b=5;", 1,
                    "get|short(Default)|module.block|q|0", ""},
        CommandCase{"SetValuesModesOnly", Values, Request(Wire::SetValues, "Default"), 18, "", 1,
                    "", "Knobby command failed: SetValues(6), ID: 7, Payload: \n"},
        CommandCase{"SetValuesWithoutItems", Values, Request(Wire::SetValues, "Default:module"), 18,
                    "", 1, "", "Knobby SetValues failed: Failed to read mode\n"}),
    [](::testing::TestParamInfo<CommandCase> const& test) { return test.param.name; });

// The session ID is drawn afresh at each start and names no address; only Modes compares it.
TEST_F(KnobbyWorkerTest, SessionIdIsDrawnAtEachStartAndComparedByModes)
{
    StartWorker();
    uint64_t const first = Session();
    EXPECT_EQ(Wire::GetU64(Ask(Request(Wire::DeviceInfo)).data() + Wire::DeviceInfoSessionOffset),
              first);
    EXPECT_NE(first, static_cast<uint64_t>(
                         reinterpret_cast<uintptr_t>(static_cast<IParameterDataAPI*>(&m_store))));
    EXPECT_EQ(
        Wire::GetU64(Ask(Request(Wire::Modes, "Default", 7, first)).data() + Wire::SessionOffset),
        first);
    EXPECT_EQ(m_log.Count("Request packet Knobby ID does not match"), 0u);
    Bytes const stranger = Ask(Request(Wire::Modes, "Default", 43, 5));
    EXPECT_EQ(Wire::GetU32(stranger.data() + Wire::RequestIdOffset), 43u);
    EXPECT_TRUE(
        m_log.HasMessage("Request packet Knobby ID does not match, Command: Modes(3): Expected: " +
                         std::to_string(first) + ", Actual: 5\n"));
    m_client.Close();
    m_worker.Stop();
    StartWorker();
    EXPECT_NE(Session(), first);
}

// The index is kept for later commands and clients; a text that is no index below the table
// count leaves it, and a negative one selects the first table.
TEST_F(KnobbyWorkerTest, ModeIndexSelectsAnExistingTableOnly)
{
    m_store.tables = {"rear", "front"};
    StartWorker();
    std::pair<char const*, char const*> const cases[] = {
        {"1", "1"}, {"2", "1"}, {"abc", "1"}, {"-1", "0"}, {"1", "1"}};
    for (auto const& test : cases) {
        Bytes const response = Ask(Request(Wire::ModeIndex, test.first));
        EXPECT_EQ(TextAt(response, 14), test.second) << test.first;
        EXPECT_EQ(response.size(), 15u + 1u);
        EXPECT_EQ(Wire::GetU64(response.data() + Wire::SessionOffset), Session());
    }
    EXPECT_EQ(TextAt(Ask(Request(Wire::ActiveModes)), 14), "Default|Sensor.0#1");
}

// Requests below their command's smallest size are dropped unanswered; at that size they run.
TEST(KnobbyExecuteTest, RequestsBelowTheirMinimumAreDropped)
{
    struct Case
    {
        Bytes packet;
        unsigned int size;
        bool runs;
    } const cases[] = {
        {Request(Wire::DeviceInfo), 3, false},      {Request(Wire::DeviceInfo), 4, true},
        {Request(Wire::Modes, "D"), 18, false},     {Request(Wire::Modes, "D"), 19, true},
        {Request(Wire::Info, "D"), 18, false},      {Request(Wire::Info, "D"), 19, true},
        {Request(Wire::ModeIndex, "1"), 14, false}, {Request(Wire::ModeIndex, "1"), 15, true},
    };
    for (Case const& test : cases) {
        ParamTest::LogCapture log;
        FakeDataAPI store;
        ParameterKnobbyWorker worker(&store);
        worker.Execute(test.packet.data(), test.size);
        EXPECT_EQ(log.Contains("Knobby queued command"), test.runs) << test.size;
        EXPECT_EQ(log.HasMessage("Failed to read 2 bytes from binary file offset 2, length 3\n"),
                  test.size == 3);
    }
}

// Answers custom commands with a fixed answer and keeps the last request.
class CustomAnswer : public KnobbyHandler
{
public:
    explicit CustomAnswer(Bytes answer) : m_answer(std::move(answer)) {}

    unsigned short Custom(unsigned char const* payload, unsigned int payloadLength,
                          unsigned short capacity, unsigned char* answer,
                          unsigned short& answerLength) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_request = Bytes(payload, payload + payloadLength);
        m_capacity = capacity;
        std::copy(m_answer.begin(), m_answer.end(), answer);
        answerLength = static_cast<unsigned short>(m_answer.size());
        return 0x0203;
    }
    void TriggerNotice(char const*, char const*, unsigned long, char const*) override {}

    Bytes LastRequest()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_request;
    }
    unsigned int LastCapacity()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_capacity;
    }

    Bytes const m_answer;

private:
    std::mutex m_mutex;
    Bytes m_request;
    unsigned int m_capacity = 0;
};

// The handler's result and answer go back behind the echoed head; the log shows at most 127
// characters of a printable answer, or 63 bytes of any other in hexadecimal.
TEST_F(KnobbyWorkerTest, CustomGoesToTheHandlerOrAnswersZero)
{
    StartWorker();
    Bytes const unhandled = Ask(Request(Wire::Custom, "ping", 51));
    EXPECT_EQ(unhandled.size(), 20u);
    EXPECT_EQ(Wire::GetU16(unhandled.data() + 18), 0u);
    EXPECT_TRUE(m_log.HasMessage(
        "Knobby queued Custom command received with no handler installed, sending result = 0\n"));

    std::string const letters(200, 'x');
    std::string hex;
    while (hex.size() < 2 * 63)
        hex += "01";
    std::pair<Bytes, std::string> const cases[] = {
        {Bytes{'p', 'o', 'n', 'g'}, "pong"},
        {Bytes{0x00, 0xFF, 0x10}, "00FF10"},
        {Bytes(letters.begin(), letters.end()), letters.substr(0, 127)},
        {Bytes(200, 0x01), hex},
    };
    uint32_t requestId = 52;
    for (auto const& test : cases) {
        CustomAnswer handler(test.first);
        m_worker.SetHandler(&handler);
        Bytes const response = Ask(Request(Wire::Custom, "ping", requestId));
        EXPECT_EQ(Wire::GetU32(response.data() + Wire::RequestIdOffset), requestId);
        EXPECT_EQ(Wire::GetU16(response.data() + 18), 0x0203u);
        EXPECT_EQ(Bytes(response.begin() + 20, response.end()), test.first);
        EXPECT_EQ(handler.LastRequest(), (Bytes{'p', 'i', 'n', 'g', 0}));
        EXPECT_EQ(handler.LastCapacity(), 65515u);
        EXPECT_TRUE(Logged("Knobby queued command: Custom(8), ID: " + std::to_string(requestId) +
                           ", Payload: " + test.second + "...\n"));
        m_worker.SetHandler(nullptr);
        ++requestId;
    }
}

// While paused the worker leaves the store alone; requests wait and are answered on the same
// connection once the last pause is resumed.
TEST_F(KnobbyWorkerTest, PausedWorkerAnswersOnTheSameConnectionWhenResumed)
{
    StartWorker();
    m_worker.Pause();
    m_worker.Pause();
    ASSERT_TRUE(m_client.Send(Request(Wire::GetValues, "Default:module.gain", 61)));
    EXPECT_TRUE(m_client.Silent());
    m_worker.Resume();
    EXPECT_TRUE(m_client.Silent());
    EXPECT_TRUE(m_store.Calls().empty());
    m_worker.Resume();
    EXPECT_EQ(Wire::GetU32(m_client.ReadPacket().data() + Wire::RequestIdOffset), 61u);
}

// The answer to a client that left before it was ready is dropped, not sent to the next one.
TEST_F(KnobbyWorkerTest, AnswerForAClientThatLeftReachesNoOther)
{
    StartWorker();
    m_worker.Pause();
    ASSERT_TRUE(m_client.Send(Request(Wire::GetValues, "Default:module.gain", 71)));
    m_client.Close();
    ASSERT_TRUE(ParamTest::WaitFor([&] { return m_log.Contains("Knobby client disconnected"); }));
    LoopbackClient next;
    ASSERT_TRUE(next.Connect(m_worker.GetPort()));
    ASSERT_TRUE(
        ParamTest::WaitFor([&] { return m_log.Count("Knobby accepted data connection") == 2; }));
    m_worker.Resume();
    ASSERT_TRUE(next.Send(Request(Wire::GetValues, "Default:module.gain", 72)));
    EXPECT_EQ(Wire::GetU32(next.ReadPacket().data() + Wire::RequestIdOffset), 72u);
    EXPECT_EQ(m_log.Count("Knobby write dropped for a closed connection\n"), 1u);
}

// A Stop ends within a bound whatever the client does: none, one that sends nothing, one that
// sent part of a packet, or one that asks for answers and never reads them, which fills the
// socket's buffers until a send gives up. The client sees its end and the port is closed.
TEST_F(KnobbyWorkerTest, StopEndsPromptlyWhateverTheClientDoes)
{
    m_store.values["module.big/<null>"] = std::string(60000, 'x');
    for (int client = 0; client < 4; ++client) {
        SCOPED_TRACE(client);
        m_log.Clear();
        m_worker.Start();
        unsigned short const port = m_worker.GetPort();
        ASSERT_NE(port, 0);
        LoopbackClient peer;
        if (client > 0) {
            ASSERT_TRUE(peer.Connect(port));
        }
        if (client == 2) {
            ASSERT_TRUE(peer.Send(Bytes(9, 0x4E)));
        }
        for (uint32_t i = 0; client == 3 && i < 300; ++i)
            ASSERT_TRUE(peer.Send(Request(Wire::GetValues, "Default:module.big", i)));
        if (client == 3) {
            ASSERT_TRUE(ParamTest::WaitFor([&] { return m_log.Contains("Sockets send failed"); }));
        }
        ParamTest::BoundedCall([&] { m_worker.Stop(); }, std::chrono::seconds(8));
        EXPECT_EQ(m_worker.GetPort(), 0);
        if (client == 1) {
            EXPECT_TRUE(peer.SeesEnd());
        }
        EXPECT_FALSE(LoopbackClient().Connect(port));
    }
}

} // namespace
