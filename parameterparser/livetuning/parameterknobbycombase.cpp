// SPDX-License-Identifier: Apache-2.0
// ParameterKnobbyComBase: framing, packet queues and the read and write threads.
#include "parameterparser/livetuning/parameterknobbycombase.h"

#include <cstdio>
#include <cstring>
#include <ctime>

#include "platform/vornalloc.h"

#include "parameterparser/livetuning/parameterknobbypacket.h"
#include "parameterparser/parameterlogging.h"

namespace {

using ParameterKnobbyPacket::CommandCount;
using ParameterKnobbyPacket::CommandOffset;
using ParameterKnobbyPacket::HeadSize;
using ParameterKnobbyPacket::LengthOffset;
using ParameterKnobbyPacket::MaxPacketSize;
using ParameterKnobbyPacket::RequestHeadSize;
using ParameterKnobbyPacket::RequestIdOffset;
using ParameterKnobbyPacket::StartTag;
using ParameterKnobbyPacket::TagOffset;
using ParameterKnobbyPacket::TriggerValues;

// Wakes the waiters of one queue. The flag was changed under the queue's mutex; passing through
// the wait mutex before notifying makes sure a waiter that tested the flag is already waiting,
// so the notification cannot fall between its test and its wait.
void Wake(std::mutex& waitMutex, std::condition_variable& condition)
{
    {
        std::lock_guard<std::mutex> lock(waitMutex);
    }
    condition.notify_all();
}

bool TimedOut(time_t start, int timeout)
{
    return timeout >= 0 && time(nullptr) - start >= timeout;
}

char const* IdentifierOf(IParameterLoggingAPI* logger)
{
    char const* identifier = logger != nullptr ? logger->GetLoggingIdentifier() : nullptr;
    return identifier != nullptr ? identifier : "";
}

} // namespace

namespace {

// Forwards the owner's level switches and answers with a copy of its identifier.
class StableLogger final : public IParameterLoggingAPI
{
public:
    explicit StableLogger(IParameterLoggingAPI* owner) : m_owner(owner) { Refresh(); }

    // Called only while no thread of the transport runs.
    void Refresh()
    {
        char const* identifier = m_owner->GetLoggingIdentifier();
        std::snprintf(m_identifier, sizeof(m_identifier), "%s",
                      identifier != nullptr ? identifier : "");
    }

    char const* GetLoggingIdentifier() override
    {
        return m_identifier[0] != '\0' ? m_identifier : nullptr;
    }

    bool LoggingEnabled(ParameterLogging::ParameterLogLevel level) override
    {
        return m_owner->LoggingEnabled(level);
    }

private:
    IParameterLoggingAPI* m_owner;
    char m_identifier[256] = {};
};

} // namespace

ParameterKnobbyComBase::ParameterKnobbyComBase(IParameterLoggingAPI* logger, bool createBuffer)
{
    if (logger != nullptr) {
        m_stableLogger = std::make_unique<StableLogger>(logger);
        m_logger = m_stableLogger.get();
    }
    if (logger == nullptr)
        ParameterLogging::Write(
            nullptr, ParameterLogging::LogError,
            "ParameterKnobbyComBase constructed with a nullptr Set Manager object\n");
    if (createBuffer)
        m_receiveBuffer =
            static_cast<unsigned char*>(VornCalloc(PacketBufferSize, VornTagAllocData));
}

ParameterKnobbyComBase::~ParameterKnobbyComBase()
{
    for (Packet* packet : m_readQueue)
        FreePacket(packet);
    // Packets the write thread did not send before the stop are freed here too.
    for (Packet* packet : m_writeQueue)
        FreePacket(packet);
    VornFree(m_receiveBuffer, VornTagRelease);
}

ParameterKnobbyComBase::Packet* ParameterKnobbyComBase::MakePacket(unsigned char const* data,
                                                                   unsigned int length, bool empty)
{
    auto* packet = static_cast<Packet*>(VornCalloc(sizeof(Packet), VornTagAllocObject));
    if (packet == nullptr || empty)
        return packet;
    // One zero byte behind the data, so that text at the packet's end is always terminated for
    // the command handlers, whatever the client sent.
    packet->data = static_cast<unsigned char*>(VornCalloc(length + 1, VornTagAllocData));
    if (packet->data == nullptr)
        return packet;
    std::memcpy(packet->data, data, length);
    packet->length = length;
    return packet;
}

void ParameterKnobbyComBase::FreePacket(Packet* packet)
{
    if (packet == nullptr)
        return;
    VornFree(packet->data, VornTagRelease);
    VornFree(packet, VornTagRelease);
}

bool ParameterKnobbyComBase::IsRunning() const
{
    return m_readThread.Joinable() || m_writeThread.Joinable();
}

void ParameterKnobbyComBase::Start()
{
    if (m_logger == nullptr || IsRunning())
        return;
    static_cast<StableLogger*>(m_stableLogger.get())->Refresh();
    ParameterLogging::Write(m_logger, ParameterLogging::LogVerbose, "Starting Knobby server: %s\n",
                            IdentifierOf(m_logger));
    m_stop = false;
    // Whatever an earlier run left buffered belongs to no client of this one.
    m_receivedBytes = 0;
    ++m_connection;
    StartCom();
    if (m_receiveBuffer != nullptr)
        m_readThread.Start(ReadFunction, this, "read", m_logger);
    m_writeThread.Start(WriteFunction, this, "write", m_logger);
}

void ParameterKnobbyComBase::Stop()
{
    ParameterLogging::Write(m_logger, ParameterLogging::LogVerbose,
                            "Stopping TCP/IP Knobby server: %s\n", IdentifierOf(m_logger));
    {
        std::lock_guard<std::mutex> lock(m_readQueueMutex);
        m_stop = true;
        m_readData = true;
    }
    Wake(m_readWaitMutex, m_readCondition);
    {
        std::lock_guard<std::mutex> lock(m_writeQueueMutex);
        m_writeData = true;
    }
    Wake(m_writeWaitMutex, m_writeCondition);
    m_readThread.Join();
    m_writeThread.Join();
    StopCom();
}

ParameterKnobbyComBase::Packet* ParameterKnobbyComBase::Read()
{
    {
        std::unique_lock<std::mutex> lock(m_readWaitMutex);
        m_readCondition.wait(lock, [this] { return m_readData.load() || m_stop.load(); });
    }
    std::lock_guard<std::mutex> lock(m_readQueueMutex);
    Packet* packet = nullptr;
    if (!m_readQueue.empty()) {
        packet = m_readQueue.front();
        m_readQueue.pop_front();
        m_servedConnection = packet->connection;
    }
    if (m_readQueue.empty())
        m_readData = false;
    return packet;
}

void ParameterKnobbyComBase::Write(unsigned char const* data, int length)
{
    bool const empty = data == nullptr || length < 1 || length >= static_cast<int>(MaxPacketSize);
    Packet* packet = MakePacket(data, empty ? 0 : static_cast<unsigned int>(length), empty);
    if (packet == nullptr)
        return;
    packet->connection = m_servedConnection;
    {
        std::lock_guard<std::mutex> lock(m_writeQueueMutex);
        if (m_writeQueue.size() >= MaxQueuedPackets) {
            ParameterLogging::Write(m_logger, ParameterLogging::LogError,
                                    "Knobby %s queue full, packet dropped\n", "write");
            FreePacket(packet);
            return;
        }
        m_writeQueue.push_back(packet);
        m_writeData = true;
    }
    Wake(m_writeWaitMutex, m_writeCondition);
}

void ParameterKnobbyComBase::QueueReadData(unsigned char const* data, int length)
{
    if (m_stop || data == nullptr || length <= 0)
        return;
    bool const empty = length >= static_cast<int>(MaxPacketSize);
    Packet* packet = MakePacket(data, empty ? 0 : static_cast<unsigned int>(length), empty);
    if (packet == nullptr)
        return;
    packet->connection = m_connection;
    {
        std::lock_guard<std::mutex> lock(m_readQueueMutex);
        if (m_readQueue.size() >= MaxQueuedPackets) {
            ParameterLogging::Write(m_logger, ParameterLogging::LogError,
                                    "Knobby %s queue full, packet dropped\n", "read");
            FreePacket(packet);
            return;
        }
        m_readQueue.push_back(packet);
        m_readData = true;
    }
    Wake(m_readWaitMutex, m_readCondition);
}

void ParameterKnobbyComBase::BeginConnection()
{
    m_receivedBytes = 0;
    ++m_connection;
}

bool ParameterKnobbyComBase::RefuseHead(unsigned char const* head, unsigned int packetSize,
                                        unsigned int maxRequestID) const
{
    ParameterKnobbyPacket::View const view(head, HeadSize);
    uint16_t tag = 0;
    uint16_t command = 0;
    uint16_t length = 0;
    (void)view.U16(TagOffset, tag);
    (void)view.U16(CommandOffset, command);
    (void)view.U16(LengthOffset, length);
    if (tag != StartTag)
        ParameterLogging::Write(m_logger, ParameterLogging::LogError,
                                "Knobby request missing start tag, Expected: %u, Received: %u: "
                                "0x%02x%02x%02x%02x%02x\n",
                                static_cast<unsigned int>(StartTag), static_cast<unsigned int>(tag),
                                head[0], head[1], head[2], head[3], head[4]);
    else if (command >= maxRequestID)
        ParameterLogging::Write(m_logger, ParameterLogging::LogError,
                                "Knobby request ID %u exceeds Max %u\n",
                                static_cast<unsigned int>(command), maxRequestID);
    else if (length == 0)
        ParameterLogging::Write(m_logger, ParameterLogging::LogError,
                                "Knobby request length is zero: 0x%02x%02x%02x%02x%02x\n", head[0],
                                head[1], head[2], head[3], head[4]);
    else if (length < HeadSize)
        ParameterLogging::Write(m_logger, ParameterLogging::LogError,
                                "Knobby request length (%u) is less than head size (%u): "
                                "0x%02x%02x%02x%02x%02x\n",
                                static_cast<unsigned int>(length), HeadSize, head[0], head[1],
                                head[2], head[3], head[4]);
    else if (length > packetSize)
        ParameterLogging::Write(m_logger, ParameterLogging::LogError,
                                "Knobby request length (%u) is greater than packet size (%u): "
                                "0x%02x%02x%02x%02x%02x\n",
                                static_cast<unsigned int>(length), packetSize, head[0], head[1],
                                head[2], head[3], head[4]);
    else
        return false;
    return true;
}

void ParameterKnobbyComBase::ConsumeReceived(unsigned int count)
{
    if (count >= m_receivedBytes) {
        m_receivedBytes = 0;
        return;
    }
    std::memmove(m_receiveBuffer, m_receiveBuffer + count, m_receivedBytes - count);
    m_receivedBytes -= count;
}

void ParameterKnobbyComBase::LogUnknownCommand(unsigned char const* packet,
                                               unsigned int length) const
{
    ParameterKnobbyPacket::View const view(packet, length);
    uint16_t command = 0;
    (void)view.U16(CommandOffset, command);
    if (command < CommandCount)
        return;
    uint32_t requestId = 0;
    (void)view.U32(RequestIdOffset, requestId);
    int const payloadLength = static_cast<int>(view.CountFrom(RequestHeadSize));
    ParameterLogging::Write(m_logger, ParameterLogging::LogVerbose,
                            "Knobby recv %u bytes, Command %d, ID: %u, Payload: %.*s\n", length,
                            static_cast<int>(command), requestId, payloadLength,
                            reinterpret_cast<char const*>(packet + RequestHeadSize));
    if (packet[length - 1] != 0)
        ParameterLogging::Write(m_logger, ParameterLogging::LogVerbose,
                                "Knobby packet missing terminating nul character\n");
}

unsigned int ParameterKnobbyComBase::ReceiveKnobbyRequest(unsigned char* packet,
                                                          unsigned int packetSize,
                                                          unsigned int maxRequestID, int timeout,
                                                          std::atomic<bool> const& stopFlag)
{
    if (m_receiveBuffer == nullptr || packet == nullptr)
        return 0;
    time_t const start = time(nullptr);
    for (;;) {
        if (m_receivedBytes >= HeadSize) {
            unsigned char const* head = m_receiveBuffer;
            if (RefuseHead(head, packetSize, maxRequestID)) {
                // The stream's framing is lost: nothing behind this head can be trusted, and a
                // head left in place would block every later packet.
                m_receivedBytes = 0;
            } else {
                uint16_t length = 0;
                (void)ParameterKnobbyPacket::View(head, HeadSize).U16(LengthOffset, length);
                if (m_receivedBytes >= length) {
                    std::memcpy(packet, head, length);
                    ConsumeReceived(length);
                    LogUnknownCommand(packet, length);
                    return length;
                }
            }
        }
        if (stopFlag || TimedOut(start, timeout))
            return 0;
        int const received = ReadData(m_receiveBuffer + m_receivedBytes,
                                      PacketBufferSize - m_receivedBytes, timeout, stopFlag);
        if (received > 0)
            m_receivedBytes += static_cast<uint32_t>(received);
        else if (received < 0)
            // The client is gone: what it left unfinished is no one's request.
            m_receivedBytes = 0;
        if (stopFlag || TimedOut(start, timeout))
            return 0;
    }
}

void* ParameterKnobbyComBase::ReadFunction(void* argument)
{
    if (argument != nullptr)
        static_cast<ParameterKnobbyComBase*>(argument)->ReadWorker();
    return nullptr;
}

void* ParameterKnobbyComBase::WriteFunction(void* argument)
{
    if (argument != nullptr)
        static_cast<ParameterKnobbyComBase*>(argument)->WriteWorker();
    return nullptr;
}

void ParameterKnobbyComBase::ReadWorker()
{
    auto* buffer = static_cast<unsigned char*>(VornCalloc(PacketBufferSize, VornTagAllocData));
    if (buffer == nullptr)
        return;
    while (!m_stop) {
        // A packet of the buffer's full size would be queued empty: its head is refused at once
        // instead of holding the stream until 64 KiB have come.
        unsigned int const length =
            ReceiveKnobbyRequest(buffer, PacketBufferSize - 1, MaxRequestID, m_readTimeout, m_stop);
        QueueReadData(buffer, static_cast<int>(length));
    }
    VornFree(buffer, VornTagRelease);
}

void ParameterKnobbyComBase::WriteWorker()
{
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(m_writeWaitMutex);
            m_writeCondition.wait(lock, [this] { return m_writeData.load() || m_stop.load(); });
        }
        Packet* packet = nullptr;
        {
            std::lock_guard<std::mutex> lock(m_writeQueueMutex);
            if (m_stop) {
                if (m_writeQueue.empty())
                    m_writeData = false;
                return;
            }
            if (!m_writeQueue.empty()) {
                packet = m_writeQueue.front();
                m_writeQueue.pop_front();
            }
            if (m_writeQueue.empty())
                m_writeData = false;
        }
        if (packet == nullptr)
            continue;
        // The send runs outside the queue mutex: a client that stops reading must not block the
        // command thread's Write, and with it the camera threads that wait for the value mutex.
        int const length = static_cast<int>(packet->length);
        if (packet->connection != m_connection) {
            // Its client went away before the answer was ready; the next client must not get it.
            ParameterLogging::Write(m_logger, ParameterLogging::LogVerbose,
                                    "Knobby write dropped for a closed connection\n");
        } else if (length > 2) {
            WriteData(packet->data, packet->length);
            // The zero byte behind every packet's data is part of its storage: a packet of 3
            // bytes still names its command.
            ParameterKnobbyPacket::View const stored(packet->data, packet->length + 1);
            ParameterKnobbyPacket::View const sent(packet->data, packet->length);
            uint16_t command = 0;
            uint32_t requestId = 0;
            (void)stored.U16(CommandOffset, command);
            if (sent.U32(RequestIdOffset, requestId) && command > 2 && command != TriggerValues)
                ParameterLogging::Write(m_logger, ParameterLogging::LogVerbose,
                                        "Knobby write %d bytes, Command: %u, Request ID: %u\n",
                                        length, static_cast<unsigned int>(command), requestId);
            else
                ParameterLogging::Write(m_logger, ParameterLogging::LogVerbose,
                                        "Knobby write %d bytes, Command: %d\n", length,
                                        static_cast<int>(command));
        } else {
            ParameterLogging::Write(m_logger, ParameterLogging::LogVerbose,
                                    "Knobby write insufficient buffer size %d\n", length);
        }
        FreePacket(packet);
    }
}
