// SPDX-License-Identifier: Apache-2.0
// A live tuning client on 127.0.0.1 for tests and benchmarks: request packets and bounded reads.
#pragma once

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "parameterparser/livetuning/parameterknobbypacket.h"

namespace ParamTest {

using Bytes = std::vector<uint8_t>;

/// A request as a client sends it; a non-empty text payload carries its terminator.
inline Bytes Request(uint16_t command, std::string const& payload = "", uint32_t requestId = 7,
                     uint64_t session = 0)
{
    Bytes text(payload.begin(), payload.end());
    if (!payload.empty())
        text.push_back(0);
    Bytes packet(ParameterKnobbyPacket::RequestHeadSize + text.size());
    packet.resize(ParameterKnobbyPacket::WriteRequest(
        packet.data(), static_cast<unsigned int>(packet.size()), command, session, requestId,
        text.data(), static_cast<unsigned int>(text.size())));
    return packet;
}

inline Bytes Join(Bytes first, Bytes const& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

/// The text of a packet from offset up to its terminator (or its end).
inline std::string TextAt(Bytes const& packet, size_t offset)
{
    if (offset >= packet.size())
        return {};
    auto const begin = packet.begin() + static_cast<std::ptrdiff_t>(offset);
    return std::string(begin, std::find(begin, packet.end(), 0));
}

/// A TCP client on 127.0.0.1; every receive waits at most a bounded time.
class LoopbackClient
{
public:
    using Milliseconds = std::chrono::milliseconds;

    LoopbackClient() = default;
    ~LoopbackClient() { Close(); }
    LoopbackClient(LoopbackClient const&) = delete;
    LoopbackClient& operator=(LoopbackClient const&) = delete;

    bool Connect(unsigned short port)
    {
        Close();
        m_socket = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        timeval limit = {0, 200 * 1000};
        int const noDelay = 1;
        setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
        setsockopt(m_socket, IPPROTO_TCP, TCP_NODELAY, &noDelay, sizeof(noDelay));
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

    /// Up to count bytes, fewer when timeout passed or the server closed (then Ended()).
    Bytes ReadBytes(size_t count, Milliseconds timeout)
    {
        Bytes bytes;
        auto const end = std::chrono::steady_clock::now() + timeout;
        uint8_t chunk[4096];
        while (bytes.size() < count && std::chrono::steady_clock::now() < end) {
            ssize_t const got =
                recv(m_socket, chunk, std::min(sizeof(chunk), count - bytes.size()), 0);
            // A reset ends the connection as well as an orderly close does.
            m_ended =
                got == 0 || (got < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR);
            if (m_ended)
                break;
            if (got > 0)
                bytes.insert(bytes.end(), chunk, chunk + got);
        }
        return bytes;
    }

    /// The next whole packet by its length field; empty when none came within timeout.
    Bytes ReadPacket(Milliseconds timeout = Milliseconds(5000))
    {
        Bytes head = ReadBytes(6, timeout);
        size_t const length = head.size() == 6 ? ParameterKnobbyPacket::GetU16(head.data() + 4) : 0;
        return length > 6 ? Join(head, ReadBytes(length - 6, timeout)) : Bytes();
    }

    /// True when nothing arrives within wait.
    bool Silent(Milliseconds wait = Milliseconds(400)) { return ReadBytes(1, wait).empty(); }

    /// True when the server ends the connection within timeout; bytes before it are dropped.
    bool SeesEnd(Milliseconds timeout = Milliseconds(5000))
    {
        auto const end = std::chrono::steady_clock::now() + timeout;
        while (!m_ended && std::chrono::steady_clock::now() < end)
            ReadBytes(4096, Milliseconds(100));
        return m_ended;
    }

private:
    int m_socket = -1;
    bool m_ended = false;
};

} // namespace ParamTest
