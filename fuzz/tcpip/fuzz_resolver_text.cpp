// Arbitrary bytes as a resolver file. Every word of it is also an address literal,
// checked against the C library's inet_pton. Rewrites must read back as asked, leave
// the other family's servers and the domain alone, and keep every line they do not own.
#include <arpa/inet.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tcpip/ResolverText.h"

using velmora::ResolverText;

namespace {

void check(bool ok) {
    if (!ok) std::abort();
}

void checkLiteral(const std::string& word) {
    unsigned char mine[16], theirs[16];
    int family = ResolverText::parseAddress(word.c_str(), mine);
    bool v4 = inet_pton(AF_INET, word.c_str(), theirs) == 1;
    check((family == 4) == v4);
    if (v4) check(std::memcmp(mine, theirs, 4) == 0);
    bool v6 = inet_pton(AF_INET6, word.c_str(), theirs) == 1;
    check((family == 6) == v6);
    if (v6) check(std::memcmp(mine, theirs, 16) == 0);
}

// The lines that are not nameserver lines of the family, without their line ends.
std::vector<std::string> otherLines(const std::string& text, bool ipv6) {
    std::vector<std::string> out;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(start, end - start);
        if (ResolverText::nameservers(line + "\n", ipv6).empty()) out.push_back(line);
        start = end + 1;
    }
    return out;
}

void checkRewrite(const std::string& text, bool ipv6, const std::vector<std::string>& servers) {
    std::string after = ResolverText::withNameservers(text, ipv6, servers);
    check(ResolverText::nameservers(after, ipv6) == servers);
    check(ResolverText::nameservers(after, !ipv6) == ResolverText::nameservers(text, !ipv6));
    check(ResolverText::domain(after) == ResolverText::domain(text));
    check(otherLines(after, ipv6) == otherLines(text, ipv6));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    std::string word;
    for (char c : text) {
        if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\0') {
            if (!word.empty()) checkLiteral(word);
            word.clear();
        } else {
            word.push_back(c);
        }
    }
    if (!word.empty()) checkLiteral(word);

    for (bool ipv6 : {false, true}) {
        checkRewrite(text, ipv6, ResolverText::nameservers(text, ipv6));
        checkRewrite(text, ipv6,
                     ipv6 ? std::vector<std::string>{"2001:db8::53"}
                          : std::vector<std::string>{"192.0.2.53", "198.51.100.5"});
        checkRewrite(text, ipv6, {});
    }
    check(ResolverText::withDomain(text, ResolverText::domain(text)) == text);
    check(ResolverText::hostNameOf(ResolverText::withHostName(text, "ns-x")) == "ns-x");
    for (const char* domain : {"example.org", ""}) {
        std::string after = ResolverText::withDomain(text, domain);
        check(ResolverText::domain(after) == domain);
        check(ResolverText::nameservers(after, false) == ResolverText::nameservers(text, false));
        check(ResolverText::nameservers(after, true) == ResolverText::nameservers(text, true));
    }
    return 0;
}
