#include "NetTestSupport.h"

#if defined(_WIN32)
#include <winsock2.h>
#include <ws2tcpip.h>
typedef int socklen_t;
#define NATIVE(handle) static_cast<SOCKET>(handle)
#else
#include <dirent.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#define NATIVE(handle) static_cast<int>(handle)
#endif

namespace velmora {
namespace test {

int localPort(uint64_t handle) {
    sockaddr_storage address = {};
    socklen_t length = sizeof address;
    if (getsockname(NATIVE(handle), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        return -1;
    }
    if (address.ss_family == AF_INET) {
        return ntohs(reinterpret_cast<sockaddr_in*>(&address)->sin_port);
    }
    return ntohs(reinterpret_cast<sockaddr_in6*>(&address)->sin6_port);
}

int ipv6Only(uint64_t handle) {
    int value = 0;  // Wine writes only the first byte
    socklen_t length = sizeof value;
    getsockopt(NATIVE(handle), IPPROTO_IPV6, IPV6_V6ONLY, reinterpret_cast<char*>(&value), &length);
    return value;
}

int defaultIpv6Only() {
#if defined(_WIN32)
    SOCKET s = socket(AF_INET6, SOCK_STREAM, 0);
    const int value = ipv6Only(static_cast<uint64_t>(s));
    closesocket(s);
#else
    int s = socket(AF_INET6, SOCK_STREAM, 0);
    const int value = ipv6Only(static_cast<uint64_t>(s));
    close(s);
#endif
    return value;
}

bool mayOpenRawIcmp() {
#if defined(_WIN32)
    SOCKET s = socket(AF_INET, SOCK_RAW, IPPROTO_ICMP);
    if (s == INVALID_SOCKET) return false;
    closesocket(s);
#else
    int s = socket(AF_INET, SOCK_RAW, IPPROTO_ICMP);
    if (s < 0) return false;
    close(s);
#endif
    return true;
}

int openDescriptors() {
#if defined(_WIN32)
    return -1;
#else
    DIR* dir = opendir("/proc/self/fd");
    if (dir == nullptr) return -1;
    int count = 0;
    while (readdir(dir) != nullptr)
        ++count;
    closedir(dir);
    return count;
#endif
}

Pair connectPair() {
    Pair pair;
    pair.server.reset(ServerSocket::make(nullptr, 0, "127.0.0.1"));
    if (!pair.server) return pair;
    const int port = localPort(pair.server->getSocketHandle());
    pair.client.reset(Socket::make(nullptr, "127.0.0.1", port));
    if (pair.client) pair.accepted.reset(pair.server->accept());
    return pair;
}

}  // namespace test
}  // namespace velmora
