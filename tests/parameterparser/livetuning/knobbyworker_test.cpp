// SPDX-License-Identifier: Apache-2.0
// Tests of the live tuning commands and the host's values over loopback, against a store with fixed
// answers.
#include <chrono>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/livetuning/parameterknobbyworker.h"
#include "parameterparser/parsercrc.h"

#include "tests/common/livetuningfixture.h"
#include "tests/common/logcapture.h"
#include "tests/common/loopbackclient.h"

namespace {

namespace Wire = ParameterKnobbyPacket;
using namespace ParamTest;

// A worker on loopback and a client on it. No Stop: the destructor stops a running worker.
class KnobbyWorkerTest : public ::testing::Test
{
protected:
    void StartWorker()
    {
        ASSERT_TRUE(m_worker.SetListenAddress("127.0.0.1", 0));
        m_worker.Start();
        ASSERT_TRUE(m_client.Connect(m_worker.GetPort()));
    }

    Bytes Ask(Bytes const& request)
    {
        EXPECT_TRUE(m_client.Send(request));
        return m_client.ReadPacket();
    }

    // The worker logs a command's line after queueing its response: wait for it.
    bool Logged(std::string const& line)
    {
        return WaitFor([&] { return m_log.HasMessage(line); });
    }

    LogCapture m_log;
    FakeDataAPI m_store;
    ParameterKnobbyWorker m_worker{&m_store};
    LoopbackClient m_client;
};

struct CommandCase
{
    char const* name;
    void (*setup)(FakeDataAPI&);
    Bytes request;
    std::string text;      ///< "<session>": the session ID as "0x%016lx"
    std::string call;      ///< the store's last call
    std::string line = {}; ///< a line the command logs; empty for none checked
};

class KnobbyCommandTest : public KnobbyWorkerTest, public ::testing::WithParamInterface<CommandCase>
{
};

// Each response echoes the request's command and ID, counts the whole packet in its length field
// and carries the text the store's answer makes behind its head (Device Info's is two bytes
// longer) with its terminator, and ten zero bytes more for Modes.
TEST_P(KnobbyCommandTest, AnswersWithTheStoresText)
{
    CommandCase const& test = GetParam();
    if (test.setup != nullptr)
        test.setup(m_store);
    StartWorker();
    Bytes const response = Ask(test.request);
    uint16_t const command = Wire::GetU16(test.request.data() + Wire::CommandOffset);
    size_t const textAt = Wire::HasRequestId(command)   ? Wire::RequestHeadSize
                          : command == Wire::DeviceInfo ? 16
                                                        : 14;
    size_t const trailing = command == Wire::Modes ? 11 : 1;
    char session[32];
    std::snprintf(session, sizeof(session), "0x%016lx", m_worker.GetSessionId());
    std::string const text = test.text == "<session>" ? session : test.text;
    ASSERT_EQ(response.size(), textAt + text.size() + trailing);
    EXPECT_EQ(TextAt(response, textAt), text);
    EXPECT_EQ(Bytes(response.end() - trailing, response.end()), Bytes(trailing, 0));
    EXPECT_EQ(Wire::GetU16(response.data() + Wire::CommandOffset), command);
    EXPECT_EQ(Wire::GetU16(response.data() + Wire::LengthOffset), response.size());
    if (textAt == Wire::RequestHeadSize) {
        EXPECT_EQ(Wire::GetU32(response.data() + Wire::RequestIdOffset), 7u);
    }
    EXPECT_EQ(m_store.LastCall(), test.call);
    EXPECT_TRUE(test.line.empty() || Logged(test.line)) << test.line;
}

void Records(FakeDataAPI& store)
{
    store.records = {ParameterParserInfo("gain", "Float", "1.5"),
                     ParameterParserInfo("table", "UInt32", true, false, 4),
                     ParameterParserInfo("nested", "Structure")};
}
void Values(FakeDataAPI& store)
{
    store.values = {{"module.gain/-", "gain=1.5"}, {"module/a,b", "a=1;b=2"}};
}

// The largest texts that still go out: the packet's 65534 bytes less the head and terminator.
std::string const Largest(65513, 'n');
constexpr char Described[] = "gain=1.5,Float;table,UInt32,4;nested,Structure";
std::string const Block = "Default:module.block:";
std::string const Queued = "Knobby queued command: ";

INSTANTIATE_TEST_SUITE_P(
    Commands, KnobbyCommandTest,
    ::testing::Values(
        CommandCase{"DeviceInfo", nullptr, Request(Wire::DeviceInfo), "FakeStore", "",
                    Queued + "Info(0), Version: 2.0, Name: FakeStore\n"},
        CommandCase{"DeviceInfoTables",
                    [](FakeDataAPI& s) {
                        s.tables = {"rear", "front"};
                    },
                    Request(0), "FakeStore:rear,front", ""},
        CommandCase{"DeviceInfoUnnamed", [](FakeDataAPI& s) { s.identifier.clear(); }, Request(0),
                    "<session>", ""},
        CommandCase{"ActiveModes", nullptr, Request(1), "Default|Sensor.0#0", ""},
        CommandCase{"NoControlValues", nullptr, Request(2), "", ""},
        CommandCase{"Modes", nullptr, Request(Wire::Modes, "Default|Sensor.0"),
                    "Usecase.Preview,Usecase.Video", "children|short(Default|Sensor.0)"},
        CommandCase{"Info", Records, Request(Wire::Info, "Default:module.block"), Described,
                    "info|short(Default)|module.block",
                    Queued + "Info(4), ID: 7, Payload: " + Described + "\n"},
        CommandCase{"InfoOfAModule", Records, Request(Wire::Info, "Default"), Described,
                    "info|short(Default)|-"},
        CommandCase{"InfoNamesANamelessRecord",
                    [](FakeDataAPI& s) { s.records = {ParameterParserInfo("", "UInt32", "2")}; },
                    Request(Wire::Info, "Default:module.mode"), "mode=2,UInt32",
                    "info|short(Default)|module.mode"},
        CommandCase{"InfoFails", [](FakeDataAPI& s) { s.infoSucceeds = false; },
                    Request(Wire::Info, "Default:module"), "", "info|short(Default)|module"},
        CommandCase{"GetValues", Values, Request(Wire::GetValues, "Default:module.gain"),
                    "gain=1.5", "get|short(Default)|module.gain/-|0",
                    Queued + "GetValues(5), ID: 7, Payload: gain=1.5\n"},
        CommandCase{"GetSubValues", Values, Request(Wire::GetValues, "Default:module:a,b"),
                    "a=1;b=2", "get|short(Default)|module/a,b|0"},
        CommandCase{"GetValuesModesOnly", Values, Request(Wire::GetValues, "Default"), "", ""},
        // The answer holds the read-back of the items that worked; the last item decides the
        // verdict, and an item without a value is skipped.
        CommandCase{"SetValues", nullptr, Request(Wire::SetValues, Block + "f=1;b=2"), "b=2",
                    "get|short(Default)|module.block/b|0",
                    "Knobby command succeeded: SetValues(6), ID: 7, Payload: b=2\n"},
        CommandCase{"SetValuesLastFails", nullptr, Request(Wire::SetValues, Block + "b=3;c=;f=5"),
                    "b=3", "set|short(Default)|module.block|f=5",
                    "Knobby command failed: SetValues(6), ID: 7, Payload: b=3\n"},
        CommandCase{"SetValuesSkipsAnEmptyValue", nullptr,
                    Request(Wire::SetValues, Block + "b=4;c="), "b=4",
                    "get|short(Default)|module.block/b|0",
                    "Knobby command succeeded: SetValues(6), ID: 7, Payload: b=4\n"},
        CommandCase{"SetValuesEmptyReadBack", nullptr,
                    Request(Wire::SetValues, Block + "q=1;b=5;q=2"), ";b=5;",
                    "get|short(Default)|module.block/q|0"},
        // A name is cut to its field of 511 characters.
        CommandCase{"SetValuesCutsANameAtItsField", nullptr,
                    Request(Wire::SetValues, Block + std::string(512, 'n') + "=1"),
                    std::string(511, 'n') + "=1",
                    "get|short(Default)|module.block/" + std::string(511, 'n') + "|0"},
        CommandCase{"SetValuesModesOnly", nullptr, Request(Wire::SetValues, "Default"), "", "",
                    "Knobby command failed: SetValues(6), ID: 7, Payload: \n"},
        CommandCase{"InfoOfTheLargestPacket",
                    [](FakeDataAPI& s) { s.records = {ParameterParserInfo(Largest.c_str(), "T")}; },
                    Request(Wire::Info, "Default:module"), Largest + ",T",
                    "info|short(Default)|module"},
        CommandCase{"GetValuesOfTheLargestPacket",
                    [](FakeDataAPI& s) {
                        s.values = {{"module.big/-", Largest + "xy"}};
                    },
                    Request(Wire::GetValues, "Default:module.big"), Largest + "xy",
                    "get|short(Default)|module.big/-|0"},
        CommandCase{"SetValuesWithoutItems", nullptr, Request(Wire::SetValues, "Default:module"),
                    "", "", "Knobby SetValues failed: Failed to read mode\n"}),
    [](::testing::TestParamInfo<CommandCase> const& test) { return test.param.name; });

// One byte more makes a packet of 65535 bytes, which the transport refuses: the client gets no
// answer, and the log says what was cut and dropped.
TEST_F(KnobbyWorkerTest, TextsPastTheLargestPacketAreNotSent)
{
    std::string const name = Largest + "nn";
    m_store.records = {ParameterParserInfo(name.c_str(), "T")};
    m_store.values = {{"module.big/-", name + "xyz"}};
    StartWorker();
    ASSERT_TRUE(m_client.Send(Join(Request(Wire::Info, "Default:module"),
                                   Request(Wire::GetValues, "Default:module.big"))));
    EXPECT_TRUE(m_client.Silent());
    EXPECT_TRUE(m_log.HasMessage("Failed to write 1 bytes to binary offset 65534, length 65534\n"));
    EXPECT_TRUE(
        WaitFor([&] { return m_log.Count("Knobby write insufficient buffer size 0\n") == 2; }));
}

// The session ID is drawn afresh at each start and names no address; only Modes compares it.
TEST_F(KnobbyWorkerTest, SessionIdIsDrawnAtEachStartAndComparedByModes)
{
    StartWorker();
    uint64_t const first = m_worker.GetSessionId();
    EXPECT_EQ(Wire::GetU64(Ask(Request(Wire::DeviceInfo)).data() + 8), first);
    EXPECT_NE(first, reinterpret_cast<uintptr_t>(static_cast<IParameterDataAPI*>(&m_store)));
    EXPECT_EQ(Wire::GetU64(Ask(Request(Wire::Modes, "Default", 7, first)).data() + 6), first);
    EXPECT_EQ(m_log.Count("Request packet Knobby ID does not match"), 0u);
    EXPECT_EQ(Wire::GetU32(Ask(Request(Wire::Modes, "Default", 43, 5)).data() + 14), 43u);
    EXPECT_TRUE(
        m_log.HasMessage("Request packet Knobby ID does not match, Command: Modes(3): Expected: " +
                         std::to_string(first) + ", Actual: 5\n"));
    m_client.Close();
    m_worker.Stop();
    StartWorker();
    EXPECT_NE(m_worker.GetSessionId(), first);
}

// The index stays for later commands; a text that is no index below the table count leaves it, and
// a negative one selects the first table.
TEST_F(KnobbyWorkerTest, ModeIndexSelectsAnExistingTableOnly)
{
    m_store.tables = {"rear", "front"};
    StartWorker();
    std::pair<char const*, char const*> const cases[] = {
        {"1", "1"}, {"2", "1"}, {"abc", "1"}, {"-1", "0"}, {"1", "1"}};
    for (auto const& [text, index] : cases) {
        EXPECT_EQ(TextAt(Ask(Request(Wire::ModeIndex, text)), 14), index) << text;
    }
    EXPECT_EQ(TextAt(Ask(Request(Wire::ActiveModes)), 14), "Default|Sensor.0#1");
}

// The child list and its terminator fill the 16384-byte buffer from 18, and the response counts ten
// bytes more: a list of 16355 bytes is refused by the head writer, which leaves the head zero, and
// the buffer goes out all the same; one byte less is answered in full.
TEST_F(KnobbyWorkerTest, ModesListAtTheBufferEndIsSentWithoutAHead)
{
    for (size_t const length : {16354u, 16355u}) {
        m_store.childModes = std::string(length, 'm');
        StartWorker();
        ASSERT_TRUE(m_client.Send(Request(Wire::Modes, "Default")));
        Bytes const response = m_client.ReadBytes(length + 29, std::chrono::seconds(5));
        ASSERT_EQ(response.size(), length + 29) << length;
        EXPECT_EQ(Wire::GetU16(response.data() + Wire::LengthOffset),
                  length == 16355 ? 0 : length + 29);
        EXPECT_EQ(TextAt(response, 18), m_store.childModes);
        m_client.Close();
        m_worker.Stop();
    }
}

// Requests below their command's smallest size are dropped unanswered; at that size they run.
TEST(KnobbyExecuteTest, RequestsBelowTheirMinimumAreDropped)
{
    std::tuple<Bytes, unsigned int, bool> const cases[] = {
        {Request(Wire::DeviceInfo), 3, false},      {Request(Wire::DeviceInfo), 4, true},
        {Request(Wire::Modes, "D"), 18, false},     {Request(Wire::Modes, "D"), 19, true},
        {Request(Wire::Custom, "D"), 18, false},    {Request(Wire::Custom, "D"), 19, true},
        {Request(Wire::ModeIndex, "1"), 14, false}, {Request(Wire::ModeIndex, "1"), 15, true},
    };
    for (auto const& [packet, size, runs] : cases) {
        LogCapture log;
        FakeDataAPI store;
        ParameterKnobbyWorker(&store).Execute(packet.data(), size);
        EXPECT_EQ(log.Contains("Knobby queued "), runs) << size;
        EXPECT_EQ(log.HasMessage("Failed to read 2 bytes from binary file offset 2, length 3\n"),
                  size == 3);
    }
}

// Answers custom commands with a fixed answer, and trigger notices for two instances at once; keeps
// what it was given.
class Handler : public KnobbyHandler
{
public:
    Handler(ParameterKnobbyWorker& worker, Bytes answer = {})
        : m_worker(worker), m_answer(std::move(answer))
    {
    }

    unsigned short Custom(unsigned char const* payload, unsigned int length, unsigned short room,
                          unsigned char* out, unsigned short& outLength) override
    {
        Keep(std::string(payload, payload + length) + "|" + std::to_string(room));
        std::copy(m_answer.begin(), m_answer.end(), out);
        outLength = static_cast<unsigned short>(m_answer.size());
        return 0x0203;
    }

    void TriggerNotice(char const* modePath, char const* module, unsigned long hash,
                       char const* pipeline) override
    {
        Keep(std::string(modePath) + "|" + module + "|" + pipeline + "|" + std::to_string(hash));
        ParameterCTValue const second[] = {{7, 0.5}, {8, -2.0}};
        ParameterCTValue const first[] = {{1, 42.0}};
        m_worker.SetTriggerValues(modePath, module, pipeline, "ife1", second, 2);
        m_worker.SetTriggerValues(modePath, module, pipeline, "ife0", first, 1);
    }

    std::string Given()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_given;
    }

private:
    void Keep(std::string text)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_given = std::move(text);
    }

    ParameterKnobbyWorker& m_worker;
    Bytes const m_answer;
    std::mutex m_mutex;
    std::string m_given;
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
    std::string hex;
    while (hex.size() < 2 * 63)
        hex += "01";
    std::pair<Bytes, std::string> const cases[] = {
        {Bytes{'p', 'o', 'n', 'g'}, "pong"},
        {Bytes{0x00, 0xFF, 0x10}, "00FF10"},
        {Bytes(200, 'x'), std::string(127, 'x')},
        {Bytes(200, 0x01), hex},
    };
    for (auto const& [answer, shown] : cases) {
        Handler handler(m_worker, answer);
        m_worker.SetHandler(&handler);
        Bytes const response = Ask(Request(Wire::Custom, "ping", 52));
        EXPECT_EQ(Wire::GetU16(response.data() + 18), 0x0203u);
        EXPECT_EQ(Bytes(response.begin() + 20, response.end()), answer);
        EXPECT_EQ(handler.Given(), std::string("ping", 5) + "|65515");
        EXPECT_TRUE(
            Logged("Knobby queued command: Custom(8), ID: 52, Payload: " + shown + "...\n"));
        m_worker.SetHandler(nullptr);
    }
}

// A trigger request is answered in the round after the next request, once clock(), which counts
// this process's processor time alone, has moved past the time it waits: spend that time, then send
// a request and read its answer.
Bytes NextTriggerAnswer(LoopbackClient& client)
{
    clock_t const start = clock();
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (volatile double sink = 0; clock() - start <= ParameterKnobbyWorker::TriggerResponseTicks &&
                                   std::chrono::steady_clock::now() < end;)
        sink = sink + 1.0;
    EXPECT_TRUE(client.Send(Request(Wire::ActiveModes)));
    EXPECT_EQ(TextAt(client.ReadPacket(), 14), "Default|Sensor.0#0");
    return client.ReadPacket();
}

TEST_F(KnobbyWorkerTest, TriggerRequestIsAnsweredLaterWithInstancesInCallOrder)
{
    Handler handler(m_worker);
    m_worker.SetHandler(&handler);
    StartWorker();
    ASSERT_TRUE(m_client.Send(Request(Wire::TriggerValues, "0.0|1.2:abf40_ife:3")));
    ASSERT_TRUE(WaitFor([&] { return !handler.Given().empty(); }));
    EXPECT_EQ(handler.Given(),
              "0.0|1.2|abf40_ife|3|" + std::to_string(ParserCRC64::HashName("abf40_ife")));
    EXPECT_TRUE(m_worker.TriggerRequestExists("0.0|1.2", "abf40_ife", "3"));
    EXPECT_FALSE(m_worker.SetTriggerValues("0.0|1.2", "abf40_ife", "4", "x", nullptr, 0));
    EXPECT_TRUE(m_client.Silent());
    Bytes const trigger = NextTriggerAnswer(m_client);
    // Head and text, then per instance its name, ":", a 2-byte count and 12-byte values.
    Bytes expected = Request(Wire::TriggerValues, "0.0|1.2:abf40_ife:3#");
    expected.pop_back();
    auto const add = [&expected](std::string const& name, std::vector<ParameterCTValue> values) {
        expected.insert(expected.end(), name.begin(), name.end());
        expected.insert(expected.end(), {':', static_cast<uint8_t>(values.size()), 0});
        for (ParameterCTValue const& value : values) {
            uint8_t field[12];
            uint64_t bits = 0;
            std::memcpy(&bits, &value.value, sizeof(bits));
            Wire::PutU32(field, value.identifier);
            Wire::PutU64(field + 4, bits);
            expected.insert(expected.end(), field, field + sizeof(field));
        }
    };
    add("ife1", {{7, 0.5}, {8, -2.0}});
    add("ife0", {{1, 42.0}});
    Wire::WriteHead(expected.data(), Wire::TriggerValues,
                    static_cast<unsigned int>(expected.size()), m_worker.GetSessionId());
    EXPECT_EQ(trigger, expected);
    EXPECT_FALSE(m_worker.TriggerRequestExists("0.0|1.2", "abf40_ife", "3"));
    m_worker.SetHandler(nullptr);
    // A request of two fields has an empty pipeline.
    ASSERT_TRUE(m_client.Send(Request(Wire::TriggerValues, "0.0:module")));
    ASSERT_TRUE(WaitFor([&] { return m_worker.TriggerRequestExists("0.0", "module", ""); }));
    EXPECT_FALSE(m_worker.TriggerRequestExists("0.0", "module", "0"));
    // An instance whose record does not fit the packet ends the list.
    std::string const huge(65535, 'i');
    ASSERT_TRUE(m_worker.SetTriggerValues("0.0", "module", "", huge.c_str(), nullptr, 0));
    ASSERT_TRUE(m_worker.SetTriggerValues("0.0", "module", "", "ife2", nullptr, 0));
    EXPECT_EQ(TextAt(NextTriggerAnswer(m_client), 14), "0.0:module:#");
    EXPECT_TRUE(m_log.HasMessage(
        "Knobby Trigger Values(7) command, insufficient space to write trigger values\n"));
}

// Values stay sorted by identifier and replace in place; a list replaces them all in its own order.
// Each long value prints as 111 characters: with their separators 36 of them take 4031 of the 4082
// bytes of text, the 37th (46) would pass the end, and a short value behind it fits.
TEST_F(KnobbyWorkerTest, ControlValuesReadBackSortedAndLeaveOutWhatDoesNotFit)
{
    StartWorker();
    for (uint32_t identifier : {3u, 1u, 2u})
        m_worker.SetControlValue({identifier, identifier * 1.5});
    m_worker.SetControlValue({2, -0.25});
    EXPECT_EQ(TextAt(Ask(Request(2)), 14), "1=1.500000,2=-0.250000,3=4.500000");
    EXPECT_TRUE(Logged("Knobby queued command: Control Values(2), Version: 2.0, Name: "
                       "1=1.500000,2=-0.250000,3=4.500000\n"));
    PList<ParameterCTValue> list;
    list.Add({9, 1.0});
    list.Add({4, 2.0});
    m_worker.SetControlValues(list);
    EXPECT_EQ(TextAt(Ask(Request(2)), 14), "9=1.000000,4=2.000000");
    m_worker.SetControlValues(PList<ParameterCTValue>());
    for (uint32_t identifier = 10; identifier < 47; ++identifier)
        m_worker.SetControlValue({identifier, 1e100});
    m_worker.SetControlValue({47, 7.0});
    Bytes const response = Ask(Request(2));
    std::string const text = TextAt(response, 14);
    EXPECT_EQ(response.size(), 15 + text.size());
    EXPECT_EQ(text.size(), 36 * 111 + 35 + 12);
    EXPECT_EQ(text.find("46="), std::string::npos);
    EXPECT_EQ(text.substr(text.size() - 12), ",47=7.000000");
}

// A pause waits for the command that runs to end; while paused the worker leaves the store alone,
// and requests wait to be answered on the same connection once the last pause is resumed.
TEST_F(KnobbyWorkerTest, PauseWaitsForTheRunningCommandAndHoldsTheNextUntilResumed)
{
    m_store.getDelay = std::chrono::milliseconds(300);
    StartWorker();
    ASSERT_TRUE(m_client.Send(Request(Wire::GetValues, "Default:module.gain", 62)));
    ASSERT_TRUE(WaitFor([&] { return !m_store.LastCall().empty(); }));
    m_worker.Pause();
    EXPECT_TRUE(m_log.Contains("Knobby queued command: GetValues(5), ID: 62"));
    EXPECT_EQ(Wire::GetU32(m_client.ReadPacket().data() + 14), 62u);
    m_worker.Pause();
    ASSERT_TRUE(m_client.Send(Request(Wire::GetValues, "Default:module.other", 61)));
    EXPECT_TRUE(m_client.Silent());
    m_worker.Resume();
    EXPECT_TRUE(m_client.Silent());
    EXPECT_EQ(m_store.LastCall(), "get|short(Default)|module.gain/-|0");
    m_worker.Resume();
    EXPECT_EQ(Wire::GetU32(m_client.ReadPacket().data() + 14), 61u);
}

// The answer to a client that left before it was ready is dropped, not sent to the next one.
TEST_F(KnobbyWorkerTest, AnswerForAClientThatLeftReachesNoOther)
{
    StartWorker();
    m_worker.Pause();
    ASSERT_TRUE(m_client.Send(Request(Wire::GetValues, "Default:module.gain", 71)));
    m_client.Close();
    LoopbackClient next;
    ASSERT_TRUE(next.Connect(m_worker.GetPort()));
    ASSERT_TRUE(WaitFor([&] { return m_log.Count("Knobby accepted data") == 2; }));
    m_worker.Resume();
    ASSERT_TRUE(next.Send(Request(Wire::GetValues, "Default:module.gain", 72)));
    EXPECT_EQ(Wire::GetU32(next.ReadPacket().data() + 14), 72u);
    EXPECT_EQ(m_log.Count("Knobby write dropped for a closed connection\n"), 1u);
}

// A Stop ends within a bound whatever the client does: none, one that sends nothing, one that sent
// part of a packet, or one that asks for answers and never reads them, which fills the socket's
// buffers until a send gives up. The client sees its end and the port is closed.
TEST_F(KnobbyWorkerTest, StopEndsPromptlyWhateverTheClientDoes)
{
    m_store.values["module.big/-"] = std::string(60000, 'x');
    ASSERT_TRUE(m_worker.SetListenAddress("127.0.0.1", 0));
    for (int client = 0; client < 4; ++client) {
        m_log.Clear();
        m_worker.Start();
        unsigned short const port = m_worker.GetPort();
        LoopbackClient peer;
        ASSERT_TRUE(client == 0 || peer.Connect(port));
        ASSERT_TRUE(client != 2 || peer.Send(Bytes(9, 0x4E)));
        for (uint32_t i = 0; client == 3 && i < 300; ++i)
            ASSERT_TRUE(peer.Send(Request(Wire::GetValues, "Default:module.big", i)));
        ASSERT_TRUE(client != 3 || WaitFor([&] { return m_log.Contains("send failed"); }));
        BoundedCall([&] { m_worker.Stop(); }, std::chrono::seconds(8));
        EXPECT_EQ(m_worker.GetPort(), 0) << client;
        EXPECT_TRUE(client != 1 || peer.SeesEnd());
        EXPECT_FALSE(LoopbackClient().Connect(port)) << client;
    }
}

} // namespace
