#include "RequestText.h"

#include <cstring>

#include "AddressText.h"

namespace velmorad {

namespace {

std::string trim(const std::string& text) {
    size_t start = text.find_first_not_of(" \t");
    if (start == std::string::npos) return std::string();
    return text.substr(start, text.find_last_not_of(" \t") - start + 1);
}

}  // namespace

std::string lower(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
    }
    return text;
}

std::vector<std::string> itemsOf(const std::string& text) {
    std::vector<std::string> items;
    size_t start = 0;
    while (start <= text.size()) {
        size_t comma = text.find(',', start);
        if (comma == std::string::npos) comma = text.size();
        std::string item = trim(text.substr(start, comma - start));
        if (!item.empty()) items.push_back(item);
        start = comma + 1;
    }
    return items;
}

std::vector<std::string> listOf(const std::string& text) {
    std::vector<std::string> items = itemsOf(text);
    for (std::string& item : items)
        item = lower(item);
    return items;
}

// An address literal (IPv4, or IPv6 with or without brackets) as bytes with its family
// first, IPv4-mapped IPv6 taken as the IPv4 address; "" when the text is no address.
std::string canonicalAddress(std::string text) {
    if (text.find('\0') != std::string::npos) return std::string();
    if (text.size() > 2 && text.front() == '[' && text.back() == ']') {
        text = text.substr(1, text.size() - 2);
    }
    unsigned char bytes[16] = {};
    int size = parseAddressLiteral(text.c_str(), bytes);
    if (size == 4) return std::string("4") + std::string(reinterpret_cast<char*>(bytes), 4);
    if (size != 16) return std::string();
    static const unsigned char kMapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
    if (std::memcmp(bytes, kMapped, sizeof kMapped) == 0) {
        return std::string("4") + std::string(reinterpret_cast<char*>(bytes + 12), 4);
    }
    return std::string("6") + std::string(reinterpret_cast<char*>(bytes), 16);
}

// The name part of a Host value ("name", "name:port", "[v6]:port"), lower case; "" when the
// value is not of that form.
std::string hostName(const std::string& host) {
    std::string name = host;
    std::string port;
    if (!host.empty() && host[0] == '[') {
        size_t close = host.find(']');
        if (close == std::string::npos) return std::string();
        name = host.substr(0, close + 1);
        if (close + 1 < host.size()) {
            if (host[close + 1] != ':') return std::string();
            port = host.substr(close + 2);
            if (port.empty()) return std::string();
        }
    } else {
        size_t colon = host.find(':');
        if (colon != std::string::npos) {
            name = host.substr(0, colon);
            port = host.substr(colon + 1);
            if (port.empty()) return std::string();
        }
        for (char c : name) {
            bool ok = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                      c == '-' || c == '.' || c == '_';
            if (!ok) return std::string();
        }
    }
    if (port.size() > 5 || port.find_first_not_of("0123456789") != std::string::npos) {
        return std::string();
    }
    return lower(name);
}

std::string mediaType(const char* value) {
    std::string type = value != nullptr ? value : "";
    size_t semicolon = type.find(';');
    if (semicolon != std::string::npos) type.erase(semicolon);
    return lower(trim(type));
}

bool isLoopback(const std::string& bind) {
    if (lower(bind) == "localhost") return true;
    std::string a = canonicalAddress(bind);
    if (a.size() == 5) return static_cast<unsigned char>(a[1]) == 127;
    return a == std::string("6") + std::string(15, '\0') + std::string(1, '\1');
}

}  // namespace velmorad
