// Address literals read as the system reads them, and only literals: unlike the library's
// InetAddress::inet_pton, which resolves names, a name here is never looked up, so that
// a Host name cannot pass for an address by resolving to one.
#pragma once

namespace velmorad {

// The bytes of an IPv4 (dotted, four parts) or IPv6 literal into `out`; 4 or 16, or 0
// when `text` is not one.
int parseAddressLiteral(const char* text, unsigned char out[16]);

}  // namespace velmorad
