// SPDX-License-Identifier: Apache-2.0
// ParameterKnobbyComBase: the live tuning transport's framing, packet queues and service threads.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>

#include "parameterparser/livetuning/parameterknobbythread.h"
#include "parameterparser/parameterexport.h"

class IParameterLoggingAPI;

/// The transport-neutral middle of the live tuning server. The read thread cuts the incoming
/// byte stream into packets and queues them for Read(); the write thread sends what Write()
/// queued. A concrete transport supplies the four byte-level operations. Framing faults are
/// logged and dropped; nothing is ever sent back for them.
class PARAMETERPARSER_API ParameterKnobbyComBase
{
public:
    /// One queued packet; both the record and its data come from VornCalloc and belong to
    /// whoever holds the packet. An empty packet has null data and length 0. connection numbers
    /// the client the packet came from or goes to.
    struct Packet
    {
        unsigned char* data;
        uint32_t length;
        uint32_t connection;
    };

    /// Size of the receive buffer and of every packet buffer.
    static constexpr unsigned int PacketBufferSize = 65535;
    /// Commands accepted by the service's reader: 0 to 9.
    static constexpr unsigned int MaxRequestID = 10;
    static constexpr int ReadTimeoutSeconds = 1;
    /// Packets a queue holds at most; more are dropped with a log line, so that a client that
    /// sends without reading cannot grow the process without bound.
    static constexpr size_t MaxQueuedPackets = 1024;

    /// logger names and gates every line; a null logger logs "ParameterKnobbyComBase
    /// constructed with a nullptr Set Manager object\n" at error level, and Start() then does
    /// nothing. createBuffer gives the object a receive buffer and with it a read thread.
    ParameterKnobbyComBase(IParameterLoggingAPI* logger, bool createBuffer);

    /// Frees every packet still queued and the receive buffer. The threads must have been
    /// stopped: a concrete transport stops them in its own destructor.
    virtual ~ParameterKnobbyComBase();

    ParameterKnobbyComBase(ParameterKnobbyComBase const&) = delete;
    ParameterKnobbyComBase& operator=(ParameterKnobbyComBase const&) = delete;
    ParameterKnobbyComBase(ParameterKnobbyComBase&&) = delete;
    ParameterKnobbyComBase& operator=(ParameterKnobbyComBase&&) = delete;

    /// Opens the transport and returns its port (0 when none could be had).
    virtual unsigned short StartCom() = 0;
    /// Closes the transport.
    virtual void StopCom() = 0;
    /// Reads up to length bytes, waiting at most timeout seconds (negative: until stopFlag).
    /// Returns the bytes read, 0 when nothing came, -1 when the peer is gone. A transport that
    /// takes a new peer calls BeginConnection before it reads any of the new peer's bytes.
    virtual int ReadData(unsigned char* buffer, unsigned int length, int timeout,
                         std::atomic<bool> const& stopFlag) = 0;
    /// Sends the whole buffer once; returns the bytes sent (below length, or -1, on failure).
    virtual int WriteData(unsigned char const* buffer, unsigned int length) = 0;

    /// Logs "Starting Knobby server: %s\n", empties the receive buffer, opens the transport and
    /// starts the read thread (with a receive buffer) and the write thread. Nothing without a
    /// logger or while running.
    void Start();

    /// Logs "Stopping TCP/IP Knobby server: %s\n", sets the stop flag, wakes both queues, joins
    /// the read thread and then the write thread, and closes the transport. A read thread held
    /// in a receive by a connected client that sends nothing is waited for. Safe to repeat.
    void Stop();

    /// True while the service threads run.
    bool IsRunning() const;

    /// The next received packet, or null when woken without one (by Stop, say). Blocks while
    /// the queue is empty. The caller owns the packet and frees it with FreePacket. Later
    /// Writes answer the client this packet came from.
    [[nodiscard]] Packet* Read();

    /// Queues a copy of length bytes of data for the write thread, addressed to the client of
    /// the packet Read last gave out. Null data or a length outside 1 to 65534 queues an empty
    /// packet, which the write thread logs and drops. A packet whose client has gone by the time
    /// it would be sent is dropped with "Knobby write dropped for a closed connection\n".
    void Write(unsigned char const* data, int length);

    /// Queues a copy of a received packet for Read(). Ignored while stopping, for null data and
    /// for a length of 0 or below; a length of 65535 or more queues an empty packet.
    void QueueReadData(unsigned char const* data, int length);

    /// Cuts the next packet out of the receive buffer into packet (packetSize bytes), reading
    /// from the transport while the buffered bytes hold no whole packet. Bytes behind a packet
    /// stay buffered for the next call. A head that can never complete is logged and empties the
    /// buffer, so that no head blocks the stream: a wrong start tag, a command not below
    /// maxRequestID, a length of zero, one below the head's 14 bytes, or one above packetSize.
    /// The buffer is emptied too when the client goes, so no client's bytes reach another's
    /// request. Returns the packet's length, or 0 when timeout seconds passed (negative: none)
    /// or stopFlag was set without a whole packet.
    unsigned int ReceiveKnobbyRequest(unsigned char* packet, unsigned int packetSize,
                                      unsigned int maxRequestID, int timeout,
                                      std::atomic<bool> const& stopFlag);

    /// Frees a packet from Read(); null is ignored.
    static void FreePacket(Packet* packet);

    /// Thread entries; argument is the object. Null does nothing.
    static void* ReadFunction(void* argument);
    static void* WriteFunction(void* argument);

    /// The read thread's loop: queues each packet cut from the stream until stopped.
    void ReadWorker();
    /// The write thread's loop: sends each queued packet until stopped; queued packets left at
    /// the stop are not sent.
    void WriteWorker();

protected:
    IParameterLoggingAPI* Logger() const { return m_logger; }

    /// A new client: bytes still buffered belong to the one before and are thrown away, and
    /// responses queued for that one are no longer sent. Called on the read thread.
    void BeginConnection();

private:
    static Packet* MakePacket(unsigned char const* data, unsigned int length, bool empty);
    /// Removes count bytes from the front of the receive buffer.
    void ConsumeReceived(unsigned int count);
    /// Logs why the head at the front of the buffer can never complete, or returns false when
    /// it can.
    bool RefuseHead(unsigned char const* head, unsigned int packetSize,
                    unsigned int maxRequestID) const;
    /// Logs a packet whose command lies beyond the last one (a reader may accept such commands
    /// when given a larger maxRequestID).
    void LogUnknownCommand(unsigned char const* packet, unsigned int length) const;

    unsigned char* m_receiveBuffer = nullptr;
    uint32_t m_receivedBytes = 0;
    // The client being read from, counted up on each new one; the client of the packet that
    // the command thread serves, to which its responses go.
    std::atomic<uint32_t> m_connection{0};
    std::atomic<uint32_t> m_servedConnection{0};
    // The transport's threads go on through a reload, while the manager that owns them rewrites
    // and frees its identifier; they log through this stand-in, which forwards the level switches
    // and keeps its own copy of the identifier, taken when the server starts.
    std::unique_ptr<IParameterLoggingAPI> m_stableLogger;
    IParameterLoggingAPI* m_logger = nullptr;
    std::atomic<bool> m_stop{false};
    // Each flag is changed under its queue's mutex, so it is set exactly while the queue holds
    // packets or a stop is pending; the waits test it under their own mutex.
    std::atomic<bool> m_readData{false};
    std::condition_variable m_readCondition;
    std::mutex m_readWaitMutex;
    std::atomic<bool> m_writeData{false};
    std::condition_variable m_writeCondition;
    std::mutex m_writeWaitMutex;
    int m_readTimeout = ReadTimeoutSeconds;
    ParameterKnobbyThread m_readThread;
    ParameterKnobbyThread m_writeThread;
    std::mutex m_readQueueMutex;
    std::mutex m_writeQueueMutex;
    std::deque<Packet*> m_readQueue;
    std::deque<Packet*> m_writeQueue;
};
