// Internal: the host's links, addresses and default routes through rtnetlink, and the few
// changes the settings make to them. Every call opens its own socket, so the objects that
// use it hold no descriptor and follow the network namespace of the calling thread.
//
//   std::vector<netlink::Link> links;
//   if (netlink::dumpLinks(&links) == 0) ... links[i].name ...
//
// Operations answer 0 or the positive errno value of the failure (the kernel's own answer
// for a refused request), so that callers can report the system's text.
#pragma once

#include <string>
#include <vector>

namespace velmora {
namespace netlink {

struct Link {
    int index = 0;
    std::string name;
    std::string kind;      // the link kind ("veth", "bridge"...), empty for a plain device
    unsigned flags = 0;    // IFF_UP, IFF_LOOPBACK...
    int hardwareType = 0;  // ARPHRD_*
    unsigned char hardware[32] = {};
    int hardwareLength = 0;
};

struct Address {
    int index = 0;
    int family = 0;  // AF_INET or AF_INET6
    unsigned char bytes[16] = {};
    int prefixLength = 0;
    int scope = 0;       // RT_SCOPE_*
    unsigned flags = 0;  // IFA_F_*, the 32-bit form when the kernel gives it
};

struct Route {
    int family = 0;
    int outIndex = 0;  // 0 when the route names no device
    bool hasGateway = false;
    unsigned char gateway[16] = {};
    int protocol = 0;
    int priority = 0;
    bool hasPriority = false;
};

// Every link of the namespace, in index order.
int dumpLinks(std::vector<Link>* out);
// The link called `name`; ENODEV when there is none.
int findLink(const char* name, Link* out);
// Every address of `family` (AF_UNSPEC for both), on link `index` or on all (0).
int dumpAddresses(int family, int index, std::vector<Address>* out);
// The default routes (destination length 0) of the main table for `family`.
int dumpDefaultRoutes(int family, std::vector<Route>* out);

int setLinkUp(int index, bool up);
int addAddress(const Address& address);
int deleteAddress(const Address& address);
int addDefaultRoute(const Route& route);
int deleteDefaultRoute(const Route& route);

// Whole messages, as the kernel sent them, for copies that keep every attribute (see
// RtMessage.h): each RTM_NEWADDR / RTM_NEWROUTE of `family` (all links, all tables).
int dumpRawAddresses(int family, std::vector<std::string>* out);
int dumpRawRoutes(int family, std::vector<std::string>* out);
// Sends a copy of a dumped message as a request of `type` (RTM_NEWROUTE, RTM_DELADDR...)
// with `flags` (NLM_F_CREATE...) added to NLM_F_REQUEST and NLM_F_ACK.
int sendRaw(const std::string& message, int type, int flags);

}  // namespace netlink
}  // namespace velmora
