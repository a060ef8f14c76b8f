// SPDX-License-Identifier: Apache-2.0
// ParameterKnobbyCom: the live tuning server's socket.
#include "parameterparser/livetuning/parameterknobbycom.h"

#include <cerrno>
#include <cstring>
#include <ctime>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/time.h>
#include <unistd.h>

#include "platform/vornosutils.h"

#include "parameterparser/parameterlogging.h"

namespace {

bool TimedOut(time_t start, int timeout)
{
    return timeout >= 0 && time(nullptr) - start >= timeout;
}

// Milliseconds on a clock that no change of the wall time moves, for the idle time-out.
long long MonotonicMilliseconds()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

void CloseDescriptor(int descriptor)
{
    if (descriptor >= 0)
        close(descriptor);
}

} // namespace

bool ParameterKnobbyCom::UseInternalPort = false;

ParameterKnobbyCom::SocketID::SocketID()
{
    local.Clear();
    peer.Clear();
}

ParameterKnobbyCom::SocketID::~SocketID()
{
    CloseSocket();
    CloseConnection();
    CloseDescriptor(accepted);
}

bool ParameterKnobbyCom::SocketID::TakeAccepted()
{
    if (accepted < 0)
        return false;
    connection = accepted;
    accepted = -1;
    return true;
}

void ParameterKnobbyCom::SocketID::CloseConnection()
{
    int const descriptor = connection.exchange(-1);
    CloseDescriptor(descriptor);
}

void ParameterKnobbyCom::SocketID::CloseSocket()
{
    if (listenSocket < 0)
        return;
    CloseConnection();
    CloseDescriptor(listenSocket);
    listenSocket = -1;
    listening = false;
    local.Clear();
    peer.Clear();
}

int ParameterKnobbyCom::SocketID::Disconnect()
{
    ParameterLogging::Write(log, ParameterLogging::LogVerbose,
                            "Knobby client disconnected.  Resetting socket on port %s\n",
                            local.name);
    CloseConnection();
    return -1;
}

int ParameterKnobbyCom::SocketID::PollConnection(int descriptor, unsigned char* buffer,
                                                 unsigned int length)
{
    // Never a receive without a poll first: a blocking receive on a silent client would hold
    // this thread, and with it every other client, a reload and a stop.
    pollfd entry = {descriptor, POLLIN, 0};
    if (poll(&entry, 1, PollPeriodMs) > 0) {
        ssize_t const received = recv(descriptor, buffer, length, 0);
        int const error = errno;
        if (received > 0) {
            lastActivity = MonotonicMilliseconds();
            return static_cast<int>(received);
        }
        if (received < 0 && (error == EINTR || error == EAGAIN || error == EWOULDBLOCK))
            return 0;
        // 0: the client closed its side, and nothing more can come; below 0: the connection
        // failed. Either way it is released now, so that the next client is accepted at once.
        if (received < 0)
            ParameterLogging::Write(log, ParameterLogging::LogVerbose,
                                    "Knobby receive failed on port %s: %s\n", local.name,
                                    std::strerror(error));
        return Disconnect();
    }
    if (idleTimeoutSeconds != 0 && MonotonicMilliseconds() - lastActivity >=
                                       static_cast<long long>(idleTimeoutSeconds) * 1000) {
        ParameterLogging::Write(log, ParameterLogging::LogWarning,
                                "Knobby client idle for %u seconds on port %s\n",
                                idleTimeoutSeconds, local.name);
        return Disconnect();
    }
    return 0;
}

bool ParameterKnobbyCom::SocketID::PollListener()
{
    if (!listening) {
        // No listening socket (none could be made, or listen failed): nothing can come, so the
        // period passes without a busy loop over a descriptor that is always ready.
        poll(nullptr, 0, PollPeriodMs);
        return false;
    }
    pollfd entry = {listenSocket, POLLIN, 0};
    int const ready = poll(&entry, 1, PollPeriodMs);
    if (ready <= 0)
        return false;
    if ((entry.revents & POLLIN) == 0) {
        // An error or hang-up on the listening socket, which poll reports at once.
        poll(nullptr, 0, PollPeriodMs);
        return false;
    }
    socklen_t peerLength = sizeof(peer.address);
    int const client =
        accept(listenSocket, reinterpret_cast<sockaddr*>(&peer.address), &peerLength);
    int const error = errno;
    if (client < 0) {
        // Out of descriptors, or the client gave up in between: the socket stays readable, so
        // wait the period out before the next attempt.
        ParameterLogging::Write(log, ParameterLogging::LogVerbose,
                                "Knobby accept failed on port %s: %s\n", local.name,
                                std::strerror(error));
        poll(nullptr, 0, PollPeriodMs);
        return false;
    }
    ParameterKnobbyCom::ConfigureConnection(client);
    lastActivity = MonotonicMilliseconds();
    accepted = client;
    ParameterLogging::Write(log, ParameterLogging::LogVerbose,
                            "Knobby accepted data connection on port %s\n", local.name);
    return true;
}

int ParameterKnobbyCom::SocketID::ReadData(unsigned char* buffer, unsigned int length, int timeout,
                                           std::atomic<bool> const& stopFlag)
{
    time_t const start = time(nullptr);
    for (;;) {
        int const current = connection.load();
        if (current >= 0) {
            int const received = PollConnection(current, buffer, length);
            if (received != 0)
                return received;
        } else if (PollListener()) {
            // The owner starts the new client's stream afresh, and only then makes it the
            // connection that answers are sent to.
            return 0;
        }
        if (stopFlag || TimedOut(start, timeout))
            return 0;
    }
}

int ParameterKnobbyCom::SocketID::WriteData(unsigned char const* buffer, unsigned int length)
{
    // MSG_NOSIGNAL: a client that went away must give a failed send, not end the process.
    ssize_t const sent = send(connection.load(), buffer, length, MSG_NOSIGNAL);
    int const error = errno;
    if (sent != static_cast<ssize_t>(length)) {
        ParameterLogging::Write(
            log, ParameterLogging::LogError,
            "Sockets send failed. Attempted send %u bytes, sent %u bytes on port %s\n", length,
            sent > 0 ? static_cast<unsigned int>(sent) : 0u, local.name);
        if (sent < 0)
            ParameterLogging::Write(log, ParameterLogging::LogError, "Knobby send error: %s\n",
                                    std::strerror(error));
    }
    return static_cast<int>(sent);
}

ParameterKnobbyCom::ParameterKnobbyCom(IParameterLoggingAPI* logger)
    : ParameterKnobbyComBase(logger, true)
{
    m_socket.log = Logger();
    m_socket.local.SetupSocket(SocketAddress::INET, DefaultPort);
    m_socket.peer.SetupSocket(SocketAddress::INET, DefaultPort);
}

ParameterKnobbyCom::~ParameterKnobbyCom()
{
    // The threads call into this object: they must end before it goes.
    if (IsRunning())
        Stop();
    ClosePort();
}

void ParameterKnobbyCom::ConfigureConnection(int descriptor)
{
    timeval limit = {SendTimeoutSeconds, 0};
    setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    // Every send is one whole packet: waiting to coalesce it only delays the client, by a
    // delayed acknowledgement per packet when it sends several requests at once. Fails
    // harmlessly on the UNIX fallback.
    int const noDelay = 1;
    setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &noDelay, sizeof(noDelay));
}

bool ParameterKnobbyCom::InitSockets()
{
    return true;
}

bool ParameterKnobbyCom::SetListenAddress(char const* host, unsigned short port)
{
    if (m_socket.listenSocket >= 0)
        return false;
    bool const chosenHost = host != nullptr && host[0] != '\0';
    if (chosenHost) {
        SocketAddress probe = {};
        if (std::strlen(host) >= sizeof(m_host) || !probe.SetupHost(host, port))
            return false;
    }
    Vorn::OsUtils::StrLCpy(m_host, chosenHost ? host : "", sizeof(m_host));
    m_requestedPort = port;
    return true;
}

void ParameterKnobbyCom::SetIdleTimeout(unsigned int seconds)
{
    m_socket.idleTimeoutSeconds = seconds;
}

bool ParameterKnobbyCom::SetupFirstAddress(int& family, unsigned short& port)
{
    if (m_host[0] != '\0') {
        if (!m_socket.local.SetupHost(m_host, port))
            return false;
    } else {
        m_socket.local.SetupSocket(SocketAddress::INET, port);
    }
    m_socket.peer.SetupSocket(SocketAddress::INET, port);
    family = m_socket.local.type == SocketAddress::INET6 ? AF_INET6 : AF_INET;
    return true;
}

unsigned short ParameterKnobbyCom::StartCom()
{
    if (m_initPending && InitSockets())
        m_initPending = false;
    return OpenPort();
}

void ParameterKnobbyCom::StopCom()
{
    ClosePort();
}

int ParameterKnobbyCom::ReadData(unsigned char* buffer, unsigned int length, int timeout,
                                 std::atomic<bool> const& stopFlag)
{
    int const result = m_socket.ReadData(buffer, length, timeout, stopFlag);
    if (m_socket.accepted >= 0) {
        // The count of connections moves before the new descriptor is published: an answer
        // still queued for the client before can then never be sent to this one.
        BeginConnection();
        m_socket.TakeAccepted();
    }
    return result;
}

int ParameterKnobbyCom::WriteData(unsigned char const* buffer, unsigned int length)
{
    return m_socket.WriteData(buffer, length);
}

int ParameterKnobbyCom::CreateSocket(int family, unsigned short& port, bool fallback)
{
    int descriptor = socket(family, SOCK_STREAM, 0);
    int error = errno;
    if (descriptor >= 0) {
        LogDebug("Knobby Server INET socket created", descriptor, m_socket.local.name, descriptor,
                 0);
        // Lets a restarted server take its port back while old connections linger in
        // TIME_WAIT; a port another server listens on still refuses the bind.
        int const reuse = 1;
        setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof(reuse));
        return descriptor;
    }
    LogDebug("Knobby Server INET socket create failed", descriptor, m_socket.local.name, descriptor,
             error);
    if (fallback) {
        port = InternalPort;
        m_socket.local.SetupSocket(SocketAddress::UNIX, port);
        m_socket.peer.SetupSocket(SocketAddress::UNIX, port);
        descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
        error = errno;
        if (descriptor >= 0) {
            LogDebug("Knobby Server UNIX socket created", descriptor, m_socket.local.name,
                     descriptor, 0);
            return descriptor;
        }
        LogError("Knobby Server UNIX socket create failed", descriptor, m_socket.local.name,
                 descriptor, error);
    }
    LogError("Knobby Server socket create failed", descriptor, m_socket.local.name, descriptor,
             error);
    return descriptor;
}

unsigned short ParameterKnobbyCom::OpenPort()
{
    if (m_socket.listenSocket >= 0)
        return m_socket.local.port;

    // A port the host chose is the only one tried, and a chosen address or port forbids the
    // fallback to another kind of socket, which the host's clients would not know to reach.
    bool const hostChosen = m_host[0] != '\0';
    bool const portChosen = m_requestedPort != 0;
    unsigned short port = m_requestedPort != 0 ? m_requestedPort
                          : UseInternalPort    ? InternalPort
                                               : DefaultPort;
    int family = AF_INET;
    if (!SetupFirstAddress(family, port))
        return 0;
    int descriptor = CreateSocket(family, port, !UseInternalPort && !hostChosen && !portChosen);
    if (descriptor < 0)
        return port;
    m_socket.listenSocket = descriptor;

    auto const limit = static_cast<unsigned short>(port + (portChosen ? 1 : PortCount));
    for (;;) {
        int const result = bind(descriptor, reinterpret_cast<sockaddr*>(&m_socket.local.address),
                                m_socket.local.length);
        int error = errno;
        if (result == 0) {
            m_socket.listening = listen(descriptor, ListenBacklog) == 0;
            error = errno;
            // Two servers that bind one port at the same moment may both succeed, since each
            // lets its port be reused; only the first to listen has it. The other walks on as
            // from a taken port, on a fresh socket: a bound socket cannot be bound again.
            bool const lostThePort = !m_socket.listening && error == EADDRINUSE &&
                                     !portChosen && m_socket.local.type != SocketAddress::UNIX;
            if (!lostThePort) {
                if (!m_socket.listening)
                    LogError("Knobby Server listen failed", descriptor, m_socket.local.name, -1,
                             error);
                LogDebug("Knobby Server bound", descriptor, m_socket.local.name, result, 0);
                return port;
            }
            LogDebug("Knobby Server listen failed", descriptor, m_socket.local.name, -1, error);
            close(descriptor);
            descriptor = CreateSocket(family, port, false);
            m_socket.listenSocket = descriptor;
            if (descriptor < 0)
                return 0;
        } else if (portChosen) {
            // A chosen port that is taken is an error the host must see; a walked one is not.
            LogError("Knobby Server bind failed", descriptor, m_socket.local.name, result, error);
        } else {
            LogDebug("Knobby Server bind failed", descriptor, m_socket.local.name, result, error);
        }
        port = static_cast<unsigned short>(port + 1);
        if (hostChosen)
            (void)m_socket.local.SetupHost(m_host, port);
        else
            m_socket.local.SetupSocket(m_socket.local.type, port);
        if (port == limit) {
            ParameterLogging::Write(Logger(), ParameterLogging::LogError,
                                    "Knobby Failed to bind any ports\n");
            m_socket.CloseSocket();
            return 0;
        }
    }
}

void ParameterKnobbyCom::ClosePort()
{
    m_socket.CloseSocket();
}

void ParameterKnobbyCom::CloseSocket(SocketID& socketID, bool)
{
    socketID.CloseSocket();
}

void ParameterKnobbyCom::CloseConnection(SocketID& socketID)
{
    socketID.CloseConnection();
}

unsigned short ParameterKnobbyCom::GetPort() const
{
    return m_socket.listenSocket >= 0 ? m_socket.local.port : 0;
}

ParameterKnobbyCom::SocketAddress::AddrType ParameterKnobbyCom::GetAddressType() const
{
    return m_socket.local.type;
}

void ParameterKnobbyCom::LogDebug(char const* text, int socket, char const* portName, int result,
                                  int error)
{
    ParameterLogging::Write(Logger(), ParameterLogging::LogVerbose,
                            "%s, Socket: %d, Port: %s: Result: %d, errno: %d\n", text, socket,
                            portName, result, error);
    if (error != 0)
        ParameterLogging::Write(Logger(), ParameterLogging::LogVerbose, "%s: %s\n", text,
                                std::strerror(error));
}

void ParameterKnobbyCom::LogError(char const* text, int socket, char const* portName, int result,
                                  int error)
{
    ParameterLogging::Write(Logger(), ParameterLogging::LogError,
                            "%s, Socket: %d, Port: %s: Result: %d, errno: %d\n", text, socket,
                            portName, result, error);
    if (error != 0)
        ParameterLogging::Write(Logger(), ParameterLogging::LogError, "%s: %s\n", text,
                                std::strerror(error));
}
