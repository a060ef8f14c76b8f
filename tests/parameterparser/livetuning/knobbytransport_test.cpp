// SPDX-License-Identifier: Apache-2.0
// Tests of the live tuning transport on loopback: framing of the byte stream, the connection's
// life, the port walk and the write queue.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/livetuning/parameterknobbycom.h"

#include "tests/common/logcapture.h"
#include "tests/parameterparser/livetuning/livetuningsupport.h"

namespace {

using LiveTuningTest::Bytes;
using LiveTuningTest::FakeDataAPI;
using LiveTuningTest::Join;
using LiveTuningTest::LoopbackClient;
using LiveTuningTest::Request;
using LiveTuningTest::WaitFor;
namespace Wire = ParameterKnobbyPacket;

// The server's socket driven from the test thread: each Receive is one ReceiveKnobbyRequest
// with the service's time-out of one second.
class KnobbyFramingTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_port = m_com.StartCom();
        ASSERT_NE(m_port, 0);
        ASSERT_TRUE(m_client.Connect(m_port));
    }

    Bytes Receive(unsigned int packetSize = Wire::MaxPacketSize)
    {
        Bytes packet(Wire::MaxPacketSize);
        unsigned int const length = m_com.ReceiveKnobbyRequest(
            packet.data(), packetSize, ParameterKnobbyComBase::MaxRequestID, 1, m_stop);
        packet.resize(length);
        return packet;
    }

    ParamTest::LogCapture m_log;
    FakeDataAPI m_store;
    ParameterKnobbyCom m_com{&m_store};
    std::atomic<bool> m_stop{false};
    unsigned short m_port = 0;
    LoopbackClient m_client;
};

TEST_F(KnobbyFramingTest, TwoPacketsInOneSendComeOutOfTwoCalls)
{
    Bytes const first = Request(Wire::ModeIndex, "1");
    Bytes const second = Request(Wire::Info, "Default:module.gain", 99);
    ASSERT_TRUE(m_client.Send(Join(first, second)));

    EXPECT_EQ(Receive(), first);
    // The second packet is already buffered: it comes out although nothing more can be read.
    m_client.Close();
    EXPECT_EQ(Receive(), second);
}

TEST_F(KnobbyFramingTest, PacketSplitOverManySendsIsAssembledAcrossTimeOuts)
{
    Bytes const packet = Request(Wire::GetValues, "Default|Sensor.0:module.table[3]:a,b", 5);
    ASSERT_TRUE(m_client.Send(Bytes(packet.begin(), packet.begin() + 9)));
    // The time-out ends the call; the nine bytes stay for the next one.
    EXPECT_TRUE(Receive().empty());

    for (size_t i = 9; i < packet.size(); ++i)
        ASSERT_TRUE(m_client.Send(Bytes{packet[i]}));
    EXPECT_EQ(Receive(), packet);
}

TEST_F(KnobbyFramingTest, HeadIsOnlyTestedFromFourteenBytes)
{
    // Thirteen bytes with a wrong start tag are no head yet.
    Bytes damaged = Request(Wire::ActiveModes);
    Wire::PutU16(damaged.data(), 0x1234);
    ASSERT_TRUE(m_client.Send(Bytes(damaged.begin(), damaged.begin() + 13)));
    EXPECT_TRUE(Receive().empty());
    EXPECT_EQ(m_log.Count("Knobby request missing start tag"), 0u);

    ASSERT_TRUE(m_client.Send(Bytes{damaged[13]}));
    EXPECT_TRUE(Receive().empty());
    EXPECT_TRUE(m_log.HasMessage(
        "Knobby request missing start tag, Expected: 19278, Received: 4660: 0x341201000e\n"));
}

struct BadHeadCase
{
    char const* name;
    uint16_t tag;
    uint16_t command;
    int length; ///< -1 keeps the request's own length
    unsigned int packetSize;
    char const* message;
};

class KnobbyBadHeadTest : public KnobbyFramingTest,
                          public ::testing::WithParamInterface<BadHeadCase>
{
};

// A head that can never complete is thrown away with every byte buffered behind it, so that a
// packet sent later is read at once instead of queueing behind the head for good.
TEST_P(KnobbyBadHeadTest, IsDroppedWithTheBufferedBytes)
{
    BadHeadCase const& test = GetParam();
    Bytes bad = Request(Wire::ModeIndex, "123");
    Wire::PutU16(bad.data() + Wire::TagOffset, test.tag);
    Wire::PutU16(bad.data() + Wire::CommandOffset, test.command);
    if (test.length >= 0)
        Wire::PutU16(bad.data() + Wire::LengthOffset, static_cast<uint16_t>(test.length));
    ASSERT_TRUE(m_client.Send(Join(bad, Request(Wire::ActiveModes))));
    EXPECT_TRUE(Receive(test.packetSize).empty());
    EXPECT_TRUE(m_log.HasMessage(test.message));

    Bytes const later = Request(Wire::Info, "Default:module", 3);
    ASSERT_TRUE(m_client.Send(later));
    EXPECT_EQ(Receive(test.packetSize), later);
}

INSTANTIATE_TEST_SUITE_P(
    Heads, KnobbyBadHeadTest,
    ::testing::Values(
        BadHeadCase{"WrongStartTag", 0x0102, Wire::ModeIndex, -1, Wire::MaxPacketSize,
                    "Knobby request missing start tag, Expected: 19278, Received: 258: "
                    "0x0201090012\n"},
        BadHeadCase{"CommandAtMax", Wire::StartTag, 10, -1, Wire::MaxPacketSize,
                    "Knobby request ID 10 exceeds Max 10\n"},
        BadHeadCase{"ZeroLength", Wire::StartTag, Wire::ModeIndex, 0, Wire::MaxPacketSize,
                    "Knobby request length is zero: 0x4e4b090000\n"},
        BadHeadCase{"LengthBelowTheHead", Wire::StartTag, Wire::ModeIndex, 13, Wire::MaxPacketSize,
                    "Knobby request length (13) is less than head size (14): 0x4e4b09000d\n"},
        // A head is refused as soon as its length is seen, before its bytes have come.
        BadHeadCase{"LongerThanPacketSize", Wire::StartTag, Wire::ModeIndex, 65535, 65534,
                    "Knobby request length (65535) is greater than packet size (65534): "
                    "0x4e4b0900ff\n"}),
    [](::testing::TestParamInfo<BadHeadCase> const& test) { return test.param.name; });

// The lengths at the bounds are whole packets: the head alone, and the packet size.
TEST_F(KnobbyFramingTest, HeadSizeAndPacketSizeAreAccepted)
{
    Bytes const bare = Request(Wire::ActiveModes);
    ASSERT_EQ(bare.size(), Wire::HeadSize);
    ASSERT_TRUE(m_client.Send(bare));
    EXPECT_EQ(Receive(), bare);
    Bytes const full = Request(Wire::Info, "Default:module", 3);
    ASSERT_TRUE(m_client.Send(full));
    EXPECT_EQ(Receive(static_cast<unsigned int>(full.size())), full);
}

// One client's unfinished bytes never reach the next client's request, and a client that closes
// is released at once: the next one is accepted and read within the same receive, long before
// its time-out.
TEST_F(KnobbyFramingTest, NextClientStartsAfreshAtOnce)
{
    Bytes const request = Request(Wire::GetValues, "Default:module.gain", 9);
    ASSERT_TRUE(m_client.Send(Bytes(request.begin(), request.begin() + 10)));
    m_client.Close();

    Bytes received;
    LiveTuningTest::BoundedCall receive([&] {
        Bytes packet(Wire::MaxPacketSize);
        packet.resize(m_com.ReceiveKnobbyRequest(packet.data(), Wire::MaxPacketSize,
                                                 ParameterKnobbyComBase::MaxRequestID, 60, m_stop));
        received = packet;
    });
    LoopbackClient next;
    ASSERT_TRUE(next.Connect(m_port));
    Bytes const own = Request(Wire::Info, "Default:module", 11);
    ASSERT_TRUE(next.Send(own));
    receive.Wait(std::chrono::seconds(10));
    EXPECT_EQ(received, own);
    EXPECT_EQ(m_log.Count("Knobby client disconnected.  Resetting socket"), 1u);
    EXPECT_EQ(m_log.Count("Knobby accepted data connection"), 2u);
}

// A client that sends nothing is disconnected after the idle time-out, and sees its connection
// end; the client waiting behind it is then served.
TEST_F(KnobbyFramingTest, SilentClientIsDisconnectedAfterTheIdleTimeOut)
{
    m_com.SetIdleTimeout(1);
    Bytes received;
    LiveTuningTest::BoundedCall receive([&] {
        Bytes packet(Wire::MaxPacketSize);
        packet.resize(m_com.ReceiveKnobbyRequest(packet.data(), Wire::MaxPacketSize,
                                                 ParameterKnobbyComBase::MaxRequestID, 60, m_stop));
        received = packet;
    });
    LoopbackClient waiting;
    ASSERT_TRUE(waiting.Connect(m_port));
    Bytes const request = Request(Wire::ActiveModes);
    ASSERT_TRUE(waiting.Send(request));
    EXPECT_TRUE(m_client.SeesEnd(std::chrono::seconds(10)));
    receive.Wait(std::chrono::seconds(10));
    EXPECT_EQ(received, request);
    char idle[64];
    std::snprintf(idle, sizeof(idle), "Knobby client idle for 1 seconds on port 0x%x\n", m_port);
    EXPECT_TRUE(m_log.HasMessage(idle));
}

// Binds a TCP port on all interfaces for the test, as the server would, and listens on it when
// the bind succeeds.
class PortHolder
{
public:
    explicit PortHolder(unsigned short port, bool listening = true)
    {
        m_socket = socket(AF_INET, SOCK_STREAM, 0);
        // As the server does, so that only a bound socket keeps the port from us.
        int const reuse = 1;
        setsockopt(m_socket, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof(reuse));
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_ANY);
        m_bound = bind(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
        if (m_bound && listening)
            m_bound = listen(m_socket, 1) == 0;
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
    if (!holder.Bound())
        GTEST_SKIP() << "port 19278 is in use elsewhere; the walk cannot be pinned down";
    // Other servers on this machine may hold the next port too: look before the server does.
    {
        PortHolder const probe(ParameterKnobbyCom::DefaultPort + 1, false);
        if (!probe.Bound())
            GTEST_SKIP() << "port 19279 is in use elsewhere; the walk cannot be pinned down";
    }
    FakeDataAPI store;
    ParameterKnobbyCom com(&store);

    unsigned short const port = com.StartCom();
    EXPECT_EQ(port, ParameterKnobbyCom::DefaultPort + 1);
    EXPECT_EQ(com.GetPort(), port);
    EXPECT_EQ(com.GetAddressType(), ParameterKnobbyCom::SocketAddress::INET);
    // The taken port was tried and refused, then the next one bound; only the log says so.
    EXPECT_EQ(log.Count("Knobby Server bind failed, Socket: "), 1u);
    EXPECT_EQ(log.Count("Port: 0x4b4e: Result: -1, errno: 98\n"), 1u);
    EXPECT_EQ(log.Count("Port: 0x4b4f: Result: 0, errno: 0\n"), 1u);

    // A second start on the open port opens nothing.
    EXPECT_EQ(com.StartCom(), port);
    EXPECT_EQ(log.Count("Knobby Server INET socket created"), 1u);

    LoopbackClient client;
    EXPECT_TRUE(client.Connect(port));
}

TEST(KnobbyWriteQueueTest, EmptyAndOversizedWritesAreLoggedAndNotSent)
{
    ParamTest::LogCapture log;
    FakeDataAPI store;
    ParameterKnobbyCom com(&store);
    com.Start();
    LoopbackClient client;
    ASSERT_TRUE(client.Connect(com.GetPort()));
    ASSERT_TRUE(WaitFor([&] { return log.Contains("Knobby accepted data connection"); }));

    // Responses go to the client of the packet last read.
    Bytes const good = Request(Wire::ActiveModes);
    ASSERT_TRUE(client.Send(good));
    ParameterKnobbyComBase::FreePacket(com.Read());
    Bytes const oversized(Wire::MaxPacketSize, 0x41);
    com.Write(nullptr, 10);
    com.Write(oversized.data(), static_cast<int>(oversized.size()));
    com.Write(good.data(), 0);
    com.Write(good.data(), static_cast<int>(good.size()));

    EXPECT_EQ(client.ReadPacket(), good);
    EXPECT_TRUE(client.Silent());
    LiveTuningTest::BoundedCall([&] { com.Stop(); }).Wait();
    EXPECT_EQ(log.Count("Knobby write insufficient buffer size 0\n"), 3u);
    EXPECT_TRUE(log.HasMessage("Knobby write 14 bytes, Command: 1\n"));
}

} // namespace
