#include "tcpip/linux/LinuxNetwork.h"

#include <velmora/files/FileUtil.h>
#include <velmora/log/MessageBundle.h>
#include <velmora/net/InetAddress.h>

#include "tcpip/linux/KernelRecords.h"
#include "tcpip/linux/Netlink.h"
#include "tcpip/linux/RtMessage.h"

#include <linux/rtnetlink.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
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
    std::string templateRecord;  // the route the gateway replaces, if any
};

Remembered remembered[2];  // IPv4, IPv6

Remembered& rememberedFor(int family) {
    return remembered[family == AF_INET6 ? 1 : 0];
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

int writePrivately(const char* path, const std::string& text) {
    // A new file is made for the owner alone first; the rewrite then keeps that mode.
    int fd = ::open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd >= 0) ::close(fd);
    return writeAtomically(path, text);
}

namespace {

std::string ipv6SwitchPath(const std::string& link) {
    return "/proc/sys/net/ipv6/conf/" + link + "/disable_ipv6";
}

}  // namespace

bool readIpv6Switch(const std::string& link, bool* disabled) {
    std::string text;
    int code = 0;
    if (link.empty() || link[0] == '.' || link.find('/') != std::string::npos) return false;
    if (!readText(ipv6SwitchPath(link).c_str(), &text, &code)) return false;
    *disabled = !text.empty() && text[0] != '0';
    return true;
}

int writeIpv6Switch(const std::string& link, bool disabled) {
    FILE* f = std::fopen(ipv6SwitchPath(link).c_str(), "w");
    if (f == nullptr) return errno;
    int code = std::fputs(disabled ? "1\n" : "0\n", f) < 0 ? errno : 0;
    if (std::fclose(f) != 0 && code == 0) code = errno;
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

namespace {

bool gatewayOf(const RtMessage& r, int family, unsigned char* out) {
    std::string v;
    if (!r.isDefaultRoute() || r.family() != family || !r.get(RTA_GATEWAY, &v)) return false;
    size_t size = family == AF_INET ? 4 : 16;
    if (v.size() < size) return false;
    std::memcpy(out, v.data(), size);
    return true;
}

bool isLinkLocal(int family, const unsigned char* bytes) {
    return family == AF_INET6 && bytes[0] == 0xFE && (bytes[1] & 0xC0) == 0x80;
}

}  // namespace

bool shownGateway(int family, std::string* record) {
    std::vector<std::string> routes;
    if (dumpRecords(true, family, &routes) != 0) return false;
    unsigned char bytes[16];
    for (const std::string& m : routes) {
        if (gatewayOf(RtMessage(m), family, bytes)) {
            if (record != nullptr) *record = m;
            return true;
        }
    }
    return false;
}

int clearDefaultGateways(int family) {
    std::vector<std::string> routes;
    int result = dumpRecords(true, family, &routes);
    unsigned char bytes[16];
    for (const std::string& m : routes) {
        if (result != 0) break;
        RtMessage r(m);
        if (!gatewayOf(r, family, bytes)) continue;  // a route without a gateway is no gateway
        result = netlink::sendRaw(r.forRequest(), RTM_DELROUTE, 0);
        if (result == ESRCH) result = 0;  // gone meanwhile
    }
    return result;
}

int installGateway(int family, const unsigned char* bytes, int outIndex,
                   const std::string& templateRecord) {
    size_t size = family == AF_INET ? 4 : 16;
    if (templateRecord.empty()) {
        if (isLinkLocal(family, bytes) && outIndex == 0) return EINVAL;
        netlink::Route route;
        route.family = family;
        route.hasGateway = true;
        std::memcpy(route.gateway, bytes, size);
        route.outIndex = outIndex;
        return netlink::addDefaultRoute(route);
    }
    // The route keeps everything it had (metric, protocol, flags, source...) but its
    // gateway, and its device unless the new gateway is link-local and needs one.
    RtMessage old(templateRecord), next(templateRecord);
    next.set(RTA_GATEWAY, bytes, size);
    if (outIndex != 0) {
        next.set(RTA_OIF, &outIndex, 4);
    } else if (!isLinkLocal(family, bytes) && (old.routeFlags() & RTNH_F_ONLINK) == 0) {
        // An onlink route names its link on purpose: the new gateway is on it too.
        next.erase(RTA_OIF);
    } else if (old.linkIndex() == 0) {
        return EINVAL;
    }
    int removed = netlink::sendRaw(old.forRequest(), RTM_DELROUTE, 0);
    int result = netlink::sendRaw(next.forRequest(), RTM_NEWROUTE, addRouteFlags(family));
    if (result != 0 && removed == 0)
        netlink::sendRaw(old.forRequest(), RTM_NEWROUTE, addRouteFlags(family));
    return result;
}

bool isUnreachable(int code) {
    return code == ENETUNREACH || code == EHOSTUNREACH || code == EINVAL;
}

void rememberGateway(int family, const unsigned char* bytes, bool set, int outIndex,
                     const std::string& templateRecord) {
    Remembered& r = rememberedFor(family);
    r.set = set;
    r.outIndex = outIndex;
    r.templateRecord = set ? templateRecord : std::string();
    std::memset(r.bytes, 0, sizeof r.bytes);
    if (set) std::memcpy(r.bytes, bytes, family == AF_INET ? 4 : 16);
}

void forgetGateways() {
    unsigned char none[16] = {};
    rememberGateway(AF_INET, none, false, 0, "");
    rememberGateway(AF_INET6, none, false, 0, "");
}

std::string replacedGateway(int family) {
    const Remembered& r = rememberedFor(family);
    return r.set && !r.templateRecord.empty() ? RtMessage(r.templateRecord).key() : std::string();
}

void restoreGateways(ErrorHandler* err) {
    for (int family : {AF_INET, AF_INET6}) {
        Remembered& r = rememberedFor(family);
        if (!r.set) continue;
        std::vector<std::string> routes;
        if (dumpRecords(true, family, &routes) != 0) continue;
        bool present = false;
        unsigned char bytes[16];
        size_t size = family == AF_INET ? 4 : 16;
        for (const std::string& m : routes)
            present = present || (gatewayOf(RtMessage(m), family, bytes) &&
                                  std::memcmp(bytes, r.bytes, size) == 0);
        if (present) continue;
        int result = installGateway(family, r.bytes, r.outIndex, r.templateRecord);
        if (result != 0 && !isUnreachable(result)) {
            reportSystem(err, "TcpIpHostSettings.systemError",
                         "Cannot set the default gateway " + addressText(family, r.bytes), result);
            r.set = false;
        }
    }
}

}  // namespace linuxnet
}  // namespace velmora
