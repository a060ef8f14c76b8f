// SPDX-License-Identifier: Apache-2.0
// ParameterKnobbyWorker: lifecycle, the command loop and the packet head helpers.
#include "parameterparser/livetuning/parameterknobbyworker.h"

#include <chrono>
#include <cstring>
#include <new>

#include <fcntl.h>
#include <unistd.h>

#include "parameterparser/iparameterdataapi.h"
#include "parameterparser/livetuning/parameterknobbycom.h"
#include "parameterparser/livetuning/parameterknobbypacket.h"
#include "parameterparser/parameterlogging.h"

namespace {

namespace Wire = ParameterKnobbyPacket;

// The smallest request each command is executed for; shorter ones are dropped unanswered.
constexpr unsigned int MinimumRequestSize[Wire::CommandCount] = {4,  4,  4,  19, 19,
                                                                 19, 19, 19, 19, 15};

// A fresh 64-bit session ID from the system's random source. Where that cannot be read, the
// time stirred by a 64-bit mixer, which still tells nothing of the process's memory.
uint64_t DrawSessionId()
{
    uint64_t value = 0;
    int const source = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    if (source >= 0) {
        ssize_t const got = read(source, &value, sizeof(value));
        close(source);
        if (got == static_cast<ssize_t>(sizeof(value)))
            return value;
    }
    value = static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
    value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9ULL;
    value = (value ^ (value >> 27)) * 0x94d049bb133111ebULL;
    return value ^ (value >> 31);
}

} // namespace

ParameterKnobbyWorker::ParameterKnobbyWorker(IParameterDataAPI* data) : m_data(data)
{
    if (data == nullptr)
        ParameterLogging::Write(
            nullptr, ParameterLogging::LogError,
            "ParameterKnobbyWorker constructed with a nullptr Set Manager object\n");
    m_com = new (std::nothrow) ParameterKnobbyCom(data);
}

ParameterKnobbyWorker::~ParameterKnobbyWorker()
{
    // The command thread waits in Read() until the transport stops: stop everything before
    // anything is freed, in case the owner skipped Stop().
    Stop();
    delete m_com;
    for (unsigned int i = 0; i < m_triggerRequests.Count(); ++i)
        ParameterTriggerValues::Destroy(m_triggerRequests[i]);
}

void ParameterKnobbyWorker::Start()
{
    if (m_thread.Joinable() || m_com == nullptr)
        return;
    m_stopRequested = false;
    m_knobbyID = DrawSessionId();
    m_com->Start();
    if (!m_thread.Start(ReadFunction, this, "command", m_data))
        m_com->Stop();
}

void ParameterKnobbyWorker::Stop()
{
    {
        // Under the pause mutex, so that a command thread held by a pause sees the stop.
        std::lock_guard<std::mutex> lock(m_pauseMutex);
        m_stopRequested = true;
    }
    m_pauseCondition.notify_all();
    if (!m_thread.Joinable())
        return;
    // Read and write threads and the port first; the stop wakes the command thread's Read().
    m_com->Stop();
    m_thread.Join();
}

void ParameterKnobbyWorker::Pause()
{
    std::unique_lock<std::mutex> lock(m_pauseMutex);
    ++m_pauses;
    m_pauseCondition.wait(lock, [this] { return !m_executing; });
}

void ParameterKnobbyWorker::Resume()
{
    {
        std::lock_guard<std::mutex> lock(m_pauseMutex);
        if (m_pauses > 0)
            --m_pauses;
    }
    m_pauseCondition.notify_all();
}

bool ParameterKnobbyWorker::SetListenAddress(char const* host, unsigned short port)
{
    return m_com != nullptr && m_com->SetListenAddress(host, port);
}

void ParameterKnobbyWorker::SetIdleTimeout(unsigned int seconds)
{
    if (m_com != nullptr)
        m_com->SetIdleTimeout(seconds);
}

unsigned short ParameterKnobbyWorker::GetPort() const
{
    return m_com != nullptr ? m_com->GetPort() : 0;
}

void ParameterKnobbyWorker::SetHandler(KnobbyHandler* handler)
{
    std::lock_guard<std::recursive_mutex> lock(m_valueMutex);
    m_handler = handler;
}

KnobbyHandler* ParameterKnobbyWorker::Handler()
{
    std::lock_guard<std::recursive_mutex> lock(m_valueMutex);
    return m_handler;
}

void* ParameterKnobbyWorker::ReadFunction(void* argument)
{
    if (argument != nullptr)
        static_cast<ParameterKnobbyWorker*>(argument)->ReadWorker();
    return nullptr;
}

void ParameterKnobbyWorker::ReadWorker()
{
    while (!m_stopRequested) {
        // Answers leave only here, so a due trigger request waits for the next packet's round.
        SendTriggerResponses();
        ParameterKnobbyComBase::Packet* packet = m_com->Read();
        if (packet == nullptr)
            continue;
        bool run = false;
        {
            std::unique_lock<std::mutex> lock(m_pauseMutex);
            m_pauseCondition.wait(lock, [this] { return m_pauses == 0 || m_stopRequested; });
            run = !m_stopRequested;
            m_executing = run;
        }
        if (run) {
            Execute(packet->data, packet->length);
            {
                std::lock_guard<std::mutex> lock(m_pauseMutex);
                m_executing = false;
            }
            m_pauseCondition.notify_all();
        }
        ParameterKnobbyComBase::FreePacket(packet);
    }
}

void ParameterKnobbyWorker::Execute(unsigned char const* data, unsigned int size)
{
    if (size == 0 || data == nullptr || m_data == nullptr || m_com == nullptr)
        return;
    // A packet too short for its command is logged and counts as Device Info, which it is too
    // short for as well.
    uint16_t command = Wire::DeviceInfo;
    (void)Wire::View(data, size).U16(Wire::CommandOffset, command, m_data);
    if (command >= Wire::CommandCount || size < MinimumRequestSize[command])
        return;
    switch (command) {
    case Wire::DeviceInfo:
        ProcessDeviceInfo();
        break;
    case Wire::ActiveModes:
        ProcessActiveModes();
        break;
    case Wire::ControlValues:
        ProcessControlValues();
        break;
    case Wire::Modes:
        ProcessModes(data, size);
        break;
    case Wire::Info:
        ProcessInfo(data, size);
        break;
    case Wire::GetValues:
        ProcessGetValues(data, size);
        break;
    case Wire::SetValues:
        ProcessSetValues(data, size);
        break;
    case Wire::TriggerValues:
        ProcessTriggerValues(data, size);
        break;
    case Wire::Custom:
        ProcessCustom(data, size);
        break;
    default:
        ProcessModeTableIndex(data, size);
        break;
    }
}

void ParameterKnobbyWorker::WriteBareHead(unsigned char* buffer, unsigned short command,
                                          unsigned int length) const
{
    Wire::WriteHead(buffer, command, length, m_knobbyID);
}

namespace {

// Hands a parsed head out through the separate results of the public helpers.
bool Unpack(bool parsed, Wire::Head const& head, unsigned short& command, unsigned long& id,
            unsigned int& requestID, unsigned char const*& payload, unsigned int& payloadLength)
{
    command = head.command;
    id = static_cast<unsigned long>(head.session);
    requestID = head.requestId;
    payload = head.payload;
    payloadLength = head.payloadLength;
    return parsed;
}

} // namespace

bool ParameterKnobbyWorker::ParseRequest(unsigned char const* packet, unsigned int size,
                                         unsigned short& command, unsigned long& id,
                                         unsigned int& requestID, unsigned char const*& payload,
                                         unsigned int& payloadLength, IParameterLoggingAPI* log)
{
    Wire::Head head;
    bool const parsed =
        Wire::ParseHead(Wire::View(packet, size), Wire::Direction::Request, head, log);
    return Unpack(parsed, head, command, id, requestID, payload, payloadLength);
}

bool ParameterKnobbyWorker::ParseResponse(unsigned char const* packet, unsigned int size,
                                          unsigned short& command, unsigned long& id,
                                          unsigned int& requestID, unsigned char const*& payload,
                                          unsigned int& payloadLength, IParameterLoggingAPI* log)
{
    Wire::Head head;
    bool const parsed =
        Wire::ParseHead(Wire::View(packet, size), Wire::Direction::Response, head, log);
    return Unpack(parsed, head, command, id, requestID, payload, payloadLength);
}

bool ParameterKnobbyWorker::BuildResponse(unsigned char* buffer, unsigned int bufferSize,
                                          unsigned int& totalLength, unsigned short command,
                                          unsigned long id, unsigned int requestID,
                                          unsigned char const* payload, unsigned int payloadLength,
                                          IParameterLoggingAPI* log)
{
    if (buffer == nullptr || bufferSize < Wire::HeadSize + 1 || command == Wire::DeviceInfo) {
        totalLength = 0;
        return false;
    }
    bool const withRequestId = Wire::HasRequestId(command);
    totalLength = payloadLength + (withRequestId ? 10 : 6);
    if (bufferSize <= totalLength)
        return false;
    Wire::WriteHead(buffer, command, totalLength, id);
    unsigned int offset = Wire::HeadSize;
    if (withRequestId) {
        if (bufferSize < Wire::RequestHeadSize) {
            ParameterLogging::Write(log, ParameterLogging::LogError,
                                    "Failed to write %lld bytes to binary offset %d, length %d\n",
                                    4LL, static_cast<int>(Wire::RequestIdOffset),
                                    static_cast<int>(bufferSize));
            return false;
        }
        Wire::PutU32(buffer + Wire::RequestIdOffset, requestID);
        offset = Wire::RequestHeadSize;
    }
    if (command >= Wire::Modes && command <= Wire::Custom && payload != nullptr) {
        // totalLength leaves the session ID out, so the payload may reach up to 8 bytes past
        // what the length check covered: cut it at the buffer's end. A payload that already
        // stands in place needs no copy.
        unsigned int const room = bufferSize - offset;
        unsigned int const count = payloadLength < room ? payloadLength : room;
        if (payload != buffer + offset)
            std::memmove(buffer + offset, payload, count);
    }
    return true;
}

bool ParameterKnobbyWorker::IsPrintable(unsigned char const* buffer, unsigned int length)
{
    if (buffer == nullptr || length == 0)
        return false;
    for (unsigned int i = 0; i < length; ++i) {
        if (buffer[i] != 0 && (buffer[i] < 32 || buffer[i] > 126))
            return false;
    }
    return true;
}
