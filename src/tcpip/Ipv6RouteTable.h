// Internal: reads the IPv6 default gateway of one interface from the route table that the
// IPv6 tool of older Windows prints ("ipv6 rt"), lines such as
//   ::/0 -> 4/fe80::1 pref 1if+0=1 life infinite
// Portable text work, so that it is fuzzed with the other parsers; exported (not published)
// for the fuzz target.
#pragma once

#include <velmora/Export.h>

namespace velmora {

class VELMORA_API Ipv6RouteTable {
public:
    // Copies into `buffer` (always terminated, cut to fit) the gateway of the first default
    // route of interface `index` among the first four default routes of `routes`; leaves
    // the buffer untouched when there is none.
    static void findDefaultGateway(const char* routes, unsigned long index, char* buffer, int size);
};

}  // namespace velmora
