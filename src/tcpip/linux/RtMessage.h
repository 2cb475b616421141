// Internal: one rtnetlink message of an address or a route, kept whole as the kernel sent
// it, so that a copy can be put back with every attribute it had (metric, flags, source,
// protocol, expiry, multipath...) rather than with a chosen few.
//
//   std::vector<std::string> raw;
//   netlink::dumpRawRoutes(AF_INET, &raw);
//   RtMessage route(raw[0]);
//   if (route.isDefaultRoute()) route.set(RTA_GATEWAY, bytes, 4);
//   netlink::sendRaw(route.forRequest(), RTM_NEWROUTE, NLM_F_CREATE | NLM_F_EXCL);
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace velmora {

class RtMessage {
public:
    // A message that is too short or of another type reads as empty (family 0).
    explicit RtMessage(const std::string& bytes);

    bool isRoute() const { return route_; }
    int family() const;
    // Addresses: the link; routes: RTA_OIF, 0 when the route names none.
    int linkIndex() const;
    int prefixLength() const;  // ifa_prefixlen or rtm_dst_len
    int table() const;         // routes: RTA_TABLE or rtm_table
    int protocol() const;      // routes: rtm_protocol
    int type() const;          // routes: rtm_type (RTN_UNICAST...)
    unsigned routeFlags() const;
    bool isDefaultRoute() const;  // a unicast route of the main table with no destination

    // The payload of attribute `type`; false when the message has none.
    bool get(int type, std::string* value) const;
    void set(int type, const void* data, size_t size);  // replaces or appends
    void erase(int type);
    void setPrefixLength(int length);

    // What tells two messages apart when both describe the same thing: the fixed part and
    // the attributes, less what the kernel changes by itself (cache figures, remaining
    // lifetimes, link-state flags of a route).
    std::string key() const;
    // Routes: what the kernel lists routes of one destination by (table, destination,
    // type of service); among them the order is the order of adding.
    std::string destinationKey() const;
    // The message as a request puts it back: cache figures dropped and, for an IPv6 route
    // that expires, its remaining time as RTA_EXPIRES.
    std::string forRequest() const;
    // The message as it is now.
    std::string bytes() const;
    // For reports: "default via 192.0.2.1 dev v0 metric 100", "192.0.2.10/24 dev v0".
    std::string describe() const;

private:
    bool route_ = false;
    std::string head_;  // the netlink header and the fixed part (ifaddrmsg or rtmsg)
    std::vector<std::pair<int, std::string>> attributes_;
};

}  // namespace velmora
