// The text rules the guard applies to request fields, free of any connection so that they
// can be fuzzed on their own.
#pragma once

#include <string>
#include <vector>

namespace velmorad {

// ASCII lower case.
std::string lower(std::string text);
// An address literal, never a name (IPv4, or IPv6 with or without brackets) as its bytes after a family
// mark ('4' and 4 bytes, or '6' and 16), IPv4-mapped IPv6 taken as IPv4; "" for any other
// text. Two texts name the same address when their canonical forms are equal.
std::string canonicalAddress(std::string text);
// Whether `bind` is a loopback address (127.0.0.0/8, ::1) or "localhost".
bool isLoopback(const std::string& bind);
// The name part of a Host value ("name", "name:port", "[v6]:port"), lower case; "" when the
// value is not of that form (a port that is not 1 to 5 digits, a character no host name has).
std::string hostName(const std::string& host);
// The items of a comma-separated setting, trimmed, empty ones left out, letter case kept.
std::vector<std::string> itemsOf(const std::string& text);
// The same items in lower case.
std::vector<std::string> listOf(const std::string& text);
// The media type of a Content-Type value without its parameters, lower case.
std::string mediaType(const char* value);

}  // namespace velmorad
