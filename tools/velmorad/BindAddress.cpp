#include "BindAddress.h"

#include <velmora/net/InetAddress.h>

#include <cctype>

#include "AddressText.h"

namespace velmorad {

namespace {

// Four decimal numbers 0 to 255 separated by dots, nothing else. A leading zero is refused:
// the resolver would read such a number as octal.
bool dottedQuad(const std::string& text) {
    int parts = 0;
    size_t i = 0;
    while (i <= text.size()) {
        size_t digits = 0;
        int value = 0;
        if (text.compare(i, 1, "0") == 0 && i + 1 < text.size() && text[i + 1] != '.') return false;
        while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) {
            value = value * 10 + (text[i] - '0');
            if (++digits > 3) return false;
            ++i;
        }
        if (digits == 0 || value > 255) return false;
        ++parts;
        if (i == text.size()) break;
        if (text[i] != '.') return false;
        ++i;
    }
    return parts == 4;
}

bool onlyDigitsAndDots(const std::string& text) {
    for (char c : text) {
        if (c != '.' && !std::isdigit(static_cast<unsigned char>(c))) return false;
    }
    return true;
}

// Letters, digits and hyphens in dot-separated labels of 1 to 63 characters.
bool hostName(const std::string& text) {
    if (text.empty() || text.size() > 253) return false;
    size_t label = 0;
    for (char c : text) {
        if (c == '.') {
            if (label == 0) return false;
            label = 0;
        } else if (std::isalnum(static_cast<unsigned char>(c)) || c == '-') {
            if (++label > 63) return false;
        } else {
            return false;
        }
    }
    return label > 0 || text.back() == '.';
}

bool numericText(int family, const unsigned char* bytes, std::string* out) {
    char text[64];
    if (velmora::InetAddress::inet_ntop(family, bytes, text, sizeof text) == nullptr) return false;
    *out = text;
    return true;
}

// An IPv6 literal, read by the system's literal parser: text with colons that is not one
// ("a:b") would otherwise go to the resolver as a name and be looked up.
bool ipv6Literal(const std::string& text, std::string* numeric) {
    unsigned char bytes[16];
    return text.find(':') != std::string::npos && parseAddressLiteral(text.c_str(), bytes) == 16 &&
           numericText(velmora::InetAddress::getIpv6Family(), bytes, numeric);
}

}  // namespace

bool resolveBindAddress(const std::string& given, std::string* numeric, std::string* why) {
    std::string text = given;
    if (text.empty()) {
        *why = "the address is empty";
        return false;
    }
    for (unsigned char c : text) {
        if (std::isspace(c) || c < 0x20) {
            *why = "\"" + given + "\" contains spaces or control characters";
            return false;
        }
    }
    // Brackets are for IPv6 addresses only: "[192.0.2.1]" is not taken as 192.0.2.1.
    const bool bracketed = text.size() > 2 && text.front() == '[' && text.back() == ']';
    if (bracketed) text = text.substr(1, text.size() - 2);
    if (bracketed || text.find(':') != std::string::npos) {
        if (ipv6Literal(text, numeric)) return true;
        *why = given + " is not an IPv6 address";
        return false;
    }
    if (onlyDigitsAndDots(text)) {
        if (dottedQuad(text)) {
            *numeric = text;
            return true;
        }
        *why = given + " is not an IPv4 address (four numbers 0 to 255 separated by dots)";
        return false;
    }
    if (!hostName(text)) {
        *why = "\"" + given + "\" is neither an address nor a host name";
        return false;
    }
    unsigned char bytes[16];
    const int v4 = velmora::InetAddress::getIpv4Family();
    const int v6 = velmora::InetAddress::getIpv6Family();
    if ((velmora::InetAddress::inet_pton(v4, text.c_str(), bytes) == 1 &&
         numericText(v4, bytes, numeric)) ||
        (velmora::InetAddress::inet_pton(v6, text.c_str(), bytes) == 1 &&
         numericText(v6, bytes, numeric))) {
        return true;
    }
    *why = "the host name " + given + " does not resolve to an address";
    return false;
}

bool isAddressLiteral(const std::string& text) {
    std::string numeric;
    return dottedQuad(text) || (text.find(':') != std::string::npos && ipv6Literal(text, &numeric));
}

}  // namespace velmorad
