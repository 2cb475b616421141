// Scripted stand-ins for the Windows network back ends: IP Helper records built in memory
// (the real record types, linked as the system links them), a WMI recorder and a command
// runner with a fixed output, and a handler that records every report.
#pragma once

#ifdef _WIN32

#include <velmora/log/ErrorHandler.h>

#include <deque>
#include <map>
#include <string>
#include <vector>

#include "tcpip/win32/IpHelperWin32.h"
#include "tcpip/win32/NetShUtilWin32.h"
#include "tcpip/win32/WMIUtilWin32.h"

namespace velmora {
namespace test {

class ScriptedIpHelper : public IpHelperWin32 {
public:
    ScriptedIpHelper();
    // An adapter addresses record in the longer form: Ethernet, up, with the given names and
    // interface indexes and a 6-byte hardware address ending in `macEnd`.
    IP_ADAPTER_ADDRESSES* addAdapter(const wchar_t* friendly, const char* guid, DWORD ifIndex,
                                     DWORD ipv6IfIndex, BYTE macEnd = 1);
    // An adapter information record: Ethernet, with a hardware address ending in `macEnd`.
    IP_ADAPTER_INFO* addInfo(const char* guid, DWORD index, BYTE macEnd = 0x81);
    // A socket address of an IPv4 or IPv6 literal, kept by the script.
    SOCKET_ADDRESS address(const char* text);
    void addUnicast(IP_ADAPTER_ADDRESSES* a, const char* text,
                    IP_DAD_STATE state = IpDadStatePreferred, DWORD flags = 0);
    void addDns(IP_ADAPTER_ADDRESSES* a, const char* text);
    void addGateway(IP_ADAPTER_ADDRESSES* a, const char* text);
    void addPrefix(IP_ADAPTER_ADDRESSES* a, const char* text, ULONG length);
    const wchar_t* wide(const wchar_t* text);

    bool changeDetected() override { return changed; }
    void refresh() override {
        ++refreshes;
        changed = false;
    }
    IP_ADAPTER_ADDRESSES* getAdapterAddresses() override;
    IP_ADAPTER_INFO* getAdapterInfo() override;
    IP_PER_ADAPTER_INFO* makePerAdapterInfo(unsigned long index) override;
    FIXED_INFO* getFixedInfo() override { return hasFixed ? &fixed : nullptr; }

    FIXED_INFO fixed;
    bool hasFixed = true;
    bool changed = false;
    int refreshes = 0;
    // DNS servers of the per-adapter information, by interface index.
    std::map<unsigned long, std::vector<std::string>> perAdapterDns;

private:
    std::deque<IP_ADAPTER_ADDRESSES> addresses_;
    std::deque<IP_ADAPTER_INFO> info_;
    std::deque<SOCKADDR_STORAGE> sockets_;
    std::deque<IP_ADAPTER_UNICAST_ADDRESS> unicast_;
    std::deque<IP_ADAPTER_DNS_SERVER_ADDRESS> dns_;
    std::deque<IP_ADAPTER_GATEWAY_ADDRESS_LH> gateways_;
    std::deque<IP_ADAPTER_PREFIX> prefixes_;
    std::deque<std::wstring> texts_;
};

// Records each WMI call as "Method mac args" and answers `result`.
class RecordingWmi : public WMIUtilWin32 {
public:
    int invokeEnableStaticOnMAC(const char* mac, const char* address, const char* mask) override;
    int invokeEnableDHCPOnMAC(const char* mac) override;
    int invokeSetGatewaysOnMAC(const char* mac, const char* gateway) override;
    int invokeSetDNSDomainOnMAC(const char* mac, const char* domain) override;
    int invokeSetDNSServerSearchOrderOnMAC(const char* mac, const char* list) override;

    std::vector<std::string> calls;
    int result = 0;
    // Answers for the search-order method, used before `result` while any are left.
    std::deque<int> searchOrderResults;
};

class ScriptedShell : public NetShUtilWin32 {
public:
    int executeCommand(const char* command) override {
        commands.push_back(command);
        return 0;
    }
    const char* getOutputBuffer() override { return output.c_str(); }
    std::vector<std::string> commands;
    std::string output;
};

// Every report as "module|key|text" (empty module and key for a text-only report), and
// each clearError as "clear".
class RecordingHandler : public ErrorHandler {
public:
    void error(MessageBundle* bundle) override;
    void clearError() override;
    std::vector<std::string> reports;
};

}  // namespace test
}  // namespace velmora

#endif
