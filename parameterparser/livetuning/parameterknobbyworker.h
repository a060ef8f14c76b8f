// SPDX-License-Identifier: Apache-2.0
// ParameterKnobbyWorker: the live tuning command thread, between the packet queues and the store.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <mutex>

#include "parameterparser/livetuning/knobbyhandler.h"
#include "parameterparser/livetuning/parameterknobbythread.h"
#include "parameterparser/parametercontrolvalues.h"
#include "parameterparser/parameterexport.h"
#include "parameterparser/plist.h"

class IParameterDataAPI;
class IParameterLoggingAPI;
class ParameterKnobbyCom;

/// Executes the live tuning commands 0 to 9. Its thread takes one request at a time from the
/// socket's read queue, runs it against the store through IParameterDataAPI and queues the
/// response for the write thread. The host publishes control values and answers trigger
/// requests through it. Malformed requests are dropped without a response.
class PARAMETERPARSER_API ParameterKnobbyWorker
{
public:
    /// Trigger requests are answered once clock() has moved more than this many ticks.
    static constexpr clock_t TriggerResponseTicks = 5000;
    /// Room for the control value text, head included.
    static constexpr unsigned int ControlTextLimit = 4096;

    /// data is the store and the logger of every message here; it is not owned and must outlive
    /// the worker. A null data logs "ParameterKnobbyWorker constructed with a nullptr Set Manager
    /// object\n" at error level.
    explicit ParameterKnobbyWorker(IParameterDataAPI* data);

    /// Stops the threads as Stop() does (nothing when already stopped), then frees the
    /// transport, the pending trigger requests and the lists.
    ~ParameterKnobbyWorker();

    ParameterKnobbyWorker(ParameterKnobbyWorker const&) = delete;
    ParameterKnobbyWorker& operator=(ParameterKnobbyWorker const&) = delete;
    ParameterKnobbyWorker(ParameterKnobbyWorker&&) = delete;
    ParameterKnobbyWorker& operator=(ParameterKnobbyWorker&&) = delete;

    /// Draws a new random session ID, then starts the server (socket, read and write threads)
    /// and the command thread; nothing while the command thread runs.
    void Start();

    /// Stops the read thread, the write thread and the port, then the command thread, within
    /// about one poll period whatever a client does. Safe to call twice, and while paused.
    void Stop();

    /// Holds the command thread off the store: returns once no command runs, and none starts
    /// until as many Resume calls have come. The socket stays open and requests queue up, to be
    /// answered on the same connection after the last Resume.
    void Pause();
    void Resume();

    /// Executes one request packet of size bytes as the command thread does, queueing its
    /// response. Nothing for a command above 9 or a request below its command's minimum size;
    /// 1 to 3 bytes also log the short read of the command.
    void Execute(unsigned char const* packet, unsigned int size);

    /// The TCP port (or UNIX name number) being served; 0 when not listening.
    unsigned short GetPort() const;

    /// The session ID announced by Device Info: a random number drawn at each Start, so that no
    /// client learns an address of the process.
    uint64_t GetSessionId() const { return m_knobbyID; }

    /// Where the server listens and how long a client may stay silent; see
    /// ParameterKnobbyCom::SetListenAddress and SetIdleTimeout. Set before Start.
    [[nodiscard]] bool SetListenAddress(char const* host, unsigned short port);
    void SetIdleTimeout(unsigned int seconds);

    /// Installs the host's callbacks (null removes them). The host keeps ownership.
    void SetHandler(KnobbyHandler* handler);

    // Packet format helpers, also for hosts with a transport of their own. log may be null.

    /// Reads a request's head. False for a null packet, a size below 7, a wrong start tag, a
    /// command with a request ID (3 to 6, 8) or Trigger Values (7) below 19 bytes, and for the
    /// commands 3 to 8 below 14 bytes (logged "Failed to read %lld bytes from binary file offset
    /// %d, length %d\n"). payload points into packet (null when the command has none).
    static bool ParseRequest(unsigned char const* packet, unsigned int size,
                             unsigned short& command, unsigned long& id, unsigned int& requestID,
                             unsigned char const*& payload, unsigned int& payloadLength,
                             IParameterLoggingAPI* log = nullptr);

    /// Reads a response's head as the server sends it (Device Info with its session ID at 8).
    /// Same results and messages as ParseRequest, for the response layout.
    static bool ParseResponse(unsigned char const* packet, unsigned int size,
                              unsigned short& command, unsigned long& id, unsigned int& requestID,
                              unsigned char const*& payload, unsigned int& payloadLength,
                              IParameterLoggingAPI* log = nullptr);

    /// Writes a head and, for the commands 3 to 8, the payload (which must hold payloadLength
    /// bytes) into buffer. totalLength becomes payloadLength + 6, or + 10 with a request ID: the
    /// head without the session ID's 8 bytes, so a caller adds 8 to payloadLength to get the
    /// packet's real size. False for a null buffer, bufferSize below 15 or command 0 (with
    /// totalLength 0), and when bufferSize is not above totalLength. The payload is cut to fit.
    static bool BuildResponse(unsigned char* buffer, unsigned int bufferSize,
                              unsigned int& totalLength, unsigned short command, unsigned long id,
                              unsigned int requestID, unsigned char const* payload,
                              unsigned int payloadLength, IParameterLoggingAPI* log = nullptr);

    /// True when each of the length bytes is 0 or printable ASCII (32 to 126); false for null or
    /// length 0.
    static bool IsPrintable(unsigned char const* buffer, unsigned int length);

    /// The command thread's entry (null does nothing) and loop.
    static void* ReadFunction(void* argument);
    void ReadWorker();

    // The command handlers; each reads a request and queues its response.
    void ProcessDeviceInfo();
    void ProcessActiveModes();
    void ProcessControlValues();
    void ProcessModes(unsigned char const* packet, unsigned int size);
    void ProcessInfo(unsigned char const* packet, unsigned int size);
    void ProcessGetValues(unsigned char const* packet, unsigned int size);
    void ProcessSetValues(unsigned char const* packet, unsigned int size);
    void ProcessTriggerValues(unsigned char const* packet, unsigned int size);
    void ProcessCustom(unsigned char const* packet, unsigned int size);
    void ProcessModeTableIndex(unsigned char const* packet, unsigned int size);

    // Host side: control and trigger values. Each is a short list update under the value mutex.

    /// Replaces the control values by a copy of values (passing the worker's own list empties
    /// it).
    void SetControlValues(PList<ParameterCTValue> const& values);
    /// Replaces the value of value's identifier, or inserts it in front of the first larger
    /// identifier; a list kept through this alone stays sorted.
    void SetControlValue(ParameterCTValue const& value);
    /// Adds an instance with a copy of count values to the pending request for the three texts.
    /// False (nothing changed) when no such request is pending or memory runs out.
    bool SetTriggerValues(char const* modePath, char const* module, char const* pipeline,
                          char const* instance, ParameterCTValue const* values, unsigned int count);
    /// True while a request for the three texts is pending.
    bool TriggerRequestExists(char const* modePath, char const* module, char const* pipeline);

    /// Answers and frees every pending request older than TriggerResponseTicks.
    void SendTriggerResponses();
    /// Queues the response to one request: "modePath:module:pipeline#" and per instance its
    /// name, ":", a 16-bit count and the 12-byte values. A null request is logged.
    void SendTriggerValues(ParameterTriggerValues const* request);

    /// The host's callbacks; null when none. Set it before the first load or through
    /// SetHandler.
    KnobbyHandler* m_handler = nullptr;

private:
    /// The response head with the bare layout: tag, command, length, session ID at 6.
    void WriteBareHead(unsigned char* buffer, unsigned short command, unsigned int length) const;
    KnobbyHandler* Handler();

    IParameterDataAPI* m_data;
    std::atomic<uint64_t> m_knobbyID{0};
    ParameterKnobbyCom* m_com = nullptr;
    std::atomic<bool> m_stopRequested{false};
    // Pause and the command thread meet here: pauses counted, and whether a command runs.
    std::mutex m_pauseMutex;
    std::condition_variable m_pauseCondition;
    unsigned int m_pauses = 0;
    bool m_executing = false;
    ParameterKnobbyThread m_thread;
    uint8_t m_modeTableIndex = 0;
    std::recursive_mutex m_valueMutex;
    PList<ParameterTriggerValues*> m_triggerRequests;
    PList<ParameterCTValue> m_controlValues;
};
