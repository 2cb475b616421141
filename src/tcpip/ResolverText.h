// Internal: the texts the host settings read from outside without asking the system:
// address literals, host and domain names, and the resolver configuration file
// ("nameserver", "domain" and "search" lines). Pure text in, text out, so that it can be
// fuzzed and tested without touching a file. Exported (not published) for the tests and
// the fuzz target.
//
//   std::string text = ...whole resolver file...;
//   std::vector<std::string> v4 = ResolverText::nameservers(text, false);
//   std::string next = ResolverText::withNameservers(text, false, {"192.0.2.53"});
//
// Lines are read the way the C library's resolver reads them: a keyword at the start of
// the line followed by a blank, ';' or '#' starting a comment line. A "nameserver" line
// belongs to the IPv4 or the IPv6 list when its first word is a plain literal of that
// family; any other line (comments, options, scoped or malformed entries) is never
// changed by a rewrite and keeps its place.
#pragma once

#include <velmora/Export.h>

#include <string>
#include <vector>

namespace velmora {

class VELMORA_API ResolverText {
public:
    // A strict literal, as inet_pton reads it: dotted quad of four decimal parts 0-255
    // without leading zeros (4 bytes), or an IPv6 literal with at most one "::" and an
    // optional dotted-quad tail (16 bytes). Names, scope suffixes, prefixes and blanks
    // are refused. 4 or 6, or 0 when refused.
    static int parseAddress(const char* text, unsigned char* out16);
    // A dotted IPv4 mask with contiguous leading ones: its prefix length, else -1.
    static int maskPrefix(const char* text);
    // A host name the system keeps: 1 to 64 characters of letters, digits, '-' and '.',
    // not starting with '-' or '.'.
    static bool isHostName(const char* text);
    // A resolver domain: empty, or 1 to 253 characters of letters, digits, '-', '_' and
    // '.', not starting with '-' or '.'.
    static bool isDomain(const char* text);

    // The servers of one family in file order.
    static std::vector<std::string> nameservers(const std::string& text, bool ipv6);
    // The domain the C library uses: the word of the last "domain" line or the first word
    // of the last "search" line, whichever comes later.
    static std::string domain(const std::string& text);
    // The file with the servers of one family replaced by `servers` (written one per
    // "nameserver" line where the first such line stood; after the last nameserver line,
    // or at the end, when there was none). A server that stays keeps its own line, with a
    // comment after the address.
    static std::string withNameservers(const std::string& text, bool ipv6,
                                       const std::vector<std::string>& servers);
    // The file with `domain` as its domain: the line that decides (see domain()) gets the
    // new word, the others stay; without one a "domain" line is appended. An empty domain
    // removes every "domain" and "search" line. Unchanged when `domain` is already the
    // answer of domain().
    static std::string withDomain(const std::string& text, const std::string& domain);

    // The host-name file: the name is its first line that is neither blank nor a comment.
    static std::string hostNameOf(const std::string& text);
    // The file with `name` on that line (appended when there is none), the rest kept.
    static std::string withHostName(const std::string& text, const std::string& name);
};

}  // namespace velmora
