#include "vre/HostName.h"

// Windows Sockets first: windows.h would otherwise bring in the old socket declarations.
#include <winsock2.h>
#include <ws2tcpip.h>
// (separate block, so that sorting keeps the order)
#include <windows.h>

#include <cstring>

namespace velmora {
namespace vre {

int queryHostName(bool ipv6, char* name, int size) {
    char host[256] = {};
    DWORD length = sizeof host;
    if (!GetComputerNameExA(ComputerNameDnsHostname, host, &length) || host[0] == '\0') return -1;
    length = static_cast<DWORD>(std::strlen(host));
    if (length + 1 > static_cast<DWORD>(size)) return -1;

    // The embedding process may or may not have started Windows Sockets; the start here is
    // counted by the system and undone below, so it changes nothing for the process.
    WSADATA data;
    if (WSAStartup(MAKEWORD(2, 2), &data) != 0) return -1;
    addrinfo hints = {};
    hints.ai_family = ipv6 ? AF_INET6 : AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const bool resolved = getaddrinfo(host, nullptr, &hints, &found) == 0 && found != nullptr;
    if (found != nullptr) freeaddrinfo(found);
    WSACleanup();
    if (!resolved) return -1;
    std::memcpy(name, host, length + 1);
    return 0;
}

}  // namespace vre
}  // namespace velmora
