// SPDX-License-Identifier: Apache-2.0
// Tests of the live tuning wire: the packet helpers (the head parser in both directions, the
// response builder and the printable test, each at the bounds of its sizes) and the transport on
// loopback: framing of the byte stream, the connection's life (accept, peer set-up, readiness,
// close, idle time-out), the port walk and the queues.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>

#include <dirent.h>
#include <sys/un.h>

#include <gtest/gtest.h>

#include "parameterparser/livetuning/parameterknobbycom.h"
#include "parameterparser/livetuning/parameterknobbyworker.h"
#include "platform/vornalloc.h"

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
                               {false, Wire::DeviceInfo, "", 0, true, 6, 0},
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
        {Wire::DeviceInfo, 64, 4, false, 0, 0},
        {Wire::Info, 14, 0, false, 0, 0},
        {Wire::Info, 64, 4 + 8, true, 22, 12},
        {Wire::Info, 22, 4 + 8, false, 22, 0},
        {Wire::Info, 23, 4 + 8, true, 22, 5},
        {Wire::Info, 17, 0, false, 10, 0},
        {Wire::Info, 18, 0, true, 10, 0},
        {Wire::ControlValues, 15, 4, true, 10, 0},
        // The payload goes behind the head of the commands 3 to 8 only.
        {Wire::Modes, 64, 4 + 8, true, 22, 12},
        {Wire::Custom, 64, 4 + 8, true, 22, 12},
        {Wire::ModeIndex, 64, 4 + 8, true, 18, 0},
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

// The server's socket driven from the test thread: each Receive is one ReceiveKnobbyRequest.
class KnobbyFramingTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_com.SetListenAddress("127.0.0.1", 0));
        ASSERT_TRUE(m_client.Connect(m_com.StartCom()));
    }

    Bytes Receive(unsigned int packetSize = Wire::MaxPacketSize, int timeout = 1)
    {
        Bytes packet(Wire::MaxPacketSize);
        packet.resize(m_com.ReceiveKnobbyRequest(packet.data(), packetSize, 10, timeout, m_stop));
        return packet;
    }

    LogCapture m_log;
    FakeDataAPI m_store;
    ParameterKnobbyCom m_com{&m_store};
    std::atomic<bool> m_stop{false};
    LoopbackClient m_client;
};

// Packets come out one per call whatever the sends cut them into, down to a last byte received
// alone; a part waits across time-outs, and thirteen bytes are no head yet.
TEST_F(KnobbyFramingTest, StreamIsCutIntoWholePackets)
{
    Bytes const first = Request(Wire::ModeIndex, "1");
    Bytes const second = Request(Wire::Info, "Default:module.gain", 99);
    Bytes const third = Request(Wire::GetValues, "Default|Sensor.0:module.table[3]:a,b", 5);
    EXPECT_TRUE(Receive(Wire::MaxPacketSize, 0).empty()); // no time to wait: at once, with nothing
    ASSERT_TRUE(m_client.Send(Join(Join(first, second), Bytes(third.begin(), third.begin() + 13))));
    EXPECT_EQ(Receive(), first);
    EXPECT_EQ(Receive(), second);
    EXPECT_TRUE(Receive().empty());
    for (size_t i = 13; i + 1 < third.size(); ++i)
        ASSERT_TRUE(m_client.Send(Bytes{third[i]}));
    EXPECT_TRUE(Receive().empty());
    ASSERT_TRUE(m_client.Send(Bytes{third.back()}));
    EXPECT_EQ(Receive(), third);
    EXPECT_EQ(m_log.Count("Knobby request"), 0u);
}

// A copy of packet with the 16-bit field at offset set to value.
Bytes With(Bytes packet, unsigned int offset, uint16_t value)
{
    Wire::PutU16(packet.data() + offset, value);
    return packet;
}

struct HeadCase
{
    char const* name;
    Bytes packet;
    unsigned int packetSize;
    char const* refusal; ///< null: the packet is accepted
};

class KnobbyHeadTest : public KnobbyFramingTest, public ::testing::WithParamInterface<HeadCase>
{
};

// A head that can never complete is thrown away with every byte buffered behind it, so that a
// packet sent later is read at once instead of queueing behind it for good.
TEST_P(KnobbyHeadTest, IsAcceptedOrDroppedWithTheBufferedBytes)
{
    HeadCase const& test = GetParam();
    bool const refused = test.refusal != nullptr;
    ASSERT_TRUE(m_client.Send(refused ? Join(test.packet, Request(1)) : test.packet));
    EXPECT_EQ(Receive(test.packetSize), refused ? Bytes() : test.packet);
    EXPECT_TRUE(!refused || m_log.HasMessage(test.refusal));
    ASSERT_TRUE(m_client.Send(Request(Wire::Info, "later")));
    EXPECT_EQ(Receive(), Request(Wire::Info, "later"));
}

Bytes const Index = Request(Wire::ModeIndex, "123");
Bytes const Info = Request(Wire::Info, "0123456789");

// A head is refused as soon as its length is seen, before its bytes have come.
INSTANTIATE_TEST_SUITE_P(
    Heads, KnobbyHeadTest,
    ::testing::Values(
        HeadCase{
            "WrongStartTag", With(Index, 0, 0x0102), 65535,
            "Knobby request missing start tag, Expected: 19278, Received: 258: 0x0201090012\n"},
        HeadCase{"LastCommand", Index, 65535, nullptr},
        HeadCase{"CommandPastTheLast", With(Index, 2, 10), 65535,
                 "Knobby request ID 10 exceeds Max 10\n"},
        HeadCase{"ZeroLength", With(Index, 4, 0), 65535,
                 "Knobby request length is zero: 0x4e4b090000\n"},
        HeadCase{"LengthBelowTheHead", With(Index, 4, 13), 65535,
                 "Knobby request length (13) is less than head size (14): 0x4e4b09000d\n"},
        HeadCase{"HeadAlone", Request(Wire::ActiveModes), 65535, nullptr},
        HeadCase{"AtThePacketSize", Info, 29, nullptr},
        HeadCase{"PastThePacketSize", Info, 28,
                 "Knobby request length (29) is greater than packet size (28): 0x4e4b04001d\n"}),
    [](::testing::TestParamInfo<HeadCase> const& test) { return test.param.name; });

// A client that closes, and then one that falls silent, is released at once; its unfinished
// bytes are dropped, and the client waiting behind it is read within the same receive.
TEST_F(KnobbyFramingTest, ClosedOrSilentClientIsReleasedForTheNext)
{
    m_com.SetIdleTimeout(1);
    ASSERT_TRUE(m_client.Send(Bytes(10, 0x4E)));
    m_client.Close();
    LoopbackClient next;
    LoopbackClient third;
    for (LoopbackClient* waiting : {&next, &third}) {
        Bytes received;
        std::thread receive([&] { received = Receive(65535, 10); });
        EXPECT_TRUE(waiting->Connect(m_com.GetPort()));
        EXPECT_TRUE(waiting->Send(Request(Wire::ActiveModes)));
        receive.join();
        EXPECT_EQ(received, Request(Wire::ActiveModes));
    }
    EXPECT_TRUE(next.SeesEnd());
    EXPECT_EQ(m_log.Count("Knobby client disconnected.  Resetting socket"), 2u);
    EXPECT_EQ(m_log.Count("Knobby client idle for 1 seconds on port 0x"), 1u);
}

// The socket pair alone: an accepted client is set up (no delay, bounded sends) and waits until
// taken; a poll reads only what is ready and otherwise returns within its time-out.
TEST(KnobbySocketTest, AcceptSetsThePeerUpAndReadsOnlyWhatIsReady)
{
    LogCapture log;
    ParameterKnobbyCom::SocketID server;
    ASSERT_TRUE(server.local.SetupHost("127.0.0.1", 0));
    auto* address = reinterpret_cast<sockaddr*>(&server.local.address);
    socklen_t length = server.local.length;
    server.listenSocket = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(bind(server.listenSocket, address, length), 0);
    getsockname(server.listenSocket, address, &length);
    server.listening = listen(server.listenSocket, 1) == 0;
    std::atomic<bool> stop{false};
    unsigned char buffer[64];
    EXPECT_FALSE(server.TakeAccepted());
    EXPECT_EQ(server.ReadData(buffer, sizeof(buffer), 0, stop), 0);

    LoopbackClient client;
    ASSERT_TRUE(client.Connect(ntohs(reinterpret_cast<sockaddr_in*>(address)->sin_port)));
    EXPECT_EQ(server.ReadData(buffer, sizeof(buffer), 2, stop), 0);
    EXPECT_EQ(server.connection.load(), -1);
    ASSERT_TRUE(server.TakeAccepted());
    EXPECT_EQ(server.accepted, -1);
    int noDelay = 0;
    timeval limit = {};
    socklen_t size = sizeof(noDelay);
    getsockopt(server.connection, IPPROTO_TCP, TCP_NODELAY, &noDelay, &size);
    size = sizeof(limit);
    getsockopt(server.connection, SOL_SOCKET, SO_SNDTIMEO, &limit, &size);
    EXPECT_NE(noDelay, 0);
    EXPECT_EQ(limit.tv_sec, ParameterKnobbyCom::SendTimeoutSeconds);
    auto const* peer = reinterpret_cast<sockaddr_in*>(&server.peer.address);
    EXPECT_EQ(peer->sin_addr.s_addr, htonl(INADDR_LOOPBACK));

    // Nothing ready: the poll's time-out, not a blocking receive.
    BoundedCall([&] { EXPECT_EQ(server.ReadData(buffer, 64, 0, stop), 0); });
    ASSERT_TRUE(client.Send(Bytes{1, 2, 3}));
    EXPECT_EQ(server.ReadData(buffer, sizeof(buffer), 2, stop), 3);
    client.Close();
    EXPECT_EQ(server.ReadData(buffer, sizeof(buffer), 2, stop), -1);
    EXPECT_EQ(server.connection.load(), -1);
}

// Addresses as bind takes them: TCP by default or on a numeric literal, and the abstract UNIX
// name, whose leading "#" becomes the zero byte of the abstract namespace.
TEST(KnobbySocketTest, AddressesAreBuiltForBind)
{
    ParameterKnobbyCom::SocketAddress address = {};
    address.SetupSocket(ParameterKnobbyCom::SocketAddress::UNIX, 0x812f);
    EXPECT_EQ(address.length, 2u + 11u + 1u);
    EXPECT_EQ(std::string(reinterpret_cast<sockaddr_un*>(&address.address)->sun_path, 12),
              std::string("\0Knobby812f", 12));
    address.SetupSocket(ParameterKnobbyCom::SocketAddress::INET, 0x4b4e);
    EXPECT_EQ(reinterpret_cast<sockaddr_in*>(&address.address)->sin_port, htons(0x4b4e));
    ASSERT_TRUE(address.SetupHost("::1", 7));
    EXPECT_EQ(reinterpret_cast<sockaddr_in6*>(&address.address)->sin6_port, htons(7));
    // Anything but a numeric literal changes nothing.
    EXPECT_FALSE(address.SetupHost("localhost", 9));
    EXPECT_FALSE(address.SetupHost(nullptr, 9));
    EXPECT_EQ(address.port, 7u);
}

// A thread object holds one thread from its start until it is joined, at the latest by its
// destructor, and then takes the next.
TEST(KnobbyThreadTest, HoldsOneThreadUntilJoined)
{
    std::atomic<int> runs{0};
    auto* const entry = +[](void* count) -> void* {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        ++*static_cast<std::atomic<int>*>(count);
        return nullptr;
    };
    {
        ParameterKnobbyThread thread;
        EXPECT_TRUE(thread.Start(entry, &runs, "test", nullptr));
        EXPECT_FALSE(thread.Start(entry, &runs, "test", nullptr));
        thread.Join();
        EXPECT_FALSE(thread.Joinable());
        EXPECT_EQ(runs.load(), 1);
        EXPECT_TRUE(thread.Start(entry, &runs, "test", nullptr));
    }
    EXPECT_EQ(runs.load(), 2);
}

size_t OpenDescriptors()
{
    size_t count = 0;
    DIR* directory = opendir("/proc/self/fd");
    while (directory != nullptr && readdir(directory) != nullptr)
        ++count;
    if (directory != nullptr)
        closedir(directory);
    return count;
}

TEST(KnobbyPortTest, TakenPortsAreWalkedUpOneByOne)
{
    LogCapture log;
    FakeDataAPI store;
    ParameterKnobbyCom holder(&store);
    ParameterKnobbyCom com(&store);
    // Other servers on this machine may hold the ports: skip rather than guess.
    if (holder.StartCom() != ParameterKnobbyCom::DefaultPort)
        GTEST_SKIP() << "port 19278 is in use elsewhere";
    unsigned short const port = com.StartCom();
    if (port != ParameterKnobbyCom::DefaultPort + 1)
        GTEST_SKIP() << "port 19279 is in use elsewhere";
    // The walk stays on TCP.
    EXPECT_EQ(com.GetAddressType(), ParameterKnobbyCom::SocketAddress::INET);
    EXPECT_EQ(log.Count("Port: 0x4b4e: Result: -1, errno: 98\n"), 1u);
    // The reason is the system's text, which the locale suites see translated.
    EXPECT_EQ(
        log.Count(std::string("Knobby Server bind failed: ") + std::strerror(EADDRINUSE) + "\n"),
        1u);
    EXPECT_EQ(log.Count("Port: 0x4b4f: Result: 0, errno: 0\n"), 1u);
    // A second start on the open port opens nothing.
    EXPECT_EQ(com.StartCom(), port);
    EXPECT_EQ(log.Count("Knobby Server INET socket created"), 2u);
}

// A port the host chose is the only one tried: when it is taken the server opens none.
TEST(KnobbyPortTest, ChosenPortThatIsTakenIsTheOnlyOneTried)
{
    LogCapture log;
    FakeDataAPI store;
    ParameterKnobbyCom holder(&store);
    ParameterKnobbyCom com(&store);
    ASSERT_TRUE(holder.SetListenAddress("127.0.0.1", 0));
    unsigned short const taken = holder.StartCom();
    ASSERT_NE(taken, 0);
    ASSERT_TRUE(com.SetListenAddress("127.0.0.1", taken));
    EXPECT_EQ(com.StartCom(), 0);
    EXPECT_EQ(log.Count("Knobby Failed to bind any ports\n"), 1u);
}

// Both queues hold 1024 packets at most; without service threads nothing leaves them, so the
// next receive and write are dropped, and what was queued reads back in order.
TEST(KnobbyQueueTest, QueuesHoldTheirBoundAndReadBackInOrder)
{
    LogCapture log;
    FakeDataAPI store;
    ParameterKnobbyCom com(&store);
    for (unsigned int i = 0; i <= ParameterKnobbyComBase::MaxQueuedPackets; ++i) {
        Bytes const packet = Request(Wire::ModeIndex, std::to_string(i));
        com.QueueReadData(packet.data(), static_cast<int>(packet.size()));
        com.Write(packet.data(), static_cast<int>(packet.size()));
    }
    EXPECT_EQ(log.Count("Knobby read queue full, packet dropped\n"), 1u);
    EXPECT_EQ(log.Count("Knobby write queue full, packet dropped\n"), 1u);
    for (unsigned int i = 0; i < ParameterKnobbyComBase::MaxQueuedPackets; ++i) {
        ParameterKnobbyComBase::Packet* packet = com.Read();
        EXPECT_EQ(Bytes(packet->data, packet->data + packet->length),
                  Request(Wire::ModeIndex, std::to_string(i)));
        ParameterKnobbyComBase::FreePacket(packet);
    }
    // A received packet of the largest size is queued empty; one of no bytes not at all.
    Bytes const largest(Wire::MaxPacketSize, 0x41);
    com.QueueReadData(largest.data(), 0);
    com.QueueReadData(largest.data(), static_cast<int>(largest.size()));
    ParameterKnobbyComBase::Packet* empty = com.Read();
    EXPECT_EQ(empty->length, 0u);
    ParameterKnobbyComBase::FreePacket(empty);
}

// Writes of 3 to 65534 bytes are sent to the client of the packet last read; shorter and longer
// ones are logged and dropped. Every descriptor the server opens is closed again: the listening
// socket, a client's connection when the client leaves, and the one still open at the stop.
TEST(KnobbyComTest, WritesWithinTheirBoundsReachTheClientAndNoDescriptorStaysOpen)
{
    LogCapture log;
    size_t const before = OpenDescriptors();
    {
        FakeDataAPI store;
        ParameterKnobbyCom com(&store);
        ASSERT_TRUE(com.SetListenAddress("127.0.0.1", 0));
        com.Start();
        LoopbackClient client;
        ASSERT_TRUE(client.Connect(com.GetPort()));
        ASSERT_TRUE(client.Send(Request(Wire::ActiveModes)));
        ParameterKnobbyComBase::FreePacket(com.Read());
        // A client that leaves an answer unread resets the connection, which ends it as well.
        com.Write(Request(Wire::ActiveModes).data(), 14);
        ASSERT_TRUE(WaitFor([&] { return log.Contains("Knobby write 14 bytes, Command: 1"); }));
        ASSERT_TRUE(client.Connect(com.GetPort()));
        // The read thread takes packets of 65534 bytes at most: a head that claims the buffer's
        // full size is refused at once instead of holding the stream until 64 KiB have come.
        ASSERT_TRUE(client.Send(With(Request(1), 4, 65535)));
        ASSERT_TRUE(WaitFor([&] {
            return log.HasMessage("Knobby request length (65535) is greater than packet size "
                                  "(65534): 0x4e4b0100ff\n");
        }));
        ASSERT_TRUE(client.Send(Request(Wire::ActiveModes)));
        ParameterKnobbyComBase::FreePacket(com.Read());
        Bytes const largest = With(Bytes(Wire::MaxPacketSize, 0x41), 4, 65534);
        for (int length : {-1, 65535, 2, 3, 65534})
            com.Write(length < 0 ? nullptr : largest.data(), length < 0 ? 10 : length);
        EXPECT_EQ(client.ReadBytes(65537, std::chrono::seconds(5)),
                  Join(Bytes(largest.begin(), largest.begin() + 3),
                       Bytes(largest.begin(), largest.end() - 1)));
        EXPECT_TRUE(client.Silent());
        BoundedCall([&] { com.Stop(); });
        EXPECT_EQ(com.GetPort(), 0);
    }
    EXPECT_EQ(OpenDescriptors(), before);
    EXPECT_EQ(log.Count("Knobby write insufficient buffer size 0\n"), 2u);
    EXPECT_EQ(log.Count("Knobby write insufficient buffer size 2\n"), 1u);
    EXPECT_TRUE(log.HasMessage("Knobby write 3 bytes, Command: 65\n"));
    EXPECT_TRUE(
        log.HasMessage("Knobby write 65534 bytes, Command: 16705, Request ID: 1094795585\n"));
    EXPECT_EQ(log.Count("Knobby client disconnected."), 1u);
    EXPECT_EQ(log.Count("Knobby receive failed on port 0x"), 1u);
    EXPECT_TRUE(log.Contains(std::string(": ") + std::strerror(ECONNRESET) + "\n"));
}

// A server that could not have its receive buffer takes no client, even with a request waiting.
TEST(KnobbyComTest, WithoutItsReceiveBufferNoClientIsTaken)
{
    LogCapture log;
    FakeDataAPI store;
    Vorn::Testing::FailAllocationsAfter(0);
    ParameterKnobbyCom com(&store);
    Vorn::Testing::ResetAllocationFailure();
    ASSERT_TRUE(com.SetListenAddress("127.0.0.1", 0));
    LoopbackClient client;
    ASSERT_TRUE(client.Connect(com.StartCom()));
    ASSERT_TRUE(client.Send(Request(Wire::ActiveModes)));
    std::atomic<bool> stop{false};
    Bytes packet(Wire::MaxPacketSize);
    EXPECT_EQ(com.ReceiveKnobbyRequest(packet.data(), Wire::MaxPacketSize, 10, 1, stop), 0u);
    EXPECT_FALSE(log.Contains("accepted") || log.Contains("receive failed"))
        << testing::PrintToString(log.Messages());
    com.StopCom();
}

} // namespace
