// The host settings on Linux: the link list from rtnetlink, default routes, the resolver
// file and the host name. LinuxNetwork.h says what is answered and why.
#include <velmora/tcpip/TcpIpAdapterSettings.h>
#include <velmora/tcpip/TcpIpHostSettings.h>

#include "tcpip/ResolverText.h"
#include "tcpip/linux/LinuxNetwork.h"
#include "tcpip/linux/Netlink.h"
#include "tcpip/linux/RtMessage.h"

#include <linux/rtnetlink.h>

#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

namespace velmora {

namespace {

const char kHostKey[] = "TcpIpHostSettings.systemError";
const int kDnsLimit = 3;

// Only for the protected constructor: every operation is the base class's own.
// The link of the IPv6 default route chosen with setIpv6DefaultDevice (0: let the
// kernel choose), needed for a link-local gateway.
int ipv6Device = 0;

class LinuxHostSettings : public TcpIpHostSettings {
public:
    LinuxHostSettings() = default;
    // What the process remembered for this instance goes with it.
    ~LinuxHostSettings() override {
        ipv6Device = 0;
        linuxnet::forgetGateways();
    }
};

void copyOut(char* buffer, int bufferSize, const std::string& text) {
    if (buffer == nullptr || bufferSize <= 0) return;
    std::snprintf(buffer, static_cast<size_t>(bufferSize), "%s", text.c_str());
}

void clearOut(char* buffer, int bufferSize) {
    if (buffer != nullptr && bufferSize > 0) buffer[0] = '\0';
}

std::string resolverText(TcpIpHostSettings* host) {
    std::string text;
    int code = 0;
    linuxnet::readText(host->getResolverPath(), &text, &code);  // missing: no servers
    return text;
}

std::vector<std::string> splitList(const char* list) {
    std::vector<std::string> out;
    std::string word;
    for (const char* p = list != nullptr ? list : "";; ++p) {
        if (*p == ' ' || *p == '\0') {
            if (!word.empty()) out.push_back(word);
            word.clear();
            if (*p == '\0') break;
        } else {
            word.push_back(*p);
        }
    }
    return out;
}

std::string joinWithSpaces(const char* list, char separator) {
    std::string text = list != nullptr ? list : "";
    for (char& c : text) {
        if (c == separator) c = ' ';
    }
    return text;
}

std::string joinEntries(const char* const* entries, int count) {
    std::string text;
    for (int i = 0; entries != nullptr && i < count; ++i) {
        if (entries[i] == nullptr) continue;
        if (!text.empty()) text += ' ';
        text += entries[i];
    }
    return text;
}

// Rewrites the resolver file when `change` gives a different text; 0 or -1, reported.
template <typename Change>
int rewriteResolver(TcpIpHostSettings* host, ErrorHandler* err, Change change) {
    std::string before;
    int code = 0;
    if (!linuxnet::readText(host->getResolverPath(), &before, &code) && code != ENOENT) {
        linuxnet::reportSystem(err, kHostKey, std::string("Cannot read ") + host->getResolverPath(),
                               code);
        return -1;
    }
    std::string after = change(before);
    if (after == before) return 0;
    code = linuxnet::writeAtomically(host->getResolverPath(), after);
    if (code == 0) return 0;
    linuxnet::reportSystem(err, kHostKey, std::string("Cannot write ") + host->getResolverPath(),
                           code);
    return -1;
}

int setServers(TcpIpHostSettings* host, ErrorHandler* err, const char* list, bool ipv6) {
    std::vector<std::string> servers = splitList(list);
    unsigned char bytes[16];
    for (const std::string& s : servers) {
        if (ResolverText::parseAddress(s.c_str(), bytes) != (ipv6 ? 6 : 4)) {
            linuxnet::report(
                err, "TcpIpHostSettings.invalidDnsHost", s,
                std::string(ipv6 ? "Not an IPv6" : "Not an IPv4") + " DNS server address: " + s);
            return -1;
        }
    }
    if (static_cast<int>(servers.size()) > kDnsLimit) {
        linuxnet::report(
            err, "TcpIpHostSettings.tooManyDnsHosts", std::to_string(servers.size()),
            "At most 3 DNS servers are used, " + std::to_string(servers.size()) + " given");
        return -1;
    }
    return rewriteResolver(host, err, [&](const std::string& text) {
        // The same servers in the same order change nothing, wherever their lines stand.
        if (ResolverText::nameservers(text, ipv6) == servers) return text;
        return ResolverText::withNameservers(text, ipv6, servers);
    });
}

void getServers(TcpIpHostSettings* host, bool ipv6, int count, char** buffers, int bufferSize) {
    std::vector<std::string> servers = ResolverText::nameservers(resolverText(host), ipv6);
    for (int i = 0; buffers != nullptr && i < count; ++i) {
        if (i < static_cast<int>(servers.size()))
            copyOut(buffers[i], bufferSize, servers[i]);
        else
            clearOut(buffers[i], bufferSize);
    }
}

// The first default route of the family that names a gateway.
bool defaultRoute(int family, netlink::Route* out) {
    std::vector<netlink::Route> routes;
    if (netlink::dumpDefaultRoutes(family, &routes) != 0) return false;
    for (const netlink::Route& r : routes) {
        if (r.hasGateway) {
            *out = r;
            return true;
        }
    }
    return false;
}

// The device of a gateway written "fe80::1%eth0": `outIndex` set, the suffix cut off.
bool splitScope(std::string* text, int* outIndex, ErrorHandler* err) {
    size_t percent = text->find('%');
    if (percent == std::string::npos) return true;
    std::string device = text->substr(percent + 1);
    unsigned index = device.empty() ? 0 : if_nametoindex(device.c_str());
    if (index == 0) {
        linuxnet::report(err, "TcpIpAdapterSettings.unknownAdapter", device,
                         "No network adapter named " + device);
        return false;
    }
    *outIndex = static_cast<int>(index);
    text->erase(percent);
    return true;
}

// A gateway equal to the one shown changes nothing; another one replaces the shown route
// only (keeping its metric, flags and source), so that other default routes, those
// without a gateway among them, stay as they are.
int setGateway(ErrorHandler* err, const char* gateway, int family, int outIndex) {
    std::string text = gateway != nullptr ? gateway : "";
    unsigned char bytes[16] = {};
    if (text.empty()) {
        linuxnet::rememberGateway(family, bytes, false, 0, "");
        int code = linuxnet::clearDefaultGateways(family);
        if (code == 0) return 0;
        linuxnet::reportSystem(err, kHostKey, "Cannot remove the default gateway", code);
        return -1;
    }
    if (family == AF_INET6 && !splitScope(&text, &outIndex, err)) return -1;
    if (ResolverText::parseAddress(text.c_str(), bytes) != (family == AF_INET ? 4 : 6)) {
        linuxnet::report(err, "TcpIpHostSettings.invalidGateway", text,
                         std::string("Not an ") + (family == AF_INET ? "IPv4" : "IPv6") +
                             " gateway address: " + text);
        return -1;
    }
    std::string shown;
    if (linuxnet::shownGateway(family, &shown)) {
        RtMessage r(shown);
        std::string now;
        r.get(RTA_GATEWAY, &now);
        if (now.size() >= (family == AF_INET ? 4u : 16u) &&
            std::memcmp(now.data(), bytes, family == AF_INET ? 4 : 16) == 0 &&
            (outIndex == 0 || r.linkIndex() == outIndex)) {
            return 0;
        }
    }
    bool linkLocal = family == AF_INET6 && bytes[0] == 0xFE && (bytes[1] & 0xC0) == 0x80;
    if (linkLocal && outIndex == 0 && (shown.empty() || RtMessage(shown).linkIndex() == 0)) {
        linuxnet::report(err, "TcpIpHostSettings.gatewayNeedsDevice", text,
                         "The link-local gateway " + text +
                             " needs an adapter: no default route names one (write it as " + text +
                             "%adapter)");
        return -1;
    }
    linuxnet::rememberGateway(family, bytes, true, outIndex, shown);
    int code = linuxnet::installGateway(family, bytes, outIndex, shown);
    // Unreachable for now: the adapters of the same document may bring its network.
    if (code == 0 || (!linkLocal && linuxnet::isUnreachable(code))) return 0;
    linuxnet::rememberGateway(family, bytes, false, 0, "");
    linuxnet::reportSystem(err, kHostKey, "Cannot set the default gateway " + text, code);
    return -1;
}

bool sameLinks(TcpIpAdapterSettings** adapters, int count, const std::vector<std::string>& names) {
    if (count != static_cast<int>(names.size())) return false;
    for (int i = 0; i < count; ++i) {
        if (names[static_cast<size_t>(i)] != adapters[i]->id()) return false;
    }
    return true;
}

}  // namespace

TcpIpHostSettings* makeSystemHostSettings(ErrorHandler* err) {
    TcpIpHostSettings* host = new (std::nothrow) LinuxHostSettings();
    if (host != nullptr) host->getAllAdapterSettings(err, nullptr);
    return host;
}

// Rebuilt only when the links differ from the list, so that the pointers handed out stay
// valid while the host's links stay the same.
void TcpIpHostSettings::refreshAdapters(ErrorHandler* err) {
    std::vector<netlink::Link> links;
    int code = netlink::dumpLinks(&links);
    if (code != 0) {
        linuxnet::reportSystem(err, "TcpIpPlatform.allocationFailure",
                               "Could not determine network host settings", code);
        return;
    }
    std::vector<std::string> names;
    for (const netlink::Link& link : links) {
        if ((link.flags & IFF_LOOPBACK) == 0) names.push_back(link.name);
    }
    if (sameLinks(adapters_, count_, names)) return;
    TcpIpAdapterSettings** list = new (std::nothrow) TcpIpAdapterSettings*[names.size() + 1];
    if (list == nullptr) return;
    int made = 0;
    for (const std::string& name : names) {
        TcpIpAdapterSettings* a = new (std::nothrow) TcpIpAdapterSettings(name.c_str());
        if (a != nullptr) list[made++] = a;
    }
    setAdapters(list, made);
}

bool TcpIpHostSettings::usesAdapterLevelSettings(ErrorHandler*) {
    return false;
}

bool TcpIpHostSettings::isIPv6Readonly(ErrorHandler*) {
    return false;
}

bool TcpIpHostSettings::isReadonly(ErrorHandler*) {
    return false;
}

void TcpIpHostSettings::getDomain(ErrorHandler*, char* buffer, int bufferSize) {
    copyOut(buffer, bufferSize, ResolverText::domain(resolverText(this)));
}

void TcpIpHostSettings::getDefaultGateway(ErrorHandler*, char* buffer, int bufferSize) {
    clearOut(buffer, bufferSize);
    netlink::Route route;
    if (defaultRoute(AF_INET, &route))
        copyOut(buffer, bufferSize, linuxnet::addressText(AF_INET, route.gateway));
}

int TcpIpHostSettings::getDnsHostCount(ErrorHandler*) {
    return static_cast<int>(ResolverText::nameservers(resolverText(this), false).size());
}

int TcpIpHostSettings::getDnsHostLimit(ErrorHandler*) {
    return kDnsLimit;
}

void TcpIpHostSettings::getDnsHosts(ErrorHandler*, int count, char** buffers, int bufferSize) {
    getServers(this, false, count, buffers, bufferSize);
}

void TcpIpHostSettings::getHostname(ErrorHandler*, char* buffer, int bufferSize) {
    char name[256] = "";
    if (::gethostname(name, sizeof name - 1) != 0) name[0] = '\0';
    copyOut(buffer, bufferSize, name);
}

int TcpIpHostSettings::setDomain(ErrorHandler* err, const char* domain) {
    const char* text = domain != nullptr ? domain : "";
    if (!ResolverText::isDomain(text)) {
        linuxnet::report(err, "TcpIpHostSettings.invalidDomain", text,
                         std::string("Not a domain name: ") + text);
        return -1;
    }
    return rewriteResolver(this, err, [&](const std::string& before) {
        return ResolverText::withDomain(before, text);
    });
}

// The kernel's name first, then the file; when the file cannot be written the former
// name is put back, so that the two never disagree because of this call.
int TcpIpHostSettings::setHostName(ErrorHandler* err, const char* name) {
    const char* text = name != nullptr ? name : "";
    if (!ResolverText::isHostName(text)) {
        linuxnet::report(
            err, "TcpIpHostSettings.invalidHostName", text,
            std::string("Host name must be 1 to 64 letters, digits, '-' or '.': ") + text);
        return -1;
    }
    char former[256] = "";
    ::gethostname(former, sizeof former - 1);
    std::string file;
    int code = 0;
    bool haveFile = linuxnet::readText(getHostnamePath(), &file, &code);
    if (std::strcmp(former, text) == 0 && haveFile && ResolverText::hostNameOf(file) == text)
        return 0;
    if (::sethostname(text, std::strlen(text)) != 0) {
        linuxnet::reportSystem(err, kHostKey, std::string("Cannot set the host name ") + text,
                               errno);
        return -1;
    }
    // Comments and other lines of the file stay; only the name's line changes.
    code = linuxnet::writeAtomically(getHostnamePath(),
                                     ResolverText::withHostName(haveFile ? file : "", text));
    if (code == 0) return 0;
    ::sethostname(former, std::strlen(former));
    linuxnet::reportSystem(err, kHostKey, std::string("Cannot write ") + getHostnamePath(), code);
    return -1;
}

int TcpIpHostSettings::setDefaultGateway(ErrorHandler* err, const char* gateway) {
    return setGateway(err, gateway, AF_INET, 0);
}

int TcpIpHostSettings::setDnsHosts(ErrorHandler* err, const char* list) {
    return setServers(this, err, list, false);
}

int TcpIpHostSettings::setDnsHosts(ErrorHandler* err, const char* list, char separator) {
    return setDnsHosts(err, joinWithSpaces(list, separator).c_str());
}

int TcpIpHostSettings::setDnsHosts(ErrorHandler* err, const char* const* entries, int count) {
    return setDnsHosts(err, joinEntries(entries, count).c_str());
}

void TcpIpHostSettings::getIpv6DefaultGateway(ErrorHandler*, char* buffer, int bufferSize) {
    clearOut(buffer, bufferSize);
    netlink::Route route;
    if (defaultRoute(AF_INET6, &route))
        copyOut(buffer, bufferSize, linuxnet::addressText(AF_INET6, route.gateway));
}

void TcpIpHostSettings::getIpv6DefaultDevice(ErrorHandler*, char* buffer, int bufferSize) {
    clearOut(buffer, bufferSize);
    netlink::Route route;
    char name[IF_NAMESIZE] = "";
    if (defaultRoute(AF_INET6, &route) && route.outIndex != 0 &&
        if_indextoname(static_cast<unsigned>(route.outIndex), name) != nullptr) {
        copyOut(buffer, bufferSize, name);
    }
}

int TcpIpHostSettings::setIpv6DefaultGateway(ErrorHandler* err, const char* gateway) {
    return setGateway(err, gateway, AF_INET6, ipv6Device);
}

int TcpIpHostSettings::setIpv6DefaultDevice(ErrorHandler* err, const char* device) {
    const char* text = device != nullptr ? device : "";
    unsigned index = *text != '\0' ? if_nametoindex(text) : 0;
    if (*text != '\0' && index == 0) {
        linuxnet::report(err, "TcpIpAdapterSettings.unknownAdapter", text,
                         std::string("No network adapter named ") + text);
        return -1;
    }
    ipv6Device = static_cast<int>(index);
    return 0;
}

int TcpIpHostSettings::getIpv6DnsHostCount(ErrorHandler*) {
    return static_cast<int>(ResolverText::nameservers(resolverText(this), true).size());
}

int TcpIpHostSettings::setIpv6DnsHosts(ErrorHandler* err, const char* list) {
    return setServers(this, err, list, true);
}

int TcpIpHostSettings::setIpv6DnsHosts(ErrorHandler* err, const char* list, char separator) {
    return setIpv6DnsHosts(err, joinWithSpaces(list, separator).c_str());
}

int TcpIpHostSettings::setIpv6DnsHosts(ErrorHandler* err, const char* const* entries, int count) {
    return setIpv6DnsHosts(err, joinEntries(entries, count).c_str());
}

void TcpIpHostSettings::getIpv6DnsHosts(ErrorHandler*, int count, char** buffers, int bufferSize) {
    getServers(this, true, count, buffers, bufferSize);
}

}  // namespace velmora
