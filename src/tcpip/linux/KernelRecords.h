// Internal: the kernel's address and route records (RtMessage) of whole families, and
// bringing a link's addresses or the routes to a given list of records. Shared by the
// settings, which change a few records and keep the rest, and by the capture, which puts
// everything back.
#pragma once

#include <velmora/log/ErrorHandler.h>

#include <set>
#include <string>
#include <vector>

namespace velmora {
namespace linuxnet {

// The flags that add a route from a record beside routes of the same destination, as the
// kernel itself would: IPv4 appends; IPv6 adds without NLM_F_EXCL, which refuses a second
// route of the same metric (a kernel-made prefix route of another link, for one).
int addRouteFlags(int family);
// Every address (routes: every route of every table) of `family`, less the route cache.
int dumpRecords(bool routes, int family, std::vector<std::string>* out);
// RtMessage::key of each record.
std::vector<std::string> keysOf(const std::vector<std::string>& records);
// The records on link `index` (routes: through it), in order.
std::vector<std::string> onLink(const std::vector<std::string>& records, int index);
// Brings the addresses of `family` on link `index` to `wanted`, in that order: extra ones
// go, missing ones come back from their records; what still differs is reported. The
// number of failures.
int setLinkAddresses(int family, int index, const std::vector<std::string>& wanted,
                     ErrorHandler* err);
// Brings the routes of `family` in every table to `wanted`; a route through a link not in
// `links` (nor in `wanted`) is left alone. The number of failures, each reported with the
// route.
int setRoutes(int family, const std::vector<std::string>& wanted, const std::set<int>& links,
              ErrorHandler* err);
// Puts back each route of `before` that is gone now (the kernel takes the routes through
// an address or a link with it), from its record; the kernel's own routes come back with
// their address and are left to it. A route that cannot be put back is reported by name.
// The number of failures.
int keepRoutes(int family, const std::vector<std::string>& before, ErrorHandler* err);
// Waits (at most 4 s) until no IPv6 address of a working link is tentative, so that
// records read next are the lasting ones.
void waitForTentativeAddresses();

}  // namespace linuxnet
}  // namespace velmora
