// SPDX-License-Identifier: Apache-2.0
// ParameterKnobbyCom: the live tuning server's stream socket, TCP first, abstract UNIX fallback.
#pragma once

#include <atomic>
#include <cstdint>

#include <sys/socket.h>

#include "parameterparser/livetuning/parameterknobbycombase.h"
#include "parameterparser/parameterexport.h"

/// The socket transport of the live tuning server. It listens on TCP port 19278 or the first
/// free one of the 63 above it (all interfaces, or loopback only in a build with
/// PARAM_LIVETUNING_LOOPBACK_ONLY), falling back to the abstract UNIX socket "#Knobby%x" where
/// no TCP socket can be made. SetListenAddress names one address and port instead. One client is
/// served at a time; later ones wait in the backlog. A client that sends nothing for the idle
/// time-out is disconnected, so a silent peer cannot keep the others out.
class PARAMETERPARSER_API ParameterKnobbyCom : public ParameterKnobbyComBase
{
public:
    static constexpr unsigned short DefaultPort = 19278;
    static constexpr unsigned short InternalPort = 33127;
    /// Ports tried in a row, the first one included.
    static constexpr unsigned int PortCount = 64;
    static constexpr int ListenBacklog = 5;
    static constexpr int PollPeriodMs = 100;
    /// Longest a single send may block on a client that stopped reading.
    static constexpr int SendTimeoutSeconds = 2;
    /// Seconds a connected client may send nothing before it is disconnected.
    static constexpr unsigned int DefaultIdleTimeoutSeconds = 10;

    /// True makes the server take TCP port 33127 at once and forbids the UNIX fallback. Set by
    /// the host before the server starts; nothing in this library sets it.
    static bool UseInternalPort;

    /// One end of the connection: the address as bind gets it, with the port as text for logs.
    struct SocketAddress
    {
        enum AddrType : int
        {
            INET = 0,
            UNIX = 1,
            INET6 = 2,
        };

        /// Stores port and builds the address: type 0 gives TCP on all interfaces (or loopback)
        /// with name "0x%x"; any other type gives the abstract UNIX name "#Knobby%x", whose "#"
        /// becomes the zero byte that marks the abstract namespace.
        void SetupSocket(int addressType, unsigned short portNumber);

        /// Builds a TCP address on the numeric IPv4 or IPv6 literal host (type INET or INET6)
        /// with port; name "0x%x" as above. False, and nothing changed, for any other text.
        [[nodiscard]] bool SetupHost(char const* host, unsigned short portNumber);

        /// Zeroes every field.
        void Clear();

        sockaddr_storage address;
        AddrType type;
        uint32_t length;
        uint16_t port;
        char name[108];
    };

    /// The listening socket and the one client connection, with their addresses. Owns both
    /// descriptors (-1 when closed) and closes them on destruction.
    struct SocketID
    {
        SocketID();
        ~SocketID();

        SocketID(SocketID const&) = delete;
        SocketID& operator=(SocketID const&) = delete;
        SocketID(SocketID&&) = delete;
        SocketID& operator=(SocketID&&) = delete;

        /// Waits for input on the connection, or accepts a client on the listening socket, in
        /// polls of 100 ms. Returns the bytes received; 0 when timeout seconds (negative: none)
        /// passed or stopFlag was set, and at once after accepting a client, which waits in
        /// accepted until the owner takes it with TakeAccepted; -1 when the client went away,
        /// closed its side or sent nothing for idleTimeoutSeconds (the connection is closed and
        /// "Knobby client disconnected.  Resetting socket on port %s\n" logged, the idle case
        /// after "Knobby client idle for %u seconds on port %s\n" at warning level).
        int ReadData(unsigned char* buffer, unsigned int length, int timeout,
                     std::atomic<bool> const& stopFlag);

        /// One send of the whole buffer to the client. A short send logs "Sockets send failed.
        /// Attempted send %u bytes, sent %u bytes on port %s\n" at error level; no retry.
        int WriteData(unsigned char const* buffer, unsigned int length);

        /// One poll of the connection descriptor: the bytes received, -1 when the client went
        /// (see ReadData), 0 when nothing came this period.
        int PollConnection(int descriptor, unsigned char* buffer, unsigned int length);

        /// One poll of the listening socket; true when a client was accepted into accepted.
        bool PollListener();

        /// Logs the disconnection, closes the connection and returns -1.
        int Disconnect();

        /// Makes the client that ReadData accepted the connection; false when there is none.
        bool TakeAccepted();

        /// Closes the client connection, if one is open.
        void CloseConnection();

        /// Closes connection and listening socket and zeroes both addresses; nothing when not
        /// listening.
        void CloseSocket();

        SocketAddress local;
        SocketAddress peer;
        int listenSocket = -1;
        /// listen succeeded on listenSocket; until then ReadData waits instead of accepting.
        bool listening = false;
        /// Written by the read thread (accept, close) and read by the write thread (send).
        std::atomic<int> connection{-1};
        IParameterLoggingAPI* log = nullptr;
        /// Seconds of silence after which a client is disconnected; 0 for no limit.
        unsigned int idleTimeoutSeconds = DefaultIdleTimeoutSeconds;
        /// When the client last sent bytes (or was accepted), in monotonic milliseconds.
        long long lastActivity = 0;
        /// A client ReadData accepted and the owner has not yet taken; -1 when none.
        int accepted = -1;
    };

    /// A server with a receive buffer and both addresses set to TCP on the default port. Opens
    /// nothing until Start().
    explicit ParameterKnobbyCom(IParameterLoggingAPI* logger);

    /// Stops the service threads if they still run, then closes the sockets.
    ~ParameterKnobbyCom() override;

    /// Opens the listening socket on the first use (a second call while listening opens nothing)
    /// and returns the port in use; 0 when no port of the range could be bound.
    unsigned short StartCom() override;
    /// Closes connection and listening socket.
    void StopCom() override;
    int ReadData(unsigned char* buffer, unsigned int length, int timeout,
                 std::atomic<bool> const& stopFlag) override;
    int WriteData(unsigned char const* buffer, unsigned int length) override;

    /// True: the platform's sockets need no set-up.
    bool InitSockets();

    /// Listens on host (a numeric IPv4 or IPv6 literal; null or empty keeps the default
    /// interface) and port (0 keeps the default walk from 19278). A port given is the only one
    /// tried, and an address given forbids the UNIX fallback. Takes effect at the next start.
    /// False, and nothing changed, for a host that is no such literal or while listening.
    [[nodiscard]] bool SetListenAddress(char const* host, unsigned short port);

    /// Seconds a connected client may stay silent before it is disconnected (0: no limit).
    /// Set before the server starts.
    void SetIdleTimeout(unsigned int seconds);

    /// Makes the listening socket and binds it, walking up from the first port (see the class
    /// comment). Logs each step; "Knobby Failed to bind any ports\n" at error level when all 64
    /// ports fail, in which case the socket is closed and 0 returned. Returns the port.
    unsigned short OpenPort();
    void ClosePort();
    void CloseSocket(SocketID& socketID, bool flag);
    void CloseConnection(SocketID& socketID);

    /// The port being listened on; 0 when not listening.
    unsigned short GetPort() const;
    /// The address family in use: INET or UNIX.
    SocketAddress::AddrType GetAddressType() const;

    /// "%s, Socket: %d, Port: %s: Result: %d, errno: %d\n" at verbose and at error level; a
    /// non-zero error is followed by its text.
    void LogDebug(char const* text, int socket, char const* portName, int result, int error);
    void LogError(char const* text, int socket, char const* portName, int result, int error);

private:
    /// Sets up an accepted client's socket: sends block at most SendTimeoutSeconds and go out
    /// at once.
    static void ConfigureConnection(int descriptor);

    /// Makes the listening socket of family, logging each attempt; with fallback, a UNIX socket
    /// on the internal port (port and both addresses changed) where no TCP socket can be made.
    /// Returns the descriptor, or -1 after "Knobby Server socket create failed".
    int CreateSocket(int family, unsigned short& port, bool fallback);

    /// The first address to bind: the one SetListenAddress gave, or the default walk's.
    [[nodiscard]] bool SetupFirstAddress(int& family, unsigned short& port);

    bool m_initPending = true;
    SocketID m_socket;
    /// SetListenAddress's choice: empty host and port 0 for the defaults.
    char m_host[64] = {};
    unsigned short m_requestedPort = 0;
};
