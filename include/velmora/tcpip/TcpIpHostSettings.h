// The host-wide view of the TCP/IP configuration and the owner of the adapter objects:
// which adapters the platform shows, the host name, host-level gateway, domain and DNS
// servers where the system keeps them per host, and the platform's own IPv6 use flag
// ("velmora.ipv6Enabled" in <home>/lib/system.properties).
//
//   velmora::TcpIpHostSettings* host = velmora::TcpIpHostSettings::getInstance(log);
//   int n = 0;
//   velmora::TcpIpAdapterSettings** all = host->getAllAdapterSettings(log, &n);
//   for (int i = 0; i < n; ++i) ... all[i] ...      // still owned by the host
//
// Windows keeps gateway, domain and DNS servers per adapter: there the host answers
// usesAdapterLevelSettings true and every host-level form of them refuses with
// "Property is managed at the adapter level". The Linux build keeps them per host; its
// answers are described in src/tcpip/linux/.
//
// Every operation takes the ErrorHandler first, with the argument shapes of
// TcpIpAdapterSettings. The virtual operations come in this order so that a subclass can
// stand in for them. Not synchronised: make the instance before starting threads and
// use it from one thread at a time.
#pragma once

#include <velmora/Export.h>

namespace velmora {

class ErrorHandler;
class TcpIpAdapterSettings;

class VELMORA_API TcpIpHostSettings {
public:
    // The process-wide instance for this system, built on first use.
    static TcpIpHostSettings* getInstance(ErrorHandler* err);
    // Destroys the instance and its adapters.
    static void unload();

    // The adapters in the system's order and their number; the array stays the host's.
    // On Linux both lookups rebuild the list when the host's links changed since it was
    // built: adapter pointers handed out before then are no longer valid.
    TcpIpAdapterSettings** getAllAdapterSettings(ErrorHandler* err, int* count);
    // The first adapter whose id equals `id` exactly (case matters), else null.
    TcpIpAdapterSettings* getAdapterSettings(ErrorHandler* err, const char* id);

    virtual ~TcpIpHostSettings();
    virtual bool usesAdapterLevelSettings(ErrorHandler* err);
    virtual bool isIPv6Readonly(ErrorHandler* err);
    virtual bool isReadonly(ErrorHandler* err);
    virtual void getDomain(ErrorHandler* err, char* buffer, int bufferSize);
    virtual void getDefaultGateway(ErrorHandler* err, char* buffer, int bufferSize);
    virtual int getDnsHostCount(ErrorHandler* err);
    virtual int getDnsHostLimit(ErrorHandler* err);
    virtual void getDnsHosts(ErrorHandler* err, int count, char** buffers, int bufferSize);
    virtual void getHostname(ErrorHandler* err, char* buffer, int bufferSize);
    virtual int setDomain(ErrorHandler* err, const char* domain);
    virtual int setHostName(ErrorHandler* err, const char* name);
    virtual int setVelmoraUsesIpv6(ErrorHandler* err, bool on);
    virtual bool getVelmoraUsesIpv6(ErrorHandler* err);
    virtual int setDefaultGateway(ErrorHandler* err, const char* gateway);
    virtual int setDnsHosts(ErrorHandler* err, const char* list);
    virtual int setDnsHosts(ErrorHandler* err, const char* list, char separator);
    virtual int setDnsHosts(ErrorHandler* err, const char* const* entries, int count);
    virtual void getIpv6DefaultGateway(ErrorHandler* err, char* buffer, int bufferSize);
    virtual void getIpv6DefaultDevice(ErrorHandler* err, char* buffer, int bufferSize);
    virtual int setIpv6DefaultGateway(ErrorHandler* err, const char* gateway);
    virtual int setIpv6DefaultDevice(ErrorHandler* err, const char* device);
    virtual int getIpv6DnsHostCount(ErrorHandler* err);
    virtual int setIpv6DnsHosts(ErrorHandler* err, const char* list);
    virtual int setIpv6DnsHosts(ErrorHandler* err, const char* list, char separator);
    virtual int setIpv6DnsHosts(ErrorHandler* err, const char* const* entries, int count);
    virtual void getIpv6DnsHosts(ErrorHandler* err, int count, char** buffers, int bufferSize);

    // Where a system that keeps them in files (Linux) finds the resolver configuration
    // (default "/etc/resolv.conf") and the host name (default "/etc/hostname"); unused on
    // Windows. At most 259 characters are kept.
    void setResolverPath(const char* path);
    const char* getResolverPath() const { return resolverPath_; }
    void setHostnamePath(const char* path);
    const char* getHostnamePath() const { return hostnamePath_; }

protected:
    // A host with no adapters yet.
    TcpIpHostSettings();
    // Replaces the adapters: the host takes `adapters` (made with new[]) and every object in
    // it, and destroys the former ones.
    void setAdapters(TcpIpAdapterSettings** adapters, int count);
    // Brings the adapter list in line with the system before it is read; a subclass that
    // sets its own adapters overrides it with nothing.
    virtual void refreshAdapters(ErrorHandler* err);

private:
    TcpIpHostSettings(const TcpIpHostSettings&) = delete;
    TcpIpHostSettings& operator=(const TcpIpHostSettings&) = delete;

    TcpIpAdapterSettings** adapters_ = nullptr;
    int count_ = 0;
    char resolverPath_[260];
    char hostnamePath_[260];
};

}  // namespace velmora
