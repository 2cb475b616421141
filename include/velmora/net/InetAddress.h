// A resolved IPv4 (4 bytes) or IPv6 (16 bytes) address together with the text it was made
// from. Only getByName (and getLocalHost through it) makes addresses.
//
//   std::unique_ptr<velmora::InetAddress> a(velmora::InetAddress::getByName("::1"));
//   if (a && a->getStructureSize() == 16) puts(a->getHostAddress());  // "::1"
#pragma once

#include <velmora/Export.h>

namespace velmora {

class VELMORA_API InetAddress {
public:
    ~InetAddress();

    // 0 dotted quad, 1 IPv6 literal, 2 IPv4-mapped IPv6 literal ("::ffff:" or "::FFFF:"
    // then a dotted quad), -1 anything else (taken to be a host name). Only the shape is
    // checked: 999.1.1.1 is 0.
    static int getAddressType(const char* text);
    // A new address for a literal or a name (names: IPv4 first, then IPv6), or null.
    static InetAddress* getByName(const char* text);
    // This host's address for IPv4 or IPv6 use, falling back to the loopback address.
    static InetAddress* getLocalHost(bool ipv6);

    // The address families these conversions take: the system's IPv4 and IPv6 families
    // (2 and 23 on Windows).
    static int getIpv4Family();
    static int getIpv6Family();
    // The first address that the resolver gives for text (a literal or a name): 4 bytes
    // for the IPv4 family, 16 for IPv6. 1 on success, -1 otherwise.
    static int inet_pton(int family, const char* text, void* out);
    // The numeric text of 4 or 16 address bytes in out; out, or null on failure.
    static const char* inet_ntop(int family, const void* address, char* out, int outSize);

    const char* getHostName() const { return hostName_; }
    const char* getHostAddress() const { return hostAddress_; }
    const unsigned char* getAddress() const { return address_; }  // network order
    int getStructureSize() const { return structureSize_; }       // 4 or 16
    bool getIsIpv6() const { return isIpv6_; }

protected:
    InetAddress(const char* name, const unsigned char* address, int structureSize);

private:
    InetAddress(const InetAddress&) = delete;
    InetAddress& operator=(const InetAddress&) = delete;

    char* hostName_ = nullptr;
    char* hostAddress_ = nullptr;
    unsigned char* address_ = nullptr;
    int structureSize_ = 0;
    bool isIpv6_ = false;
};

}  // namespace velmora
