// SPDX-License-Identifier: Apache-2.0
// LiveConnection: a client's connection to a live tuning server, and the requests it sends.
#pragma once

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "parameterparser/livetuning/parameterknobbycom.h"
#include "parameterparser/livetuning/parameterknobbypacket.h"

namespace ParamCtl {

using Bytes = std::vector<unsigned char>;

/// One TCP connection to a live tuning server; every wait is bounded.
class LiveConnection
{
public:
    LiveConnection() = default;
    ~LiveConnection()
    {
        if (m_socket >= 0)
            close(m_socket);
    }

    LiveConnection(LiveConnection const&) = delete;
    LiveConnection& operator=(LiveConnection const&) = delete;

    bool Open(std::string const& host, std::string const& port, std::string& error)
    {
        addrinfo hints = {};
        hints.ai_family = AF_UNSPEC;
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* found = nullptr;
        int const result = getaddrinfo(host.c_str(), port.c_str(), &hints, &found);
        if (result != 0) {
            error = gai_strerror(result);
            return false;
        }
        error = "no address";
        for (addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
            int const candidate = socket(entry->ai_family, entry->ai_socktype, entry->ai_protocol);
            if (candidate < 0) {
                error = std::strerror(errno);
                continue;
            }
            if (connect(candidate, entry->ai_addr, entry->ai_addrlen) == 0) {
                // Requests are small and go out back to back: each is sent at once.
                int const on = 1;
                setsockopt(candidate, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
                m_socket = candidate;
                break;
            }
            error = std::strerror(errno);
            close(candidate);
        }
        freeaddrinfo(found);
        return m_socket >= 0;
    }

    bool Send(Bytes const& packet)
    {
        return send(m_socket, packet.data(), packet.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(packet.size());
    }

    // The next packet by its length field; empty when none came in time or the server closed.
    Bytes Receive(int timeoutMs)
    {
        Bytes head = ReadExactly(6, timeoutMs);
        if (head.size() < 6)
            return {};
        size_t const length =
            ParameterKnobbyPacket::GetU16(head.data() + ParameterKnobbyPacket::LengthOffset);
        if (length <= head.size())
            return head;
        Bytes const rest = ReadExactly(length - head.size(), timeoutMs);
        if (rest.size() < length - head.size())
            return {};
        head.insert(head.end(), rest.begin(), rest.end());
        return head;
    }

private:
    Bytes ReadExactly(size_t count, int timeoutMs)
    {
        Bytes bytes;
        auto const end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        unsigned char chunk[4096];
        while (bytes.size() < count) {
            auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(
                end - std::chrono::steady_clock::now());
            if (left.count() <= 0)
                break;
            pollfd entry = {m_socket, POLLIN, 0};
            if (poll(&entry, 1, static_cast<int>(left.count())) <= 0)
                break;
            size_t const want = std::min(sizeof(chunk), count - bytes.size());
            ssize_t const got = recv(m_socket, chunk, want, 0);
            if (got <= 0)
                break;
            bytes.insert(bytes.end(), chunk, chunk + got);
        }
        return bytes;
    }

    int m_socket = -1;
};

/// Where a live tuning server listens.
struct LiveTarget
{
    std::string host = "127.0.0.1";
    std::string port = std::to_string(ParameterKnobbyCom::DefaultPort);
};

/// HOST, :PORT or HOST:PORT, where HOST may be an IPv6 literal in brackets ([::1]:19278) or
/// bare without a port (::1). False for an unclosed bracket or a port that is not 1 to 65535.
[[nodiscard]] bool ParseTarget(std::string const& text, LiveTarget& target);

/// A request packet.
Bytes MakeRequest(uint16_t command, uint64_t session, uint32_t requestId, Bytes const& payload);

/// text with its terminating zero, as the text requests carry it.
Bytes TextPayload(std::string const& text);

/// The text at bytes up to its first zero or count.
std::string TextOf(unsigned char const* bytes, size_t count);

/// Connects to target, learns the session ID from Device Info, sends command with text as its
/// payload and gives the text of the answer. False with error when the server cannot be
/// reached or sends no answer within timeoutMs.
[[nodiscard]] bool LiveRequest(LiveTarget const& target, uint16_t command, std::string const& text,
                               int timeoutMs, std::string& answer, std::string& error);

/// One connection to a live tuning server for a run of requests on one mode table. The server
/// works on one table for every client, so the run switches it to its own and back to the one
/// in force before it at the end (the server serves one client at a time, so no request of
/// another client falls in between).
class LiveExchange
{
public:
    LiveExchange() = default;
    ~LiveExchange();

    LiveExchange(LiveExchange const&) = delete;
    LiveExchange& operator=(LiveExchange const&) = delete;

    /// Connects to target, learns the session ID and selects mode table `table`. False with
    /// error when the server cannot be reached, sends no answer within timeoutMs or has no
    /// such table.
    [[nodiscard]] bool Open(LiveTarget const& target, unsigned char table, int timeoutMs,
                            std::string& error);

    /// Sends command with text as its payload and gives the text of the answer. False with
    /// error when none comes.
    [[nodiscard]] bool Request(uint16_t command, std::string const& text, std::string& answer,
                               std::string& error);

    /// Sends command once for each of texts and gives the answers' texts in the same order.
    /// False with error when one does not come.
    [[nodiscard]] bool RequestEach(uint16_t command, std::vector<std::string> const& texts,
                                   std::vector<std::string>& answers, std::string& error);

    /// Selects mode table `table` for the requests that follow. False with error when the
    /// server has no such table or does not answer.
    [[nodiscard]] bool Select(unsigned char table, std::string& error);

    /// The text the server announced itself with: its name and, when it has more than one mode
    /// table, ":" and their names joined by ",".
    std::string const& Device() const { return m_device; }

private:
    /// Asks for mode table text and gives the index the server answers with (the one in force
    /// when it has no such table).
    bool SelectTable(std::string const& text, std::string& inForce);

    LiveConnection m_connection;
    std::string m_where;
    uint64_t m_session = 0;
    uint32_t m_requestId = 0;
    int m_timeoutMs = 0;
    std::string m_device;
    std::string m_restore; ///< the table in force before the run; empty before it is known
    std::string m_current; ///< the table selected now
};

} // namespace ParamCtl
