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
        std::memcpy(bytes16, &reinterpret_cast<sockaddr_in*>(&address)->sin_addr, 4);
        return 4;
    }
    if (address.ss_family != AF_INET6) return 0;
    const unsigned char* a = reinterpret_cast<const unsigned char*>(
        &reinterpret_cast<sockaddr_in6*>(&address)->sin6_addr);
    static const unsigned char mapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
    if (std::memcmp(a, mapped, 12) == 0) {
        std::memcpy(bytes16, a + 12, 4);
        return 4;
    }
    std::memcpy(bytes16, a, 16);
    return 6;
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

void setNoDelay(uint64_t handle) {
    BOOL on = TRUE;
    setsockopt(static_cast<SOCKET>(handle), IPPROTO_TCP, TCP_NODELAY,
               reinterpret_cast<const char*>(&on), sizeof on);
}

std::string interfaceOf(const unsigned char*, int) {
    return "";
}

}  // namespace velmorad
