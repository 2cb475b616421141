#include "net/NetSystem.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace velmora {
namespace netsys {

namespace {

int fd(Handle handle) {
    return handle == kInvalidHandle ? -1 : static_cast<int>(handle);
}

Handle toHandle(int descriptor) {
    return descriptor < 0 ? kInvalidHandle : static_cast<Handle>(descriptor);
}

// poll instead of select: a descriptor above FD_SETSIZE must not write outside an fd_set.
int waitFor(Handle handle, short events, int milliseconds) {
    if (handle == kInvalidHandle) {
        errno = EBADF;
        return -1;
    }
    pollfd entry = {};
    entry.fd = fd(handle);
    entry.events = events;
    int result;
    do {
        result = poll(&entry, 1, milliseconds < 0 ? -1 : milliseconds);
    } while (result < 0 && errno == EINTR);
    if (result > 0 && (entry.revents & POLLNVAL) != 0) {
        errno = EBADF;
        return -1;
    }
    return result;
}

}  // namespace

int familyIpv4() {
    return AF_INET;
}
int familyIpv6() {
    return AF_INET6;
}
int addressInUseCode() {
    return EADDRINUSE;
}
int timedOutCode() {
    return EAGAIN;  // also EWOULDBLOCK on Linux
}
int invalidArgumentCode() {
    return EINVAL;
}
int lastSocketError() {
    return errno;
}
void setLastSocketError(int code) {
    errno = code;
}
bool startSocketLibrary() {
    return true;
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
    socklen_t length;
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
    return getnameinfo(reinterpret_cast<sockaddr*>(&storage), length, out,
                       static_cast<socklen_t>(size), nullptr, 0, NI_NUMERICHOST) == 0;
}

Handle openStream(bool ipv6) {
    return toHandle(socket(ipv6 ? AF_INET6 : AF_INET, SOCK_STREAM, 0));
}

bool connectIpv4(Handle handle, const unsigned char address[4], int port) {
    sockaddr_in in = {};
    in.sin_family = AF_INET;
    in.sin_port = htons(static_cast<uint16_t>(port));
    std::memcpy(&in.sin_addr, address, 4);
    return connect(fd(handle), reinterpret_cast<sockaddr*>(&in), sizeof in) == 0;
}

bool connectIpv6AsKept(Handle handle) {
    unsigned char record[28] = {};  // a zeroed IPv4 record, passed with the IPv6 length
    // Linux takes a record of family 0 as "dissolve the association" and succeeds; that
    // must still end as a failed connect, as it does on Windows.
    connect(fd(handle), reinterpret_cast<sockaddr*>(record), sizeof record);
    return false;
}

void shutdownBoth(Handle handle) {
    shutdown(fd(handle), SHUT_RDWR);
}
void closeHandle(Handle handle) {
    ::close(fd(handle));
}

int waitReadable(Handle handle, int milliseconds) {
    return waitFor(handle, POLLIN, milliseconds);
}
int waitWritable(Handle handle, int milliseconds) {
    return waitFor(handle, POLLOUT, milliseconds);
}

int receive(Handle handle, char* buffer, int size) {
    ssize_t n;
    do {
        n = recv(fd(handle), buffer, static_cast<size_t>(size), 0);
    } while (n < 0 && errno == EINTR);
    return static_cast<int>(n);
}

int peekByte(Handle handle) {
    char c;
    return static_cast<int>(recv(fd(handle), &c, 1, MSG_PEEK));
}

int sendBytes(Handle handle, const char* data, int size) {
    // No SIGPIPE for a peer that went away: the caller sees the failed send instead.
    return static_cast<int>(send(fd(handle), data, static_cast<size_t>(size), MSG_NOSIGNAL));
}

int sendNow(Handle handle, const char* data, int size) {
    ssize_t n;
    do {
        n = send(fd(handle), data, static_cast<size_t>(size), MSG_NOSIGNAL | MSG_DONTWAIT);
    } while (n < 0 && errno == EINTR);
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return kNotNow;
    if (n == 0) return kNotNow;
    return static_cast<int>(n);
}

bool pendingBytes(Handle handle, int* count) {
    return ioctl(fd(handle), FIONREAD, count) == 0;
}

bool setReuseAddress(Handle handle) {
    int on = 1;
    return setsockopt(fd(handle), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0;
}

bool setIpv6OnlyOff(Handle handle) {
    int off = 0;
    return setsockopt(fd(handle), IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off) == 0;
}

bool bindIpv4(Handle handle, const unsigned char* address, int port) {
    sockaddr_in in = {};
    in.sin_family = AF_INET;
    in.sin_port = htons(static_cast<uint16_t>(port));
    if (address != nullptr) {
        std::memcpy(&in.sin_addr, address, 4);
    } else {
        in.sin_addr.s_addr = htonl(INADDR_ANY);
    }
    return bind(fd(handle), reinterpret_cast<sockaddr*>(&in), sizeof in) == 0;
}

bool bindIpv6(Handle handle, const unsigned char* address, int port) {
    sockaddr_in6 in6 = {};
    in6.sin6_family = AF_INET6;
    in6.sin6_port = htons(static_cast<uint16_t>(port));
    if (address != nullptr) std::memcpy(&in6.sin6_addr, address, 16);
    return bind(fd(handle), reinterpret_cast<sockaddr*>(&in6), sizeof in6) == 0;
}

bool listenOn(Handle handle, int backlog) {
    return listen(fd(handle), backlog) == 0;
}

Handle acceptIpv4(Handle handle, unsigned char peer[4]) {
    sockaddr_in in = {};
    socklen_t length = sizeof in;
    const int accepted = accept(fd(handle), reinterpret_cast<sockaddr*>(&in), &length);
    if (accepted >= 0) std::memcpy(peer, &in.sin_addr, 4);
    return toHandle(accepted);
}

Handle acceptIpv6(Handle handle, unsigned char peer[16]) {
    sockaddr_in6 in6 = {};
    socklen_t length = sizeof in6;
    const int accepted = accept(fd(handle), reinterpret_cast<sockaddr*>(&in6), &length);
    if (accepted >= 0) std::memcpy(peer, &in6.sin6_addr, 16);
    return toHandle(accepted);
}

void systemVersion(int* platform, int* major) {
    *platform = 2;
    *major = 6;
}

bool parseIpv4Literal(const char* text, unsigned char out[4]) {
    in_addr address;
    if (inet_aton(text, &address) == 0) return false;
    std::memcpy(out, &address, 4);
    return true;
}

bool lookupIpv4Name(const char* name, unsigned char out[4]) {
    return resolve(AF_INET, name, out);
}

Handle openRawIcmp() {
    return toHandle(socket(AF_INET, SOCK_RAW, IPPROTO_ICMP));
}

bool sendToIpv4(Handle handle, const unsigned char address[4], const void* data, int size) {
    sockaddr_in in = {};
    in.sin_family = AF_INET;
    std::memcpy(&in.sin_addr, address, 4);
    return sendto(fd(handle), data, static_cast<size_t>(size), 0, reinterpret_cast<sockaddr*>(&in),
                  sizeof in) == size;
}

int processId() {
    return static_cast<int>(getpid());
}

}  // namespace netsys
}  // namespace velmora
