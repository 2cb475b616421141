// One link on Linux, found by its name on every call: state, hardware address and
// addresses from rtnetlink, the IPv6 switch from /proc/sys. LinuxNetwork.h says what is
// answered and why.
#include <velmora/tcpip/TcpIpAdapterSettings.h>

#include <velmora/log/MessageBundle.h>

#include "tcpip/ResolverText.h"
#include "tcpip/linux/LinuxNetwork.h"
#include "tcpip/linux/Netlink.h"

#include <linux/if_addr.h>
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

std::string ipv6Switch(const char* id) {
    return std::string("/proc/sys/net/ipv6/conf/") + id + "/disable_ipv6";
}

bool readIpv6Switch(const char* id, bool* disabled) {
    std::string text;
    int code = 0;
    if (std::strchr(id, '/') != nullptr || *id == '\0' || *id == '.') return false;
    if (!linuxnet::readText(ipv6Switch(id).c_str(), &text, &code)) return false;
    *disabled = !text.empty() && text[0] != '0';
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

// Deletes `remove` and adds `add`; when the add fails, what was removed is put back so
// that the link keeps its former address. 0 or errno.
int swapAddresses(const std::vector<netlink::Address>& remove, const netlink::Address* add) {
    int result = 0;
    for (const netlink::Address& a : remove) {
        result = netlink::deleteAddress(a);
        if (result == EADDRNOTAVAIL) result = 0;  // went with an earlier one
        if (result != 0) break;
    }
    if (result == 0 && add != nullptr) result = netlink::addAddress(*add);
    if (result != 0) {
        for (const netlink::Address& a : remove)
            netlink::addAddress(a);
    }
    return result;
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
    wanted.index = link.index;
    std::vector<netlink::Address> current;
    int code = netlink::dumpAddresses(AF_INET, link.index, &current);
    // Secondary addresses go with their primary: only primaries are deleted, and a link
    // whose one primary is already the wanted address keeps its secondaries too.
    std::vector<netlink::Address> primaries;
    for (const netlink::Address& a : current) {
        if ((a.flags & IFA_F_SECONDARY) == 0) primaries.push_back(a);
    }
    if (code == 0 && !remove && primaries.size() == 1 &&
        std::memcmp(primaries[0].bytes, wanted.bytes, 4) == 0 &&
        primaries[0].prefixLength == wanted.prefixLength) {
        return 0;
    }
    if (code == 0) code = swapAddresses(primaries, remove ? nullptr : &wanted);
    if (code != 0) {
        linuxnet::reportSystem(err, kKey, "Cannot set the address of " + std::string(id_), code);
        return -1;
    }
    linuxnet::restoreGateways(err);
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
    return readIpv6Switch(id_, &disabled);
}

bool TcpIpAdapterSettings::canDisableIpv6(ErrorHandler* err) {
    return isIpv6Supported(err);
}

bool TcpIpAdapterSettings::isIpv6Enabled(ErrorHandler*) {
    bool disabled = true;
    return readIpv6Switch(id_, &disabled) && !disabled;
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

// Replaces the link's static global IPv6 addresses by one, keeping the prefix length of
// the address it replaces (64 when there was none). An empty text removes them; an
// address the link already has changes nothing.
int TcpIpAdapterSettings::setIpv6Address(ErrorHandler* err, const char* address) {
    std::string text = address != nullptr ? address : "";
    netlink::Address wanted;
    wanted.family = AF_INET6;
    wanted.prefixLength = 64;
    if (!text.empty() && ResolverText::parseAddress(text.c_str(), wanted.bytes) != 6) {
        linuxnet::report(err, "TcpIpAdapterSettings.invalidAddress", text,
                         "Not an IPv6 address: " + text);
        return -1;
    }
    netlink::Link link;
    if (!linkOf(id_, &link, err)) return -1;
    wanted.index = link.index;
    std::vector<netlink::Address> statics;
    for (const netlink::Address& a : ipv6Globals(link.index)) {
        if (!text.empty() && std::memcmp(a.bytes, wanted.bytes, 16) == 0) return 0;
        if ((a.flags & IFA_F_PERMANENT) != 0) statics.push_back(a);
    }
    if (!statics.empty()) wanted.prefixLength = statics[0].prefixLength;
    int code = swapAddresses(statics, text.empty() ? nullptr : &wanted);
    if (code != 0) {
        linuxnet::reportSystem(err, kKey, "Cannot set the IPv6 address of " + std::string(id_),
                               code);
        return -1;
    }
    linuxnet::restoreGateways(err);
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
    netlink::Address wanted = globals[0];
    wanted.prefixLength = length;
    int code = swapAddresses({globals[0]}, &wanted);
    if (code != 0) {
        linuxnet::reportSystem(err, kKey,
                               "Cannot set the IPv6 prefix length of " + std::string(id_), code);
        return -1;
    }
    linuxnet::restoreGateways(err);
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
    if (!readIpv6Switch(id_, &disabled)) {
        if (!on) return 0;
        linuxnet::report(err, "TcpIpAdapterSettings.noIpv6", id_,
                         std::string("IPv6 is not available on ") + id_);
        return -1;
    }
    if (disabled != on) return 0;
    std::string path = ipv6Switch(id_);
    FILE* f = std::fopen(path.c_str(), "w");
    int code = f == nullptr ? errno : 0;
    if (f != nullptr) {
        if (std::fputs(on ? "0\n" : "1\n", f) < 0) code = errno;
        if (std::fclose(f) != 0 && code == 0) code = errno;
    }
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
