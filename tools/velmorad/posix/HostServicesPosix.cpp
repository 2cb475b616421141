#include "HostServices.h"

#include <cstdlib>
#include <cstring>

#include <arpa/inet.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>

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
    shutdown(static_cast<int>(handle), SHUT_WR);
}

bool setReceiveTimeout(uint64_t handle, int ms) {
    timeval limit = {ms / 1000, (ms % 1000) * 1000};
    return setsockopt(static_cast<int>(handle), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0;
}

bool utcTime(std::time_t t, struct tm* out) {
    return gmtime_r(&t, out) != nullptr;
}

bool localTime(std::time_t t, struct tm* out, long* offsetSeconds) {
    if (localtime_r(&t, out) == nullptr) return false;
    *offsetSeconds = out->tm_gmtoff;
    return true;
}

bool setNonBlocking(uint64_t handle) {
    int fd = static_cast<int>(handle);
    int flags = fcntl(fd, F_GETFL, 0);
    return flags >= 0 && fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

bool acceptWhenData(uint64_t listener, int seconds) {
#ifdef TCP_DEFER_ACCEPT
    return setsockopt(static_cast<int>(listener), IPPROTO_TCP, TCP_DEFER_ACCEPT, &seconds,
                      sizeof seconds) == 0;
#else
    (void)listener;
    (void)seconds;
    return false;
#endif
}

uint64_t acceptNow(uint64_t listener, char* peer, int size) {
    sockaddr_storage address = {};
    socklen_t length = sizeof address;
    int fd = accept4(static_cast<int>(listener), reinterpret_cast<sockaddr*>(&address), &length,
                     SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) return kNoHandle;
    int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    peer[0] = '\0';
    if (address.ss_family == AF_INET) {
        inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(&address)->sin_addr, peer,
                  static_cast<socklen_t>(size));
    } else if (address.ss_family == AF_INET6) {
        inet_ntop(AF_INET6, &reinterpret_cast<sockaddr_in6*>(&address)->sin6_addr, peer,
                  static_cast<socklen_t>(size));
    }
    return static_cast<uint64_t>(fd);
}

int receiveSome(uint64_t handle, char* buffer, int size) {
    for (;;) {
        ssize_t n = recv(static_cast<int>(handle), buffer, static_cast<size_t>(size), 0);
        if (n >= 0) return static_cast<int>(n);
        if (errno == EINTR) continue;
        return errno == EAGAIN || errno == EWOULDBLOCK ? kWouldBlock : -1;
    }
}

int sendSome(uint64_t handle, const char* data, int size) {
    for (;;) {
        ssize_t n = send(static_cast<int>(handle), data, static_cast<size_t>(size), MSG_NOSIGNAL);
        if (n >= 0) return static_cast<int>(n);
        if (errno == EINTR) continue;
        return errno == EAGAIN || errno == EWOULDBLOCK ? kWouldBlock : -1;
    }
}

void closeHandle(uint64_t handle) {
    close(static_cast<int>(handle));
}

long raiseDescriptorLimit(long wanted) {
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return -1;
    if (limit.rlim_cur != RLIM_INFINITY && limit.rlim_cur < static_cast<rlim_t>(wanted)) {
        rlim_t raised = static_cast<rlim_t>(wanted);
        if (limit.rlim_max != RLIM_INFINITY && raised > limit.rlim_max) raised = limit.rlim_max;
        limit.rlim_cur = raised;
        setrlimit(RLIMIT_NOFILE, &limit);
        getrlimit(RLIMIT_NOFILE, &limit);
    }
    return limit.rlim_cur == RLIM_INFINITY ? wanted : static_cast<long>(limit.rlim_cur);
}

// The first line of /proc/stat: "cpu  user nice system idle iowait irq softirq steal ..."
// in clock ticks; idle and iowait count as idle.
bool processorTimes(uint64_t* idle, uint64_t* total) {
    int fd = open("/proc/stat", O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    char line[512];
    ssize_t got = read(fd, line, sizeof line - 1);
    close(fd);
    if (got < 5 || std::strncmp(line, "cpu ", 4) != 0) return false;
    line[got] = '\0';
    uint64_t sum = 0, quiet = 0;
    const char* at = line + 4;
    for (int field = 0; field < 8; ++field) {
        char* end = nullptr;
        unsigned long long v = std::strtoull(at, &end, 10);
        if (end == at) break;
        sum += v;
        if (field == 3 || field == 4) quiet += v;
        at = end;
    }
    if (sum == 0) return false;
    *idle = quiet;
    *total = sum;
    return true;
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
