// What a network change changed, in one line for the daemon's log: the values of two
// tcpIpSettings documents (before and after) that differ, "hostname ns-one -> ns-two;
// adapter v0 ipAddress 192.0.2.10 -> 192.0.2.20; dnsHosts 192.0.2.53 -> 198.51.100.53".
#pragma once

#include <string>

namespace velmorad {

// "no change" when the two documents show the same values.
std::string summarizeChange(const std::string& before, const std::string& after);

}  // namespace velmorad
