#include "log/LogSystem.h"

#include <dlfcn.h>
#include <pthread.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>
#include <string>

#include "platform/SystemClock.h"

namespace velmora {
namespace logsys {

namespace {

// The system log's datagram socket, connected to the daemon's socket path.
struct SysLogChannel {
    int fd = -1;
    std::string source;
};

const int kFacilityUser = 1 << 3;

// GNU strerror_r returns the text; the XSI form fills the buffer. Both are handled.
[[maybe_unused]] const char* pickText(const char* text, const char*) {
    return text;
}
[[maybe_unused]] const char* pickText(int result, const char* buf) {
    return result == 0 ? buf : nullptr;
}

}  // namespace

unsigned long lastError() {
    return static_cast<unsigned long>(errno);
}

unsigned long lastSocketError() {
    // Socket errors are named by the Windows Sockets constants on every system, so that a
    // report reads the same wherever it was made: the errno values with such a constant
    // become its code; any other value stays the errno number.
    static const struct {
        int number;
        unsigned long code;
    } kSocketCodes[] = {
        {EWOULDBLOCK, 10035},     {EAGAIN, 10035},          {EINPROGRESS, 10036},
        {EALREADY, 10037},        {ENOTSOCK, 10038},        {EDESTADDRREQ, 10039},
        {EMSGSIZE, 10040},        {EPROTOTYPE, 10041},      {ENOPROTOOPT, 10042},
        {EPROTONOSUPPORT, 10043}, {ESOCKTNOSUPPORT, 10044}, {EOPNOTSUPP, 10045},
        {EPFNOSUPPORT, 10046},    {EAFNOSUPPORT, 10047},    {EADDRINUSE, 10048},
        {EADDRNOTAVAIL, 10049},   {ENETDOWN, 10050},        {ENETUNREACH, 10051},
        {ENETRESET, 10052},       {ECONNABORTED, 10053},    {ECONNRESET, 10054},
        {ENOBUFS, 10055},         {EISCONN, 10056},         {ENOTCONN, 10057},
        {ESHUTDOWN, 10058},       {ETOOMANYREFS, 10059},    {ETIMEDOUT, 10060},
        {ECONNREFUSED, 10061},    {ELOOP, 10062},           {ENAMETOOLONG, 10063},
        {EHOSTDOWN, 10064},       {EHOSTUNREACH, 10065},    {ENOTEMPTY, 10066},
        {EUSERS, 10068},          {EDQUOT, 10069},          {ESTALE, 10070},
        {EREMOTE, 10071},         {ECANCELED, 10103},
    };
    const int number = errno;
    for (const auto& entry : kSocketCodes) {
        if (entry.number == number) return entry.code;
    }
    return static_cast<unsigned long>(number);
}

char* errorText(unsigned long code) {
    char buf[256] = {0};
    const char* text = pickText(strerror_r(static_cast<int>(code), buf, sizeof buf), buf);
    return text != nullptr ? strdup(text) : nullptr;
}

void freeErrorText(char* text) {
    std::free(text);
}

namespace {

// Every log line carries the thread number, and asking the kernel for it each time costs a
// system call per line; so each thread asks once. A forked child starts from the one thread
// that forked, whose number there is new, so the child forgets the number it inherited.
thread_local uint64_t cachedThreadId = 0;

void forgetThreadIdInChild() {
    cachedThreadId = 0;
}

}  // namespace

uint64_t currentThreadId() {
    if (cachedThreadId == 0) {
        static const int registered = pthread_atfork(nullptr, nullptr, forgetThreadIdInChild);
        (void)registered;
        cachedThreadId = static_cast<uint64_t>(syscall(SYS_gettid));
    }
    return cachedThreadId;
}

void* openEventLog(const char* destination, const char* source) {
    const char* path = destination != nullptr ? destination : "/dev/log";
    sockaddr_un address{};
    if (strlen(path) >= sizeof address.sun_path) return nullptr;
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, path);
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return nullptr;
    // Unlike syslog(3), which drops everything silently when no daemon listens, opening
    // fails here, so that the caller learns that its reports would go nowhere.
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        close(fd);
        return nullptr;
    }
    SysLogChannel* channel = new (std::nothrow) SysLogChannel;
    if (channel == nullptr) {
        close(fd);
        return nullptr;
    }
    channel->fd = fd;
    channel->source = source;
    return channel;
}

void reportEvent(void* handle, EventKind kind, uint32_t, const char* text) {
    SysLogChannel* channel = static_cast<SysLogChannel*>(handle);
    if (channel == nullptr || text == nullptr) return;
    int severity = kind == EventKind::error ? 3 : kind == EventKind::warning ? 4 : 6;
    // The traditional form: "<priority>Mmm dd hh:mm:ss source[pid]: text".
    char stamp[32] = "";
    std::tm local{};
    if (clock::localTime(std::time(nullptr), &local)) {
        std::strftime(stamp, sizeof stamp, "%b %e %H:%M:%S ", &local);
    }
    std::string line = "<" + std::to_string(kFacilityUser | severity) + ">" + stamp +
                       channel->source + "[" + std::to_string(getpid()) + "]: " + text;
    // A full or vanished daemon loses the report, as the system logger itself would.
    ssize_t sent = send(channel->fd, line.data(), line.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    (void)sent;
}

void closeEventLog(void* handle) {
    SysLogChannel* channel = static_cast<SysLogChannel*>(handle);
    if (channel == nullptr) return;
    close(channel->fd);
    delete channel;
}

GetCreatedJavaVMsFn findGetCreatedJavaVMs() {
    return reinterpret_cast<GetCreatedJavaVMsFn>(dlsym(RTLD_DEFAULT, "JNI_GetCreatedJavaVMs"));
}

}  // namespace logsys
}  // namespace velmora
