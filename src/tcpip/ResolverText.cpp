#include "tcpip/ResolverText.h"

#include <algorithm>
#include <cstring>

namespace velmora {

namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

int hexValue(char c) {
    if (isDigit(c)) return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool parseIpv4(const char* text, size_t length, unsigned char* out) {
    size_t i = 0;
    for (int part = 0; part < 4; ++part) {
        if (part > 0) {
            if (i >= length || text[i] != '.') return false;
            ++i;
        }
        int value = 0, digits = 0;
        // "010" is refused, not read as 10 (or as octal, as inet_aton would).
        if (i + 1 < length && text[i] == '0' && isDigit(text[i + 1])) return false;
        while (i < length && isDigit(text[i])) {
            value = value * 10 + (text[i] - '0');
            if (++digits > 3 || value > 255) return false;
            ++i;
        }
        if (digits == 0) return false;
        out[part] = static_cast<unsigned char>(value);
    }
    return i == length;
}

// Groups before and after "::" are collected apart and the gap is filled with zeros.
bool parseIpv6(const char* text, size_t length, unsigned char* out) {
    unsigned char head[16] = {}, tail[16] = {};
    int headLength = 0, tailLength = 0;
    bool gap = false;
    size_t i = 0;
    if (length >= 2 && text[0] == ':' && text[1] == ':') {
        gap = true;
        i = 2;
    } else if (length > 0 && text[0] == ':') {
        return false;
    }
    while (i < length) {
        unsigned char* into = gap ? tail : head;
        int* used = gap ? &tailLength : &headLength;
        size_t start = i;
        int value = 0, digits = 0;
        while (i < length && hexValue(text[i]) >= 0 && digits < 5) {
            value = value * 16 + hexValue(text[i]);
            ++digits;
            ++i;
        }
        if (i < length && text[i] == '.') {
            // A dotted-quad tail takes the last four bytes.
            if (headLength + tailLength + 4 > 16) return false;
            if (!parseIpv4(text + start, length - start, into + *used)) return false;
            *used += 4;
            i = length;
            break;
        }
        if (digits == 0 || digits > 4) return false;
        if (headLength + tailLength + 2 > 16) return false;
        into[(*used)++] = static_cast<unsigned char>(value >> 8);
        into[(*used)++] = static_cast<unsigned char>(value & 0xFF);
        if (i == length) break;
        if (text[i] != ':') return false;
        ++i;
        if (i < length && text[i] == ':') {
            if (gap) return false;
            gap = true;
            ++i;
        } else if (i == length) {
            return false;  // a single trailing ':'
        }
    }
    int total = headLength + tailLength;
    if (gap ? total > 14 : total != 16) return false;
    std::memset(out, 0, 16);
    std::memcpy(out, head, static_cast<size_t>(headLength));
    std::memcpy(out + 16 - tailLength, tail, static_cast<size_t>(tailLength));
    return true;
}

struct Line {
    size_t start;
    size_t length;  // without the line feed
};

std::vector<Line> splitLines(const std::string& text) {
    std::vector<Line> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        lines.push_back({start, end - start});
        start = end + 1;
    }
    return lines;
}

// The words after `keyword` when the line starts with it and a blank, else false.
bool keywordWords(const std::string& text, const Line& line, const char* keyword,
                  std::vector<std::string>* words) {
    size_t k = std::strlen(keyword);
    if (line.length <= k || text.compare(line.start, k, keyword) != 0) return false;
    if (!isBlank(text[line.start + k])) return false;
    words->clear();
    size_t i = line.start + k, end = line.start + line.length;
    while (i < end) {
        while (i < end && isBlank(text[i]))
            ++i;
        size_t begin = i;
        while (i < end && !isBlank(text[i]))
            ++i;
        if (i > begin) words->push_back(text.substr(begin, i - begin));
    }
    return true;
}

// The server of a nameserver line of the given family, else false.
bool serverOf(const std::string& text, const Line& line, bool ipv6, std::string* server) {
    std::vector<std::string> words;
    if (!keywordWords(text, line, "nameserver", &words) || words.empty()) return false;
    unsigned char bytes[16];
    if (ResolverText::parseAddress(words[0].c_str(), bytes) != (ipv6 ? 6 : 4)) return false;
    *server = words[0];
    return true;
}

bool isNameserverLine(const std::string& text, const Line& line) {
    std::vector<std::string> words;
    return keywordWords(text, line, "nameserver", &words);
}

void appendLine(std::string* out, const std::string& line) {
    if (!out->empty() && out->back() != '\n') out->push_back('\n');
    *out += line;
    out->push_back('\n');
}

void appendOriginal(std::string* out, const std::string& text, const Line& line) {
    out->append(text, line.start, line.length);
    if (line.start + line.length < text.size()) out->push_back('\n');
}

bool nameChars(const char* text, size_t max, bool underscore) {
    size_t n = std::strlen(text);
    if (n == 0 || n > max || text[0] == '-' || text[0] == '.') return false;
    for (size_t i = 0; i < n; ++i) {
        char c = text[i];
        bool ok = isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-' ||
                  c == '.' || (underscore && c == '_');
        if (!ok) return false;
    }
    return true;
}

}  // namespace

int ResolverText::parseAddress(const char* text, unsigned char* out16) {
    if (text == nullptr) return 0;
    size_t length = std::strlen(text);
    unsigned char bytes[16] = {};
    if (std::strchr(text, ':') == nullptr) {
        if (!parseIpv4(text, length, bytes)) return 0;
        std::memcpy(out16, bytes, 4);
        return 4;
    }
    if (!parseIpv6(text, length, bytes)) return 0;
    std::memcpy(out16, bytes, 16);
    return 6;
}

int ResolverText::maskPrefix(const char* text) {
    unsigned char bytes[16];
    if (parseAddress(text, bytes) != 4) return -1;
    unsigned long mask = (static_cast<unsigned long>(bytes[0]) << 24) | (bytes[1] << 16) |
                         (bytes[2] << 8) | bytes[3];
    int prefix = 0;
    while (prefix < 32 && (mask & (0x80000000UL >> prefix)) != 0)
        ++prefix;
    unsigned long expected = prefix == 0 ? 0 : (0xFFFFFFFFUL << (32 - prefix)) & 0xFFFFFFFFUL;
    return mask == expected ? prefix : -1;
}

bool ResolverText::isHostName(const char* text) {
    return text != nullptr && nameChars(text, 64, false);
}

bool ResolverText::isDomain(const char* text) {
    return text != nullptr && (*text == '\0' || nameChars(text, 253, true));
}

std::vector<std::string> ResolverText::nameservers(const std::string& text, bool ipv6) {
    std::vector<std::string> out;
    std::string server;
    for (const Line& line : splitLines(text)) {
        if (serverOf(text, line, ipv6, &server)) out.push_back(server);
    }
    return out;
}

// The C library's resolver takes whichever of "domain" and "search" comes last.
std::string ResolverText::domain(const std::string& text) {
    std::string word;
    std::vector<std::string> words;
    for (const Line& line : splitLines(text)) {
        if (keywordWords(text, line, "domain", &words) ||
            keywordWords(text, line, "search", &words))
            word = words.empty() ? "" : words[0];
    }
    return word;
}

std::string ResolverText::withNameservers(const std::string& text, bool ipv6,
                                          const std::vector<std::string>& servers) {
    std::vector<Line> lines = splitLines(text);
    std::string server;
    size_t owned = lines.size(), lastNameserver = lines.size();
    for (size_t i = 0; i < lines.size(); ++i) {
        if (owned == lines.size() && serverOf(text, lines[i], ipv6, &server)) owned = i;
        if (isNameserverLine(text, lines[i])) lastNameserver = i;
    }
    // A server that stays keeps its own line, with whatever follows its address.
    std::vector<std::pair<std::string, std::string>> kept;
    for (const Line& line : lines) {
        if (serverOf(text, line, ipv6, &server))
            kept.emplace_back(server, text.substr(line.start, line.length));
    }
    std::string out;
    auto writeServers = [&]() {
        for (const std::string& s : servers) {
            auto same = std::find_if(
                kept.begin(), kept.end(),
                [&s](const std::pair<std::string, std::string>& k) { return k.first == s; });
            if (same != kept.end()) {
                appendLine(&out, same->second);
                kept.erase(same);
            } else {
                appendLine(&out, "nameserver " + s);
            }
        }
    };
    bool written = false;
    for (size_t i = 0; i < lines.size(); ++i) {
        if (serverOf(text, lines[i], ipv6, &server)) {
            if (i == owned) {
                writeServers();
                written = true;
            }
            continue;
        }
        appendOriginal(&out, text, lines[i]);
        if (!written && owned == lines.size() && i == lastNameserver) {
            writeServers();
            written = true;
        }
    }
    if (!written) writeServers();
    return out;
}

std::string ResolverText::withDomain(const std::string& text, const std::string& domain) {
    if (domain == ResolverText::domain(text)) return text;
    std::vector<Line> lines = splitLines(text);
    std::vector<std::string> words;
    size_t last = lines.size();  // the line that decides: the last domain or search line
    for (size_t i = 0; i < lines.size(); ++i) {
        if (keywordWords(text, lines[i], "domain", &words) ||
            keywordWords(text, lines[i], "search", &words))
            last = i;
    }
    std::string out;
    for (size_t i = 0; i < lines.size(); ++i) {
        bool isDomainLine = keywordWords(text, lines[i], "domain", &words);
        bool isSearchLine = !isDomainLine && keywordWords(text, lines[i], "search", &words);
        if (domain.empty() && (isDomainLine || isSearchLine)) {
            // No domain at all: a line left behind would still answer one.
            continue;
        }
        if (i != last) {
            appendOriginal(&out, text, lines[i]);
        } else if (isDomainLine) {
            appendLine(&out, "domain " + domain);
        } else {
            if (!words.empty()) words.erase(words.begin());
            std::string line = "search " + domain;
            for (const std::string& w : words)
                line += " " + w;
            appendLine(&out, line);
        }
    }
    if (last == lines.size() && !domain.empty()) appendLine(&out, "domain " + domain);
    return out;
}

// The host-name file: the first line that is neither blank nor a comment holds the name.
std::string ResolverText::hostNameOf(const std::string& text) {
    for (const Line& line : splitLines(text)) {
        std::string content = text.substr(line.start, line.length);
        size_t first = content.find_first_not_of(" \t\r");
        if (first == std::string::npos || content[first] == '#') continue;
        size_t end = content.find_last_not_of(" \t\r");
        return content.substr(first, end - first + 1);
    }
    return "";
}

std::string ResolverText::withHostName(const std::string& text, const std::string& name) {
    std::string out;
    bool written = false;
    for (const Line& line : splitLines(text)) {
        std::string content = text.substr(line.start, line.length);
        size_t first = content.find_first_not_of(" \t\r");
        if (!written && first != std::string::npos && content[first] != '#') {
            appendLine(&out, name);
            written = true;
        } else {
            appendOriginal(&out, text, line);
        }
    }
    if (!written) appendLine(&out, name);
    return out;
}

}  // namespace velmora
