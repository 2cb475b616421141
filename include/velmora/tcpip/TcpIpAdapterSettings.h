// One network adapter of the host: identity, IPv4 configuration (address, mask, gateway,
// DNS servers, domain, DHCP) and IPv6 configuration. Every getter asks the system again;
// nothing is cached in the object. Adapter objects are made and owned by
// TcpIpHostSettings, which hands them out; TcpIpUtil turns them into XML and back.
//
//   velmora::TcpIpHostSettings* host = velmora::TcpIpHostSettings::getInstance(log);
//   velmora::TcpIpAdapterSettings* a = host->getAdapterSettings(log, "Ethernet");
//   char ip[1024];
//   if (a != nullptr) a->getIpAddress(log, ip, sizeof ip);
//
// Every operation takes the ErrorHandler first. Text getters take a buffer and its size
// and always start by making the buffer empty; list getters fill the first `count` of
// `buffers`, each `bufferSize` bytes. Setters answer 0 on success and -1 on failure.
// Getters never report; setters report their refusals through the handler.
//
// Each system brings its own implementation of the operations: on Windows the adapter is
// read through IP Helper and changed through WMI; on Linux it is read and changed through
// rtnetlink (the header of the Linux build's host settings says what differs there).
// The operations are virtual, in this order, so that a subclass can stand in for them.
#pragma once

#include <velmora/Export.h>

namespace velmora {

class ErrorHandler;

class VELMORA_API TcpIpAdapterSettings {
public:
    // An adapter named by `id` (at most 127 characters are kept).
    explicit TcpIpAdapterSettings(const char* id);
    virtual ~TcpIpAdapterSettings();

    virtual bool isEnabled(ErrorHandler* err);
    virtual bool canDisable(ErrorHandler* err);
    virtual void getId(ErrorHandler* err, char* buffer, int bufferSize);
    virtual void getDescription(ErrorHandler* err, char* buffer, int bufferSize);
    // "%02X:%02X:%02X:%02X:%02X:%02X", or "Unavailable" when the address is not 6 bytes.
    virtual void getMACAddress(ErrorHandler* err, char* buffer, int bufferSize);
    virtual bool isDhcpEnabled(ErrorHandler* err);
    virtual bool canUseDhcp(ErrorHandler* err);
    virtual void getDefaultGateway(ErrorHandler* err, char* buffer, int bufferSize);
    virtual int getDnsHostCount(ErrorHandler* err);
    virtual int getDnsHostLimit(ErrorHandler* err);
    virtual void getDnsHosts(ErrorHandler* err, int count, char** buffers, int bufferSize);
    virtual void getDomain(ErrorHandler* err, char* buffer, int bufferSize);
    virtual void getIpAddress(ErrorHandler* err, char* buffer, int bufferSize);
    virtual void getSubnetMask(ErrorHandler* err, char* buffer, int bufferSize);
    virtual void getDhcpHost(ErrorHandler* err, char* buffer, int bufferSize);
    virtual void getDhcpLeaseGranted(ErrorHandler* err, char* buffer, int bufferSize);
    virtual void getDhcpLeaseExpires(ErrorHandler* err, char* buffer, int bufferSize);
    virtual int setIpAddress(ErrorHandler* err, const char* address);
    virtual int setSubnetMask(ErrorHandler* err, const char* mask);
    virtual int setIpAddressSubnetMask(ErrorHandler* err, const char* address, const char* mask);
    virtual int setDefaultGateway(ErrorHandler* err, const char* gateway);
    // Space-separated list.
    virtual int setDnsHosts(ErrorHandler* err, const char* list);
    // List whose entries are separated by `separator`.
    virtual int setDnsHosts(ErrorHandler* err, const char* list, char separator);
    virtual int setDnsHosts(ErrorHandler* err, const char* const* entries, int count);
    virtual int setDomain(ErrorHandler* err, const char* domain);
    virtual int setDhcpEnabled(ErrorHandler* err, bool on);
    virtual int setEnabled(ErrorHandler* err, bool on);
    virtual bool isIpv6Supported(ErrorHandler* err);
    virtual bool canDisableIpv6(ErrorHandler* err);
    virtual bool isIpv6Enabled(ErrorHandler* err);
    virtual bool isIpv6DhcpEnabled(ErrorHandler* err);
    virtual bool canUseIpv6Dhcp(ErrorHandler* err);
    virtual void getIpv6Address(ErrorHandler* err, char* buffer, int bufferSize);
    virtual int getIpv6SubnetPrefixLength(ErrorHandler* err);
    virtual void getIpv6DefaultGateway(ErrorHandler* err, char* buffer, int bufferSize);
    virtual void getIpv6DefaultDevice(ErrorHandler* err, char* buffer, int bufferSize);
    virtual int setIpv6Address(ErrorHandler* err, const char* address);
    virtual int setIpv6SubnetPrefixLength(ErrorHandler* err, int length);
    virtual int setIpv6DefaultGateway(ErrorHandler* err, const char* gateway);
    virtual int setIpv6DefaultDevice(ErrorHandler* err, const char* device);
    virtual int setIpv6Enabled(ErrorHandler* err, bool on);
    virtual int setIpv6DnsHosts(ErrorHandler* err, const char* list);
    virtual int setIpv6DnsHosts(ErrorHandler* err, const char* list, char separator);
    virtual int setIpv6DnsHosts(ErrorHandler* err, const char* const* entries, int count);
    virtual void getIpv6DnsHosts(ErrorHandler* err, int count, char** buffers, int bufferSize);
    virtual int getIpv6DnsHostCount(ErrorHandler* err);
    virtual void getIpv6DhcpHost(ErrorHandler* err, char* buffer, int bufferSize);
    virtual void getIpv6DhcpLeaseGranted(ErrorHandler* err, char* buffer, int bufferSize);
    virtual void getIpv6DhcpLeaseExpires(ErrorHandler* err, char* buffer, int bufferSize);
    virtual int setIpv6DhcpEnabled(ErrorHandler* err, bool on);

    // The id as given (what getId copies out).
    const char* id() const { return id_; }

private:
    TcpIpAdapterSettings(const TcpIpAdapterSettings&) = delete;
    TcpIpAdapterSettings& operator=(const TcpIpAdapterSettings&) = delete;

    char id_[128];
};

}  // namespace velmora
