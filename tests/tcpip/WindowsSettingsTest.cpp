// The Windows adapter and host settings over IP Helper records built in memory, a WMI
// recorder and a scripted command runner; the Windows version is chosen per case.
#ifdef _WIN32

#include <velmora/log/ErrorHandler.h>
#include <velmora/log/MessageBundle.h>
#include <velmora/net/InetAddress.h>
#include <velmora/tcpip/TcpIpAdapterSettings.h>
#include <velmora/tcpip/TcpIpHostSettings.h>
#include <velmora/tcpip/TcpIpSnapshot.h>
#include <velmora/text/StringReader.h>
#include <velmora/vre/Vre.h>
#include <velmora/vre/VreCore.h>
#include <velmora/xml/XElem.h>
#include <velmora/xml/XParser.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/TempDir.h"
#include "tcpip/win32/HostSystemWin32.h"
#include "tcpip/win32/IpHelperWin32.h"
#include "tcpip/win32/NetShUtilWin32.h"
#include "tcpip/win32/WMIUtilWin32.h"

using namespace velmora;
using Version = HostSystemWin32::Version;
using Strings = std::vector<std::string>;

namespace {

// The real record types, zeroed and linked as the system links them.
class ScriptedIpHelper : public IpHelperWin32 {
public:
    ScriptedIpHelper() {
        std::snprintf(fixed.HostName, sizeof fixed.HostName, "scripted-host");
        std::snprintf(fixed.DomainName, sizeof fixed.DomainName, "host.example");
    }
    // A longer (Vista) record: Ethernet, up, hardware address ending in `macEnd`.
    IP_ADAPTER_ADDRESSES* addAdapter(const wchar_t* friendly, const char* guid, DWORD ifIndex,
                                     DWORD ipv6IfIndex, BYTE macEnd = 1) {
        auto* a = append(addresses_, make<IP_ADAPTER_ADDRESSES>());
        a->Length = sizeof *a;
        a->IfIndex = ifIndex;
        a->Ipv6IfIndex = ipv6IfIndex;
        a->AdapterName = const_cast<char*>(guid);
        a->FriendlyName = wide(friendly);
        a->IfType = IF_TYPE_ETHERNET_CSMACD;
        a->OperStatus = IfOperStatusUp;
        a->PhysicalAddressLength = setMac(a->PhysicalAddress, macEnd);
        return a;
    }
    IP_ADAPTER_INFO* addInfo(const char* guid, DWORD index, BYTE macEnd = 0x81) {
        auto* i = append(info_, make<IP_ADAPTER_INFO>());
        std::snprintf(i->AdapterName, sizeof i->AdapterName, "%s", guid);
        i->Index = index;
        i->Type = MIB_IF_TYPE_ETHERNET;
        i->AddressLength = setMac(i->Address, macEnd);
        return i;
    }
    SOCKET_ADDRESS address(const char* text) {
        auto* s = make<SOCKADDR_STORAGE>();
        const bool v6 = std::strchr(text, ':') != nullptr;
        s->ss_family = v6 ? AF_INET6 : AF_INET;
        auto* in6 = reinterpret_cast<sockaddr_in6*>(s);
        auto* in = reinterpret_cast<sockaddr_in*>(s);
        InetAddress::inet_pton(s->ss_family, text,
                               v6 ? static_cast<void*>(&in6->sin6_addr) : &in->sin_addr);
        return SOCKET_ADDRESS{reinterpret_cast<sockaddr*>(s), v6 ? 28 : 16};
    }
    // A record with `text` as address at the end of a list (unicast, DNS, gateway, prefix).
    template <typename T>
    T* add(T*& list, const char* text) {
        T* r = append(list, make<T>());
        r->Address = address(text);
        return r;
    }
    void addUnicast(IP_ADAPTER_ADDRESSES* a, const char* text,
                    IP_DAD_STATE state = IpDadStatePreferred, DWORD flags = 0) {
        auto* u = add(a->FirstUnicastAddress, text);
        u->DadState = state;
        u->Flags = flags;
    }
    wchar_t* wide(const wchar_t* text) {
        texts_.emplace_back(text);
        return &texts_.back()[0];
    }

    bool changeDetected() override { return changed; }
    void refresh() override {
        ++refreshes;
        changed = false;
    }
    IP_ADAPTER_ADDRESSES* getAdapterAddresses() override { return addresses_; }
    IP_ADAPTER_INFO* getAdapterInfo() override { return info_; }
    FIXED_INFO* getFixedInfo() override { return hasFixed ? &fixed : nullptr; }
    // One process-heap block as the system makes it: the record, then the further entries.
    IP_PER_ADAPTER_INFO* makePerAdapterInfo(unsigned long index) override {
        auto found = perAdapterDns.find(index);
        if (found == perAdapterDns.end()) return nullptr;
        const Strings& servers = found->second;
        auto* per = static_cast<IP_PER_ADAPTER_INFO*>(
            HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY,
                      sizeof(IP_PER_ADAPTER_INFO) + servers.size() * sizeof(IP_ADDR_STRING)));
        auto* more = reinterpret_cast<IP_ADDR_STRING*>(per + 1);
        IP_ADDR_STRING* entry = &per->DnsServerList;
        for (size_t i = 0; i < servers.size(); ++i) {
            if (i > 0) entry = entry->Next = &more[i - 1];
            std::snprintf(entry->IpAddress.String, sizeof entry->IpAddress.String, "%s",
                          servers[i].c_str());
        }
        return per;
    }

    FIXED_INFO fixed{};
    bool hasFixed = true;
    bool changed = false;
    int refreshes = 0;
    std::map<unsigned long, Strings> perAdapterDns;  // by interface index

private:
    template <typename T>
    T* make() {
        blocks_.emplace_back(sizeof(T), 0);
        return reinterpret_cast<T*>(blocks_.back().data());
    }
    template <typename T>
    static T* append(T*& first, T* item) {
        T** link = &first;
        while (*link != nullptr)
            link = &(*link)->Next;
        return *link = item;
    }
    static DWORD setMac(BYTE* out, BYTE end) {
        const BYTE mac[6] = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, end};
        std::memcpy(out, mac, 6);
        return 6;
    }
    std::deque<std::vector<unsigned char>> blocks_;
    std::deque<std::wstring> texts_;
    IP_ADAPTER_ADDRESSES* addresses_ = nullptr;
    IP_ADAPTER_INFO* info_ = nullptr;
};

// Records each call as "Method mac arguments" and answers `result` (the search order
// first takes its own queued answers).
class RecordingWmi : public WMIUtilWin32 {
public:
    int invokeEnableStaticOnMAC(const char* mac, const char* address, const char* mask) override {
        return record("EnableStatic", mac, std::string(address) + " " + mask);
    }
    int invokeEnableDHCPOnMAC(const char* mac) override { return record("EnableDHCP", mac, ""); }
    int invokeSetGatewaysOnMAC(const char* mac, const char* gateway) override {
        return record("SetGateways", mac, gateway);
    }
    int invokeSetDNSDomainOnMAC(const char* mac, const char* domain) override {
        return record("SetDNSDomain", mac, "'" + std::string(domain) + "'");
    }
    int invokeSetDNSServerSearchOrderOnMAC(const char* mac, const char* list) override {
        int r = record("SetDNSServerSearchOrder", mac, "'" + std::string(list) + "'");
        if (searchOrderResults.empty()) return r;
        r = searchOrderResults.front();
        searchOrderResults.pop_front();
        return r;
    }
    Strings calls;
    int result = 0;
    std::deque<int> searchOrderResults;

private:
    int record(const char* method, const char* mac, const std::string& arguments) {
        calls.push_back(std::string(method) + " " + mac +
                        (arguments.empty() ? "" : " " + arguments));
        return result;
    }
};

class ScriptedShell : public NetShUtilWin32 {
public:
    int executeCommand(const char* command) override {
        commands.push_back(command);
        return 0;
    }
    const char* getOutputBuffer() override { return output.c_str(); }
    Strings commands;
    std::string output;
};

// Every report as "module|key|text", and each clearError as "clear".
class RecordingHandler : public ErrorHandler {
public:
    void error(MessageBundle* b) override {
        reports.push_back(std::string(b->getModule() ? b->getModule() : "") + "|" +
                          (b->getKey() ? b->getKey() : "") + "|" +
                          (b->getText() ? b->getText() : ""));
    }
    using ErrorHandler::error;
    void clearError() override { reports.push_back("clear"); }
    Strings reports;
};

class WindowsSettings : public ::testing::Test {
protected:
    void SetUp() override {
        IpHelperWin32::substitute(&ip);
        WMIUtilWin32::substitute(&wmi);
        NetShUtilWin32::substitute(&shell);
        HostSystemWin32::substituteVersion(HostSystemWin32::kWinVista);
    }
    void TearDown() override {
        TcpIpHostSettings::unload();
        IpHelperWin32::restore();
        WMIUtilWin32::restore();
        NetShUtilWin32::restore();
        HostSystemWin32::restore();
    }

    std::string text(void (TcpIpAdapterSettings::*get)(ErrorHandler*, char*, int),
                     TcpIpAdapterSettings& a) {
        char buffer[1024] = "stale";
        (a.*get)(&log, buffer, sizeof buffer);
        return buffer;
    }
    std::vector<std::string> ids() {
        int n = 0;
        TcpIpAdapterSettings** all =
            TcpIpHostSettings::getInstance(&log)->getAllAdapterSettings(&log, &n);
        std::vector<std::string> out;
        for (int i = 0; i < n; ++i)
            out.push_back(all[i]->id());
        return out;
    }

    ScriptedIpHelper ip;
    RecordingWmi wmi;
    ScriptedShell shell;
    RecordingHandler log;
};

// Only real, named adapters are listed, in the system's order, under their friendly names;
// before XP the Ethernet information records are listed under their adapter names.
TEST_F(WindowsSettings, HostListsShownAdaptersWithTheirIds) {
    ip.addAdapter(L"Loopback Pseudo-Interface 1", "{L}", 1, 1)->IfType = IF_TYPE_SOFTWARE_LOOPBACK;
    ip.addAdapter(L"Local Area Connection", "{A}", 2, 2);
    ip.addAdapter(L"Teredo", "{T}", 3, 3)->IfType = IF_TYPE_TUNNEL;
    ip.addAdapter(L"{D3C1-hidden}", "{H}", 4, 0);
    ip.addAdapter(L"", "{E}", 5, 0);
    ip.addAdapter(L"Unplugged", "{U}", 0, 0);
    // Not convertible in the C locale: the id, description and domain fall back.
    IP_ADAPTER_ADDRESSES* w = ip.addAdapter(L"Wireless \x4E2D", "{W}", 6, 0);
    w->Description = ip.wide(L"\x4E2D");
    w->DnsSuffix = ip.wide(L"\x4E2D.example");
    ip.addAdapter(L"IPv6 only", "{6}", 0, 7);
    testing::internal::CaptureStderr();
    EXPECT_EQ(ids(), (Strings{"Local Area Connection", "{W}", "IPv6 only"}));
    TcpIpAdapterSettings wireless("{W}");
    EXPECT_EQ(text(&TcpIpAdapterSettings::getDescription, wireless), "TCP/IP Network Adapter");
    EXPECT_EQ(text(&TcpIpAdapterSettings::getDomain, wireless), "host.example");
    const std::string warnings = testing::internal::GetCapturedStderr();
    for (const char* start : {"WARNING: Can not convert friendly adapter name (reason = ",
                              "WARNING: Can not convert adapter description (reason = ",
                              "WARNING: Can not convert adapter domain name (reason = "})
        EXPECT_NE(warnings.find(start), std::string::npos) << warnings;
    TcpIpHostSettings* host = TcpIpHostSettings::getInstance(&log);
    EXPECT_NE(host->getAdapterSettings(&log, "Local Area Connection"), nullptr);
    EXPECT_EQ(host->getAdapterSettings(&log, "local area connection"), nullptr);
    EXPECT_EQ(host->getAdapterSettings(&log, "Local Area"), nullptr);

    TcpIpHostSettings::unload();
    HostSystemWin32::substituteVersion(HostSystemWin32::kWin2000);
    ip.addInfo("{A}", 2);
    ip.addInfo("{W}", 6)->Type = IF_TYPE_IEEE80211;
    ip.addInfo("{B}", 8);
    EXPECT_EQ(ids(), (Strings{"{A}", "{B}"}));

    TcpIpHostSettings::unload();
    IpHelperWin32::substitute(nullptr);
    EXPECT_TRUE(ids().empty());
    EXPECT_EQ(log.reports, (Strings{"platform|TcpIpPlatform.allocationFailure|"
                                    "Could not determine network host settings"}));
}

// Each value comes from the record that the Windows version calls for: the two records of
// one adapter disagree on purpose.
TEST_F(WindowsSettings, DataSourcesFollowTheWindowsVersion) {
    IP_ADAPTER_ADDRESSES* a = ip.addAdapter(L"LAN", "{A}", 2, 9, 0x01);
    a->Description = ip.wide(L"Addresses description");
    a->DnsSuffix = ip.wide(L"adapter.example");
    a->Flags = IP_ADAPTER_DHCP_ENABLED;
    ip.addUnicast(a, "10.0.0.2");
    ip.add(a->FirstDnsServerAddress, "10.0.0.53");
    ip.add(a->FirstDnsServerAddress, "fd00::53");
    ip.add(a->FirstGatewayAddress, "fe80::1");
    ip.add(a->FirstGatewayAddress, "10.0.0.1");
    IP_ADAPTER_INFO* info = ip.addInfo("{A}", 2, 0x81);
    snprintf(info->Description, sizeof info->Description, "Information description");
    snprintf(info->GatewayList.IpAddress.String, 16, "10.0.0.254");
    snprintf(info->IpAddressList.IpAddress.String, 16, "10.0.0.99");
    snprintf(info->IpAddressList.IpMask.String, 16, "255.255.255.0");
    ip.perAdapterDns[2] = {"10.9.9.9", "10.8.8.8", "10.7.7.7"};
    struct Case {
        Version version;
        const char *id, *desc, *mac;
        bool dhcp;
        const char *gateway, *dns, *domain, *address;
    } cases[] = {
        {HostSystemWin32::kWin2000, "{A}", "Information description", "00:1A:2B:3C:4D:81", false,
         "10.0.0.254", "10.9.9.9 10.8.8.8", "host.example", ""},
        {HostSystemWin32::kWinXP, "LAN", "Addresses description", "00:1A:2B:3C:4D:01", true,
         "10.0.0.254", "10.0.0.53", "adapter.example", "10.0.0.2"},
        {HostSystemWin32::kWinVista, "LAN", "Addresses description", "00:1A:2B:3C:4D:01", true,
         "10.0.0.1", "10.0.0.53", "adapter.example", "10.0.0.2"},
    };
    for (const Case& c : cases) {
        HostSystemWin32::substituteVersion(c.version);
        TcpIpAdapterSettings adapter(c.id);
        SCOPED_TRACE(c.id);
        EXPECT_EQ(text(&TcpIpAdapterSettings::getDescription, adapter), c.desc);
        EXPECT_EQ(text(&TcpIpAdapterSettings::getMACAddress, adapter), c.mac);
        EXPECT_EQ(adapter.isDhcpEnabled(&log), c.dhcp);
        EXPECT_EQ(text(&TcpIpAdapterSettings::getDefaultGateway, adapter), c.gateway);
        char first[64], second[64];
        char* dns[] = {first, second};
        const int n = adapter.getDnsHostCount(&log) < 2 ? adapter.getDnsHostCount(&log) : 2;
        adapter.getDnsHosts(&log, n, dns, 64);
        std::string joined = n > 1 ? std::string(first) + " " + second : first;
        EXPECT_EQ(joined, c.dns);
        EXPECT_EQ(text(&TcpIpAdapterSettings::getDomain, adapter), c.domain);
        // Before XP no adapter counts as enabled, so its address stays hidden.
        EXPECT_EQ(text(&TcpIpAdapterSettings::getIpAddress, adapter), c.address);
        EXPECT_EQ(text(&TcpIpAdapterSettings::getSubnetMask, adapter),
                  *c.address ? "255.255.255.0" : "");
    }
    EXPECT_EQ(ip.refreshes, 0);
    ip.changed = true;
    TcpIpAdapterSettings lan("LAN");
    text(&TcpIpAdapterSettings::getMACAddress, lan);
    EXPECT_EQ(ip.refreshes, 1) << "a reported change loads the records again";
    EXPECT_TRUE(log.reports.empty()) << "getters never report";
}

// "Unavailable" for other address lengths, with every IPv4 setter refusing; a disabled
// adapter hides its IPv4 values; DHCP values come from the information record.
TEST_F(WindowsSettings, HardwareAddressStateAndDhcpValues) {
    IP_ADAPTER_ADDRESSES* a = ip.addAdapter(L"Dial-up", "{D}", 2, 0);
    a->PhysicalAddressLength = 8;
    ip.addUnicast(a, "10.0.0.2");
    ip.addInfo("{D}", 2)->AddressLength = 8;
    TcpIpAdapterSettings dialUp("Dial-up");
    EXPECT_EQ(text(&TcpIpAdapterSettings::getMACAddress, dialUp), "Unavailable");
    EXPECT_EQ(dialUp.setIpAddressSubnetMask(&log, "10.0.0.3", "255.0.0.0"), -1);
    EXPECT_EQ(dialUp.setDefaultGateway(&log, "10.0.0.1"), -1);
    EXPECT_EQ(dialUp.setDnsHosts(&log, "10.0.0.53"), -1);
    EXPECT_EQ(dialUp.setDomain(&log, "x.example"), -1);
    EXPECT_EQ(dialUp.setDhcpEnabled(&log, true), -1);
    EXPECT_TRUE(wmi.calls.empty());

    IP_ADAPTER_ADDRESSES* b = ip.addAdapter(L"LAN", "{B}", 3, 0);
    ip.addUnicast(b, "fe80::2");
    ip.addUnicast(b, "192.168.1.7");
    IP_ADAPTER_INFO* info = ip.addInfo("{B}", 3);
    info->DhcpEnabled = 1;
    snprintf(info->DhcpServer.IpAddress.String, 16, "192.168.1.1");
    snprintf(info->IpAddressList.IpMask.String, 16, "255.255.255.0");
    info->LeaseObtained = 1700000000;
    info->LeaseExpires = 1700086400;
    TcpIpAdapterSettings lan("LAN");
    const IF_OPER_STATUS states[] = {IfOperStatusUp, IfOperStatusTesting, IfOperStatusDown,
                                     IfOperStatusDormant};
    for (IF_OPER_STATUS state : states) {
        b->OperStatus = state;
        const bool enabled = state == IfOperStatusUp || state == IfOperStatusTesting;
        SCOPED_TRACE(state);
        EXPECT_EQ(lan.isEnabled(&log), enabled);
        EXPECT_EQ(text(&TcpIpAdapterSettings::getIpAddress, lan), enabled ? "192.168.1.7" : "");
        EXPECT_EQ(text(&TcpIpAdapterSettings::getDhcpHost, lan), enabled ? "192.168.1.1" : "");
        EXPECT_EQ(text(&TcpIpAdapterSettings::getDhcpLeaseExpires, lan),
                  enabled ? std::ctime(&info->LeaseExpires) : "");
    }
    b->OperStatus = IfOperStatusUp;
    EXPECT_EQ(text(&TcpIpAdapterSettings::getDhcpLeaseGranted, lan),
              std::ctime(&info->LeaseObtained));
    info->DhcpEnabled = 0;
    EXPECT_EQ(text(&TcpIpAdapterSettings::getDhcpHost, lan), "");
    b->IfIndex = 0;
    EXPECT_EQ(text(&TcpIpAdapterSettings::getIpAddress, lan), "") << "no IPv4 interface";
    TcpIpAdapterSettings gone("Gone");
    EXPECT_EQ(text(&TcpIpAdapterSettings::getMACAddress, gone), "");
    EXPECT_EQ(text(&TcpIpAdapterSettings::getDescription, gone), "");
}

// IPv6 address, prefix length, flags and DNS servers, per version.
TEST_F(WindowsSettings, Ipv6Choices) {
    IP_ADAPTER_ADDRESSES* a = ip.addAdapter(L"LAN", "{A}", 2, 5);
    ip.addUnicast(a, "10.0.0.2", IpDadStatePreferred, IP_ADAPTER_ADDRESS_DNS_ELIGIBLE);
    ip.addUnicast(a, "fe80::1", IpDadStateTentative);
    ip.addUnicast(a, "2001:db8::2", IpDadStateDeprecated, IP_ADAPTER_ADDRESS_DNS_ELIGIBLE);
    ip.addUnicast(a, "2001:db8::3", IpDadStatePreferred);
    ip.addUnicast(a, "2001:db8::4", IpDadStatePreferred, IP_ADAPTER_ADDRESS_DNS_ELIGIBLE);
    ip.addUnicast(a, "2001:db8::5", IpDadStatePreferred, IP_ADAPTER_ADDRESS_DNS_ELIGIBLE);
    for (const char* dns : {"fd00::1", "10.0.0.53", "fd00::2", "fd00::3"})
        ip.add(a->FirstDnsServerAddress, dns);
    TcpIpAdapterSettings lan("LAN");
    EXPECT_EQ(text(&TcpIpAdapterSettings::getIpv6Address, lan), "2001:db8::4");
    a->FirstUnicastAddress->Next->Next->Next->Next->Flags = 0;
    a->FirstUnicastAddress->Next->Next->Next->Next->Next->Flags = 0;
    EXPECT_EQ(text(&TcpIpAdapterSettings::getIpv6Address, lan), "2001:db8::3");
    a->FirstUnicastAddress->Next->Next = nullptr;
    EXPECT_EQ(text(&TcpIpAdapterSettings::getIpv6Address, lan), "fe80::1");
    EXPECT_EQ(lan.getIpv6DnsHostCount(&log), 2) << "capped at the limit of 2";
    char first[64], second[64];
    char* dns[] = {first, second};
    lan.getIpv6DnsHosts(&log, 2, dns, 64);
    EXPECT_STREQ(first, "fd00::1");
    EXPECT_STREQ(second, "fd00::2");

    struct Prefixes {
        std::vector<std::pair<const char*, ULONG>> list;
        int expected;
    } cases[] = {
        {{{"fe80::", 64}, {"fd00::", 48}, {"2001:db8::", 56}, {"2001:db8:1::", 60}}, 56},
        {{{"fe80::", 64}, {"fe80::1", 128}, {"fd00::", 48}, {"fc00::", 7}}, 48},
        {{{"fe80::", 64}, {"fe80::1", 128}}, 64},
        {{{"fe80::", 64}, {"fec0::", 10}}, 10},
        {{{"fec0::", 10}, {"fe80::", 64}}, 10},
        {{{"10.0.0.0", 8}}, 0},
    };
    for (const Prefixes& c : cases) {
        a->FirstPrefix = nullptr;
        for (const auto& p : c.list)
            ip.add(a->FirstPrefix, p.first)->PrefixLength = p.second;
        EXPECT_EQ(lan.getIpv6SubnetPrefixLength(&log), c.expected) << c.list[0].first;
    }

    a->Flags = IP_ADAPTER_IPV6_ENABLED;
    EXPECT_TRUE(lan.isIpv6Enabled(&log));
    EXPECT_FALSE(lan.isIpv6DhcpEnabled(&log));
    a->Dhcpv6Server = ip.address("fd00::547");
    EXPECT_TRUE(lan.isIpv6DhcpEnabled(&log));
    EXPECT_EQ(text(&TcpIpAdapterSettings::getIpv6DhcpHost, lan), "fd00::547");
    a->Length = offsetof(IP_ADAPTER_ADDRESSES, TransmitLinkSpeed);  // the XP form
    EXPECT_FALSE(lan.isIpv6Enabled(&log)) << "the short record has no Vista fields";

    HostSystemWin32::substituteVersion(HostSystemWin32::kWinXPSP1);
    a->Flags = 0;
    EXPECT_TRUE(lan.isIpv6Supported(&log));
    EXPECT_TRUE(lan.isIpv6Enabled(&log)) << "an IPv6 interface index is enough";
    EXPECT_TRUE(lan.isIpv6DhcpEnabled(&log)) << "always, on XP";
    EXPECT_EQ(text(&TcpIpAdapterSettings::getIpv6DhcpHost, lan), "");
    a->Ipv6IfIndex = 0;
    EXPECT_FALSE(lan.isIpv6Enabled(&log));
    EXPECT_EQ(text(&TcpIpAdapterSettings::getIpv6Address, lan), "");
    EXPECT_EQ(lan.getIpv6DnsHostCount(&log), 0);

    HostSystemWin32::substituteVersion(HostSystemWin32::kWinXP);
    a->Ipv6IfIndex = 5;
    EXPECT_FALSE(lan.isIpv6Supported(&log));
    EXPECT_FALSE(lan.isIpv6DhcpEnabled(&log));
    EXPECT_EQ(text(&TcpIpAdapterSettings::getIpv6Address, lan), "");
}

// Before Vista the IPv6 gateway is read from the route table of "ipv6 rt"; only the first
// four default routes are looked at, and the number may have two digits.
TEST_F(WindowsSettings, Ipv6GatewayFromTheRouteTableBeforeVista) {
    IP_ADAPTER_ADDRESSES* a = ip.addAdapter(L"LAN", "{A}", 2, 12);
    ip.add(a->FirstGatewayAddress, "fe80::77");
    TcpIpAdapterSettings lan("LAN");
    EXPECT_EQ(text(&TcpIpAdapterSettings::getIpv6DefaultGateway, lan), "fe80::77");
    EXPECT_TRUE(shell.commands.empty()) << "Vista has the gateway in the record";

    HostSystemWin32::substituteVersion(HostSystemWin32::kWinXPSP1);
    shell.output =
        "2001:db8::/64 -> 3 pref 8 life infinite\r\n"
        "::/0 -> 3/fe80::9 pref 1if+0=1 life infinite\r\n"
        "::/0 -> 12/fe80::12 pref 1if+0=1 life 2h\r\n"
        "::/0 -> 4/fe80::4 pref 1if+0=1 life infinite\r\n"
        "::/0 -> 2/fe80::2 pref 1if+0=1 life infinite\r\n"
        "::/0 -> 5/fe80::5 pref 1if+0=1 life infinite\r\n";
    EXPECT_EQ(text(&TcpIpAdapterSettings::getIpv6DefaultGateway, lan), "fe80::12");
    EXPECT_EQ(shell.commands, (Strings{"ipv6 rt"}));
    a->Ipv6IfIndex = 3;
    EXPECT_EQ(text(&TcpIpAdapterSettings::getIpv6DefaultGateway, lan), "fe80::9");
    a->Ipv6IfIndex = 2;
    EXPECT_EQ(text(&TcpIpAdapterSettings::getIpv6DefaultGateway, lan), "fe80::2");
    a->Ipv6IfIndex = 5;
    EXPECT_EQ(text(&TcpIpAdapterSettings::getIpv6DefaultGateway, lan), "") << "a fifth route";
    shell.output = "::/0 -> 5/fe80::5";
    EXPECT_EQ(text(&TcpIpAdapterSettings::getIpv6DefaultGateway, lan), "fe80::5");
}

// What each setter hands to WMI, keyed by the information record's hardware address.
TEST_F(WindowsSettings, SetterCallSequences) {
    ip.addAdapter(L"LAN", "{A}", 2, 0, 0x01);
    ip.addInfo("{A}", 2, 0x81);
    TcpIpAdapterSettings lan("LAN");
    const std::string mac = "00:1A:2B:3C:4D:81";
    auto calls = [&]() {
        Strings out = wmi.calls;
        wmi.calls.clear();
        return out;
    };
    EXPECT_EQ(lan.setDnsHosts(&log, ""), 0);
    EXPECT_EQ(calls(), (Strings{"SetDNSServerSearchOrder " + mac + " ''"}));
    EXPECT_EQ(lan.setDnsHosts(&log, "10.0.0.53,10.0.0.54", ','), 0);
    EXPECT_EQ(calls(), (Strings{"SetDNSServerSearchOrder " + mac + " ''",
                                "SetDNSServerSearchOrder " + mac + " '10.0.0.53 10.0.0.54'"}));
    std::string longEntry(1020, '1');
    const char* entries[] = {"10.0.0.53", longEntry.c_str(), "10.0.0.54"};
    lan.setDnsHosts(&log, entries, 3);
    EXPECT_EQ(calls().back(), "SetDNSServerSearchOrder " + mac + " '10.0.0.53'")
        << "an entry that does not fit ends the list";
    EXPECT_EQ(lan.setIpv6DnsHosts(&log, "fd00::1,fd00::2", ','), 0);
    EXPECT_TRUE(calls().empty());
    const char* ipv6[] = {"fd00::1", "fd00::2"};
    lan.setIpv6DnsHosts(&log, ipv6, 2);
    EXPECT_EQ(calls().back(), "SetDNSServerSearchOrder " + mac + " 'fd00::1 fd00::2'")
        << "kept: this form replaces the IPv4 servers";

    EXPECT_EQ(lan.setIpAddressSubnetMask(&log, "10.0.0.2", ""), -1);
    EXPECT_EQ(lan.setDefaultGateway(&log, ""), -1);
    EXPECT_TRUE(calls().empty());
    wmi.result = 1;  // done, after a restart
    EXPECT_EQ(lan.setIpAddressSubnetMask(&log, "10.0.0.2", "255.0.0.0"), 0);
    EXPECT_EQ(lan.setDefaultGateway(&log, "10.0.0.1"), 0);
    EXPECT_EQ(lan.setDomain(&log, ""), 0);
    EXPECT_EQ(calls(),
              (Strings{"EnableStatic " + mac + " 10.0.0.2 255.0.0.0",
                       "SetGateways " + mac + " 10.0.0.1", "SetDNSDomain " + mac + " ''"}));
    wmi.result = 66;
    EXPECT_EQ(lan.setDomain(&log, "x.example"), -1);
    WMIUtilWin32::substitute(nullptr);
    EXPECT_EQ(lan.setDomain(&log, "x.example"), -1) << "WMI unavailable";
    WMIUtilWin32::substitute(&wmi);
    calls();

    wmi.result = 0;
    EXPECT_EQ(lan.setDhcpEnabled(&log, false), 0);
    EXPECT_EQ(lan.setDhcpEnabled(&log, true), 0);
    EXPECT_EQ(calls(), (Strings{"SetDNSServerSearchOrder " + mac + " ''", "EnableDHCP " + mac}));
    wmi.searchOrderResults = {70};
    EXPECT_EQ(lan.setDhcpEnabled(&log, true), -1);
    EXPECT_EQ(calls(), (Strings{"SetDNSServerSearchOrder " + mac + " ''"}))
        << "no DHCP after a failed clear";
    ip.getAdapterAddresses()->Flags = IP_ADAPTER_DHCP_ENABLED;
    EXPECT_EQ(lan.setDhcpEnabled(&log, true), 1) << "deliberate: the unchanged state itself";
    EXPECT_EQ(lan.setDhcpEnabled(&log, false), 0) << "left only through a static address";
    EXPECT_TRUE(calls().empty());

    EXPECT_EQ(lan.setIpv6Address(&log, "fd00::9") + lan.setIpv6SubnetPrefixLength(&log, 64) +
                  lan.setIpv6DefaultGateway(&log, "fe80::1") + lan.setIpv6Enabled(&log, false) +
                  lan.setIpv6DhcpEnabled(&log, false) + lan.setIpv6DnsHosts(&log, "fd00::1"),
              0);
    EXPECT_EQ(lan.setIpv6DefaultDevice(&log, "eth0"), -1);
    EXPECT_TRUE(calls().empty());
    EXPECT_TRUE(log.reports.empty()) << "back-end failures are not reported";

    HostSystemWin32::substituteVersion(HostSystemWin32::kWin2000);
    TcpIpAdapterSettings byGuid("{A}");
    EXPECT_EQ(byGuid.setDomain(&log, "x"), 0);
    EXPECT_EQ(calls(), (Strings{"SetDNSDomain " + mac + " 'x'"}));
    EXPECT_EQ(lan.setDomain(&log, "x"), -1) << "before XP the id is the adapter name";
}

// Refusals name module "platform", their key and their English text.
TEST_F(WindowsSettings, RefusalsAreMessageBundles) {
    ip.addAdapter(L"LAN", "{A}", 2, 0);
    TcpIpAdapterSettings lan("LAN");
    const std::string both =
        "platform|TcpIpPlatform.setBothAddressAndSubnet|"
        "IP Address and Subnet Mask must be set in the same call.";
    EXPECT_EQ(lan.setIpAddress(&log, "10.0.0.2"), -1);
    EXPECT_EQ(lan.setSubnetMask(&log, "255.0.0.0"), -1);
    EXPECT_EQ(lan.setEnabled(&log, true), 0);
    EXPECT_EQ(lan.setEnabled(&log, false), -1);
    EXPECT_EQ(
        log.reports,
        (Strings{both, both, "platform|TcpIpAdapterSettings.readonly|Property is read-only"}));
    log.reports.clear();

    TcpIpHostSettings* host = TcpIpHostSettings::getInstance(&log);
    EXPECT_TRUE(host->usesAdapterLevelSettings(&log) && host->isIPv6Readonly(&log));
    EXPECT_FALSE(host->isReadonly(&log));
    char buffer[64] = "stale", entry[64] = "stale";
    char* entries[] = {entry};
    const char* list[] = {"10.0.0.53"};
    host->getDomain(&log, buffer, 64);
    host->getDefaultGateway(&log, buffer, 64);
    host->getIpv6DefaultGateway(&log, buffer, 64);
    host->getIpv6DefaultDevice(&log, buffer, 64);
    host->getDnsHosts(&log, 1, entries, 64);
    host->getIpv6DnsHosts(&log, 1, entries, 64);
    EXPECT_EQ(
        host->getDnsHostCount(&log) + host->getDnsHostLimit(&log) + host->getIpv6DnsHostCount(&log),
        0);
    const int results[] = {host->setDomain(&log, "x"),
                           host->setDefaultGateway(&log, "10.0.0.1"),
                           host->setDnsHosts(&log, "10.0.0.53"),
                           host->setDnsHosts(&log, "a,b", ','),
                           host->setDnsHosts(&log, list, 1),
                           host->setIpv6DefaultGateway(&log, "fe80::1"),
                           host->setIpv6DefaultDevice(&log, "x"),
                           host->setIpv6DnsHosts(&log, "fd00::1"),
                           host->setIpv6DnsHosts(&log, "a,b", ','),
                           host->setIpv6DnsHosts(&log, list, 1)};
    for (int r : results)
        EXPECT_EQ(r, -1);
    EXPECT_STREQ(buffer, "");
    EXPECT_STREQ(entry, "");
    EXPECT_EQ(log.reports, Strings(19,
                                   "platform|TcpIpHostSettings.adapterLevelSetting|"
                                   "Property is managed at the adapter level"));
}

const char kTestKey[] = "Software\\VelmoraTcpIpHostTest";

RegKey openTestRoot() {
    HKEY key = nullptr;
    RegOpenKeyExA(HKEY_CURRENT_USER, kTestKey, 0, KEY_ALL_ACCESS, &key);
    return key;
}

std::string testValue(const char* path, const char* name) {
    char data[64] = "";
    DWORD size = sizeof data;
    std::string full = std::string(kTestKey) + "\\" + path;
    RegGetValueA(HKEY_CURRENT_USER, full.c_str(), name, RRF_RT_REG_SZ, nullptr, data, &size);
    return data;
}

// The host name: 15 characters are written to the three values (under the test's own
// key), 16 are refused; it is read from IP Helper, else from the registry.
TEST_F(WindowsSettings, HostNameOfAtMostFifteenCharacters) {
    const char* tcpip = "SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters";
    const char* computer = "SYSTEM\\CurrentControlSet\\Control\\ComputerName\\ComputerName";
    for (const char* name : {"Hostname", "NV Hostname"})
        RegSetKeyValueA(HKEY_CURRENT_USER, (std::string(kTestKey) + "\\" + tcpip).c_str(), name,
                        REG_SZ, "old", 4);
    RegSetKeyValueA(HKEY_CURRENT_USER, (std::string(kTestKey) + "\\" + computer).c_str(),
                    "ComputerName", REG_SZ, "old", 4);
    HostSystemWin32::substituteMachineRoot(&openTestRoot);
    TcpIpHostSettings* host = TcpIpHostSettings::getInstance(&log);
    EXPECT_EQ(host->setHostName(&log, "sixteen-chars-16"), -1);
    EXPECT_EQ(log.reports, (Strings{"platform|TcpIpHostSettings.invalidHostName|"
                                    "Host name can not be longer than 15 characters"}));
    EXPECT_EQ(testValue(tcpip, "Hostname"), "old");
    EXPECT_EQ(host->setHostName(&log, "fifteen-chars15"), 0);
    EXPECT_EQ(testValue(tcpip, "Hostname"), "fifteen-chars15");
    EXPECT_EQ(testValue(tcpip, "NV Hostname"), "fifteen-chars15");
    EXPECT_EQ(testValue(computer, "ComputerName"), "fifteen-chars15");
    char name[64];
    host->getHostname(&log, name, sizeof name);
    EXPECT_STREQ(name, "scripted-host");
    ip.hasFixed = false;
    host->getHostname(&log, name, sizeof name);
    EXPECT_STREQ(name, "fifteen-chars15");
    RegDeleteTreeA(HKEY_CURRENT_USER, kTestKey);
    RegDeleteKeyA(HKEY_CURRENT_USER, kTestKey);
}

class HomeCore : public VreCore {
public:
    explicit HomeCore(std::string home) : home_(std::move(home)) {}
    const char* getKovaHome() override { return home_.c_str(); }

private:
    std::string home_;
};

// The platform's IPv6 flag lives in <home>/lib/system.properties.
TEST_F(WindowsSettings, Ipv6FlagInSystemProperties) {
    test::TempDir dir;
    VreCore* before = Vre::setInstance(new HomeCore(dir.path()));
    TcpIpHostSettings* host = TcpIpHostSettings::getInstance(&log);
    EXPECT_FALSE(host->getVelmoraUsesIpv6(&log)) << "no file yet";
    EXPECT_EQ(host->setVelmoraUsesIpv6(&log, true), 0);
    EXPECT_TRUE(host->getVelmoraUsesIpv6(&log));
    EXPECT_NE(test::readFile(dir.file("lib/system.properties")).find("velmora.ipv6Enabled=true"),
              std::string::npos);
    EXPECT_EQ(host->setVelmoraUsesIpv6(&log, false), 0);
    EXPECT_FALSE(host->getVelmoraUsesIpv6(&log));
    test::writeFile(dir.file("blocked"), "a file, not a folder");
    delete Vre::setInstance(new HomeCore(dir.file("blocked")));
    EXPECT_EQ(host->setVelmoraUsesIpv6(&log, true), -1);
    ASSERT_EQ(log.reports.size(), 1u);
    EXPECT_EQ(log.reports[0], "||TcpIpHostSettings::setVelmoraUsesIpv6 - unable to update " +
                                  dir.file("blocked") + "/lib/system.properties");
    delete Vre::setInstance(before);
}

// All or nothing on Windows: the capture is the document read before, so a document that
// fails part-way is followed by the WMI calls that apply the former values again; a saved
// capture does the same when loaded. The host name goes to the test's own registry key.
TEST_F(WindowsSettings, AFailedApplyAppliesTheFormerDocumentAgain) {
    IP_ADAPTER_ADDRESSES* a = ip.addAdapter(L"LAN", "{A}", 2, 0, 0x01);
    ip.addUnicast(a, "10.0.0.2");
    ip.add(a->FirstGatewayAddress, "10.0.0.1");
    ip.add(a->FirstDnsServerAddress, "10.0.0.53");
    IP_ADAPTER_INFO* info = ip.addInfo("{A}", 2, 0x81);
    snprintf(info->IpAddressList.IpMask.String, 16, "255.255.255.0");
    HKEY key = nullptr;
    RegCreateKeyA(HKEY_CURRENT_USER, kTestKey, &key);
    RegCloseKey(key);
    HostSystemWin32::substituteMachineRoot(&openTestRoot);
    TcpIpHostSettings* host = TcpIpHostSettings::getInstance(&log);
    const std::string mac = "00:1A:2B:3C:4D:81";
    const char* changed =
        "<tcpIpSettings><adapters><adapter id=\"LAN\" enabled=\"true\" ipAddress=\"10.0.0.7\" "
        "subnetMask=\"255.255.255.0\" defaultGateway=\"10.0.0.9\"/><adapter id=\"nope\"/>"
        "</adapters></tcpIpSettings>";
    StringReader in(changed, static_cast<int>(std::strlen(changed)));
    XParser parser(&in);
    std::unique_ptr<XElem> root(parser.parse(true));
    EXPECT_EQ(TcpIpSnapshot::applyAllOrNothing(host, root.get(), &log), -1);
    Strings applied = wmi.calls;
    ASSERT_GE(applied.size(), 3u);
    EXPECT_EQ(applied[0], "EnableStatic " + mac + " 10.0.0.7 255.255.255.0");
    EXPECT_EQ(applied[1], "SetGateways " + mac + " 10.0.0.9");
    EXPECT_NE(std::find(applied.begin() + 2, applied.end(),
                        "EnableStatic " + mac + " 10.0.0.2 255.255.255.0"),
              applied.end())
        << "the former address applied again";
    EXPECT_NE(std::find(applied.begin() + 2, applied.end(), "SetGateways " + mac + " 10.0.0.1"),
              applied.end());
    ASSERT_FALSE(log.reports.empty());
    EXPECT_EQ(log.reports.back(),
              "platform|TcpIpSnapshot.restored|The former network settings were restored");

    test::TempDir dir;
    std::unique_ptr<TcpIpSnapshot> taken(TcpIpSnapshot::take(host, &log));
    ASSERT_EQ(taken->save(dir.file("capture").c_str(), &log), 0);
    std::unique_ptr<TcpIpSnapshot> loaded(
        TcpIpSnapshot::load(host, dir.file("capture").c_str(), &log));
    ASSERT_NE(loaded, nullptr);
    wmi.calls.clear();
    loaded->restore(&log);
    EXPECT_NE(std::find(wmi.calls.begin(), wmi.calls.end(),
                        "EnableStatic " + mac + " 10.0.0.2 255.255.255.0"),
              wmi.calls.end());
    EXPECT_TRUE(loaded->matches(&log));
    RegDeleteTreeA(HKEY_CURRENT_USER, kTestKey);
    RegDeleteKeyA(HKEY_CURRENT_USER, kTestKey);
}

}  // namespace

#endif
