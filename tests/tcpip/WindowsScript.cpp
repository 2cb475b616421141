// The scripted back ends of the Windows settings tests.
#ifdef _WIN32

#include "WindowsScript.h"

#include <velmora/log/MessageBundle.h>
#include <velmora/net/InetAddress.h>

#include <cstdio>
#include <cstring>

namespace velmora {
namespace test {

namespace {

template <typename T>
T* zeroed(std::deque<T>& store) {
    store.emplace_back();
    std::memset(&store.back(), 0, sizeof(T));
    return &store.back();
}

// Appends `item` at the end of the list that starts at `first`.
template <typename T>
void append(T*& first, T* item) {
    T** link = &first;
    while (*link != nullptr)
        link = &(*link)->Next;
    *link = item;
}

std::string orEmpty(const char* text) {
    return text != nullptr ? text : "(null)";
}

}  // namespace

ScriptedIpHelper::ScriptedIpHelper() {
    std::memset(&fixed, 0, sizeof fixed);
    std::snprintf(fixed.HostName, sizeof fixed.HostName, "%s", "scripted-host");
    std::snprintf(fixed.DomainName, sizeof fixed.DomainName, "%s", "host.example");
}

IP_ADAPTER_ADDRESSES* ScriptedIpHelper::addAdapter(const wchar_t* friendly, const char* guid,
                                                   DWORD ifIndex, DWORD ipv6IfIndex, BYTE macEnd) {
    IP_ADAPTER_ADDRESSES* a = zeroed(addresses_);
    a->Length = sizeof(IP_ADAPTER_ADDRESSES);
    a->IfIndex = ifIndex;
    a->Ipv6IfIndex = ipv6IfIndex;
    a->AdapterName = const_cast<char*>(guid);  // the script's names are literals
    a->FriendlyName = const_cast<wchar_t*>(wide(friendly));
    a->IfType = IF_TYPE_ETHERNET_CSMACD;
    a->OperStatus = IfOperStatusUp;
    const BYTE mac[6] = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, macEnd};
    std::memcpy(a->PhysicalAddress, mac, 6);
    a->PhysicalAddressLength = 6;
    if (addresses_.size() > 1) addresses_[addresses_.size() - 2].Next = a;
    return a;
}

IP_ADAPTER_INFO* ScriptedIpHelper::addInfo(const char* guid, DWORD index, BYTE macEnd) {
    IP_ADAPTER_INFO* i = zeroed(info_);
    std::snprintf(i->AdapterName, sizeof i->AdapterName, "%s", guid);
    i->Index = index;
    i->Type = MIB_IF_TYPE_ETHERNET;
    const BYTE mac[6] = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, macEnd};
    std::memcpy(i->Address, mac, 6);
    i->AddressLength = 6;
    if (info_.size() > 1) info_[info_.size() - 2].Next = i;
    return i;
}

SOCKET_ADDRESS ScriptedIpHelper::address(const char* text) {
    SOCKADDR_STORAGE* s = zeroed(sockets_);
    SOCKET_ADDRESS a;
    a.lpSockaddr = reinterpret_cast<sockaddr*>(s);
    if (std::strchr(text, ':') != nullptr) {
        auto* in6 = reinterpret_cast<sockaddr_in6*>(s);
        in6->sin6_family = AF_INET6;
        InetAddress::inet_pton(AF_INET6, text, &in6->sin6_addr);
        a.iSockaddrLength = sizeof(sockaddr_in6);
    } else {
        auto* in = reinterpret_cast<sockaddr_in*>(s);
        in->sin_family = AF_INET;
        InetAddress::inet_pton(AF_INET, text, &in->sin_addr);
        a.iSockaddrLength = sizeof(sockaddr_in);
    }
    return a;
}

void ScriptedIpHelper::addUnicast(IP_ADAPTER_ADDRESSES* a, const char* text, IP_DAD_STATE state,
                                  DWORD flags) {
    IP_ADAPTER_UNICAST_ADDRESS* u = zeroed(unicast_);
    u->Length = sizeof *u;
    u->Flags = flags;
    u->Address = address(text);
    u->DadState = state;
    append(a->FirstUnicastAddress, u);
}

void ScriptedIpHelper::addDns(IP_ADAPTER_ADDRESSES* a, const char* text) {
    IP_ADAPTER_DNS_SERVER_ADDRESS* d = zeroed(dns_);
    d->Address = address(text);
    append(a->FirstDnsServerAddress, d);
}

void ScriptedIpHelper::addGateway(IP_ADAPTER_ADDRESSES* a, const char* text) {
    IP_ADAPTER_GATEWAY_ADDRESS_LH* g = zeroed(gateways_);
    g->Address = address(text);
    append(a->FirstGatewayAddress, g);
}

void ScriptedIpHelper::addPrefix(IP_ADAPTER_ADDRESSES* a, const char* text, ULONG length) {
    IP_ADAPTER_PREFIX* p = zeroed(prefixes_);
    p->Address = address(text);
    p->PrefixLength = length;
    append(a->FirstPrefix, p);
}

const wchar_t* ScriptedIpHelper::wide(const wchar_t* text) {
    texts_.emplace_back(text);
    return texts_.back().c_str();
}

IP_ADAPTER_ADDRESSES* ScriptedIpHelper::getAdapterAddresses() {
    return addresses_.empty() ? nullptr : &addresses_.front();
}

IP_ADAPTER_INFO* ScriptedIpHelper::getAdapterInfo() {
    return info_.empty() ? nullptr : &info_.front();
}

// One process-heap block, laid out as the system lays it out: the record, then the further
// list entries that its DNS list points to.
IP_PER_ADAPTER_INFO* ScriptedIpHelper::makePerAdapterInfo(unsigned long index) {
    auto found = perAdapterDns.find(index);
    if (found == perAdapterDns.end()) return nullptr;
    const std::vector<std::string>& servers = found->second;
    const size_t extra = servers.size() > 1 ? servers.size() - 1 : 0;
    void* block = HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY,
                            sizeof(IP_PER_ADAPTER_INFO) + extra * sizeof(IP_ADDR_STRING));
    auto* per = static_cast<IP_PER_ADAPTER_INFO*>(block);
    auto* more = reinterpret_cast<IP_ADDR_STRING*>(per + 1);
    IP_ADDR_STRING* entry = &per->DnsServerList;
    for (size_t i = 0; i < servers.size(); ++i) {
        if (i > 0) {
            entry->Next = &more[i - 1];
            entry = entry->Next;
        }
        std::snprintf(entry->IpAddress.String, sizeof entry->IpAddress.String, "%s",
                      servers[i].c_str());
    }
    return per;
}

int RecordingWmi::invokeEnableStaticOnMAC(const char* mac, const char* address, const char* mask) {
    calls.push_back("EnableStatic " + orEmpty(mac) + " " + orEmpty(address) + " " + orEmpty(mask));
    return result;
}

int RecordingWmi::invokeEnableDHCPOnMAC(const char* mac) {
    calls.push_back("EnableDHCP " + orEmpty(mac));
    return result;
}

int RecordingWmi::invokeSetGatewaysOnMAC(const char* mac, const char* gateway) {
    calls.push_back("SetGateways " + orEmpty(mac) + " " + orEmpty(gateway));
    return result;
}

int RecordingWmi::invokeSetDNSDomainOnMAC(const char* mac, const char* domain) {
    calls.push_back("SetDNSDomain " + orEmpty(mac) + " '" + orEmpty(domain) + "'");
    return result;
}

int RecordingWmi::invokeSetDNSServerSearchOrderOnMAC(const char* mac, const char* list) {
    calls.push_back("SetDNSServerSearchOrder " + orEmpty(mac) + " '" + orEmpty(list) + "'");
    if (searchOrderResults.empty()) return result;
    int r = searchOrderResults.front();
    searchOrderResults.pop_front();
    return r;
}

void RecordingHandler::error(MessageBundle* bundle) {
    reports.push_back(std::string(bundle->getModule() ? bundle->getModule() : "") + "|" +
                      (bundle->getKey() ? bundle->getKey() : "") + "|" +
                      (bundle->getText() ? bundle->getText() : ""));
}

void RecordingHandler::clearError() {
    reports.push_back("clear");
}

}  // namespace test
}  // namespace velmora

#endif
