// The Windows host: the adapters that IP Helper reports (without loopback, tunnels and
// hidden adapters), the host name from IP Helper or the registry, and refusals for
// gateway, domain and DNS servers, which Windows keeps per adapter.
#include <velmora/log/ErrorHandler.h>
#include <velmora/log/MessageBundle.h>
#include <velmora/platform/RegUtil.h>
#include <velmora/tcpip/TcpIpAdapterSettings.h>
#include <velmora/tcpip/TcpIpHostSettings.h>

#include <cstdio>
#include <cstring>

#include "tcpip/win32/HostSystemWin32.h"
#include "tcpip/win32/IpHelperWin32.h"

namespace velmora {

namespace {

const char* const kTcpipParameters[] = {"SYSTEM", "CurrentControlSet", "Services", "Tcpip",
                                        "Parameters"};
const char* const kComputerName[] = {"SYSTEM", "CurrentControlSet", "Control", "ComputerName",
                                     "ComputerName"};

void clear(char* buffer, int size) {
    if (buffer != nullptr && size > 0) buffer[0] = '\0';
}

void report(ErrorHandler* err, const char* key, const char* text) {
    if (err == nullptr) return;
    MessageBundle bundle("platform", key, text);
    err->error(&bundle);
}

int adapterLevel(ErrorHandler* err) {
    report(err, "TcpIpHostSettings.adapterLevelSetting",
           "Property is managed at the adapter level");
    return -1;
}

// Adapters the platform shows: real interfaces that have an IPv4 or IPv6 index, and a
// name people can read (names starting with "{" are the GUIDs of hidden adapters).
bool listed(const IP_ADAPTER_ADDRESSES* a) {
    if (a->IfIndex == 0 && a->Ipv6IfIndex == 0) return false;
    if (a->IfType == IF_TYPE_SOFTWARE_LOOPBACK || a->IfType == IF_TYPE_TUNNEL) return false;
    return a->FriendlyName != nullptr && a->FriendlyName[0] != L'\0' && a->FriendlyName[0] != L'{';
}

TcpIpAdapterSettings* makeAdapter(IP_ADAPTER_ADDRESSES* a) {
    char id[256];
    int error = 0;
    if (!IpHelperWin32::adapterId(a, id, sizeof id, &error)) {
        std::fprintf(stderr,
                     "WARNING: Can not convert friendly adapter name (reason = %s), using GUID\n",
                     std::strerror(error));
    }
    return new TcpIpAdapterSettings(id);
}

class WindowsHostSettings : public TcpIpHostSettings {
public:
    explicit WindowsHostSettings(ErrorHandler* err) {
        IpHelperWin32* ip = IpHelperWin32::getInstance();
        if (ip == nullptr) {
            report(err, "TcpIpPlatform.allocationFailure",
                   "Could not determine network host settings");
            return;
        }
        if (ip->changeDetected()) ip->refresh();
        if (HostSystemWin32::isWinXP()) {
            fromAddresses(ip);
        } else {
            fromInfo(ip);
        }
    }

private:
    void fromAddresses(IpHelperWin32* ip) {
        int count = 0;
        for (IP_ADAPTER_ADDRESSES* a = ip->getAdapterAddresses(); a != nullptr; a = a->Next)
            count += listed(a) ? 1 : 0;
        auto** adapters = new TcpIpAdapterSettings*[count > 0 ? count : 1];
        int n = 0;
        for (IP_ADAPTER_ADDRESSES* a = ip->getAdapterAddresses(); a != nullptr && n < count;
             a = a->Next) {
            if (listed(a)) adapters[n++] = makeAdapter(a);
        }
        setAdapters(adapters, n);
    }

    void fromInfo(IpHelperWin32* ip) {
        int count = 0;
        for (IP_ADAPTER_INFO* i = ip->getAdapterInfo(); i != nullptr; i = i->Next)
            count += i->Type == MIB_IF_TYPE_ETHERNET ? 1 : 0;
        auto** adapters = new TcpIpAdapterSettings*[count > 0 ? count : 1];
        int n = 0;
        for (IP_ADAPTER_INFO* i = ip->getAdapterInfo(); i != nullptr && n < count; i = i->Next) {
            if (i->Type == MIB_IF_TYPE_ETHERNET)
                adapters[n++] = new TcpIpAdapterSettings(i->AdapterName);
        }
        setAdapters(adapters, n);
    }
};

}  // namespace

TcpIpHostSettings* makeSystemHostSettings(ErrorHandler* err) {
    return new WindowsHostSettings(err);
}

// The list is made once, with the instance; unload and getInstance make it again.
void TcpIpHostSettings::refreshAdapters(ErrorHandler*) {}

bool TcpIpHostSettings::usesAdapterLevelSettings(ErrorHandler*) {
    return true;
}

bool TcpIpHostSettings::isIPv6Readonly(ErrorHandler*) {
    return true;
}

bool TcpIpHostSettings::isReadonly(ErrorHandler*) {
    return false;
}

void TcpIpHostSettings::getDomain(ErrorHandler* err, char* buffer, int bufferSize) {
    clear(buffer, bufferSize);
    adapterLevel(err);
}

void TcpIpHostSettings::getDefaultGateway(ErrorHandler* err, char* buffer, int bufferSize) {
    clear(buffer, bufferSize);
    adapterLevel(err);
}

int TcpIpHostSettings::getDnsHostCount(ErrorHandler* err) {
    adapterLevel(err);
    return 0;
}

int TcpIpHostSettings::getDnsHostLimit(ErrorHandler* err) {
    adapterLevel(err);
    return 0;
}

void TcpIpHostSettings::getDnsHosts(ErrorHandler* err, int count, char** buffers, int bufferSize) {
    for (int i = 0; buffers != nullptr && i < count; ++i)
        clear(buffers[i], bufferSize);
    adapterLevel(err);
}

void TcpIpHostSettings::getHostname(ErrorHandler* err, char* buffer, int bufferSize) {
    clear(buffer, bufferSize);
    if (buffer == nullptr || bufferSize <= 0) return;
    IpHelperWin32* ip = IpHelperWin32::getInstance();
    FIXED_INFO* fixed = ip != nullptr ? ip->getFixedInfo() : nullptr;
    if (fixed != nullptr) {
        std::snprintf(buffer, bufferSize, "%s", fixed->HostName);
        return;
    }
    unsigned long type = 0;
    unsigned long size = static_cast<unsigned long>(bufferSize);
    RegUtil::getKeyValue(err, HostSystemWin32::openMachineRoot(), kTcpipParameters, 5, "Hostname",
                         &type, reinterpret_cast<unsigned char*>(buffer), &size);
    buffer[bufferSize - 1] = '\0';
}

int TcpIpHostSettings::setDomain(ErrorHandler* err, const char* domain) {
    if (HostSystemWin32::isWin2k()) return adapterLevel(err);
    if (domain == nullptr) domain = "";
    long status = RegUtil::setKeyValue(err, HostSystemWin32::openMachineRoot(), kTcpipParameters, 5,
                                       "Domain", domain);
    if (status == 0) {
        RegUtil::setKeyValue(err, HostSystemWin32::openMachineRoot(), kTcpipParameters, 5,
                             "NV Domain", domain);
        // Deliberate: only the value in use matters; the one for the next start may fail.
        if (err != nullptr) err->clearError();
    }
    return static_cast<int>(status);
}

int TcpIpHostSettings::setHostName(ErrorHandler* err, const char* name) {
    if (name == nullptr) return -1;
    if (std::strlen(name) >= 16) {
        report(err, "TcpIpHostSettings.invalidHostName",
               "Host name can not be longer than 15 characters");
        return -1;
    }
    long status = RegUtil::setKeyValue(err, HostSystemWin32::openMachineRoot(), kTcpipParameters, 5,
                                       "Hostname", name);
    if (status != 0) return static_cast<int>(status);
    RegUtil::setKeyValue(err, HostSystemWin32::openMachineRoot(), kTcpipParameters, 5,
                         "NV Hostname", name);
    // Deliberate: a failure of the name for the next start is forgotten.
    if (err != nullptr) err->clearError();
    return static_cast<int>(RegUtil::setKeyValue(err, HostSystemWin32::openMachineRoot(),
                                                 kComputerName, 5, "ComputerName", name));
}

int TcpIpHostSettings::setDefaultGateway(ErrorHandler* err, const char*) {
    return adapterLevel(err);
}

int TcpIpHostSettings::setDnsHosts(ErrorHandler* err, const char*) {
    return adapterLevel(err);
}

int TcpIpHostSettings::setDnsHosts(ErrorHandler* err, const char*, char) {
    return adapterLevel(err);
}

int TcpIpHostSettings::setDnsHosts(ErrorHandler* err, const char* const*, int) {
    return adapterLevel(err);
}

void TcpIpHostSettings::getIpv6DefaultGateway(ErrorHandler* err, char* buffer, int bufferSize) {
    clear(buffer, bufferSize);
    adapterLevel(err);
}

void TcpIpHostSettings::getIpv6DefaultDevice(ErrorHandler* err, char* buffer, int bufferSize) {
    clear(buffer, bufferSize);
    adapterLevel(err);
}

int TcpIpHostSettings::setIpv6DefaultGateway(ErrorHandler* err, const char*) {
    return adapterLevel(err);
}

int TcpIpHostSettings::setIpv6DefaultDevice(ErrorHandler* err, const char*) {
    return adapterLevel(err);
}

int TcpIpHostSettings::getIpv6DnsHostCount(ErrorHandler* err) {
    adapterLevel(err);
    return 0;
}

int TcpIpHostSettings::setIpv6DnsHosts(ErrorHandler* err, const char*) {
    return adapterLevel(err);
}

int TcpIpHostSettings::setIpv6DnsHosts(ErrorHandler* err, const char*, char) {
    return adapterLevel(err);
}

int TcpIpHostSettings::setIpv6DnsHosts(ErrorHandler* err, const char* const*, int) {
    return adapterLevel(err);
}

void TcpIpHostSettings::getIpv6DnsHosts(ErrorHandler* err, int count, char** buffers,
                                        int bufferSize) {
    for (int i = 0; buffers != nullptr && i < count; ++i)
        clear(buffers[i], bufferSize);
    adapterLevel(err);
}

}  // namespace velmora
