#include "HostServices.h"

#include <cstring>

#include <winsock2.h>
#include <ws2tcpip.h>

namespace velmorad {

namespace {

void (*stopCallback)() = nullptr;

BOOL WINAPI onConsoleEvent(DWORD) {
    if (stopCallback != nullptr) stopCallback();
    return TRUE;
}

}  // namespace

bool startSockets() {
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data) == 0;
}

void stopSockets() {
    WSACleanup();
}

void installStopHandler(void (*onStop)()) {
    stopCallback = onStop;
    SetConsoleCtrlHandler(onConsoleEvent, TRUE);
}

void interruptListener(uint64_t handle) {
    closesocket(static_cast<SOCKET>(handle));
}

int localPort(uint64_t handle) {
    sockaddr_storage address = {};
    int length = sizeof address;
    if (getsockname(static_cast<SOCKET>(handle), reinterpret_cast<sockaddr*>(&address), &length) !=
        0) {
        return -1;
    }
    if (address.ss_family == AF_INET) {
        return ntohs(reinterpret_cast<sockaddr_in*>(&address)->sin_port);
    }
    return ntohs(reinterpret_cast<sockaddr_in6*>(&address)->sin6_port);
}

int localAddress(uint64_t handle, unsigned char* bytes16) {
    sockaddr_storage address = {};
    int length = sizeof address;
    if (getsockname(static_cast<SOCKET>(handle), reinterpret_cast<sockaddr*>(&address), &length) !=
        0)
        return 0;
    if (address.ss_family == AF_INET) {
        return addressBytes(4,
                            reinterpret_cast<const unsigned char*>(
                                &reinterpret_cast<sockaddr_in*>(&address)->sin_addr),
                            bytes16);
    }
    if (address.ss_family != AF_INET6) return 0;
    return addressBytes(6,
                        reinterpret_cast<const unsigned char*>(
                            &reinterpret_cast<sockaddr_in6*>(&address)->sin6_addr),
                        bytes16);
}

void shutdownSend(uint64_t handle) {
    shutdown(static_cast<SOCKET>(handle), SD_SEND);
}

// A blocking receive that times out leaves a Windows socket in an undefined state.
bool setReceiveTimeout(uint64_t, int) {
    return false;
}

bool utcTime(std::time_t t, struct tm* out) {
    return gmtime_s(out, &t) == 0;
}

bool localTime(std::time_t t, struct tm* out, long* offsetSeconds) {
    if (localtime_s(out, &t) != 0) return false;
    struct tm utc;
    if (gmtime_s(&utc, &t) != 0) return false;
    // The offset is the difference of the two broken-down times, within a day.
    long local = (out->tm_hour * 60L + out->tm_min) * 60 + out->tm_sec;
    long universal = (utc.tm_hour * 60L + utc.tm_min) * 60 + utc.tm_sec;
    int dayStep = out->tm_yday - utc.tm_yday;
    if (dayStep > 1) dayStep = -1;  // across a year end
    if (dayStep < -1) dayStep = 1;
    *offsetSeconds = local - universal + dayStep * 86400L;
    return true;
}

bool setNonBlocking(uint64_t handle) {
    u_long on = 1;
    return ioctlsocket(static_cast<SOCKET>(handle), FIONBIO, &on) == 0;
}

// Winsock's conditional accept decides on the handshake, not on the first bytes.
bool acceptWhenData(uint64_t, int) {
    return false;
}

uint64_t acceptNow(uint64_t listener, char* peer, int size) {
    sockaddr_storage address = {};
    int length = sizeof address;
    SOCKET s =
        accept(static_cast<SOCKET>(listener), reinterpret_cast<sockaddr*>(&address), &length);
    if (s == INVALID_SOCKET) return kNoHandle;
    setNonBlocking(static_cast<uint64_t>(s));
    setNoDelay(static_cast<uint64_t>(s));
    peer[0] = '\0';
    if (address.ss_family == AF_INET) {
        inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(&address)->sin_addr, peer,
                  static_cast<size_t>(size));
    } else if (address.ss_family == AF_INET6) {
        inet_ntop(AF_INET6, &reinterpret_cast<sockaddr_in6*>(&address)->sin6_addr, peer,
                  static_cast<size_t>(size));
    }
    return static_cast<uint64_t>(s);
}

int receiveSome(uint64_t handle, char* buffer, int size) {
    int n = recv(static_cast<SOCKET>(handle), buffer, size, 0);
    if (n >= 0) return n;
    return WSAGetLastError() == WSAEWOULDBLOCK ? kWouldBlock : -1;
}

int sendSome(uint64_t handle, const char* data, int size) {
    int n = send(static_cast<SOCKET>(handle), data, size, 0);
    if (n >= 0) return n;
    return WSAGetLastError() == WSAEWOULDBLOCK ? kWouldBlock : -1;
}

void closeHandle(uint64_t handle) {
    closesocket(static_cast<SOCKET>(handle));
}

// Windows has no per-process limit of sockets to raise.
long raiseDescriptorLimit(long wanted) {
    return wanted;
}

// GetSystemTimes' kernel time includes the idle time.
bool processorTimes(uint64_t* idle, uint64_t* total) {
    FILETIME quiet, kernel, user;
    if (!GetSystemTimes(&quiet, &kernel, &user)) return false;
    auto value = [](const FILETIME& t) {
        return (static_cast<uint64_t>(t.dwHighDateTime) << 32) | t.dwLowDateTime;
    };
    *idle = value(quiet);
    *total = value(kernel) + value(user);
    return *total != 0;
}

void setNoDelay(uint64_t handle) {
    BOOL on = TRUE;
    setsockopt(static_cast<SOCKET>(handle), IPPROTO_TCP, TCP_NODELAY,
               reinterpret_cast<const char*>(&on), sizeof on);
}

std::string interfaceOf(const unsigned char*, int) {
    return "";
}

}  // namespace velmorad
