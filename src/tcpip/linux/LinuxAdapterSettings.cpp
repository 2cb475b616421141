// One link on Linux, found by its name on every call: state, hardware address and
// addresses from rtnetlink, the IPv6 switch from /proc/sys. LinuxNetwork.h says what is
// answered and why.
#include <velmora/tcpip/TcpIpAdapterSettings.h>

#include <velmora/log/MessageBundle.h>

#include "tcpip/ResolverText.h"
#include "tcpip/linux/KernelRecords.h"
#include "tcpip/linux/LinuxNetwork.h"
#include "tcpip/linux/Netlink.h"
#include "tcpip/linux/RtMessage.h"

#include <linux/if_addr.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace velmora {

namespace {

const char kKey[] = "TcpIpAdapterSettings.systemError";

void copyOut(char* buffer, int bufferSize, const std::string& text) {
    if (buffer == nullptr || bufferSize <= 0) return;
    std::snprintf(buffer, static_cast<size_t>(bufferSize), "%s", text.c_str());
}

void clearOut(char* buffer, int bufferSize) {
    if (buffer != nullptr && bufferSize > 0) buffer[0] = '\0';
}

void clearEntries(int count, char** buffers, int bufferSize) {
    for (int i = 0; buffers != nullptr && i < count; ++i)
        clearOut(buffers[i], bufferSize);
}

int refuseHostLevel(ErrorHandler* err) {
    if (err != nullptr) {
        MessageBundle bundle("platform", "TcpIpAdapterSettings.hostLevelSetting",
                             "Property is managed at the host level");
        err->error(&bundle);
    }
    return -1;
}

int refuseReadonly(ErrorHandler* err) {
    if (err != nullptr) {
        MessageBundle bundle("platform", "TcpIpAdapterSettings.readonly", "Property is read-only");
        err->error(&bundle);
    }
    return -1;
}

// The link, reported as unknown when a setter needs it and it is gone.
bool linkOf(const char* id, netlink::Link* link, ErrorHandler* reportTo) {
    if (netlink::findLink(id, link) == 0) return true;
    linuxnet::report(reportTo, "TcpIpAdapterSettings.unknownAdapter", id,
                     std::string("No network adapter named ") + id);
    return false;
}

// The primary IPv4 address: the first that is not secondary.
bool ipv4Address(const char* id, netlink::Address* out) {
    netlink::Link link;
    std::vector<netlink::Address> all;
    if (netlink::findLink(id, &link) != 0 || netlink::dumpAddresses(AF_INET, link.index, &all) != 0)
        return false;
    for (const netlink::Address& a : all) {
        if ((a.flags & IFA_F_SECONDARY) == 0) {
            *out = a;
            return true;
        }
    }
    return false;
}

// The global IPv6 addresses, static ones first.
std::vector<netlink::Address> ipv6Globals(int index) {
    std::vector<netlink::Address> all, out;
    if (netlink::dumpAddresses(AF_INET6, index, &all) != 0) return out;
    for (bool permanent : {true, false}) {
        for (const netlink::Address& a : all) {
            if (a.scope == RT_SCOPE_UNIVERSE && ((a.flags & IFA_F_PERMANENT) != 0) == permanent)
                out.push_back(a);
        }
    }
    return out;
}

bool ipv6Address(const char* id, netlink::Address* out) {
    netlink::Link link;
    if (netlink::findLink(id, &link) != 0) return false;
    std::vector<netlink::Address> globals = ipv6Globals(link.index);
    if (globals.empty()) return false;
    *out = globals[0];
    return true;
}

std::string maskText(int prefix) {
    unsigned char bytes[4];
    for (int i = 0; i < 4; ++i) {
        int bits = prefix - 8 * i;
        bytes[i] = bits >= 8   ? 0xFF
                   : bits <= 0 ? 0
                               : static_cast<unsigned char>(0xFF << (8 - bits));
    }
    return linuxnet::addressText(AF_INET, bytes);
}

std::string driverOf(const char* id) {
    char target[PATH_MAX];
    std::string link = std::string("/sys/class/net/") + id + "/device/driver";
    ssize_t n = ::readlink(link.c_str(), target, sizeof target - 1);
    if (n <= 0) return "";
    target[n] = '\0';
    const char* slash = std::strrchr(target, '/');
    return slash != nullptr ? slash + 1 : target;
}

// The record of `family` address `bytes`/`prefix` on `index`, made from `model` (the
// record it replaces: label, flags and lifetimes stay) or from nothing.
std::string addressRecord(const std::string& model, int family, int index,
                          const unsigned char* bytes, int prefix) {
    size_t size = family == AF_INET ? 4 : 16;
    if (model.empty()) {
        // What the kernel needs for a new permanent address; it fills in the rest.
        std::string m(NLMSG_SPACE(sizeof(ifaddrmsg)), '\0');
        nlmsghdr h{};
        h.nlmsg_type = RTM_NEWADDR;
        h.nlmsg_len = static_cast<unsigned>(m.size());
        ifaddrmsg a{};
        a.ifa_family = static_cast<unsigned char>(family);
        a.ifa_index = static_cast<unsigned>(index);
        std::memcpy(&m[0], &h, sizeof h);
        std::memcpy(&m[NLMSG_HDRLEN], &a, sizeof a);
        RtMessage r(m);
        // Every attribute the kernel will list for the address, so that the record made
        // here and the one listed compare equal.
        unsigned flags = IFA_F_PERMANENT;
        r.set(IFA_ADDRESS, bytes, size);
        r.set(IFA_FLAGS, &flags, 4);
        char name[IF_NAMESIZE] = "";
        if (family == AF_INET) {
            unsigned char none[4] = {};
            r.set(IFA_LOCAL, bytes, size);
            r.set(IFA_BROADCAST, none, 4);  // computed below, as `ip addr add ... brd +` does
            if (if_indextoname(static_cast<unsigned>(index), name) != nullptr)
                r.set(IFA_LABEL, name, std::strlen(name) + 1);
        }
        return addressRecord(r.bytes(), family, index, bytes, prefix);
    }
    RtMessage r(model);
    r.setPrefixLength(prefix);
    // IPv4 names the address as IFA_LOCAL (IFA_ADDRESS being the peer, the same on a
    // broadcast link); IPv6 lists only IFA_ADDRESS unless there is a peer.
    r.set(IFA_ADDRESS, bytes, size);
    if (family == AF_INET) r.set(IFA_LOCAL, bytes, size);
    bool hasBroadcast = r.get(IFA_BROADCAST, nullptr);
    if (family == AF_INET && hasBroadcast && prefix < 31) {
        // The broadcast address that `ip addr add ... brd +` would set.
        unsigned char broadcast[4];
        for (int i = 0; i < 4; ++i) {
            int bits = prefix - 8 * i;
            unsigned char mask = bits >= 8 ? 0xFF : bits <= 0 ? 0 : (0xFF << (8 - bits)) & 0xFF;
            broadcast[i] = static_cast<unsigned char>(bytes[i] | ~mask);
        }
        r.set(IFA_BROADCAST, broadcast, 4);
    } else {
        r.erase(IFA_BROADCAST);
    }
    return r.bytes();
}

bool sameAddress(const std::string& record, const unsigned char* bytes, size_t size) {
    std::string v;
    RtMessage r(record);
    return (r.get(IFA_LOCAL, &v) || r.get(IFA_ADDRESS, &v)) && v.size() >= size &&
           std::memcmp(v.data(), bytes, size) == 0;
}

// The record of the address `bytes` on link `index`, or empty.
std::string recordOf(int family, int index, const unsigned char* bytes) {
    std::vector<std::string> all;
    if (linuxnet::dumpRecords(false, family, &all) != 0) return "";
    for (const std::string& m : linuxnet::onLink(all, index)) {
        if (sameAddress(m, bytes, family == AF_INET ? 4 : 16)) return m;
    }
    return "";
}

// Replaces the address record `old` of link `index` by `replacement` (empty: removes it)
// and keeps every other address of the link in its place and every route the change took
// with it. The number of failures, each reported.
int replaceAddress(int family, int index, const std::string& old, const std::string& replacement,
                   ErrorHandler* err) {
    std::vector<std::string> all, routes, wanted;
    int code = linuxnet::dumpRecords(false, family, &all);
    if (code == 0) code = linuxnet::dumpRecords(true, family, &routes);
    if (code != 0) {
        linuxnet::reportSystem(err, kKey, "Cannot read the addresses", code);
        return 1;
    }
    size_t size = family == AF_INET ? 4 : 16;
    std::string newBytes;
    if (!replacement.empty() && !RtMessage(replacement).get(IFA_LOCAL, &newBytes))
        RtMessage(replacement).get(IFA_ADDRESS, &newBytes);
    bool placed = false;
    for (const std::string& m : linuxnet::onLink(all, index)) {
        bool isOld = !old.empty() && RtMessage(m).key() == RtMessage(old).key();
        if (isOld || (old.empty() && !placed && family == AF_INET)) {
            if (!replacement.empty()) wanted.push_back(replacement);
            placed = true;
            if (isOld) continue;
        }
        // The new address may be one the link has already (a secondary becoming primary).
        if (newBytes.size() >= size &&
            sameAddress(m, reinterpret_cast<const unsigned char*>(newBytes.data()), size))
            continue;
        wanted.push_back(m);
    }
    if (!placed && !replacement.empty()) wanted.push_back(replacement);
    int failed = linuxnet::setLinkAddresses(family, index, wanted, err);
    if (failed != 0) {
        // A refused address (the kernel's own checks) leaves the link as it was.
        linuxnet::setLinkAddresses(family, index, linuxnet::onLink(all, index), nullptr);
        linuxnet::keepRoutes(family, routes, nullptr);
        return failed;
    }
    linuxnet::restoreGateways(err);
    return failed + linuxnet::keepRoutes(family, routes, err);
}

}  // namespace

bool TcpIpAdapterSettings::isEnabled(ErrorHandler*) {
    netlink::Link link;
    return netlink::findLink(id_, &link) == 0 && (link.flags & IFF_UP) != 0;
}

bool TcpIpAdapterSettings::canDisable(ErrorHandler*) {
    return true;
}

void TcpIpAdapterSettings::getId(ErrorHandler*, char* buffer, int bufferSize) {
    copyOut(buffer, bufferSize, id_);
}

// The link kind where the kernel names one (veth, bridge...), else the driver, else the
// kind of hardware.
void TcpIpAdapterSettings::getDescription(ErrorHandler*, char* buffer, int bufferSize) {
    clearOut(buffer, bufferSize);
    netlink::Link link;
    if (netlink::findLink(id_, &link) != 0) return;
    std::string text = link.kind;
    if (text.empty()) text = driverOf(id_);
    if (text.empty()) text = link.hardwareType == ARPHRD_ETHER ? "Ethernet" : "Network interface";
    copyOut(buffer, bufferSize, text);
}

void TcpIpAdapterSettings::getMACAddress(ErrorHandler*, char* buffer, int bufferSize) {
    clearOut(buffer, bufferSize);
    netlink::Link link;
    if (netlink::findLink(id_, &link) != 0) return;
    if (link.hardwareLength != 6) {
        copyOut(buffer, bufferSize, "Unavailable");
        return;
    }
    char text[18];
    const unsigned char* h = link.hardware;
    std::snprintf(text, sizeof text, "%02X:%02X:%02X:%02X:%02X:%02X", h[0], h[1], h[2], h[3], h[4],
                  h[5]);
    copyOut(buffer, bufferSize, text);
}

bool TcpIpAdapterSettings::isDhcpEnabled(ErrorHandler*) {
    netlink::Address a;
    return ipv4Address(id_, &a) && (a.flags & IFA_F_PERMANENT) == 0;
}

bool TcpIpAdapterSettings::canUseDhcp(ErrorHandler*) {
    return false;
}

// The default route through this link, if any (the host's gateway is the one applied).
void TcpIpAdapterSettings::getDefaultGateway(ErrorHandler*, char* buffer, int bufferSize) {
    clearOut(buffer, bufferSize);
    netlink::Link link;
    std::vector<netlink::Route> routes;
    if (netlink::findLink(id_, &link) != 0 || netlink::dumpDefaultRoutes(AF_INET, &routes) != 0)
        return;
    for (const netlink::Route& r : routes) {
        if (r.hasGateway && r.outIndex == link.index) {
            copyOut(buffer, bufferSize, linuxnet::addressText(AF_INET, r.gateway));
            return;
        }
    }
}

int TcpIpAdapterSettings::getDnsHostCount(ErrorHandler*) {
    return 0;
}

int TcpIpAdapterSettings::getDnsHostLimit(ErrorHandler*) {
    return 3;
}

void TcpIpAdapterSettings::getDnsHosts(ErrorHandler*, int count, char** buffers, int bufferSize) {
    clearEntries(count, buffers, bufferSize);
}

void TcpIpAdapterSettings::getDomain(ErrorHandler*, char* buffer, int bufferSize) {
    clearOut(buffer, bufferSize);
}

void TcpIpAdapterSettings::getIpAddress(ErrorHandler*, char* buffer, int bufferSize) {
    clearOut(buffer, bufferSize);
    netlink::Address a;
    if (ipv4Address(id_, &a)) copyOut(buffer, bufferSize, linuxnet::addressText(AF_INET, a.bytes));
}

void TcpIpAdapterSettings::getSubnetMask(ErrorHandler*, char* buffer, int bufferSize) {
    clearOut(buffer, bufferSize);
    netlink::Address a;
    if (ipv4Address(id_, &a)) copyOut(buffer, bufferSize, maskText(a.prefixLength));
}

// No DHCP client of ours keeps lease records.
void TcpIpAdapterSettings::getDhcpHost(ErrorHandler*, char* buffer, int bufferSize) {
    clearOut(buffer, bufferSize);
}

void TcpIpAdapterSettings::getDhcpLeaseGranted(ErrorHandler*, char* buffer, int bufferSize) {
    clearOut(buffer, bufferSize);
}

void TcpIpAdapterSettings::getDhcpLeaseExpires(ErrorHandler*, char* buffer, int bufferSize) {
    clearOut(buffer, bufferSize);
}

int TcpIpAdapterSettings::setIpAddress(ErrorHandler* err, const char*) {
    if (err != nullptr) {
        MessageBundle bundle("platform", "TcpIpPlatform.setBothAddressAndSubnet",
                             "IP Address and Subnet Mask must be set in the same call.");
        err->error(&bundle);
    }
    return -1;
}

int TcpIpAdapterSettings::setSubnetMask(ErrorHandler* err, const char* mask) {
    return setIpAddress(err, mask);
}

// Replaces the link's IPv4 addresses by one. Both texts empty removes them. Everything is
// checked before anything changes, and a refused address puts the former ones back.
int TcpIpAdapterSettings::setIpAddressSubnetMask(ErrorHandler* err, const char* address,
                                                 const char* mask) {
    std::string addressText = address != nullptr ? address : "";
    std::string maskString = mask != nullptr ? mask : "";
    netlink::Address wanted;
    wanted.family = AF_INET;
    bool remove = addressText.empty() && maskString.empty();
    if (!remove) {
        if (ResolverText::parseAddress(addressText.c_str(), wanted.bytes) != 4) {
            linuxnet::report(err, "TcpIpAdapterSettings.invalidAddress", addressText,
                             "Not an IPv4 address: " + addressText);
            return -1;
        }
        wanted.prefixLength = ResolverText::maskPrefix(maskString.c_str());
        if (wanted.prefixLength < 0) {
            linuxnet::report(err, "TcpIpAdapterSettings.invalidMask", maskString,
                             "Not a subnet mask: " + maskString);
            return -1;
        }
    }
    netlink::Link link;
    if (!linkOf(id_, &link, err)) return -1;
    std::vector<std::string> all;
    int code = linuxnet::dumpRecords(false, AF_INET, &all);
    if (code != 0) {
        linuxnet::reportSystem(err, kKey, "Cannot set the address of " + std::string(id_), code);
        return -1;
    }
    std::vector<std::string> records = linuxnet::onLink(all, link.index);
    // The address shown is the first primary; only it is replaced.
    std::string shown;
    for (const std::string& m : records) {
        std::string flags;
        RtMessage r(m);
        unsigned f = 0;
        if (r.get(IFA_FLAGS, &flags) && flags.size() >= 4) std::memcpy(&f, flags.data(), 4);
        if ((f & IFA_F_SECONDARY) == 0) {
            shown = m;
            break;
        }
    }
    int failed = 0;
    if (remove) {
        if (records.empty()) return 0;
        std::vector<std::string> routes;
        linuxnet::dumpRecords(true, AF_INET, &routes);
        failed = linuxnet::setLinkAddresses(AF_INET, link.index, {}, err);
        failed += linuxnet::keepRoutes(AF_INET, routes, err);
    } else {
        if (!shown.empty() && sameAddress(shown, wanted.bytes, 4) &&
            RtMessage(shown).prefixLength() == wanted.prefixLength) {
            return 0;
        }
        failed = replaceAddress(
            AF_INET, link.index, shown,
            addressRecord(shown, AF_INET, link.index, wanted.bytes, wanted.prefixLength), err);
    }
    if (failed != 0) {
        linuxnet::report(err, kKey, id_, "Cannot set the address of " + std::string(id_));
        return -1;
    }
    return 0;
}

int TcpIpAdapterSettings::setDefaultGateway(ErrorHandler* err, const char*) {
    return refuseHostLevel(err);
}

int TcpIpAdapterSettings::setDnsHosts(ErrorHandler* err, const char*) {
    return refuseHostLevel(err);
}

int TcpIpAdapterSettings::setDnsHosts(ErrorHandler* err, const char*, char) {
    return refuseHostLevel(err);
}

int TcpIpAdapterSettings::setDnsHosts(ErrorHandler* err, const char* const*, int) {
    return refuseHostLevel(err);
}

int TcpIpAdapterSettings::setDomain(ErrorHandler* err, const char*) {
    return refuseHostLevel(err);
}

int TcpIpAdapterSettings::setDhcpEnabled(ErrorHandler* err, bool on) {
    return on == isDhcpEnabled(err) ? 0 : refuseReadonly(err);
}

int TcpIpAdapterSettings::setEnabled(ErrorHandler* err, bool on) {
    netlink::Link link;
    if (!linkOf(id_, &link, err)) return -1;
    if (((link.flags & IFF_UP) != 0) == on) return 0;
    int code = netlink::setLinkUp(link.index, on);
    if (code != 0) {
        linuxnet::reportSystem(err, kKey, std::string("Cannot set ") + id_ + (on ? " up" : " down"),
                               code);
        return -1;
    }
    // Routes through a link go when it goes down; bring back a remembered gateway.
    if (on) linuxnet::restoreGateways(err);
    return 0;
}

bool TcpIpAdapterSettings::isIpv6Supported(ErrorHandler*) {
    bool disabled = false;
    return linuxnet::readIpv6Switch(id_, &disabled);
}

bool TcpIpAdapterSettings::canDisableIpv6(ErrorHandler* err) {
    return isIpv6Supported(err);
}

bool TcpIpAdapterSettings::isIpv6Enabled(ErrorHandler*) {
    bool disabled = true;
    return linuxnet::readIpv6Switch(id_, &disabled) && !disabled;
}

bool TcpIpAdapterSettings::isIpv6DhcpEnabled(ErrorHandler*) {
    netlink::Address a;
    return ipv6Address(id_, &a) && (a.flags & IFA_F_PERMANENT) == 0;
}

bool TcpIpAdapterSettings::canUseIpv6Dhcp(ErrorHandler*) {
    return false;
}

void TcpIpAdapterSettings::getIpv6Address(ErrorHandler*, char* buffer, int bufferSize) {
    clearOut(buffer, bufferSize);
    netlink::Address a;
    if (ipv6Address(id_, &a)) copyOut(buffer, bufferSize, linuxnet::addressText(AF_INET6, a.bytes));
}

int TcpIpAdapterSettings::getIpv6SubnetPrefixLength(ErrorHandler*) {
    netlink::Address a;
    return ipv6Address(id_, &a) ? a.prefixLength : 0;
}

void TcpIpAdapterSettings::getIpv6DefaultGateway(ErrorHandler*, char* buffer, int bufferSize) {
    clearOut(buffer, bufferSize);
    netlink::Link link;
    std::vector<netlink::Route> routes;
    if (netlink::findLink(id_, &link) != 0 || netlink::dumpDefaultRoutes(AF_INET6, &routes) != 0)
        return;
    for (const netlink::Route& r : routes) {
        if (r.hasGateway && r.outIndex == link.index) {
            copyOut(buffer, bufferSize, linuxnet::addressText(AF_INET6, r.gateway));
            return;
        }
    }
}

void TcpIpAdapterSettings::getIpv6DefaultDevice(ErrorHandler*, char* buffer, int bufferSize) {
    clearOut(buffer, bufferSize);
}

// Replaces the link's first static global IPv6 address (the one shown) by `address`,
// keeping its prefix length (64 when there was none) and the link's other addresses. An
// empty text removes the static global addresses; an address the link already has
// changes nothing.
int TcpIpAdapterSettings::setIpv6Address(ErrorHandler* err, const char* address) {
    std::string text = address != nullptr ? address : "";
    unsigned char bytes[16] = {};
    if (!text.empty() && ResolverText::parseAddress(text.c_str(), bytes) != 6) {
        linuxnet::report(err, "TcpIpAdapterSettings.invalidAddress", text,
                         "Not an IPv6 address: " + text);
        return -1;
    }
    netlink::Link link;
    if (!linkOf(id_, &link, err)) return -1;
    std::vector<netlink::Address> statics;
    for (const netlink::Address& a : ipv6Globals(link.index)) {
        if (!text.empty() && std::memcmp(a.bytes, bytes, 16) == 0) return 0;
        if ((a.flags & IFA_F_PERMANENT) != 0) statics.push_back(a);
    }
    int failed = 0;
    if (text.empty()) {
        if (statics.empty()) return 0;
        std::vector<std::string> all, routes, wanted;
        linuxnet::dumpRecords(false, AF_INET6, &all);
        linuxnet::dumpRecords(true, AF_INET6, &routes);
        for (const std::string& m : linuxnet::onLink(all, link.index)) {
            bool isStatic = false;
            for (const netlink::Address& a : statics)
                isStatic = isStatic || sameAddress(m, a.bytes, 16);
            if (!isStatic) wanted.push_back(m);
        }
        failed = linuxnet::setLinkAddresses(AF_INET6, link.index, wanted, err);
        failed += linuxnet::keepRoutes(AF_INET6, routes, err);
    } else {
        std::string old = statics.empty() ? "" : recordOf(AF_INET6, link.index, statics[0].bytes);
        int prefix = statics.empty() ? 64 : statics[0].prefixLength;
        failed = replaceAddress(AF_INET6, link.index, old,
                                addressRecord(old, AF_INET6, link.index, bytes, prefix), err);
    }
    if (failed != 0) {
        linuxnet::report(err, kKey, id_, "Cannot set the IPv6 address of " + std::string(id_));
        return -1;
    }
    return 0;
}

int TcpIpAdapterSettings::setIpv6SubnetPrefixLength(ErrorHandler* err, int length) {
    if (length < 0 || length > 128) {
        linuxnet::report(err, "TcpIpAdapterSettings.invalidPrefixLength", std::to_string(length),
                         "IPv6 prefix length must be 0 to 128: " + std::to_string(length));
        return -1;
    }
    netlink::Link link;
    if (!linkOf(id_, &link, err)) return -1;
    std::vector<netlink::Address> globals = ipv6Globals(link.index);
    if (globals.empty() || (globals[0].flags & IFA_F_PERMANENT) == 0 ||
        globals[0].prefixLength == length) {
        return 0;  // nothing of ours to change
    }
    std::string old = recordOf(AF_INET6, link.index, globals[0].bytes);
    if (replaceAddress(AF_INET6, link.index, old,
                       addressRecord(old, AF_INET6, link.index, globals[0].bytes, length),
                       err) != 0) {
        linuxnet::report(err, kKey, id_,
                         "Cannot set the IPv6 prefix length of " + std::string(id_));
        return -1;
    }
    return 0;
}

int TcpIpAdapterSettings::setIpv6DefaultGateway(ErrorHandler* err, const char*) {
    return refuseHostLevel(err);
}

int TcpIpAdapterSettings::setIpv6DefaultDevice(ErrorHandler* err, const char*) {
    return refuseHostLevel(err);
}

int TcpIpAdapterSettings::setIpv6Enabled(ErrorHandler* err, bool on) {
    bool disabled = true;
    if (!linuxnet::readIpv6Switch(id_, &disabled)) {
        if (!on) return 0;
        linuxnet::report(err, "TcpIpAdapterSettings.noIpv6", id_,
                         std::string("IPv6 is not available on ") + id_);
        return -1;
    }
    if (disabled != on) return 0;
    int code = linuxnet::writeIpv6Switch(id_, !on);
    if (code != 0) {
        linuxnet::reportSystem(
            err, kKey, std::string("Cannot switch IPv6 ") + (on ? "on" : "off") + " on " + id_,
            code);
        return -1;
    }
    return 0;
}

int TcpIpAdapterSettings::setIpv6DnsHosts(ErrorHandler* err, const char*) {
    return refuseHostLevel(err);
}

int TcpIpAdapterSettings::setIpv6DnsHosts(ErrorHandler* err, const char*, char) {
    return refuseHostLevel(err);
}

int TcpIpAdapterSettings::setIpv6DnsHosts(ErrorHandler* err, const char* const*, int) {
    return refuseHostLevel(err);
}

void TcpIpAdapterSettings::getIpv6DnsHosts(ErrorHandler*, int count, char** buffers,
                                           int bufferSize) {
    clearEntries(count, buffers, bufferSize);
}

int TcpIpAdapterSettings::getIpv6DnsHostCount(ErrorHandler*) {
    return 0;
}

void TcpIpAdapterSettings::getIpv6DhcpHost(ErrorHandler*, char* buffer, int bufferSize) {
    clearOut(buffer, bufferSize);
}

void TcpIpAdapterSettings::getIpv6DhcpLeaseGranted(ErrorHandler*, char* buffer, int bufferSize) {
    clearOut(buffer, bufferSize);
}

void TcpIpAdapterSettings::getIpv6DhcpLeaseExpires(ErrorHandler*, char* buffer, int bufferSize) {
    clearOut(buffer, bufferSize);
}

int TcpIpAdapterSettings::setIpv6DhcpEnabled(ErrorHandler* err, bool on) {
    return on == isIpv6DhcpEnabled(err) ? 0 : refuseReadonly(err);
}

}  // namespace velmora
