#include "net/NetSystem.h"

// Windows Sockets first: windows.h would otherwise bring in the old socket declarations.
#include <winsock2.h>
#include <ws2tcpip.h>
// (separate block, so that sorting keeps the order)
#include <windows.h>

#include <cstring>

namespace velmora {
namespace netsys {

namespace {

SOCKET sock(Handle handle) {
    return static_cast<SOCKET>(handle);
}

int waitFor(Handle handle, bool write, int milliseconds) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(sock(handle), &set);
    timeval limit;
    limit.tv_sec = milliseconds / 1000;
    limit.tv_usec = (milliseconds % 1000) * 1000;
    timeval* wait = milliseconds < 0 ? nullptr : &limit;
    return select(0, write ? nullptr : &set, write ? &set : nullptr, nullptr, wait);
}

}  // namespace

int familyIpv4() {
    return AF_INET;
}
int familyIpv6() {
    return AF_INET6;
}
int addressInUseCode() {
    return WSAEADDRINUSE;
}
int timedOutCode() {
    return WSAETIMEDOUT;
}
int invalidArgumentCode() {
    return WSAEINVAL;
}
int lastSocketError() {
    return WSAGetLastError();
}
void setLastSocketError(int code) {
    WSASetLastError(code);
}

bool startSocketLibrary() {
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 0), &data) == 0;
}

bool resolve(int family, const char* text, unsigned char* out) {
    addrinfo hints = {};
    hints.ai_family = family;
    addrinfo* found = nullptr;
    const int rc = getaddrinfo(text, nullptr, &hints, &found);
    bool ok = false;
    if (rc == 0 && found != nullptr && found->ai_family == family) {
        if (family == AF_INET) {
            std::memcpy(out, &reinterpret_cast<sockaddr_in*>(found->ai_addr)->sin_addr, 4);
        } else {
            std::memcpy(out, &reinterpret_cast<sockaddr_in6*>(found->ai_addr)->sin6_addr, 16);
        }
        ok = true;
    }
    if (found != nullptr) freeaddrinfo(found);
    return ok;
}

bool numericHost(int family, const unsigned char* address, char* out, int size) {
    sockaddr_storage storage = {};
    int length;
    if (family == AF_INET) {
        auto* in = reinterpret_cast<sockaddr_in*>(&storage);
        in->sin_family = AF_INET;
        std::memcpy(&in->sin_addr, address, 4);
        length = sizeof(sockaddr_in);
    } else if (family == AF_INET6) {
        auto* in6 = reinterpret_cast<sockaddr_in6*>(&storage);
        in6->sin6_family = AF_INET6;
        std::memcpy(&in6->sin6_addr, address, 16);
        length = sizeof(sockaddr_in6);
    } else {
        return false;
    }
    return getnameinfo(reinterpret_cast<sockaddr*>(&storage), length, out, static_cast<DWORD>(size),
                       nullptr, 0, NI_NUMERICHOST) == 0;
}

Handle openStream(bool ipv6) {
    return static_cast<Handle>(socket(ipv6 ? AF_INET6 : AF_INET, SOCK_STREAM, 0));
}

bool connectIpv4(Handle handle, const unsigned char address[4], int port) {
    sockaddr_in in = {};
    in.sin_family = AF_INET;
    in.sin_port = htons(static_cast<u_short>(port));
    std::memcpy(&in.sin_addr, address, 4);
    return connect(sock(handle), reinterpret_cast<sockaddr*>(&in), sizeof in) == 0;
}

bool connectIpv6AsKept(Handle handle) {
    unsigned char record[28] = {};  // a zeroed IPv4 record, passed with the IPv6 length
    // Windows refuses a record of family 0; layers that pass it on to a POSIX system (Wine)
    // may take it as "dissolve the association" and succeed. It is a failure either way.
    connect(sock(handle), reinterpret_cast<sockaddr*>(record), sizeof record);
    return false;
}

void shutdownBoth(Handle handle) {
    shutdown(sock(handle), SD_BOTH);
}
void closeHandle(Handle handle) {
    closesocket(sock(handle));
}

int waitReadable(Handle handle, int milliseconds) {
    return waitFor(handle, false, milliseconds);
}
int waitWritable(Handle handle, int milliseconds) {
    return waitFor(handle, true, milliseconds);
}

int receive(Handle handle, char* buffer, int size) {
    return recv(sock(handle), buffer, size, 0);
}

int peekByte(Handle handle) {
    char c;
    return recv(sock(handle), &c, 1, MSG_PEEK);
}

int sendBytes(Handle handle, const char* data, int size) {
    return send(sock(handle), data, size, 0);
}

int sendNow(Handle, const char*, int) {
    // A blocking socket has no per-call way to refuse waiting: the caller waits first.
    return kNotNow;
}

bool pendingBytes(Handle handle, int* count) {
    u_long pending = 0;
    if (ioctlsocket(sock(handle), FIONREAD, &pending) != 0) return false;
    *count = static_cast<int>(pending);
    return true;
}

bool setReuseAddress(Handle handle) {
    int on = 1;
    return setsockopt(sock(handle), SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<char*>(&on),
                      sizeof on) == 0;
}

bool setIpv6OnlyOff(Handle handle) {
    int off = 0;
    return setsockopt(sock(handle), IPPROTO_IPV6, IPV6_V6ONLY, reinterpret_cast<char*>(&off),
                      sizeof off) == 0;
}

bool bindIpv4(Handle handle, const unsigned char* address, int port) {
    sockaddr_in in = {};
    in.sin_family = AF_INET;
    in.sin_port = htons(static_cast<u_short>(port));
    if (address != nullptr) {
        std::memcpy(&in.sin_addr, address, 4);
    } else {
        in.sin_addr.s_addr = htonl(INADDR_ANY);
    }
    return bind(sock(handle), reinterpret_cast<sockaddr*>(&in), sizeof in) == 0;
}

bool bindIpv6(Handle handle, const unsigned char* address, int port) {
    sockaddr_in6 in6 = {};
    in6.sin6_family = AF_INET6;
    in6.sin6_port = htons(static_cast<u_short>(port));
    if (address != nullptr) std::memcpy(&in6.sin6_addr, address, 16);
    return bind(sock(handle), reinterpret_cast<sockaddr*>(&in6), sizeof in6) == 0;
}

bool listenOn(Handle handle, int backlog) {
    return listen(sock(handle), backlog) == 0;
}

Handle acceptIpv4(Handle handle, unsigned char peer[4]) {
    sockaddr_in in = {};
    int length = sizeof in;
    const SOCKET accepted = accept(sock(handle), reinterpret_cast<sockaddr*>(&in), &length);
    if (accepted != INVALID_SOCKET) std::memcpy(peer, &in.sin_addr, 4);
    return static_cast<Handle>(accepted);
}

Handle acceptIpv6(Handle handle, unsigned char peer[16]) {
    sockaddr_in6 in6 = {};
    int length = sizeof in6;
    const SOCKET accepted = accept(sock(handle), reinterpret_cast<sockaddr*>(&in6), &length);
    if (accepted != INVALID_SOCKET) std::memcpy(peer, &in6.sin6_addr, 16);
    return static_cast<Handle>(accepted);
}

void systemVersion(int* platform, int* major) {
    OSVERSIONINFOA info;
    std::memset(&info, 0, sizeof info);
    info.dwOSVersionInfoSize = sizeof info;  // the 148-byte record
    if (!GetVersionExA(&info)) {
        *platform = 0;
        *major = 0;
        return;
    }
    *platform = static_cast<int>(info.dwPlatformId);
    *major = static_cast<int>(info.dwMajorVersion);
}

bool parseIpv4Literal(const char* text, unsigned char out[4]) {
    const unsigned long value = inet_addr(text);
    if (value == INADDR_NONE) return false;
    std::memcpy(out, &value, 4);
    return true;
}

bool lookupIpv4Name(const char* name, unsigned char out[4]) {
    const hostent* host = gethostbyname(name);
    if (host == nullptr || host->h_addrtype != AF_INET || host->h_addr_list[0] == nullptr) {
        return false;
    }
    std::memcpy(out, host->h_addr_list[0], 4);
    return true;
}

Handle openRawIcmp() {
    return static_cast<Handle>(socket(AF_INET, SOCK_RAW, IPPROTO_ICMP));
}

bool sendToIpv4(Handle handle, const unsigned char address[4], const void* data, int size) {
    sockaddr_in in = {};
    in.sin_family = AF_INET;
    std::memcpy(&in.sin_addr, address, 4);
    return sendto(sock(handle), static_cast<const char*>(data), size, 0,
                  reinterpret_cast<sockaddr*>(&in), sizeof in) == size;
}

int processId() {
    return static_cast<int>(GetCurrentProcessId());
}

}  // namespace netsys
}  // namespace velmora
