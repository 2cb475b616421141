// The Windows adapter: every getter reads the IP Helper records again (the record type
// depends on the Windows version), every IPv4 setter runs a WMI method on the adapter
// selected by its hardware address, and IPv6 is shown but never changed.
#include <velmora/log/ErrorHandler.h>
#include <velmora/log/MessageBundle.h>
#include <velmora/net/InetAddress.h>
#include <velmora/tcpip/TcpIpAdapterSettings.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <string>
#include <vector>

#include "tcpip/Ipv6RouteTable.h"
#include "tcpip/win32/HostSystemWin32.h"
#include "tcpip/win32/IpHelperWin32.h"
#include "tcpip/win32/NetShUtilWin32.h"
#include "tcpip/win32/WMIUtilWin32.h"

namespace velmora {

namespace {

const int kIpv4Length = 16;  // sizeof(sockaddr_in)
const int kIpv6Length = 28;  // sizeof(sockaddr_in6)
const int kListSize = 1024;
// A record is in the longer form when it reaches at least the last field read from it.
const ULONG kVistaLength = offsetof(IP_ADAPTER_ADDRESSES, Dhcpv6Server) + sizeof(SOCKET_ADDRESS);

void clear(char* buffer, int size) {
    if (buffer != nullptr && size > 0) buffer[0] = '\0';
}

void copyOut(char* buffer, int size, const char* text) {
    if (buffer != nullptr && size > 0) std::snprintf(buffer, size, "%s", text);
}

void clearAll(int count, char** buffers, int size) {
    for (int i = 0; buffers != nullptr && i < count; ++i)
        clear(buffers[i], size);
}

// The text of an IPv4 or IPv6 socket address of the expected length.
bool addressText(const SOCKET_ADDRESS& a, int length, char* buffer, int size) {
    if (a.lpSockaddr == nullptr || a.iSockaddrLength != length) return false;
    char text[65];
    const char* done;
    if (length == kIpv4Length) {
        const auto* in = reinterpret_cast<const sockaddr_in*>(a.lpSockaddr);
        done = InetAddress::inet_ntop(InetAddress::getIpv4Family(), &in->sin_addr, text, 22);
    } else {
        const auto* in6 = reinterpret_cast<const sockaddr_in6*>(a.lpSockaddr);
        done = InetAddress::inet_ntop(InetAddress::getIpv6Family(), &in6->sin6_addr, text, 65);
    }
    if (done == nullptr) return false;
    copyOut(buffer, size, text);
    return true;
}

// The first address of a list of records (unicast, DNS, gateway) with the given length.
template <typename Record>
bool firstAddress(const Record* r, int length, char* buffer, int size) {
    for (; r != nullptr; r = r->Next) {
        if (addressText(r->Address, length, buffer, size)) return true;
    }
    return false;
}

template <typename Record>
int countAddresses(const Record* r, int length, int limit) {
    int n = 0;
    for (; r != nullptr && n < limit; r = r->Next) {
        if (r->Address.lpSockaddr != nullptr && r->Address.iSockaddrLength == length) ++n;
    }
    return n;
}

template <typename Record>
void fillAddresses(const Record* r, int length, int count, char** buffers, int size) {
    for (int n = 0; r != nullptr && n < count; r = r->Next) {
        if (addressText(r->Address, length, buffers[n], size)) ++n;
    }
}

void formatMac(const BYTE* address, char* buffer, int size) {
    if (buffer == nullptr || size <= 0) return;
    std::snprintf(buffer, size, "%02X:%02X:%02X:%02X:%02X:%02X", address[0], address[1], address[2],
                  address[3], address[4], address[5]);
}

void leaseText(time_t when, char* buffer, int size) {
    const char* text = std::ctime(&when);
    if (text != nullptr && buffer != nullptr && size > 0) std::snprintf(buffer, size, "%s", text);
}

// The cache, loaded again first when the system reported a change.
IpHelperWin32* freshCache() {
    IpHelperWin32* ip = IpHelperWin32::getInstance();
    if (ip != nullptr && ip->changeDetected()) ip->refresh();
    return ip;
}

// The addresses record of the adapter; XP and later only.
IP_ADAPTER_ADDRESSES* addressesOf(IpHelperWin32* ip, const char* id) {
    if (ip == nullptr || !HostSystemWin32::isWinXP()) return nullptr;
    return ip->findAddresses(id);
}

// The longer record of Vista and later.
IP_ADAPTER_ADDRESSES* vistaOf(IpHelperWin32* ip, const char* id) {
    if (!HostSystemWin32::isWinVista()) return nullptr;
    IP_ADAPTER_ADDRESSES* a = addressesOf(ip, id);
    return a != nullptr && a->Length >= kVistaLength ? a : nullptr;
}

// The information record: found by the id itself before XP, by the friendly name's record
// (and its adapter name) from XP on.
IP_ADAPTER_INFO* infoOf(IpHelperWin32* ip, const char* id) {
    if (ip == nullptr) return nullptr;
    if (!HostSystemWin32::isWinXP()) return ip->findInfo(id);
    IP_ADAPTER_ADDRESSES* a = ip->findAddresses(id);
    return a != nullptr ? ip->findInfo(a->AdapterName) : nullptr;
}

// The addresses record when it has an IPv6 interface on XP SP1 or later.
IP_ADAPTER_ADDRESSES* ipv6Of(IpHelperWin32* ip, const char* id) {
    if (!HostSystemWin32::isWinXPSP1()) return nullptr;
    IP_ADAPTER_ADDRESSES* a = addressesOf(ip, id);
    return a != nullptr && a->Ipv6IfIndex != 0 ? a : nullptr;
}

// The WMI key of the adapter: its information record's 6-byte hardware address.
bool wmiKey(const char* id, char* mac, int size) {
    IP_ADAPTER_INFO* info = infoOf(IpHelperWin32::getInstance(), id);
    if (info == nullptr || info->AddressLength != 6) return false;
    formatMac(info->Address, mac, size);
    return true;
}

// 0 when the WMI method succeeded (1 means it did, after a restart). Otherwise -1, with
// the failure reported: the COM or WMI status when the method could not be run (no
// rights, no such configuration, no WMI at all), or the method's own answer.
int wmiResult(ErrorHandler* err, WMIUtilWin32* wmi, const char* method, int returned) {
    if (returned == 0 || returned == 1) return 0;
    if (err == nullptr) return -1;
    char status[16], text[160];
    if (returned == -1) {
        const unsigned long hr =
            wmi != nullptr ? static_cast<unsigned long>(wmi->getLastStatus()) : 0;
        std::snprintf(status, sizeof status, "0x%08lX", hr);
        std::snprintf(text, sizeof text, "WMI could not run %s: status %s", method, status);
    } else {
        std::snprintf(status, sizeof status, "%d", returned);
        std::snprintf(text, sizeof text, "WMI %s failed with return value %s", method, status);
    }
    MessageBundle bundle("platform", "TcpIpAdapterSettings.wmiFailed", text);
    bundle.addLexiconArgument(method);
    bundle.addLexiconArgument(status);
    err->error(&bundle);
    return -1;
}

// The WMI access, or null with a report when there is none.
WMIUtilWin32* wmiOrReport(ErrorHandler* err) {
    WMIUtilWin32* wmi = WMIUtilWin32::getInstance();
    if (wmi == nullptr && err != nullptr) {
        MessageBundle bundle("platform", "TcpIpAdapterSettings.wmiUnavailable",
                             "WMI is not available: the adapter settings cannot be changed");
        err->error(&bundle);
    }
    return wmi;
}

void refuse(ErrorHandler* err, const char* key, const char* text) {
    if (err == nullptr) return;
    MessageBundle bundle("platform", key, text);
    err->error(&bundle);
}

// Entries joined with single spaces; an entry that would not fit is left out with all
// after it, so that no address is ever cut.
void joinEntries(const char* const* entries, int count, char* list, int size) {
    list[0] = '\0';
    int used = 0;
    for (int i = 0; entries != nullptr && i < count; ++i) {
        if (entries[i] == nullptr) continue;
        const int length = static_cast<int>(std::strlen(entries[i]));
        const int needed = length + (used > 0 ? 1 : 0);
        if (used + needed >= size) break;
        if (used > 0) list[used++] = ' ';
        std::memcpy(list + used, entries[i], static_cast<size_t>(length) + 1);
        used += length;
    }
}

// A separated list joined with single spaces by the same rule: an entry that does not fit
// ends the list instead of being cut.
void separatedToSpaces(const char* list, char separator, char* out, int size) {
    std::vector<std::string> parts(1);
    for (const char* p = list != nullptr ? list : ""; *p != '\0'; ++p) {
        if (*p == separator) {
            parts.emplace_back();
        } else {
            parts.back() += *p;
        }
    }
    std::vector<const char*> entries;
    for (const std::string& part : parts)
        entries.push_back(part.c_str());
    joinEntries(entries.data(), static_cast<int>(entries.size()), out, size);
}

}  // namespace

bool TcpIpAdapterSettings::isEnabled(ErrorHandler*) {
    IP_ADAPTER_ADDRESSES* a = addressesOf(IpHelperWin32::getInstance(), id_);
    // Before XP there is no operational state to read: such adapters count as disabled.
    return a != nullptr &&
           (a->OperStatus == IfOperStatusUp || a->OperStatus == IfOperStatusTesting);
}

bool TcpIpAdapterSettings::canDisable(ErrorHandler*) {
    return false;
}

void TcpIpAdapterSettings::getId(ErrorHandler*, char* buffer, int bufferSize) {
    copyOut(buffer, bufferSize, id_);
}

void TcpIpAdapterSettings::getDescription(ErrorHandler*, char* buffer, int bufferSize) {
    clear(buffer, bufferSize);
    IpHelperWin32* ip = freshCache();
    if (HostSystemWin32::isWinXP()) {
        IP_ADAPTER_ADDRESSES* a = addressesOf(ip, id_);
        if (a == nullptr) return;
        int error = 0;
        if (!IpHelperWin32::toMultiByte(a->Description, buffer, bufferSize, &error)) {
            std::fprintf(
                stderr,
                "WARNING: Can not convert adapter description (reason = %s), using default\n",
                std::strerror(error));
            copyOut(buffer, bufferSize, "TCP/IP Network Adapter");
        }
        return;
    }
    IP_ADAPTER_INFO* info = infoOf(ip, id_);
    if (info != nullptr) copyOut(buffer, bufferSize, info->Description);
}

void TcpIpAdapterSettings::getMACAddress(ErrorHandler*, char* buffer, int bufferSize) {
    clear(buffer, bufferSize);
    IpHelperWin32* ip = freshCache();
    const BYTE* address = nullptr;
    unsigned long length = 0;
    if (HostSystemWin32::isWinXP()) {
        IP_ADAPTER_ADDRESSES* a = addressesOf(ip, id_);
        if (a == nullptr) return;
        address = a->PhysicalAddress;
        length = a->PhysicalAddressLength;
    } else {
        IP_ADAPTER_INFO* info = infoOf(ip, id_);
        if (info == nullptr) return;
        address = info->Address;
        length = info->AddressLength;
    }
    if (length == 6) {
        formatMac(address, buffer, bufferSize);
    } else {
        copyOut(buffer, bufferSize, "Unavailable");
    }
}

bool TcpIpAdapterSettings::isDhcpEnabled(ErrorHandler*) {
    IpHelperWin32* ip = IpHelperWin32::getInstance();
    if (HostSystemWin32::isWinXP()) {
        IP_ADAPTER_ADDRESSES* a = addressesOf(ip, id_);
        return a != nullptr && (a->Flags & IP_ADAPTER_DHCP_ENABLED) != 0;
    }
    IP_ADAPTER_INFO* info = infoOf(ip, id_);
    return info != nullptr && info->DhcpEnabled != 0;
}

bool TcpIpAdapterSettings::canUseDhcp(ErrorHandler*) {
    return true;
}

void TcpIpAdapterSettings::getDefaultGateway(ErrorHandler*, char* buffer, int bufferSize) {
    clear(buffer, bufferSize);
    IpHelperWin32* ip = IpHelperWin32::getInstance();
    if (HostSystemWin32::isWinVista()) {
        IP_ADAPTER_ADDRESSES* a = vistaOf(ip, id_);
        if (a != nullptr) firstAddress(a->FirstGatewayAddress, kIpv4Length, buffer, bufferSize);
        return;
    }
    IP_ADAPTER_INFO* info = infoOf(ip, id_);
    if (info != nullptr) copyOut(buffer, bufferSize, info->GatewayList.IpAddress.String);
}

int TcpIpAdapterSettings::getDnsHostCount(ErrorHandler*) {
    IpHelperWin32* ip = IpHelperWin32::getInstance();
    if (HostSystemWin32::isWinXP()) {
        IP_ADAPTER_ADDRESSES* a = addressesOf(ip, id_);
        if (a == nullptr || a->IfIndex == 0) return 0;
        return countAddresses(a->FirstDnsServerAddress, kIpv4Length, 1 << 30);
    }
    IP_ADAPTER_INFO* info = infoOf(ip, id_);
    IP_PER_ADAPTER_INFO* per = info != nullptr ? ip->makePerAdapterInfo(info->Index) : nullptr;
    if (per == nullptr) return 0;
    int n = 0;
    for (IP_ADDR_STRING* s = &per->DnsServerList; s != nullptr; s = s->Next) {
        if (s->IpAddress.String[0] != '\0') ++n;
    }
    HeapFree(GetProcessHeap(), 0, per);
    return n;
}

int TcpIpAdapterSettings::getDnsHostLimit(ErrorHandler*) {
    return 2;
}

void TcpIpAdapterSettings::getDnsHosts(ErrorHandler*, int count, char** buffers, int bufferSize) {
    clearAll(count, buffers, bufferSize);
    if (buffers == nullptr || count <= 0) return;
    IpHelperWin32* ip = IpHelperWin32::getInstance();
    if (HostSystemWin32::isWinXP()) {
        IP_ADAPTER_ADDRESSES* a = addressesOf(ip, id_);
        if (a != nullptr && a->IfIndex != 0)
            fillAddresses(a->FirstDnsServerAddress, kIpv4Length, count, buffers, bufferSize);
        return;
    }
    IP_ADAPTER_INFO* info = infoOf(ip, id_);
    IP_PER_ADAPTER_INFO* per = info != nullptr ? ip->makePerAdapterInfo(info->Index) : nullptr;
    if (per == nullptr) return;
    int n = 0;
    for (IP_ADDR_STRING* s = &per->DnsServerList; s != nullptr && n < count; s = s->Next) {
        if (s->IpAddress.String[0] != '\0') copyOut(buffers[n++], bufferSize, s->IpAddress.String);
    }
    HeapFree(GetProcessHeap(), 0, per);
}

void TcpIpAdapterSettings::getDomain(ErrorHandler*, char* buffer, int bufferSize) {
    clear(buffer, bufferSize);
    IpHelperWin32* ip = IpHelperWin32::getInstance();
    if (ip == nullptr) return;
    if (HostSystemWin32::isWinXP()) {
        IP_ADAPTER_ADDRESSES* a = ip->findAddresses(id_);
        if (a == nullptr) return;
        int error = 0;
        if (IpHelperWin32::toMultiByte(a->DnsSuffix, buffer, bufferSize, &error)) return;
        std::fprintf(
            stderr,
            "WARNING: Can not convert adapter domain name (reason = %s), using host domain\n",
            std::strerror(error));
    }
    FIXED_INFO* fixed = ip->getFixedInfo();
    if (fixed != nullptr) copyOut(buffer, bufferSize, fixed->DomainName);
}

void TcpIpAdapterSettings::getIpAddress(ErrorHandler* err, char* buffer, int bufferSize) {
    clear(buffer, bufferSize);
    // Kept: before XP no adapter counts as enabled, so no address is shown there.
    if (!isEnabled(err)) return;
    IpHelperWin32* ip = IpHelperWin32::getInstance();
    if (HostSystemWin32::isWinXP()) {
        IP_ADAPTER_ADDRESSES* a = addressesOf(ip, id_);
        if (a != nullptr && a->IfIndex != 0)
            firstAddress(a->FirstUnicastAddress, kIpv4Length, buffer, bufferSize);
        return;
    }
    IP_ADAPTER_INFO* info = infoOf(ip, id_);
    if (info != nullptr) copyOut(buffer, bufferSize, info->IpAddressList.IpAddress.String);
}

void TcpIpAdapterSettings::getSubnetMask(ErrorHandler* err, char* buffer, int bufferSize) {
    clear(buffer, bufferSize);
    if (!isEnabled(err)) return;
    IP_ADAPTER_INFO* info = infoOf(IpHelperWin32::getInstance(), id_);
    if (info != nullptr) copyOut(buffer, bufferSize, info->IpAddressList.IpMask.String);
}

void TcpIpAdapterSettings::getDhcpHost(ErrorHandler* err, char* buffer, int bufferSize) {
    clear(buffer, bufferSize);
    if (!isEnabled(err)) return;
    IP_ADAPTER_INFO* info = infoOf(IpHelperWin32::getInstance(), id_);
    if (info != nullptr && info->DhcpEnabled != 0)
        copyOut(buffer, bufferSize, info->DhcpServer.IpAddress.String);
}

void TcpIpAdapterSettings::getDhcpLeaseGranted(ErrorHandler* err, char* buffer, int bufferSize) {
    clear(buffer, bufferSize);
    if (!isEnabled(err)) return;
    IP_ADAPTER_INFO* info = infoOf(IpHelperWin32::getInstance(), id_);
    if (info != nullptr && info->DhcpEnabled != 0)
        leaseText(info->LeaseObtained, buffer, bufferSize);
}

void TcpIpAdapterSettings::getDhcpLeaseExpires(ErrorHandler* err, char* buffer, int bufferSize) {
    clear(buffer, bufferSize);
    if (!isEnabled(err)) return;
    IP_ADAPTER_INFO* info = infoOf(IpHelperWin32::getInstance(), id_);
    if (info != nullptr && info->DhcpEnabled != 0)
        leaseText(info->LeaseExpires, buffer, bufferSize);
}

int TcpIpAdapterSettings::setIpAddress(ErrorHandler* err, const char*) {
    refuse(err, "TcpIpPlatform.setBothAddressAndSubnet",
           "IP Address and Subnet Mask must be set in the same call.");
    return -1;
}

int TcpIpAdapterSettings::setSubnetMask(ErrorHandler* err, const char*) {
    refuse(err, "TcpIpPlatform.setBothAddressAndSubnet",
           "IP Address and Subnet Mask must be set in the same call.");
    return -1;
}

int TcpIpAdapterSettings::setIpAddressSubnetMask(ErrorHandler* err, const char* address,
                                                 const char* mask) {
    char mac[32];
    if (!wmiKey(id_, mac, sizeof mac)) return -1;
    if (address == nullptr || *address == '\0' || mask == nullptr || *mask == '\0') return -1;
    WMIUtilWin32* wmi = wmiOrReport(err);
    return wmi != nullptr ? wmiResult(err, wmi, "EnableStatic",
                                      wmi->invokeEnableStaticOnMAC(mac, address, mask))
                          : -1;
}

int TcpIpAdapterSettings::setDefaultGateway(ErrorHandler* err, const char* gateway) {
    char mac[32];
    if (!wmiKey(id_, mac, sizeof mac)) return -1;
    if (gateway == nullptr || *gateway == '\0') return -1;
    WMIUtilWin32* wmi = wmiOrReport(err);
    return wmi != nullptr
               ? wmiResult(err, wmi, "SetGateways", wmi->invokeSetGatewaysOnMAC(mac, gateway))
               : -1;
}

int TcpIpAdapterSettings::setDnsHosts(ErrorHandler* err, const char* list) {
    char mac[32];
    if (!wmiKey(id_, mac, sizeof mac)) return -1;
    WMIUtilWin32* wmi = wmiOrReport(err);
    if (wmi == nullptr) return -1;
    if (list == nullptr) list = "";
    // A new order replaces the old one only after the old one is cleared.
    if (*list != '\0') wmi->invokeSetDNSServerSearchOrderOnMAC(mac, "");
    return wmiResult(err, wmi, "SetDNSServerSearchOrder",
                     wmi->invokeSetDNSServerSearchOrderOnMAC(mac, list));
}

int TcpIpAdapterSettings::setDnsHosts(ErrorHandler* err, const char* list, char separator) {
    char spaced[kListSize];
    separatedToSpaces(list, separator, spaced, sizeof spaced);
    return setDnsHosts(err, spaced);
}

int TcpIpAdapterSettings::setDnsHosts(ErrorHandler* err, const char* const* entries, int count) {
    char list[kListSize];
    joinEntries(entries, count, list, sizeof list);
    return setDnsHosts(err, list);
}

int TcpIpAdapterSettings::setDomain(ErrorHandler* err, const char* domain) {
    char mac[32];
    if (!wmiKey(id_, mac, sizeof mac)) return -1;
    WMIUtilWin32* wmi = wmiOrReport(err);
    return wmi != nullptr
               ? wmiResult(err, wmi, "SetDNSDomain",
                           wmi->invokeSetDNSDomainOnMAC(mac, domain != nullptr ? domain : ""))
               : -1;
}

int TcpIpAdapterSettings::setDhcpEnabled(ErrorHandler* err, bool on) {
    const bool current = isDhcpEnabled(err);
    // Deliberate: an unchanged state answers the state itself, 1 when DHCP is on.
    if (current == on) return current ? 1 : 0;
    // DHCP is left only by giving the adapter a static address.
    if (!on) return 0;
    char mac[32];
    if (!wmiKey(id_, mac, sizeof mac)) return -1;
    WMIUtilWin32* wmi = wmiOrReport(err);
    if (wmi == nullptr) return -1;
    if (wmiResult(err, wmi, "SetDNSServerSearchOrder",
                  wmi->invokeSetDNSServerSearchOrderOnMAC(mac, "")) != 0)
        return -1;
    return wmiResult(err, wmi, "EnableDHCP", wmi->invokeEnableDHCPOnMAC(mac));
}

int TcpIpAdapterSettings::setEnabled(ErrorHandler* err, bool on) {
    if (on == isEnabled(err)) return 0;
    refuse(err, "TcpIpAdapterSettings.readonly", "Property is read-only");
    return -1;
}

bool TcpIpAdapterSettings::isIpv6Supported(ErrorHandler*) {
    return HostSystemWin32::isWinXPSP1() != 0;
}

bool TcpIpAdapterSettings::canDisableIpv6(ErrorHandler*) {
    return false;
}

bool TcpIpAdapterSettings::isIpv6Enabled(ErrorHandler*) {
    IpHelperWin32* ip = IpHelperWin32::getInstance();
    if (HostSystemWin32::isWinVista()) {
        IP_ADAPTER_ADDRESSES* a = vistaOf(ip, id_);
        return a != nullptr && (a->Flags & IP_ADAPTER_IPV6_ENABLED) != 0;
    }
    return ipv6Of(ip, id_) != nullptr;
}

bool TcpIpAdapterSettings::isIpv6DhcpEnabled(ErrorHandler*) {
    if (HostSystemWin32::isWinVista()) {
        IP_ADAPTER_ADDRESSES* a = vistaOf(IpHelperWin32::getInstance(), id_);
        return a != nullptr && ((a->Flags & IP_ADAPTER_IPV6_MANAGE_ADDRESS_CONFIG) != 0 ||
                                a->Dhcpv6Server.iSockaddrLength != 0);
    }
    // Deliberate: XP with IPv6 has no way to tell, and answers true.
    return HostSystemWin32::isWinXPSP1() != 0;
}

bool TcpIpAdapterSettings::canUseIpv6Dhcp(ErrorHandler*) {
    return HostSystemWin32::isWinXPSP1() != 0;
}

void TcpIpAdapterSettings::getIpv6Address(ErrorHandler*, char* buffer, int bufferSize) {
    clear(buffer, bufferSize);
    IP_ADAPTER_ADDRESSES* a = ipv6Of(IpHelperWin32::getInstance(), id_);
    if (a == nullptr) return;
    // A preferred address the resolver may publish, else any preferred one, else one still
    // being checked for duplicates.
    IP_ADAPTER_UNICAST_ADDRESS* preferred = nullptr;
    IP_ADAPTER_UNICAST_ADDRESS* tentative = nullptr;
    for (IP_ADAPTER_UNICAST_ADDRESS* u = a->FirstUnicastAddress; u != nullptr; u = u->Next) {
        if (u->Address.lpSockaddr == nullptr || u->Address.iSockaddrLength != kIpv6Length) continue;
        if (u->DadState == IpDadStatePreferred) {
            if ((u->Flags & IP_ADAPTER_ADDRESS_DNS_ELIGIBLE) != 0) {
                preferred = u;
                break;
            }
            if (preferred == nullptr) preferred = u;
        } else if (u->DadState == IpDadStateTentative && tentative == nullptr) {
            tentative = u;
        }
    }
    IP_ADAPTER_UNICAST_ADDRESS* chosen = preferred != nullptr ? preferred : tentative;
    if (chosen != nullptr) addressText(chosen->Address, kIpv6Length, buffer, bufferSize);
}

int TcpIpAdapterSettings::getIpv6SubnetPrefixLength(ErrorHandler*) {
    IP_ADAPTER_ADDRESSES* a = ipv6Of(IpHelperWin32::getInstance(), id_);
    if (a == nullptr) return 0;
    IP_ADAPTER_PREFIX* linkLocal = nullptr;
    IP_ADAPTER_PREFIX* siteLocal = nullptr;
    IP_ADAPTER_PREFIX* uniqueLocal = nullptr;
    IP_ADAPTER_PREFIX* other = nullptr;
    for (IP_ADAPTER_PREFIX* p = a->FirstPrefix; p != nullptr; p = p->Next) {
        if (p->Address.lpSockaddr == nullptr || p->Address.iSockaddrLength != kIpv6Length) continue;
        const auto* in6 = reinterpret_cast<const sockaddr_in6*>(p->Address.lpSockaddr);
        const unsigned char b0 = in6->sin6_addr.s6_addr[0];
        const unsigned char b1 = in6->sin6_addr.s6_addr[1];
        const bool feOrFf = b0 == 0xFE || b0 == 0xFF;
        // A site-local prefix also carries bit 0x80 in its second byte: it is told apart
        // only once a link-local prefix has been kept, and counts as link-local before.
        if (feOrFf && (b1 & 0x80) != 0) {
            if (linkLocal == nullptr) {
                linkLocal = p;
            } else if (siteLocal == nullptr && (b1 & 0xC0) == 0xC0) {
                siteLocal = p;
            }
        } else if (b0 >= 0xFC) {
            if (uniqueLocal == nullptr) uniqueLocal = p;
        } else if (other == nullptr) {
            other = p;
        }
    }
    for (IP_ADAPTER_PREFIX* p : {other, uniqueLocal, siteLocal, linkLocal}) {
        if (p != nullptr) return static_cast<int>(p->PrefixLength);
    }
    return 0;
}

void TcpIpAdapterSettings::getIpv6DefaultGateway(ErrorHandler*, char* buffer, int bufferSize) {
    clear(buffer, bufferSize);
    IpHelperWin32* ip = IpHelperWin32::getInstance();
    if (HostSystemWin32::isWinVista()) {
        IP_ADAPTER_ADDRESSES* a = vistaOf(ip, id_);
        if (a != nullptr) firstAddress(a->FirstGatewayAddress, kIpv6Length, buffer, bufferSize);
        return;
    }
    // Before Vista the records carry no gateways: the IPv6 tool's route table has them.
    IP_ADAPTER_ADDRESSES* a = addressesOf(ip, id_);
    NetShUtilWin32* shell = NetShUtilWin32::getInstance();
    if (a == nullptr || shell == nullptr) return;
    shell->executeCommand("ipv6 rt");
    Ipv6RouteTable::findDefaultGateway(shell->getOutputBuffer(), a->Ipv6IfIndex, buffer,
                                       bufferSize);
}

void TcpIpAdapterSettings::getIpv6DefaultDevice(ErrorHandler*, char* buffer, int bufferSize) {
    clear(buffer, bufferSize);
}

int TcpIpAdapterSettings::setIpv6Address(ErrorHandler*, const char*) {
    return 0;
}

int TcpIpAdapterSettings::setIpv6SubnetPrefixLength(ErrorHandler*, int) {
    return 0;
}

int TcpIpAdapterSettings::setIpv6DefaultGateway(ErrorHandler*, const char*) {
    return 0;
}

int TcpIpAdapterSettings::setIpv6DefaultDevice(ErrorHandler*, const char*) {
    return -1;
}

int TcpIpAdapterSettings::setIpv6Enabled(ErrorHandler*, bool) {
    return 0;
}

int TcpIpAdapterSettings::setIpv6DnsHosts(ErrorHandler*, const char*) {
    return 0;
}

int TcpIpAdapterSettings::setIpv6DnsHosts(ErrorHandler* err, const char* list, char separator) {
    char spaced[kListSize];
    separatedToSpaces(list, separator, spaced, sizeof spaced);
    return setIpv6DnsHosts(err, spaced);
}

// Kept: this form hands the joined list to the IPv4 setter, replacing the IPv4 servers.
int TcpIpAdapterSettings::setIpv6DnsHosts(ErrorHandler* err, const char* const* entries,
                                          int count) {
    char list[kListSize];
    joinEntries(entries, count, list, sizeof list);
    return setDnsHosts(err, list);
}

void TcpIpAdapterSettings::getIpv6DnsHosts(ErrorHandler*, int count, char** buffers,
                                           int bufferSize) {
    clearAll(count, buffers, bufferSize);
    if (buffers == nullptr || count <= 0) return;
    IP_ADAPTER_ADDRESSES* a = ipv6Of(IpHelperWin32::getInstance(), id_);
    if (a != nullptr)
        fillAddresses(a->FirstDnsServerAddress, kIpv6Length, count, buffers, bufferSize);
}

int TcpIpAdapterSettings::getIpv6DnsHostCount(ErrorHandler* err) {
    IP_ADAPTER_ADDRESSES* a = ipv6Of(IpHelperWin32::getInstance(), id_);
    return a != nullptr
               ? countAddresses(a->FirstDnsServerAddress, kIpv6Length, getDnsHostLimit(err))
               : 0;
}

void TcpIpAdapterSettings::getIpv6DhcpHost(ErrorHandler*, char* buffer, int bufferSize) {
    clear(buffer, bufferSize);
    IP_ADAPTER_ADDRESSES* a = vistaOf(IpHelperWin32::getInstance(), id_);
    if (a != nullptr) addressText(a->Dhcpv6Server, kIpv6Length, buffer, bufferSize);
}

void TcpIpAdapterSettings::getIpv6DhcpLeaseGranted(ErrorHandler*, char* buffer, int bufferSize) {
    clear(buffer, bufferSize);
}

void TcpIpAdapterSettings::getIpv6DhcpLeaseExpires(ErrorHandler*, char* buffer, int bufferSize) {
    clear(buffer, bufferSize);
}

int TcpIpAdapterSettings::setIpv6DhcpEnabled(ErrorHandler*, bool) {
    return 0;
}

}  // namespace velmora
