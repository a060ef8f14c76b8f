// SPDX-License-Identifier: Apache-2.0
// Tests of the live tuning transport on loopback: framing of the byte stream, the connection's
// life (accept, peer set-up, readiness, close, idle time-out), the port walk and the queues.
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

#include "tests/common/livetuningfixture.h"
#include "tests/common/logcapture.h"
#include "tests/common/loopbackclient.h"

namespace {

namespace Wire = ParameterKnobbyPacket;
using namespace ParamTest;

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

// A thread object holds one thread from its start until it is joined.
TEST(KnobbyThreadTest, HoldsOneThreadUntilJoined)
{
    std::atomic<int> runs{0};
    auto* const entry = +[](void* count) -> void* {
        ++*static_cast<std::atomic<int>*>(count);
        return nullptr;
    };
    ParameterKnobbyThread thread;
    EXPECT_TRUE(thread.Start(entry, &runs, "test", nullptr));
    EXPECT_FALSE(thread.Start(entry, &runs, "test", nullptr));
    thread.Join();
    EXPECT_FALSE(thread.Joinable());
    EXPECT_EQ(runs.load(), 1);
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

} // namespace
