// SPDX-License-Identifier: Apache-2.0
// Tests of the live tuning transport on loopback: framing of the byte stream, the connection's
// life (accept, peer set-up, close, idle time-out), the port walk and the packet queues.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>

#include <dirent.h>
#include <netinet/tcp.h>

#include <gtest/gtest.h>

#include "parameterparser/livetuning/parameterknobbycom.h"

#include "tests/common/livetuningfixture.h"
#include "tests/common/logcapture.h"
#include "tests/common/loopbackclient.h"

namespace {

namespace Wire = ParameterKnobbyPacket;
using ParamTest::Bytes;
using ParamTest::FakeDataAPI;
using ParamTest::LoopbackClient;
using ParamTest::Request;

// The server's socket driven from the test thread: each Receive is one ReceiveKnobbyRequest.
class KnobbyFramingTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_port = m_com.StartCom();
        ASSERT_NE(m_port, 0);
        ASSERT_TRUE(m_client.Connect(m_port));
    }

    Bytes Receive(unsigned int packetSize = Wire::MaxPacketSize, int timeout = 1)
    {
        Bytes packet(Wire::MaxPacketSize);
        packet.resize(m_com.ReceiveKnobbyRequest(
            packet.data(), packetSize, ParameterKnobbyComBase::MaxRequestID, timeout, m_stop));
        return packet;
    }

    ParamTest::LogCapture m_log;
    FakeDataAPI m_store;
    ParameterKnobbyCom m_com{&m_store};
    std::atomic<bool> m_stop{false};
    unsigned short m_port = 0;
    LoopbackClient m_client;
};

// Packets come out one per call whatever the sends cut them into; a part waits across time-outs.
TEST_F(KnobbyFramingTest, StreamIsCutIntoWholePackets)
{
    Bytes const first = Request(Wire::ModeIndex, "1");
    Bytes const second = Request(Wire::Info, "Default:module.gain", 99);
    Bytes const third = Request(Wire::GetValues, "Default|Sensor.0:module.table[3]:a,b", 5);
    ASSERT_TRUE(m_client.Send(
        ParamTest::Join(ParamTest::Join(first, second), Bytes(third.begin(), third.begin() + 13))));
    EXPECT_EQ(Receive(), first);
    EXPECT_EQ(Receive(), second);
    // Thirteen bytes are no head yet, even a wrong one.
    EXPECT_TRUE(Receive().empty());
    for (size_t i = 13; i < third.size(); ++i)
        ASSERT_TRUE(m_client.Send(Bytes{third[i]}));
    EXPECT_EQ(Receive(), third);
    EXPECT_EQ(m_log.Count("Knobby request"), 0u);
}

struct HeadCase
{
    char const* name;
    Bytes packet;
    uint16_t tag;
    uint16_t command;
    int length; ///< -1 keeps the packet's own
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
    Bytes packet = test.packet;
    Wire::PutU16(packet.data() + Wire::TagOffset, test.tag);
    Wire::PutU16(packet.data() + Wire::CommandOffset, test.command);
    if (test.length >= 0)
        Wire::PutU16(packet.data() + Wire::LengthOffset, static_cast<uint16_t>(test.length));
    bool const refused = test.refusal != nullptr;
    ASSERT_TRUE(
        m_client.Send(refused ? ParamTest::Join(packet, Request(Wire::ActiveModes)) : packet));
    EXPECT_EQ(Receive(test.packetSize), refused ? Bytes() : packet);
    EXPECT_TRUE(!refused || m_log.HasMessage(test.refusal));
    Bytes const later = Request(Wire::Info, "Default:module", 3);
    ASSERT_TRUE(m_client.Send(later));
    EXPECT_EQ(Receive(), later);
}

Bytes const ModeIndexRequest = Request(Wire::ModeIndex, "123");
Bytes const InfoRequest = Request(Wire::Info, "0123456789");

INSTANTIATE_TEST_SUITE_P(
    Heads, KnobbyHeadTest,
    ::testing::Values(
        HeadCase{
            "WrongStartTag", ModeIndexRequest, 0x0102, Wire::ModeIndex, -1, Wire::MaxPacketSize,
            "Knobby request missing start tag, Expected: 19278, Received: 258: 0x0201090012\n"},
        HeadCase{"LastCommand", ModeIndexRequest, Wire::StartTag, Wire::ModeIndex, -1,
                 Wire::MaxPacketSize, nullptr},
        HeadCase{"CommandPastTheLast", ModeIndexRequest, Wire::StartTag, 10, -1,
                 Wire::MaxPacketSize, "Knobby request ID 10 exceeds Max 10\n"},
        HeadCase{"ZeroLength", ModeIndexRequest, Wire::StartTag, Wire::ModeIndex, 0,
                 Wire::MaxPacketSize, "Knobby request length is zero: 0x4e4b090000\n"},
        HeadCase{"LengthBelowTheHead", ModeIndexRequest, Wire::StartTag, Wire::ModeIndex, 13,
                 Wire::MaxPacketSize,
                 "Knobby request length (13) is less than head size (14): 0x4e4b09000d\n"},
        HeadCase{"HeadAlone", Request(Wire::ActiveModes), Wire::StartTag, Wire::ActiveModes, -1,
                 Wire::MaxPacketSize, nullptr},
        HeadCase{"AtThePacketSize", InfoRequest, Wire::StartTag, Wire::Info, -1, 29, nullptr},
        // A head is refused as soon as its length is seen, before its bytes have come.
        HeadCase{"PastThePacketSize", InfoRequest, Wire::StartTag, Wire::Info, -1, 28,
                 "Knobby request length (29) is greater than packet size (28): 0x4e4b04001d\n"}),
    [](::testing::TestParamInfo<HeadCase> const& test) { return test.param.name; });

// A client that closes is released at once, and its unfinished bytes never reach the next
// client's request: the next one is accepted and read within the same receive.
TEST_F(KnobbyFramingTest, ClosedClientIsReleasedAndTheNextStartsAfresh)
{
    Bytes const request = Request(Wire::GetValues, "Default:module.gain", 9);
    ASSERT_TRUE(m_client.Send(Bytes(request.begin(), request.begin() + 10)));
    m_client.Close();
    Bytes received;
    std::thread receive([&] { received = Receive(Wire::MaxPacketSize, 10); });
    LoopbackClient next;
    ASSERT_TRUE(next.Connect(m_port));
    ASSERT_TRUE(next.Send(request));
    receive.join();
    EXPECT_EQ(received, request);
    EXPECT_EQ(m_log.Count("Knobby client disconnected.  Resetting socket"), 1u);
    EXPECT_EQ(m_log.Count("Knobby accepted data connection"), 2u);
}

// A client that sends nothing is disconnected after the idle time-out and sees its connection
// end; the client waiting behind it is then served.
TEST_F(KnobbyFramingTest, SilentClientIsDisconnectedAfterTheIdleTimeOut)
{
    m_com.SetIdleTimeout(1);
    Bytes received;
    std::thread receive([&] { received = Receive(Wire::MaxPacketSize, 10); });
    LoopbackClient waiting;
    ASSERT_TRUE(waiting.Connect(m_port));
    ASSERT_TRUE(waiting.Send(Request(Wire::ActiveModes)));
    EXPECT_TRUE(m_client.SeesEnd(std::chrono::seconds(10)));
    receive.join();
    EXPECT_EQ(received, Request(Wire::ActiveModes));
    char idle[64];
    std::snprintf(idle, sizeof(idle), "Knobby client idle for 1 seconds on port 0x%x\n", m_port);
    EXPECT_TRUE(m_log.HasMessage(idle));
}

// The socket pair alone: an accepted client is set up (no delay, bounded sends) and waits until
// taken; a poll reads only what is ready and otherwise returns within its time-out.
TEST(KnobbySocketTest, AcceptSetsThePeerUpAndReadsOnlyWhatIsReady)
{
    ParamTest::LogCapture log;
    ParameterKnobbyCom::SocketID socketID;
    ASSERT_TRUE(socketID.local.SetupHost("127.0.0.1", 0));
    socketID.listenSocket = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(bind(socketID.listenSocket, reinterpret_cast<sockaddr*>(&socketID.local.address),
                   socketID.local.length),
              0);
    socklen_t length = sizeof(socketID.local.address);
    getsockname(socketID.listenSocket, reinterpret_cast<sockaddr*>(&socketID.local.address),
                &length);
    socketID.listening = listen(socketID.listenSocket, 1) == 0;
    std::atomic<bool> stop{false};
    unsigned char buffer[64];
    EXPECT_FALSE(socketID.TakeAccepted());
    EXPECT_EQ(socketID.ReadData(buffer, sizeof(buffer), 0, stop), 0);

    LoopbackClient client;
    ASSERT_TRUE(
        client.Connect(ntohs(reinterpret_cast<sockaddr_in*>(&socketID.local.address)->sin_port)));
    EXPECT_EQ(socketID.ReadData(buffer, sizeof(buffer), 2, stop), 0);
    ASSERT_GE(socketID.accepted, 0);
    EXPECT_EQ(socketID.connection.load(), -1);
    ASSERT_TRUE(socketID.TakeAccepted());
    EXPECT_EQ(socketID.accepted, -1);
    int const connection = socketID.connection.load();
    int noDelay = 0;
    timeval limit = {};
    socklen_t size = sizeof(noDelay);
    getsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &noDelay, &size);
    size = sizeof(limit);
    getsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &limit, &size);
    EXPECT_NE(noDelay, 0);
    EXPECT_EQ(limit.tv_sec, ParameterKnobbyCom::SendTimeoutSeconds);
    EXPECT_EQ(reinterpret_cast<sockaddr_in*>(&socketID.peer.address)->sin_addr.s_addr,
              htonl(INADDR_LOOPBACK));

    // Nothing ready: the poll's time-out, not a blocking receive.
    ParamTest::BoundedCall(
        [&] { EXPECT_EQ(socketID.ReadData(buffer, sizeof(buffer), 0, stop), 0); });
    ASSERT_TRUE(client.Send(Bytes{1, 2, 3}));
    EXPECT_EQ(socketID.ReadData(buffer, sizeof(buffer), 2, stop), 3);
    client.Close();
    EXPECT_EQ(socketID.ReadData(buffer, sizeof(buffer), 2, stop), -1);
    EXPECT_EQ(socketID.connection.load(), -1);
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

// Every descriptor the server opens is closed again: the listening socket, each client's
// connection when it leaves, and the one still open when the server stops.
TEST(KnobbySocketTest, ServedClientsAndAStopLeaveNoDescriptorOpen)
{
    ParamTest::LogCapture log;
    size_t const before = OpenDescriptors();
    {
        FakeDataAPI store;
        ParameterKnobbyCom com(&store);
        com.Start();
        for (int round = 0; round < 2; ++round) {
            LoopbackClient client;
            ASSERT_TRUE(client.Connect(com.GetPort()));
            ASSERT_TRUE(client.Send(Request(Wire::ActiveModes)));
            ParameterKnobbyComBase::FreePacket(com.Read());
        }
        ParamTest::BoundedCall([&] { com.Stop(); });
        EXPECT_EQ(com.GetPort(), 0);
    }
    EXPECT_EQ(OpenDescriptors(), before);
}

// Binds a TCP port for the test, as the server would, and listens on it when the bind succeeds.
class PortHolder
{
public:
    explicit PortHolder(unsigned short port, bool listening = true)
        : m_socket(socket(AF_INET, SOCK_STREAM, 0))
    {
        int const reuse = 1;
        setsockopt(m_socket, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof(reuse));
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_ANY);
        m_bound = bind(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 &&
                  (!listening || listen(m_socket, 1) == 0);
    }
    ~PortHolder() { close(m_socket); }
    PortHolder(PortHolder const&) = delete;
    PortHolder& operator=(PortHolder const&) = delete;

    bool Bound() const { return m_bound; }

private:
    int m_socket;
    bool m_bound = false;
};

TEST(KnobbyPortTest, TakenPortsAreWalkedUpOneByOne)
{
    ParamTest::LogCapture log;
    PortHolder const holder(ParameterKnobbyCom::DefaultPort);
    // Other servers on this machine may hold the ports: look before the server does.
    if (!holder.Bound() || !PortHolder(ParameterKnobbyCom::DefaultPort + 1, false).Bound())
        GTEST_SKIP() << "ports 19278 and 19279 are in use elsewhere";
    FakeDataAPI store;
    ParameterKnobbyCom com(&store);
    unsigned short const port = com.StartCom();
    EXPECT_EQ(port, ParameterKnobbyCom::DefaultPort + 1);
    EXPECT_EQ(com.GetPort(), port);
    EXPECT_EQ(com.GetAddressType(), ParameterKnobbyCom::SocketAddress::INET);
    EXPECT_EQ(log.Count("Knobby Server bind failed, Socket: "), 1u);
    EXPECT_EQ(log.Count("Port: 0x4b4e: Result: -1, errno: 98\n"), 1u);
    EXPECT_EQ(log.Count("Port: 0x4b4f: Result: 0, errno: 0\n"), 1u);
    // A second start on the open port opens nothing.
    EXPECT_EQ(com.StartCom(), port);
    EXPECT_EQ(log.Count("Knobby Server INET socket created"), 1u);
    LoopbackClient client;
    EXPECT_TRUE(client.Connect(port));
}

// Both queues hold 1024 packets at most; without service threads nothing leaves them, so each
// write and receive past the bound is dropped, and what was queued reads back in order.
TEST(KnobbyQueueTest, QueuesHoldTheirBoundAndReadBackInOrder)
{
    ParamTest::LogCapture log;
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
        ASSERT_NE(packet, nullptr);
        EXPECT_EQ(Bytes(packet->data, packet->data + packet->length),
                  Request(Wire::ModeIndex, std::to_string(i)));
        ParameterKnobbyComBase::FreePacket(packet);
    }
    // Received packets of the largest size are queued empty; nothing at all for none.
    Bytes const oversized(Wire::MaxPacketSize, 0x41);
    com.QueueReadData(oversized.data(), static_cast<int>(oversized.size()));
    com.QueueReadData(oversized.data(), 0);
    ParameterKnobbyComBase::Packet* empty = com.Read();
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->length, 0u);
    ParameterKnobbyComBase::FreePacket(empty);
}

// Writes of 3 to 65534 bytes are sent; shorter and longer ones are logged and dropped.
TEST(KnobbyQueueTest, WritesOutsideTheirBoundsAreLoggedAndNotSent)
{
    ParamTest::LogCapture log;
    FakeDataAPI store;
    ParameterKnobbyCom com(&store);
    ASSERT_TRUE(com.SetListenAddress("127.0.0.1", 0));
    com.Start();
    LoopbackClient client;
    ASSERT_TRUE(client.Connect(com.GetPort()));
    // Responses go to the client of the packet last read.
    ASSERT_TRUE(client.Send(Request(Wire::ActiveModes)));
    ParameterKnobbyComBase::FreePacket(com.Read());
    Bytes largest(Wire::MaxPacketSize - 1, 0x41);
    Wire::PutU16(largest.data() + Wire::LengthOffset, static_cast<uint16_t>(largest.size()));
    Bytes const oversized(Wire::MaxPacketSize, 0x41);
    com.Write(nullptr, 10);
    com.Write(oversized.data(), static_cast<int>(oversized.size()));
    com.Write(largest.data(), 2);
    com.Write(largest.data(), 3);
    com.Write(largest.data(), static_cast<int>(largest.size()));
    EXPECT_EQ(client.ReadBytes(3 + largest.size(), std::chrono::seconds(5)),
              ParamTest::Join(Bytes(largest.begin(), largest.begin() + 3), largest));
    EXPECT_TRUE(client.Silent());
    ParamTest::BoundedCall([&] { com.Stop(); });
    EXPECT_EQ(log.Count("Knobby write insufficient buffer size 0\n"), 2u);
    EXPECT_EQ(log.Count("Knobby write insufficient buffer size 2\n"), 1u);
    EXPECT_TRUE(
        log.HasMessage("Knobby write 65534 bytes, Command: 16705, Request ID: 1094795585\n"));
}

} // namespace
