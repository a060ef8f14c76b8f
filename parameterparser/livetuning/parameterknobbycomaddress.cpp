// SPDX-License-Identifier: Apache-2.0
// ParameterKnobbyCom::SocketAddress: the addresses the live tuning server listens on.
#include <cstring>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/un.h>

#include "platform/vornosutils.h"

#include "parameterparser/livetuning/parameterknobbycom.h"

namespace {

// The interface the TCP server listens on: every interface unless the build restricts it to
// loopback, for devices whose network must not reach the tuning port.
#ifdef PARAM_LIVETUNING_LOOPBACK_ONLY
constexpr in_addr_t ListenAddress = INADDR_LOOPBACK;
#else
constexpr in_addr_t ListenAddress = INADDR_ANY;
#endif

} // namespace

void ParameterKnobbyCom::SocketAddress::Clear()
{
    std::memset(&address, 0, sizeof(address));
    type = INET;
    length = 0;
    port = 0;
    std::memset(name, 0, sizeof(name));
}

void ParameterKnobbyCom::SocketAddress::SetupSocket(int addressType, unsigned short portNumber)
{
    std::memset(&address, 0, sizeof(address));
    port = portNumber;
    if (addressType != INET) {
        type = UNIX;
        Vorn::OsUtils::SNPrintF(name, sizeof(name), "#Knobby%x", static_cast<unsigned>(port));
        auto* unixAddress = reinterpret_cast<sockaddr_un*>(&address);
        unixAddress->sun_family = AF_UNIX;
        Vorn::OsUtils::StrLCpy(unixAddress->sun_path, name, sizeof(unixAddress->sun_path));
        // A leading zero byte puts the name into the abstract namespace: no file is made.
        unixAddress->sun_path[0] = '\0';
        // The family (2 bytes) and the name with its final zero.
        length = static_cast<uint32_t>(std::strlen(name) + 3);
        return;
    }
    type = INET;
    Vorn::OsUtils::SNPrintF(name, sizeof(name), "0x%x", static_cast<unsigned>(port));
    auto* inetAddress = reinterpret_cast<sockaddr_in*>(&address);
    inetAddress->sin_family = AF_INET;
    inetAddress->sin_addr.s_addr = htonl(ListenAddress);
    inetAddress->sin_port = htons(port);
    length = sizeof(sockaddr_in);
}

bool ParameterKnobbyCom::SocketAddress::SetupHost(char const* host, unsigned short portNumber)
{
    sockaddr_storage parsed = {};
    AddrType parsedType = INET;
    uint32_t parsedLength = 0;
    auto* inetAddress = reinterpret_cast<sockaddr_in*>(&parsed);
    auto* inet6Address = reinterpret_cast<sockaddr_in6*>(&parsed);
    if (host == nullptr) {
        return false;
    } else if (inet_pton(AF_INET, host, &inetAddress->sin_addr) == 1) {
        inetAddress->sin_family = AF_INET;
        inetAddress->sin_port = htons(portNumber);
        parsedLength = sizeof(sockaddr_in);
    } else if (inet_pton(AF_INET6, host, &inet6Address->sin6_addr) == 1) {
        inet6Address->sin6_family = AF_INET6;
        inet6Address->sin6_port = htons(portNumber);
        parsedType = INET6;
        parsedLength = sizeof(sockaddr_in6);
    } else {
        return false;
    }
    address = parsed;
    type = parsedType;
    length = parsedLength;
    port = portNumber;
    Vorn::OsUtils::SNPrintF(name, sizeof(name), "0x%x", static_cast<unsigned>(port));
    return true;
}
