// SPDX-License-Identifier: Apache-2.0
// Tests of the live tuning commands over loopback, against a store with fixed answers.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/livetuning/parameterknobbyworker.h"

#include "tests/common/logcapture.h"
#include "tests/parameterparser/livetuning/livetuningsupport.h"

namespace {

using LiveTuningTest::Bytes;
using LiveTuningTest::FakeDataAPI;
using LiveTuningTest::Join;
using LiveTuningTest::LoopbackClient;
using LiveTuningTest::Request;
using LiveTuningTest::TextAt;
using LiveTuningTest::WaitFor;
namespace Wire = ParameterKnobbyPacket;

class KnobbyWorkerTest : public ::testing::Test
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

    Bytes Ask(Bytes const& request)
    {
        EXPECT_TRUE(m_client.Send(request));
        return m_client.ReadPacket();
    }

    uint64_t Session() const { return m_worker.GetSessionId(); }

    // The head of a response with a request ID, and its length field. Most commands echo the
    // request's session ID (0 from these requests); Modes puts in the server's own.
    void ExpectEchoedHead(Bytes const& response, uint16_t command, uint32_t requestId,
                          uint64_t session = 0)
    {
        ASSERT_GE(response.size(), Wire::RequestHeadSize);
        EXPECT_EQ(Wire::GetU16(response.data()), Wire::StartTag);
        EXPECT_EQ(Wire::GetU16(response.data() + Wire::CommandOffset), command);
        EXPECT_EQ(Wire::GetU16(response.data() + Wire::LengthOffset), response.size());
        EXPECT_EQ(Wire::GetU64(response.data() + Wire::SessionOffset), session);
        EXPECT_EQ(Wire::GetU32(response.data() + Wire::RequestIdOffset), requestId);
    }

    // The worker logs a command's line after queueing its response: wait for it.
    bool Logged(std::string const& message)
    {
        return WaitFor([&] { return m_log.HasMessage(message); });
    }

    bool LoggedPart(std::string const& text)
    {
        return WaitFor([&] { return m_log.Contains(text); });
    }

    ParamTest::LogCapture m_log;
    FakeDataAPI m_store;
    ParameterKnobbyWorker m_worker{&m_store};
    LoopbackClient m_client;
};

struct DeviceInfoCase
{
    char const* name;
    char const* identifier;
    std::vector<std::string> tables;
    char const* text; ///< null: the session ID in hexadecimal
};

class KnobbyDeviceInfoTest : public KnobbyWorkerTest,
                             public ::testing::WithParamInterface<DeviceInfoCase>
{
};

TEST_P(KnobbyDeviceInfoTest, AnnouncesVersionSessionAndName)
{
    DeviceInfoCase const& test = GetParam();
    m_store.identifier = test.identifier;
    m_store.tables = test.tables;
    StartWorker();
    char session[32];
    std::snprintf(session, sizeof(session), "0x%016lx", static_cast<unsigned long>(Session()));
    std::string const text = test.text != nullptr ? test.text : session;

    Bytes const response = Ask(Request(Wire::DeviceInfo));
    ASSERT_EQ(response.size(), text.size() + 17);
    EXPECT_EQ(Wire::GetU16(response.data() + Wire::CommandOffset), Wire::DeviceInfo);
    EXPECT_EQ(Wire::GetU16(response.data() + Wire::LengthOffset), response.size());
    EXPECT_EQ(Wire::GetU16(response.data() + 6), 2u);
    EXPECT_EQ(Wire::GetU64(response.data() + 8), Session());
    EXPECT_EQ(TextAt(response, 16), text);
    EXPECT_EQ(response.back(), 0);

    // A client reads it back with the response parser.
    unsigned short command = 99;
    unsigned long id = 0;
    unsigned int requestId = 0;
    unsigned char const* payload = nullptr;
    unsigned int payloadLength = 0;
    ASSERT_TRUE(ParameterKnobbyWorker::ParseResponse(
        response.data(), static_cast<unsigned int>(response.size()), command, id, requestId,
        payload, payloadLength));
    EXPECT_EQ(command, 0u);
    EXPECT_EQ(id, Session());
    EXPECT_EQ(payload, response.data() + 16);
}

TEST_F(KnobbyWorkerTest, SessionIdIsDrawnAfreshAtEachStartAndTellsNoAddress)
{
    StartWorker();
    uint64_t const first = Session();
    EXPECT_EQ(Wire::GetU64(Ask(Request(Wire::DeviceInfo)).data() + 8), first);
    auto const address = static_cast<uint64_t>(
        reinterpret_cast<uintptr_t>(static_cast<IParameterDataAPI const*>(&m_store)));
    EXPECT_NE(first, address);
    EXPECT_NE(first, static_cast<uint64_t>(reinterpret_cast<uintptr_t>(&m_worker)));

    m_client.Close();
    m_worker.Stop();
    StartWorker();
    EXPECT_NE(Session(), first);
    EXPECT_EQ(Wire::GetU64(Ask(Request(Wire::DeviceInfo)).data() + 8), Session());
}

INSTANTIATE_TEST_SUITE_P(
    Names, KnobbyDeviceInfoTest,
    ::testing::Values(DeviceInfoCase{"OneTable", "FakeStore", {"rear"}, "FakeStore"},
                      DeviceInfoCase{
                          "TwoTables", "FakeStore", {"rear", "front"}, "FakeStore:rear,front"},
                      DeviceInfoCase{"NoIdentifier", "", {"rear"}, nullptr}),
    [](::testing::TestParamInfo<DeviceInfoCase> const& test) { return test.param.name; });

TEST_F(KnobbyWorkerTest, ModesCarriesTheChildListAndTenZeroBytes)
{
    StartWorker();
    Bytes const response = Ask(Request(Wire::Modes, "Default|Sensor.0", 42, Session()));
    size_t const text = m_store.childModes.size() + 1;
    ASSERT_EQ(response.size(), 18 + text + 10);
    ExpectEchoedHead(response, Wire::Modes, 42, Session());
    EXPECT_EQ(TextAt(response, 18), m_store.childModes);
    EXPECT_EQ(Bytes(response.end() - 11, response.end()), Bytes(11, 0));
    EXPECT_EQ(m_store.LastChildPath(), "short(Default|Sensor.0)");
    EXPECT_EQ(m_log.Count("Request packet Knobby ID does not match"), 0u);

    // Only this command compares the session ID; a stranger's is logged and answered.
    Bytes const stranger = Ask(Request(Wire::Modes, "Default", 43, 5));
    ExpectEchoedHead(stranger, Wire::Modes, 43, Session());
    char expected[160];
    std::snprintf(expected, sizeof(expected),
                  "Request packet Knobby ID does not match, Command: Modes(3): Expected: %llu, "
                  "Actual: 5\n",
                  static_cast<unsigned long long>(Session()));
    EXPECT_TRUE(m_log.HasMessage(expected));
}

TEST_F(KnobbyWorkerTest, InfoListsTheRecordsOrAnswersAnEmptyText)
{
    m_store.records = {ParameterParserInfo("gain", "Float", "1.5"),
                       ParameterParserInfo("table", "UInt32", true, false, 4),
                       ParameterParserInfo("nested", "Structure")};
    StartWorker();
    Bytes const response = Ask(Request(Wire::Info, "Default|Sensor.0:module.block", 11));
    ExpectEchoedHead(response, Wire::Info, 11);
    std::string const text = "gain=1.5,Float;table,UInt32,4;nested,Structure";
    EXPECT_EQ(TextAt(response, 18), text);
    EXPECT_EQ(response.size(), 18 + text.size() + 1);
    EXPECT_EQ(m_store.LastInfo(), "short(Default|Sensor.0)|module.block");

    // Without a variable the store is asked with none.
    Ask(Request(Wire::Info, "Default", 12));
    EXPECT_EQ(m_store.LastInfo(), "short(Default)|<null>");
}

TEST_F(KnobbyWorkerTest, FailedInfoAnswersTheTerminatorAlone)
{
    m_store.infoSucceeds = false;
    StartWorker();
    Bytes const response = Ask(Request(Wire::Info, "Default:module", 13));
    ExpectEchoedHead(response, Wire::Info, 13);
    EXPECT_EQ(response.size(), 19u);
    EXPECT_EQ(response.back(), 0);
}

TEST_F(KnobbyWorkerTest, GetValuesPassesPathVariableAndSubVariables)
{
    m_store.values["module.gain"] = "gain=1.5";
    m_store.values["module/a,b"] = "a=1;b=2";
    StartWorker();
    struct Case
    {
        char const* payload;
        char const* text;
        char const* call;
    } const cases[] = {
        {"Default:module.gain", "gain=1.5", "short(Default)|module.gain|<null>|0"},
        {"Default:module:a,b", "a=1;b=2", "short(Default)|module|a,b|0"},
        {"Default:module.unknown", "", "short(Default)|module.unknown|<null>|0"},
    };
    for (Case const& test : cases) {
        Bytes const response = Ask(Request(Wire::GetValues, test.payload, 21));
        ExpectEchoedHead(response, Wire::GetValues, 21);
        EXPECT_EQ(TextAt(response, 18), test.text) << test.payload;
        EXPECT_EQ(response.size(), 19 + std::string(test.text).size());
        EXPECT_EQ(m_store.LastGet(), test.call);
    }

    // Modes alone: nothing is asked of the store and the text is empty.
    Bytes const modesOnly = Ask(Request(Wire::GetValues, "Default", 22));
    EXPECT_EQ(modesOnly.size(), 19u);
    EXPECT_EQ(m_store.LastGet(), "short(Default)|module.unknown|<null>|0");
}

TEST_F(KnobbyWorkerTest, SetValuesAnswersTheReadBackOfItemsThatWorked)
{
    m_store.failingNames["a"] = true;
    StartWorker();

    Bytes const response = Ask(Request(Wire::SetValues, "Default:module.block:a=1;b=2", 31));
    ExpectEchoedHead(response, Wire::SetValues, 31);
    EXPECT_EQ(TextAt(response, 18), "b=2");
    EXPECT_EQ(response.size(), 19u + 3u);
    EXPECT_TRUE(m_log.HasMessage("Knobby SetValues failed: Mode: Default, Value: a=1\n"));
    // The last item decides the verdict.
    EXPECT_TRUE(Logged("Knobby command succeeded: SetValues(6), ID: 31, Payload: b=2\n"));

    Ask(Request(Wire::SetValues, "Default:module.block:b=3;c=;a=5", 32));
    EXPECT_TRUE(Logged("Knobby command failed: SetValues(6), ID: 32, Payload: b=3\n"));

    // An item with no value after "=" is skipped and leaves the verdict alone.
    Ask(Request(Wire::SetValues, "Default:module.block:b=4;c=", 33));
    EXPECT_TRUE(Logged("Knobby command succeeded: SetValues(6), ID: 33, Payload: b=4\n"));

    // An empty read-back still takes its place between the separators.
    m_store.silentNames["q"] = true;
    Bytes const withEmpty = Ask(Request(Wire::SetValues, "Default:module.block:q=1;b=5;q=2", 34));
    EXPECT_EQ(TextAt(withEmpty, 18), ";b=5;");
    EXPECT_EQ(withEmpty.size(), 19u + 5u);

    std::vector<FakeDataAPI::SetCall> const calls = m_store.SetCalls();
    std::vector<std::string> names;
    for (FakeDataAPI::SetCall const& call : calls) {
        names.push_back(call.name + "=" + call.value);
        EXPECT_EQ(call.modePath, "short(Default)");
        EXPECT_EQ(call.variable, "module.block");
    }
    EXPECT_EQ(names,
              (std::vector<std::string>{"a=1", "b=2", "b=3", "a=5", "b=4", "q=1", "b=5", "q=2"}));
}

TEST_F(KnobbyWorkerTest, SetValuesWithoutItemsFails)
{
    StartWorker();
    Bytes const modesOnly = Ask(Request(Wire::SetValues, "Default", 41));
    EXPECT_EQ(modesOnly.size(), 19u);
    EXPECT_TRUE(Logged("Knobby command failed: SetValues(6), ID: 41, Payload: \n"));

    Bytes const noItems = Ask(Request(Wire::SetValues, "Default:module", 42));
    EXPECT_EQ(noItems.size(), 19u);
    EXPECT_TRUE(m_log.HasMessage("Knobby SetValues failed: Failed to read mode\n"));
    EXPECT_TRUE(m_store.SetCalls().empty());
}

// Answers custom commands with a fixed answer and keeps the last request (locked: the command
// thread writes it).
class CustomAnswer : public KnobbyHandler
{
public:
    explicit CustomAnswer(Bytes answer) : m_answer(std::move(answer)) {}

    unsigned short Custom(unsigned char const* payload, unsigned int payloadLength,
                          unsigned short capacity, unsigned char* answer,
                          unsigned short& answerLength) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_request.assign(payload, payload + payloadLength);
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
    unsigned short LastCapacity()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_capacity;
    }

    Bytes const m_answer;

private:
    std::mutex m_mutex;
    Bytes m_request;
    unsigned short m_capacity = 0;
};

TEST_F(KnobbyWorkerTest, CustomGoesToTheHandlerOrAnswersZero)
{
    StartWorker();
    Bytes const unhandled = Ask(Request(Wire::Custom, "ping", 51));
    ExpectEchoedHead(unhandled, Wire::Custom, 51);
    EXPECT_EQ(unhandled.size(), 20u);
    EXPECT_EQ(Wire::GetU16(unhandled.data() + 18), 0u);
    EXPECT_TRUE(m_log.HasMessage("Knobby queued Custom command received with no handler "
                                 "installed, sending result = 0\n"));

    CustomAnswer text(Bytes{'p', 'o', 'n', 'g'});
    m_worker.SetHandler(&text);
    Bytes const answered = Ask(Request(Wire::Custom, "ping", 52));
    ExpectEchoedHead(answered, Wire::Custom, 52);
    EXPECT_EQ(Wire::GetU16(answered.data() + 18), 0x0203u);
    EXPECT_EQ(Bytes(answered.begin() + 20, answered.end()), text.m_answer);
    EXPECT_EQ(text.LastRequest(), (Bytes{'p', 'i', 'n', 'g', 0}));
    EXPECT_EQ(text.LastCapacity(), 65515u);
    EXPECT_TRUE(Logged("Knobby queued command: Custom(8), ID: 52, Payload: pong...\n"));

    CustomAnswer binary(Bytes{0x00, 0xFF, 0x10});
    m_worker.SetHandler(&binary);
    Bytes const raw = Ask(Request(Wire::Custom, "dump", 53));
    EXPECT_EQ(Bytes(raw.begin() + 20, raw.end()), binary.m_answer);
    EXPECT_TRUE(Logged("Knobby queued command: Custom(8), ID: 53, Payload: 00FF10...\n"));

    // Long answers go out whole; the log shows at most 127 characters of text or 63 bytes.
    struct LongCase
    {
        Bytes answer;
        std::string shown;
    };
    std::string const letters = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    std::string printable;
    while (printable.size() < 200)
        printable += letters;
    printable.resize(200);
    std::string hex;
    for (unsigned int i = 0; i < 63; ++i)
        hex += "01";
    LongCase const longCases[] = {
        {Bytes(printable.begin(), printable.end()), printable.substr(0, 127)},
        {Bytes(200, 0x01), hex},
    };
    uint32_t requestId = 54;
    for (LongCase const& test : longCases) {
        CustomAnswer longAnswer(test.answer);
        m_worker.SetHandler(&longAnswer);
        Bytes const response = Ask(Request(Wire::Custom, "long", requestId));
        ExpectEchoedHead(response, Wire::Custom, requestId);
        EXPECT_EQ(Bytes(response.begin() + 20, response.end()), test.answer);
        EXPECT_TRUE(Logged("Knobby queued command: Custom(8), ID: " + std::to_string(requestId) +
                           ", Payload: " + test.shown + "...\n"))
            << test.shown;
        m_worker.SetHandler(nullptr);
        ++requestId;
    }
    m_worker.SetHandler(nullptr);
}

TEST_F(KnobbyWorkerTest, ModeIndexSelectsAnExistingTableOnly)
{
    m_store.tables = {"rear", "front"};
    StartWorker();
    struct Case
    {
        char const* text;
        char const* index;
    } const cases[] = {{"1", "1"}, {"5", "1"}, {"abc", "1"}, {"-1", "0"}, {"1", "1"}};
    for (Case const& test : cases) {
        Bytes const response = Ask(Request(Wire::ModeIndex, test.text));
        ASSERT_EQ(response.size(), std::string(test.index).size() + 15) << test.text;
        EXPECT_EQ(Wire::GetU16(response.data() + Wire::CommandOffset), Wire::ModeIndex);
        EXPECT_EQ(Wire::GetU64(response.data() + Wire::SessionOffset), Session());
        EXPECT_EQ(TextAt(response, 14), test.index) << test.text;
    }
    // Later commands work on the selected table.
    EXPECT_EQ(TextAt(Ask(Request(Wire::ActiveModes)), 14), "Default|Sensor.0#1");
}

TEST_F(KnobbyWorkerTest, RequestsBelowTheirMinimumAreDroppedUnanswered)
{
    StartWorker();
    // A Modes request without payload (18 bytes) and a Mode Index without text (14 bytes).
    Bytes const shortModes = Request(Wire::Modes, "", 1);
    Bytes const shortIndex = Request(Wire::ModeIndex);
    ASSERT_EQ(shortModes.size(), 18u);
    ASSERT_EQ(shortIndex.size(), 14u);
    ASSERT_TRUE(m_client.Send(Join(Join(shortModes, shortIndex), Request(Wire::ActiveModes))));

    Bytes const response = m_client.ReadPacket();
    ASSERT_FALSE(response.empty());
    EXPECT_EQ(Wire::GetU16(response.data() + Wire::CommandOffset), Wire::ActiveModes);
    EXPECT_TRUE(m_client.Silent());
}

// A Stop ends within a bound whatever the client does: none, one that sends nothing, one that
// sent part of a packet, or one that asks for answers and never reads them, which fills the
// socket's buffers until a send blocks. The client then sees the connection end, and the port
// refuses connections.
TEST_F(KnobbyWorkerTest, StopEndsPromptlyWhateverTheClientDoes)
{
    m_store.values["module.big"] = std::string(60000, 'x');
    enum class Client
    {
        None,
        Silent,
        HalfPacket,
        NotReading,
    };
    for (Client const client :
         {Client::None, Client::Silent, Client::HalfPacket, Client::NotReading}) {
        SCOPED_TRACE(static_cast<int>(client));
        m_log.Clear();
        m_worker.Start();
        unsigned short const port = m_worker.GetPort();
        ASSERT_NE(port, 0);
        LoopbackClient peer;
        if (client != Client::None) {
            ASSERT_TRUE(peer.Connect(port));
            ASSERT_TRUE(LoggedPart("Knobby accepted data connection"));
        }
        if (client == Client::HalfPacket) {
            Bytes const request = Request(Wire::ActiveModes);
            ASSERT_TRUE(peer.Send(Bytes(request.begin(), request.begin() + 9)));
        }
        if (client == Client::NotReading) {
            for (uint32_t i = 0; i < 300; ++i)
                ASSERT_TRUE(peer.Send(Request(Wire::GetValues, "Default:module.big", i)));
            ASSERT_TRUE(LoggedPart("Sockets send failed"));
        }
        LiveTuningTest::BoundedCall([&] { m_worker.Stop(); }).Wait(std::chrono::seconds(8));
        EXPECT_EQ(m_worker.GetPort(), 0);
        if (client == Client::Silent) {
            EXPECT_TRUE(peer.SeesEnd());
        }
        LoopbackClient late;
        EXPECT_FALSE(late.Connect(port));
    }
}

// While paused the worker leaves the store alone; requests wait and are answered on the same
// connection once it resumes.
TEST_F(KnobbyWorkerTest, PausedWorkerAnswersOnTheSameConnectionWhenResumed)
{
    StartWorker();
    m_worker.Pause();
    m_worker.Pause();
    ASSERT_TRUE(m_client.Send(Request(Wire::GetValues, "Default:module.gain", 61)));
    EXPECT_TRUE(m_client.Silent());
    m_worker.Resume();
    EXPECT_TRUE(m_client.Silent());
    EXPECT_EQ(m_store.LastGet(), "");
    m_worker.Resume();
    Bytes const response = m_client.ReadPacket();
    ExpectEchoedHead(response, Wire::GetValues, 61);
}

// The answer to a client that left before it was ready is dropped, not sent to the next one.
TEST_F(KnobbyWorkerTest, AnswerForAClientThatLeftReachesNoOther)
{
    StartWorker();
    m_worker.Pause();
    ASSERT_TRUE(m_client.Send(Request(Wire::ActiveModes)));
    ASSERT_TRUE(m_client.Send(Request(Wire::GetValues, "Default:module.gain", 71)));
    m_client.Close();
    ASSERT_TRUE(LoggedPart("Knobby client disconnected"));
    LoopbackClient next;
    ASSERT_TRUE(next.Connect(m_worker.GetPort()));
    ASSERT_TRUE(WaitFor([&] { return m_log.Count("Knobby accepted data connection") == 2; }));
    m_worker.Resume();
    ASSERT_TRUE(Logged("Knobby queued command: GetValues(5), ID: 71, Payload: \n"));

    ASSERT_TRUE(next.Send(Request(Wire::GetValues, "Default:module.gain", 72)));
    Bytes const response = next.ReadPacket();
    ExpectEchoedHead(response, Wire::GetValues, 72);
    EXPECT_EQ(m_log.Count("Knobby write dropped for a closed connection\n"), 2u);
}

// A head that claims the largest packet is refused at once, instead of holding every later
// request until 64 KiB have come.
TEST_F(KnobbyWorkerTest, HeadClaimingTheLargestPacketIsRefusedAtOnce)
{
    StartWorker();
    Bytes head = Request(Wire::ActiveModes);
    Wire::PutU16(head.data() + Wire::LengthOffset, 65535);
    ASSERT_TRUE(m_client.Send(head));
    ASSERT_TRUE(Logged("Knobby request length (65535) is greater than packet size (65534): "
                       "0x4e4b0100ff\n"));
    Bytes const response = Ask(Request(Wire::ActiveModes));
    ASSERT_FALSE(response.empty());
    EXPECT_EQ(Wire::GetU16(response.data() + Wire::CommandOffset), Wire::ActiveModes);
}

TEST(KnobbyWorkerLifetimeTest, DestructorStopsARunningWorker)
{
    ParamTest::LogCapture log;
    FakeDataAPI store;
    auto* worker = new ParameterKnobbyWorker(&store);
    worker->Start();
    unsigned short const port = worker->GetPort();
    ASSERT_NE(port, 0);
    // Served once, so the command thread has been through a round and waits for the next.
    LoopbackClient client;
    ASSERT_TRUE(client.Connect(port));
    ASSERT_TRUE(client.Send(Request(Wire::ActiveModes)));
    EXPECT_FALSE(client.ReadPacket().empty());
    client.Close();

    LiveTuningTest::BoundedCall destroy([worker] { delete worker; });
    destroy.Wait();
    EXPECT_TRUE(log.Contains("Stopping TCP/IP Knobby server"));
}

} // namespace
