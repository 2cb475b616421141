#include <velmora/net/InetAddress.h>

#include <velmora/vre/Vre.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "net/NetSystem.h"

namespace velmora {

namespace {

char* copyText(const char* text) {
    const size_t length = std::strlen(text);
    char* copy = static_cast<char*>(std::malloc(length + 1));
    if (copy != nullptr) std::memcpy(copy, text, length + 1);
    return copy;
}

bool isDecimal(char c) {
    return c >= '0' && c <= '9';
}

bool isHex(char c) {
    return isDecimal(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// Digits and dots only, at most 3 digits a group, a dot only after a digit, exactly 3
// dots and a last group that is not empty. The values are not checked.
bool isDottedQuad(const char* text) {
    int dots = 0;
    int digits = 0;
    for (const char* p = text; *p != '\0'; ++p) {
        if (*p == '.') {
            if (digits == 0 || ++dots > 3) return false;
            digits = 0;
        } else if (isDecimal(*p)) {
            if (++digits > 3) return false;
        } else {
            return false;
        }
    }
    return dots == 3 && digits > 0;
}

// Hex digits and colons only, at most 7 colons and 4 digits a group; empty groups are
// allowed but the last one is not, and there are at least 2 colons.
bool isIpv6Literal(const char* text) {
    int colons = 0;
    int digits = 0;
    for (const char* p = text; *p != '\0'; ++p) {
        if (*p == ':') {
            if (++colons > 7) return false;
            digits = 0;
        } else if (isHex(*p)) {
            if (++digits > 4) return false;
        } else {
            return false;
        }
    }
    return colons >= 2 && digits > 0;
}

bool isMappedIpv4(const char* text) {
    if (std::strncmp(text, "::ffff:", 7) != 0 && std::strncmp(text, "::FFFF:", 7) != 0) {
        return false;
    }
    return isDottedQuad(std::strrchr(text, ':') + 1);
}

}  // namespace

InetAddress::InetAddress(const char* name, const unsigned char* address, int structureSize)
    : structureSize_(structureSize), isIpv6_(structureSize == 16) {
    hostName_ = copyText(name != nullptr ? name : "");
    const int size = isIpv6_ ? 16 : 4;
    address_ = static_cast<unsigned char*>(std::malloc(size));
    if (address_ != nullptr) std::memcpy(address_, address, size);
    // The room that the numeric text is given: 22 characters for IPv4, 65 for IPv6.
    char text[65] = {};
    if (isIpv6_) {
        inet_ntop(getIpv6Family(), address, text, 65);
    } else {
        inet_ntop(getIpv4Family(), address, text, 22);
    }
    hostAddress_ = copyText(text);
}

InetAddress::~InetAddress() {
    std::free(hostName_);
    std::free(hostAddress_);
    std::free(address_);
}

int InetAddress::getAddressType(const char* text) {
    if (text == nullptr) return -1;
    const bool colon = std::strchr(text, ':') != nullptr;
    const bool dot = std::strchr(text, '.') != nullptr;
    if (!colon) return dot && isDottedQuad(text) ? 0 : -1;
    if (!dot) return isIpv6Literal(text) ? 1 : -1;
    return isMappedIpv4(text) ? 2 : -1;
}

InetAddress* InetAddress::getByName(const char* text) {
    if (text == nullptr) return nullptr;
    unsigned char bytes[16] = {};
    int size;
    switch (getAddressType(text)) {
        case 1:
        case 2:
            // Kept: a literal is not checked once more; one that the resolver rejects
            // gives the all-zero address.
            inet_pton(getIpv6Family(), text, bytes);
            size = 16;
            break;
        case 0:
            inet_pton(getIpv4Family(), text, bytes);
            size = 4;
            break;
        default:
            if (inet_pton(getIpv4Family(), text, bytes) == 1) {
                size = 4;
            } else if (inet_pton(getIpv6Family(), text, bytes) == 1) {
                size = 16;
            } else {
                std::printf("ERROR: inet_pton failed. (%d)\n", netsys::lastSocketError());
                std::fflush(stdout);
                return nullptr;
            }
            break;
    }
    InetAddress* address = new (std::nothrow) InetAddress(text, bytes, size);
    if (address == nullptr) return nullptr;
    if (address->hostName_ == nullptr || address->hostAddress_ == nullptr ||
        address->address_ == nullptr) {
        delete address;
        return nullptr;
    }
    return address;
}

InetAddress* InetAddress::getLocalHost(bool ipv6) {
    char name[128] = {};
    VreCore* core = Vre::getInstance();
    int found = -1;
    if (core != nullptr) {
        found = ipv6 ? core->getHostNameIpv6(name, sizeof name)
                     : core->getHostNameIpv4(name, sizeof name);
    }
    name[sizeof name - 1] = '\0';
    InetAddress* address = found != -1 ? getByName(name) : nullptr;
    if (address != nullptr) return address;
    if (ipv6) return getByName("::1");
    address = getByName("localhost");
    return address != nullptr ? address : getByName("127.0.0.1");
}

int InetAddress::getIpv4Family() {
    return netsys::familyIpv4();
}
int InetAddress::getIpv6Family() {
    return netsys::familyIpv6();
}

int InetAddress::inet_pton(int family, const char* text, void* out) {
    if (text == nullptr || out == nullptr) return -1;
    if (family != getIpv4Family() && family != getIpv6Family()) return -1;
    return netsys::resolve(family, text, static_cast<unsigned char*>(out)) ? 1 : -1;
}

const char* InetAddress::inet_ntop(int family, const void* address, char* out, int outSize) {
    if (address == nullptr || out == nullptr || outSize <= 0) return nullptr;
    if (family != getIpv4Family() && family != getIpv6Family()) return nullptr;
    const bool ok =
        netsys::numericHost(family, static_cast<const unsigned char*>(address), out, outSize);
    return ok ? out : nullptr;
}

}  // namespace velmora
