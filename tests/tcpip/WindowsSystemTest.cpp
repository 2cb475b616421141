// The real back ends, under Wine or Windows: the host lists what GetAdaptersAddresses
// reports, with the same addresses; commands run with their output kept; WMI calls fail
// cleanly where the class has no methods (Wine).
#ifdef _WIN32

#include <velmora/log/NullLog.h>
#include <velmora/tcpip/TcpIpAdapterSettings.h>
#include <velmora/tcpip/TcpIpHostSettings.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tcpip/win32/HostSystemWin32.h"
#include "tcpip/win32/IpHelperWin32.h"
#include "tcpip/win32/NetShUtilWin32.h"
#include "tcpip/win32/WMIUtilWin32.h"

using namespace velmora;

namespace {

bool underWine() {
    HMODULE ntdll = GetModuleHandleA("ntdll.dll");
    return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

struct Expected {
    std::string id, mac, ipv4;
};

std::string macText(const BYTE* p, unsigned long length) {
    char mac[32] = "Unavailable";
    if (length == 6)
        snprintf(mac, sizeof mac, "%02X:%02X:%02X:%02X:%02X:%02X", p[0], p[1], p[2], p[3], p[4],
                 p[5]);
    return mac;
}

// The adapters as the system reports them, read here without the library's cache.
std::vector<Expected> systemAdapters() {
    ULONG size = 64 * 1024;
    std::vector<unsigned char> buffer(size);
    auto* first = reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer.data());
    EXPECT_EQ(GetAdaptersAddresses(AF_UNSPEC, GAA_FLAG_INCLUDE_PREFIX, nullptr, first, &size), 0u);
    std::vector<Expected> out;
    for (IP_ADAPTER_ADDRESSES* a = first; a != nullptr; a = a->Next) {
        if ((a->IfIndex == 0 && a->Ipv6IfIndex == 0) || a->IfType == IF_TYPE_SOFTWARE_LOOPBACK ||
            a->IfType == IF_TYPE_TUNNEL || a->FriendlyName == nullptr ||
            a->FriendlyName[0] == L'\0' || a->FriendlyName[0] == L'{')
            continue;
        char name[256];
        IpHelperWin32::adapterId(a, name, sizeof name, nullptr);
        Expected e{name, macText(a->PhysicalAddress, a->PhysicalAddressLength), ""};
        for (IP_ADAPTER_UNICAST_ADDRESS* u = a->FirstUnicastAddress; u != nullptr && e.ipv4.empty();
             u = u->Next) {
            char text[64];
            DWORD length = sizeof text;
            if (u->Address.iSockaddrLength == sizeof(sockaddr_in) && a->IfIndex != 0 &&
                (a->OperStatus == IfOperStatusUp || a->OperStatus == IfOperStatusTesting) &&
                WSAAddressToStringA(u->Address.lpSockaddr, u->Address.iSockaddrLength, nullptr,
                                    text, &length) == 0)
                e.ipv4 = text;
        }
        out.push_back(e);
    }
    return out;
}

// Before XP: the Ethernet information records under their adapter names, none enabled.
std::vector<Expected> informationAdapters() {
    ULONG size = 64 * 1024;
    std::vector<unsigned char> buffer(size);
    auto* first = reinterpret_cast<IP_ADAPTER_INFO*>(buffer.data());
    EXPECT_EQ(GetAdaptersInfo(first, &size), 0u);
    std::vector<Expected> out;
    for (IP_ADAPTER_INFO* i = first; i != nullptr; i = i->Next) {
        if (i->Type == MIB_IF_TYPE_ETHERNET)
            out.push_back(Expected{i->AdapterName, macText(i->Address, i->AddressLength), ""});
    }
    return out;
}

// Under the Windows version Wine pretends to be (see wine_versions.py for the older ones).
TEST(WindowsSystem, HostShowsTheAdaptersOfIpHelper) {
    TcpIpHostSettings::unload();
    ErrorHandler* log = NullLog::getInstance();
    // For wine_versions.py, which checks that the version it asked for was seen.
    std::printf("windows: xp=%d vista=%d\n", HostSystemWin32::isWinXP(),
                HostSystemWin32::isWinVista());
    std::vector<Expected> expected =
        HostSystemWin32::isWinXP() ? systemAdapters() : informationAdapters();
    int n = 0;
    TcpIpAdapterSettings** all =
        TcpIpHostSettings::getInstance(log)->getAllAdapterSettings(log, &n);
    ASSERT_EQ(static_cast<size_t>(n), expected.size());
    ASSERT_GT(n, 0) << "the machine has a network adapter";
    for (int i = 0; i < n; ++i) {
        char text[1024];
        all[i]->getId(log, text, sizeof text);
        EXPECT_EQ(text, expected[i].id);
        all[i]->getMACAddress(log, text, sizeof text);
        EXPECT_EQ(text, expected[i].mac);
        all[i]->getIpAddress(log, text, sizeof text);
        EXPECT_EQ(text, expected[i].ipv4);
        all[i]->getDescription(log, text, sizeof text);
        EXPECT_STRNE(text, "") << expected[i].id;
    }
    char host[256];
    TcpIpHostSettings::getInstance(log)->getHostname(log, host, sizeof host);
    char system[256] = "";
    DWORD size = sizeof system;
    GetComputerNameExA(ComputerNameDnsHostname, system, &size);
    EXPECT_STRCASEEQ(host, system);
    TcpIpHostSettings::unload();
}

// Setters reach WMI for real. Wine's class has no methods, so they fail there without
// changing anything; elsewhere this part is skipped, so that no adapter is changed.
TEST(WindowsSystem, WmiSettersFailCleanlyUnderWine) {
    if (!underWine()) GTEST_SKIP() << "would change the adapter outside Wine";
    ErrorHandler* log = NullLog::getInstance();
    int n = 0;
    TcpIpAdapterSettings** all =
        TcpIpHostSettings::getInstance(log)->getAllAdapterSettings(log, &n);
    ASSERT_GT(n, 0);
    char domain[1024], gateway[1024];
    all[0]->getDomain(log, domain, sizeof domain);
    all[0]->getDefaultGateway(log, gateway, sizeof gateway);
    EXPECT_EQ(all[0]->setDomain(log, domain), -1);
    EXPECT_EQ(all[0]->setDefaultGateway(log, gateway[0] ? gateway : "192.0.2.1"), -1);
    EXPECT_NE(WMIUtilWin32::getInstance()->getLastStatus(), 0);
    EXPECT_EQ(WMIUtilWin32::getInstance()->invokeEnableDHCPOnMAC("not a hardware address"), -1);
    TcpIpHostSettings::unload();
}

TEST(WindowsSystem, CommandsRunWithTheirOutputKept) {
    NetShUtilWin32* shell = NetShUtilWin32::getInstance();
    EXPECT_EQ(shell->executeCommand("cmd /c echo routes& exit 3"), 3);
    EXPECT_EQ(std::string(shell->getOutputBuffer()).substr(0, 6), "routes");
    EXPECT_EQ(shell->executeCommand("velmora-no-such-program.exe"), -1);
    EXPECT_STREQ(shell->getOutputBuffer(), "");

    // A program named like a system tool in the current directory or on PATH is never
    // started in its place (the probe exits with 42).
    char exe[MAX_PATH], before[MAX_PATH], temp[MAX_PATH], path[32768];
    GetModuleFileNameA(nullptr, exe, MAX_PATH);
    std::string probe =
        std::string(exe, std::strrchr(exe, '\\') - exe) + "\\velmora_exit_probe.exe";
    GetTempPathA(MAX_PATH, temp);
    std::string dir = std::string(temp) + "velmora-shell-" + std::to_string(GetCurrentProcessId());
    ASSERT_TRUE(CreateDirectoryA(dir.c_str(), nullptr));
    ASSERT_TRUE(CopyFileA(probe.c_str(), (dir + "\\ipv6.exe").c_str(), FALSE));
    GetCurrentDirectoryA(MAX_PATH, before);
    DWORD pathLength = GetEnvironmentVariableA("PATH", path, sizeof path);
    SetCurrentDirectoryA(dir.c_str());
    SetEnvironmentVariableA("PATH", (dir + ";" + std::string(path, pathLength)).c_str());
    int result = shell->executeCommand("ipv6 rt");
    SetEnvironmentVariableA("PATH", std::string(path, pathLength).c_str());
    SetCurrentDirectoryA(before);
    DeleteFileA((dir + "\\ipv6.exe").c_str());
    RemoveDirectoryA(dir.c_str());
    EXPECT_NE(result, 42) << "the probe ran";
    EXPECT_EQ(shell->executeCommand((dir + "\\none.exe").c_str()), -1);
}

}  // namespace

#endif
