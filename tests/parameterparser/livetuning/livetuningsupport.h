// SPDX-License-Identifier: Apache-2.0
// Helpers of the live tuning tests: a loopback client, request packets and a fake store.
#pragma once

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "parameterparser/iparameterdataapi.h"
#include "parameterparser/livetuning/knobbyhandler.h"
#include "parameterparser/livetuning/parameterknobbypacket.h"

#include "tests/common/logcapture.h"

namespace LiveTuningTest {

namespace Wire = ParameterKnobbyPacket;

using Bytes = std::vector<uint8_t>;

/// A request as a client sends it.
inline Bytes Request(uint16_t command, std::string const& payload = "", uint32_t requestId = 7,
                     uint64_t session = 0, bool terminate = true)
{
    Bytes text(payload.begin(), payload.end());
    if (terminate && !payload.empty())
        text.push_back(0);
    Bytes packet(Wire::RequestHeadSize + text.size());
    unsigned int const length =
        Wire::WriteRequest(packet.data(), static_cast<unsigned int>(packet.size()), command,
                           session, requestId, text.data(), static_cast<unsigned int>(text.size()));
    packet.resize(length);
    return packet;
}

inline Bytes Join(Bytes first, Bytes const& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

/// Waits, in short steps up to timeout, until condition holds; returns its last value.
inline bool WaitFor(std::function<bool()> const& condition,
                    std::chrono::milliseconds timeout = std::chrono::milliseconds(5000))
{
    auto const end = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end)
            return condition();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

/// Runs a call that may block (a Stop, a destructor) on a thread of its own, so that the test
/// can wait for it with a bound.
class BoundedCall
{
public:
    explicit BoundedCall(std::function<void()> call)
        : m_finished(std::make_shared<std::atomic<bool>>(false))
    {
        std::shared_ptr<std::atomic<bool>> finished = m_finished;
        m_thread = std::thread([finished, call] {
            call();
            *finished = true;
        });
    }
    ~BoundedCall()
    {
        if (m_thread.joinable())
            Wait();
    }

    BoundedCall(BoundedCall const&) = delete;
    BoundedCall& operator=(BoundedCall const&) = delete;

    bool Finished() const { return *m_finished; }

    /// Waits at most timeout for the call to end and joins it. A call still running then hangs
    /// inside objects the test owns, which can be neither freed nor joined: the failure is
    /// reported and the test program ends at once, instead of hanging until the runner's limit.
    void Wait(std::chrono::milliseconds timeout = std::chrono::milliseconds(5000))
    {
        if (!WaitFor([this] { return Finished(); }, timeout)) {
            ADD_FAILURE() << "a blocking call did not end within " << timeout.count() << " ms";
            std::fprintf(stderr, "a blocking call did not end within %lld ms: giving up\n",
                         static_cast<long long>(timeout.count()));
            std::fflush(nullptr);
            std::_Exit(EXIT_FAILURE);
        }
        m_thread.join();
    }

private:
    std::shared_ptr<std::atomic<bool>> m_finished;
    std::thread m_thread;
};

/// A TCP client on 127.0.0.1 with bounded waits on every receive.
class LoopbackClient
{
public:
    LoopbackClient() = default;
    ~LoopbackClient() { Close(); }

    LoopbackClient(LoopbackClient const&) = delete;
    LoopbackClient& operator=(LoopbackClient const&) = delete;

    bool Connect(unsigned short port)
    {
        Close();
        m_socket = socket(AF_INET, SOCK_STREAM, 0);
        if (m_socket < 0)
            return false;
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        timeval limit = {0, 200 * 1000};
        setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
        return connect(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
    }

    void Close()
    {
        if (m_socket >= 0)
            close(m_socket);
        m_socket = -1;
    }

    bool Send(Bytes const& bytes)
    {
        return send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(bytes.size());
    }

    /// Reads exactly count bytes, waiting at most timeout in all; fewer when time ran out or
    /// the server closed.
    Bytes ReadBytes(size_t count, std::chrono::milliseconds timeout)
    {
        Bytes bytes;
        auto const end = std::chrono::steady_clock::now() + timeout;
        uint8_t chunk[4096];
        while (bytes.size() < count && std::chrono::steady_clock::now() < end) {
            size_t const want = std::min(sizeof(chunk), count - bytes.size());
            ssize_t const got = recv(m_socket, chunk, want, 0);
            if (got == 0)
                break;
            if (got > 0)
                bytes.insert(bytes.end(), chunk, chunk + got);
        }
        return bytes;
    }

    /// The next whole packet by its length field (head of 6 bytes first); empty when none came
    /// within timeout.
    Bytes ReadPacket(std::chrono::milliseconds timeout = std::chrono::milliseconds(5000))
    {
        Bytes head = ReadBytes(6, timeout);
        if (head.size() < 6)
            return {};
        size_t const length = Wire::GetU16(head.data() + Wire::LengthOffset);
        if (length <= 6)
            return head;
        Bytes const rest = ReadBytes(length - 6, timeout);
        return Join(head, rest);
    }

    /// True when nothing arrives within wait.
    bool Silent(std::chrono::milliseconds wait = std::chrono::milliseconds(400))
    {
        return ReadBytes(1, wait).empty();
    }

    /// True when the server closes the connection within timeout; bytes before the end are
    /// read and dropped.
    bool SeesEnd(std::chrono::milliseconds timeout = std::chrono::milliseconds(5000))
    {
        auto const end = std::chrono::steady_clock::now() + timeout;
        uint8_t chunk[4096];
        while (std::chrono::steady_clock::now() < end) {
            ssize_t const got = recv(m_socket, chunk, sizeof(chunk), 0);
            // A reset ends the connection as well as an orderly close does.
            if (got == 0 || (got < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR))
                return true;
        }
        return false;
    }

    int Descriptor() const { return m_socket; }

private:
    int m_socket = -1;
};

/// The text of a response from offset up to its terminator (or its end).
inline std::string TextAt(Bytes const& packet, size_t offset)
{
    if (offset >= packet.size())
        return {};
    auto const* begin = reinterpret_cast<char const*>(packet.data() + offset);
    size_t length = 0;
    while (offset + length < packet.size() && begin[length] != '\0')
        ++length;
    return std::string(begin, length);
}

/// A store with fixed answers, standing in for a set manager's value access. Every call is
/// recorded; all access is locked, since the worker's command thread calls in.
class FakeDataAPI : public IParameterDataAPI
{
public:
    struct SetCall
    {
        std::string modePath;
        std::string variable;
        std::string name;
        std::string value;
    };

    char const* GetLoggingIdentifier() override { return identifier.c_str(); }
    bool LoggingEnabled(ParameterLogging::ParameterLogLevel) override { return true; }

    unsigned int GetModeTableCount() override { return static_cast<unsigned int>(tables.size()); }

    bool GetModeTableNames(PList<char const*>& names) override
    {
        for (std::string const& name : tables)
            names.Add(name.c_str());
        return !tables.empty();
    }

    bool GetValue(unsigned char modeTableIndex, char const* modePath, char const* variable,
                  char const* subVariables, char* result, unsigned int resultLength) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_lastGet = std::string(modePath) + "|" + variable + "|" +
                    (subVariables != nullptr ? subVariables : "<null>") + "|" +
                    std::to_string(modeTableIndex);
        std::string key = variable;
        if (subVariables != nullptr)
            key += std::string("/") + subVariables;
        auto const found = values.find(key);
        if (found == values.end())
            return false;
        std::strncpy(result, found->second.c_str(), resultLength - 1);
        result[resultLength - 1] = '\0';
        return true;
    }

    bool SetValue(unsigned char, char const* modePath, char const* variableBase,
                  char const* variableName, char const* value) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_setCalls.push_back({modePath, variableBase, variableName, value});
        if (failingNames.count(variableName) != 0)
            return false;
        values[std::string(variableBase) + "/" + variableName] =
            silentNames.count(variableName) != 0 ? std::string()
                                                 : std::string(variableName) + "=" + value;
        return true;
    }

    bool GetInfo(unsigned char, char const* modePath, char const* variable,
                 PList<ParameterParserInfo>& info) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_lastInfo = std::string(modePath) + "|" + (variable != nullptr ? variable : "<null>");
        if (!infoSucceeds)
            return false;
        for (ParameterParserInfo const& record : records)
            info.Add(record);
        return true;
    }

    void GetActiveModes(unsigned char modeTableIndex, char* result,
                        unsigned int resultLength) override
    {
        std::string const text = activeModes + "#" + std::to_string(modeTableIndex);
        std::strncpy(result, text.c_str(), resultLength - 1);
    }

    unsigned int GetChildModes(unsigned char, char const* modePath, unsigned char* result,
                               unsigned int resultLength) override
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_lastChildPath = modePath;
        }
        size_t const count = std::min<size_t>(childModes.size() + 1, resultLength);
        std::memcpy(result, childModes.c_str(), count);
        return static_cast<unsigned int>(count);
    }

    void GetModeShorthand(char const* modes, char* result, unsigned int resultLength) override
    {
        std::string const text = std::string("short(") + modes + ")";
        std::strncpy(result, text.c_str(), resultLength - 1);
        result[resultLength - 1] = '\0';
    }

    std::vector<SetCall> SetCalls()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_setCalls;
    }
    std::string LastGet()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_lastGet;
    }
    std::string LastInfo()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_lastInfo;
    }
    std::string LastChildPath()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_lastChildPath;
    }

    // Configuration; set before the worker starts.
    std::string identifier = "FakeStore";
    std::vector<std::string> tables = {"rear"};
    std::string activeModes = "Default|Sensor.0";
    std::string childModes = "Usecase.Preview,Usecase.Video";
    std::map<std::string, std::string> values;
    std::map<std::string, bool> failingNames;
    /// Names whose value is stored but reads back as an empty text.
    std::map<std::string, bool> silentNames;
    std::vector<ParameterParserInfo> records;
    bool infoSucceeds = true;

private:
    std::mutex m_mutex;
    std::vector<SetCall> m_setCalls;
    std::string m_lastGet;
    std::string m_lastInfo;
    std::string m_lastChildPath;
};

} // namespace LiveTuningTest
