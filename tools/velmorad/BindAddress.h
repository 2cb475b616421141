// Checks an address the daemon is told to listen on and turns it into the numeric address
// the listener binds: a dotted quad with four numbers 0 to 255, an IPv6 address (with or
// without brackets), or a host name that resolves. Anything else is refused with a reason,
// so that a typo never ends up as the wildcard address.
//
//   std::string numeric, why;
//   velmorad::resolveBindAddress("[::1]", &numeric, &why);  // true, numeric "::1"
//   velmorad::resolveBindAddress("999.1.1.1", &numeric, &why);  // false, why says so
#pragma once

#include <string>

namespace velmorad {

bool resolveBindAddress(const std::string& text, std::string* numeric, std::string* why);
// True for a numeric IPv4 or IPv6 address (no name resolution).
bool isAddressLiteral(const std::string& text);

}  // namespace velmorad
