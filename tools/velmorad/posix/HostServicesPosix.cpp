#include "HostServices.h"

#include <cstring>

#include <ifaddrs.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>

namespace velmorad {

namespace {

void (*stopCallback)() = nullptr;

void onSignal(int) {
    if (stopCallback != nullptr) stopCallback();
}

}  // namespace

bool startSockets() {
    // A peer that closes early must not end the process with SIGPIPE.
    signal(SIGPIPE, SIG_IGN);
    return true;
}

void stopSockets() {}

void installStopHandler(void (*onStop)()) {
    stopCallback = onStop;
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

void interruptListener(uint64_t handle) {
    shutdown(static_cast<int>(handle), SHUT_RDWR);
}

int localPort(uint64_t handle) {
    sockaddr_storage address = {};
    socklen_t length = sizeof address;
    if (getsockname(static_cast<int>(handle), reinterpret_cast<sockaddr*>(&address), &length) !=
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
    socklen_t length = sizeof address;
    if (getsockname(static_cast<int>(handle), reinterpret_cast<sockaddr*>(&address), &length) != 0)
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
    shutdown(static_cast<int>(handle), SHUT_WR);
}

bool setReceiveTimeout(uint64_t handle, int ms) {
    timeval limit = {ms / 1000, (ms % 1000) * 1000};
    return setsockopt(static_cast<int>(handle), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0;
}

bool utcTime(std::time_t t, struct tm* out) {
    return gmtime_r(&t, out) != nullptr;
}

void setNoDelay(uint64_t handle) {
    int on = 1;
    setsockopt(static_cast<int>(handle), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

std::string interfaceOf(const unsigned char* bytes16, int family) {
    ifaddrs* all = nullptr;
    if (getifaddrs(&all) != 0) return "";
    std::string name;
    for (ifaddrs* i = all; i != nullptr && name.empty(); i = i->ifa_next) {
        if (i->ifa_addr == nullptr) continue;
        if (family == 4 && i->ifa_addr->sa_family == AF_INET &&
            std::memcmp(&reinterpret_cast<sockaddr_in*>(i->ifa_addr)->sin_addr, bytes16, 4) == 0)
            name = i->ifa_name;
        if (family == 6 && i->ifa_addr->sa_family == AF_INET6 &&
            std::memcmp(&reinterpret_cast<sockaddr_in6*>(i->ifa_addr)->sin6_addr, bytes16, 16) == 0)
            name = i->ifa_name;
    }
    freeifaddrs(all);
    return name;
}

}  // namespace velmorad
