#include "tcpip/linux/LinuxNetwork.h"

#include <velmora/files/FileUtil.h>
#include <velmora/log/MessageBundle.h>
#include <velmora/net/InetAddress.h>

#include "tcpip/linux/Netlink.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace velmora {
namespace linuxnet {

namespace {

struct Remembered {
    bool set = false;
    unsigned char bytes[16] = {};
    int outIndex = 0;
};

Remembered remembered[2];  // IPv4, IPv6

Remembered& rememberedFor(int family) {
    return remembered[family == AF_INET6 ? 1 : 0];
}

bool hasGateway(const std::vector<netlink::Route>& routes, int family, const unsigned char* bytes) {
    size_t size = family == AF_INET ? 4 : 16;
    for (const netlink::Route& r : routes) {
        if (r.hasGateway && std::memcmp(r.gateway, bytes, size) == 0) return true;
    }
    return false;
}

}  // namespace

void report(ErrorHandler* err, const char* key, const std::string& argument,
            const std::string& text) {
    if (err == nullptr) return;
    MessageBundle bundle("platform", key, argument.c_str(), text.c_str());
    err->error(&bundle);
}

void reportSystem(ErrorHandler* err, const char* key, const std::string& what, int code) {
    std::string reason = std::strerror(code);
    report(err, key, reason, what + ": " + reason);
}

bool readText(const char* path, std::string* out, int* code) {
    out->clear();
    int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        *code = errno;
        return false;
    }
    char buffer[4096];
    for (;;) {
        ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            *code = errno;
            ::close(fd);
            return false;
        }
        if (n == 0) break;
        out->append(buffer, static_cast<size_t>(n));
    }
    ::close(fd);
    return true;
}

int writeAtomically(const char* path, const std::string& text) {
    int code = 0;
    FileUtil::rewriteFile(path, text.data(), text.size(), &code);
    return code;
}

std::string addressText(int family, const unsigned char* bytes) {
    char text[66] = "";
    if (family == AF_INET)
        InetAddress::inet_ntop(InetAddress::getIpv4Family(), bytes, text, 22);
    else
        InetAddress::inet_ntop(InetAddress::getIpv6Family(), bytes, text, 65);
    return text;
}

int clearDefaultGateways(int family) {
    std::vector<netlink::Route> routes;
    int result = netlink::dumpDefaultRoutes(family, &routes);
    for (const netlink::Route& r : routes) {
        if (result != 0) break;
        result = netlink::deleteDefaultRoute(r);
        if (result == ESRCH) result = 0;  // gone meanwhile
    }
    return result;
}

int replaceDefaultGateway(int family, const unsigned char* bytes, int outIndex) {
    std::vector<netlink::Route> before;
    int result = netlink::dumpDefaultRoutes(family, &before);
    if (result != 0) return result;
    if (before.size() == 1 && hasGateway(before, family, bytes) &&
        (outIndex == 0 || before[0].outIndex == outIndex)) {
        return 0;
    }
    result = clearDefaultGateways(family);
    netlink::Route route;
    route.family = family;
    route.hasGateway = true;
    std::memcpy(route.gateway, bytes, family == AF_INET ? 4 : 16);
    route.outIndex = outIndex;
    if (result == 0) result = netlink::addDefaultRoute(route);
    if (result != 0) {
        // Put back what was there, so that a refused gateway leaves the host as it was.
        clearDefaultGateways(family);
        for (const netlink::Route& r : before)
            netlink::addDefaultRoute(r);
    }
    return result;
}

bool isUnreachable(int code) {
    return code == ENETUNREACH || code == EHOSTUNREACH || code == EINVAL;
}

void rememberGateway(int family, const unsigned char* bytes, bool set, int outIndex) {
    Remembered& r = rememberedFor(family);
    r.set = set;
    r.outIndex = outIndex;
    std::memset(r.bytes, 0, sizeof r.bytes);
    if (set) std::memcpy(r.bytes, bytes, family == AF_INET ? 4 : 16);
}

void restoreGateways(ErrorHandler* err) {
    for (int family : {AF_INET, AF_INET6}) {
        Remembered& r = rememberedFor(family);
        if (!r.set) continue;
        std::vector<netlink::Route> routes;
        if (netlink::dumpDefaultRoutes(family, &routes) != 0 || hasGateway(routes, family, r.bytes))
            continue;
        int result = replaceDefaultGateway(family, r.bytes, r.outIndex);
        if (result != 0 && !isUnreachable(result)) {
            reportSystem(err, "TcpIpHostSettings.systemError",
                         "Cannot set the default gateway " + addressText(family, r.bytes), result);
            r.set = false;
        }
    }
}

}  // namespace linuxnet
}  // namespace velmora
