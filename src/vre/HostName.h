// The system's host name, checked to resolve to an address of one family.
#pragma once

namespace velmora {
namespace vre {

// Writes the host name, zero-terminated, into `name` of `size` bytes when it resolves to an
// IPv6 address (`ipv6`) or an IPv4 address. Returns 0, or -1 with nothing promised in `name`.
int queryHostName(bool ipv6, char* name, int size);

}  // namespace vre
}  // namespace velmora
