// rtnetlink requests: one socket per call, one request, every answer read until the dump's
// end or the kernel's acknowledgement.
#include "tcpip/linux/Netlink.h"

#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <functional>

namespace velmora {
namespace netlink {

namespace {

// A request under construction: the header, the family record and its attributes.
struct Request {
    alignas(NLMSG_ALIGNTO) unsigned char data[512];
    nlmsghdr* header() { return reinterpret_cast<nlmsghdr*>(data); }

    Request(int type, int flags, const void* body, size_t bodySize) {
        std::memset(data, 0, sizeof data);
        header()->nlmsg_type = static_cast<unsigned short>(type);
        header()->nlmsg_flags = static_cast<unsigned short>(NLM_F_REQUEST | flags);
        header()->nlmsg_len = NLMSG_LENGTH(bodySize);
        std::memcpy(NLMSG_DATA(header()), body, bodySize);
    }
    void attribute(int type, const void* value, size_t size) {
        unsigned offset = NLMSG_ALIGN(header()->nlmsg_len);
        rtattr* a = reinterpret_cast<rtattr*>(data + offset);
        a->rta_type = static_cast<unsigned short>(type);
        a->rta_len = static_cast<unsigned short>(RTA_LENGTH(size));
        std::memcpy(RTA_DATA(a), value, size);
        header()->nlmsg_len = offset + RTA_ALIGN(a->rta_len);
    }
};

using Handler = std::function<void(const nlmsghdr*)>;

// Sends the message in `data` and hands every answer of the matching sequence to
// `handler`.
int exchange(nlmsghdr* message, const Handler& handler) {
    int fd = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (fd < 0) return errno;
    static std::atomic<unsigned> sequence{0};
    message->nlmsg_seq = ++sequence;
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    int result = 0;
    if (::sendto(fd, message, message->nlmsg_len, 0, reinterpret_cast<sockaddr*>(&kernel),
                 sizeof kernel) < 0) {
        result = errno;
    }
    bool done = result != 0;
    alignas(NLMSG_ALIGNTO) static thread_local unsigned char buffer[32768];
    while (!done) {
        ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
        if (n < 0) {
            if (errno == EINTR) continue;
            result = errno;
            break;
        }
        if (n == 0) break;
        int left = static_cast<int>(n);
        for (const nlmsghdr* h = reinterpret_cast<const nlmsghdr*>(buffer); NLMSG_OK(h, left);
             h = NLMSG_NEXT(h, left)) {
            if (h->nlmsg_seq != message->nlmsg_seq) continue;
            if (h->nlmsg_type == NLMSG_DONE) {
                done = true;
                break;
            }
            if (h->nlmsg_type == NLMSG_ERROR) {
                const nlmsgerr* e = static_cast<const nlmsgerr*>(NLMSG_DATA(h));
                result = e->error < 0 ? -e->error : 0;
                done = true;
                break;
            }
            handler(h);
            // A plain request (not a dump) answers with a single message.
            if ((h->nlmsg_flags & NLM_F_MULTI) == 0) done = true;
        }
    }
    ::close(fd);
    return result;
}

int exchange(Request& request, const Handler& handler) {
    return exchange(request.header(), handler);
}

int ack(Request& request) {
    request.header()->nlmsg_flags |= NLM_F_ACK;
    return exchange(request, [](const nlmsghdr*) {});
}

// Every message of a dump of `type` for `family`, whole.
int dumpRaw(int type, int family, size_t bodySize, std::vector<std::string>* out) {
    out->clear();
    unsigned char body[sizeof(ifinfomsg) + sizeof(rtmsg)] = {};
    body[0] = static_cast<unsigned char>(family);  // the family comes first in every body
    Request request(type, NLM_F_DUMP, body, bodySize);
    int answer = type == RTM_GETADDR    ? RTM_NEWADDR
                 : type == RTM_GETROUTE ? RTM_NEWROUTE
                                        : RTM_NEWLINK;
    return exchange(request, [out, answer](const nlmsghdr* h) {
        if (h->nlmsg_type == answer)
            out->emplace_back(reinterpret_cast<const char*>(h), h->nlmsg_len);
    });
}

void copyBytes(unsigned char* dst, const rtattr* a, int max, int* length = nullptr) {
    int n = static_cast<int>(RTA_PAYLOAD(a));
    if (n > max) n = max;
    std::memcpy(dst, RTA_DATA(a), static_cast<size_t>(n));
    if (length != nullptr) *length = n;
}

void readLinkInfo(const rtattr* info, Link* link) {
    int left = static_cast<int>(RTA_PAYLOAD(info));
    for (const rtattr* a = static_cast<const rtattr*>(RTA_DATA(info)); RTA_OK(a, left);
         a = RTA_NEXT(a, left)) {
        if (a->rta_type == IFLA_INFO_KIND) {
            const char* text = static_cast<const char*>(RTA_DATA(a));
            link->kind.assign(text, strnlen(text, RTA_PAYLOAD(a)));
        }
    }
}

void readLink(const nlmsghdr* h, std::vector<Link>* out) {
    if (h->nlmsg_type != RTM_NEWLINK) return;
    const ifinfomsg* info = static_cast<const ifinfomsg*>(NLMSG_DATA(h));
    Link link;
    link.index = info->ifi_index;
    link.flags = info->ifi_flags;
    link.hardwareType = info->ifi_type;
    int left = static_cast<int>(IFLA_PAYLOAD(h));
    for (const rtattr* a = IFLA_RTA(info); RTA_OK(a, left); a = RTA_NEXT(a, left)) {
        if (a->rta_type == IFLA_IFNAME) {
            const char* text = static_cast<const char*>(RTA_DATA(a));
            link.name.assign(text, strnlen(text, RTA_PAYLOAD(a)));
        } else if (a->rta_type == IFLA_ADDRESS) {
            copyBytes(link.hardware, a, sizeof link.hardware, &link.hardwareLength);
        } else if (a->rta_type == IFLA_LINKINFO) {
            readLinkInfo(a, &link);
        }
    }
    out->push_back(link);
}

void readAddress(const nlmsghdr* h, int family, int index, std::vector<Address>* out) {
    if (h->nlmsg_type != RTM_NEWADDR) return;
    const ifaddrmsg* msg = static_cast<const ifaddrmsg*>(NLMSG_DATA(h));
    if ((family != AF_UNSPEC && msg->ifa_family != family) ||
        (index != 0 && static_cast<int>(msg->ifa_index) != index)) {
        return;
    }
    Address address;
    address.index = static_cast<int>(msg->ifa_index);
    address.family = msg->ifa_family;
    address.prefixLength = msg->ifa_prefixlen;
    address.scope = msg->ifa_scope;
    address.flags = msg->ifa_flags;
    bool haveLocal = false, haveAddress = false;
    unsigned char local[16] = {}, peer[16] = {};
    int left = static_cast<int>(IFA_PAYLOAD(h));
    for (const rtattr* a = IFA_RTA(msg); RTA_OK(a, left); a = RTA_NEXT(a, left)) {
        if (a->rta_type == IFA_LOCAL) {
            copyBytes(local, a, 16);
            haveLocal = true;
        } else if (a->rta_type == IFA_ADDRESS) {
            copyBytes(peer, a, 16);
            haveAddress = true;
        } else if (a->rta_type == IFA_FLAGS && RTA_PAYLOAD(a) >= 4) {
            std::memcpy(&address.flags, RTA_DATA(a), 4);
        }
    }
    // IPv4 gives the interface's own address as IFA_LOCAL (IFA_ADDRESS is the peer on
    // point-to-point links); IPv6 gives only IFA_ADDRESS unless there is a peer.
    if (!haveLocal && !haveAddress) return;
    std::memcpy(address.bytes, haveLocal ? local : peer, 16);
    out->push_back(address);
}

void readRoute(const nlmsghdr* h, int family, std::vector<Route>* out) {
    if (h->nlmsg_type != RTM_NEWROUTE) return;
    const rtmsg* msg = static_cast<const rtmsg*>(NLMSG_DATA(h));
    if (msg->rtm_family != family || msg->rtm_dst_len != 0 || msg->rtm_type != RTN_UNICAST) return;
    Route route;
    route.family = msg->rtm_family;
    route.protocol = msg->rtm_protocol;
    unsigned table = msg->rtm_table;
    int left = static_cast<int>(RTM_PAYLOAD(h));
    for (const rtattr* a = RTM_RTA(msg); RTA_OK(a, left); a = RTA_NEXT(a, left)) {
        if (a->rta_type == RTA_TABLE && RTA_PAYLOAD(a) >= 4) {
            std::memcpy(&table, RTA_DATA(a), 4);
        } else if (a->rta_type == RTA_OIF && RTA_PAYLOAD(a) >= 4) {
            std::memcpy(&route.outIndex, RTA_DATA(a), 4);
        } else if (a->rta_type == RTA_GATEWAY) {
            copyBytes(route.gateway, a, 16);
            route.hasGateway = true;
        } else if (a->rta_type == RTA_PRIORITY && RTA_PAYLOAD(a) >= 4) {
            std::memcpy(&route.priority, RTA_DATA(a), 4);
            route.hasPriority = true;
        }
    }
    if (table == RT_TABLE_MAIN) out->push_back(route);
}

int addressRequest(int type, int flags, const Address& address) {
    ifaddrmsg msg{};
    msg.ifa_family = static_cast<unsigned char>(address.family);
    msg.ifa_prefixlen = static_cast<unsigned char>(address.prefixLength);
    msg.ifa_index = static_cast<unsigned>(address.index);
    msg.ifa_scope = RT_SCOPE_UNIVERSE;
    Request request(type, flags, &msg, sizeof msg);
    size_t size = address.family == AF_INET ? 4 : 16;
    request.attribute(IFA_LOCAL, address.bytes, size);
    request.attribute(IFA_ADDRESS, address.bytes, size);
    if (address.family == AF_INET && type == RTM_NEWADDR && address.prefixLength < 31) {
        // The broadcast address that `ip addr add ... brd +` would set.
        unsigned char broadcast[4];
        for (int i = 0; i < 4; ++i) {
            int bits = address.prefixLength - 8 * i;
            unsigned char mask = bits >= 8 ? 0xFF : bits <= 0 ? 0 : (0xFF << (8 - bits)) & 0xFF;
            broadcast[i] = static_cast<unsigned char>(address.bytes[i] | ~mask);
        }
        request.attribute(IFA_BROADCAST, broadcast, 4);
    }
    return ack(request);
}

int routeRequest(int type, int flags, const Route& route) {
    rtmsg msg{};
    msg.rtm_family = static_cast<unsigned char>(route.family);
    msg.rtm_table = RT_TABLE_MAIN;
    msg.rtm_protocol = type == RTM_NEWROUTE ? RTPROT_STATIC : 0;
    msg.rtm_scope = type == RTM_NEWROUTE ? RT_SCOPE_UNIVERSE : RT_SCOPE_NOWHERE;
    msg.rtm_type = RTN_UNICAST;
    if (type == RTM_NEWROUTE && route.protocol != 0)
        msg.rtm_protocol = static_cast<unsigned char>(route.protocol);
    Request request(type, flags, &msg, sizeof msg);
    if (route.hasGateway)
        request.attribute(RTA_GATEWAY, route.gateway, route.family == AF_INET ? 4 : 16);
    if (route.outIndex != 0) request.attribute(RTA_OIF, &route.outIndex, 4);
    if (route.hasPriority) request.attribute(RTA_PRIORITY, &route.priority, 4);
    return ack(request);
}

}  // namespace

int dumpLinks(std::vector<Link>* out) {
    out->clear();
    ifinfomsg msg{};
    msg.ifi_family = AF_UNSPEC;
    Request request(RTM_GETLINK, NLM_F_DUMP, &msg, sizeof msg);
    return exchange(request, [out](const nlmsghdr* h) { readLink(h, out); });
}

int findLink(const char* name, Link* out) {
    unsigned index = name != nullptr && *name != '\0' ? if_nametoindex(name) : 0;
    if (index == 0) return ENODEV;
    ifinfomsg msg{};
    msg.ifi_family = AF_UNSPEC;
    msg.ifi_index = static_cast<int>(index);
    Request request(RTM_GETLINK, 0, &msg, sizeof msg);
    std::vector<Link> links;
    int result = exchange(request, [&links](const nlmsghdr* h) { readLink(h, &links); });
    if (result != 0) return result;
    // The index may have passed to another link between the two questions.
    if (links.empty() || links[0].name != name) return ENODEV;
    *out = links[0];
    return 0;
}

int dumpAddresses(int family, int index, std::vector<Address>* out) {
    out->clear();
    ifaddrmsg msg{};
    msg.ifa_family = static_cast<unsigned char>(family);
    Request request(RTM_GETADDR, NLM_F_DUMP, &msg, sizeof msg);
    return exchange(request, [=](const nlmsghdr* h) { readAddress(h, family, index, out); });
}

int dumpDefaultRoutes(int family, std::vector<Route>* out) {
    out->clear();
    rtmsg msg{};
    msg.rtm_family = static_cast<unsigned char>(family);
    Request request(RTM_GETROUTE, NLM_F_DUMP, &msg, sizeof msg);
    return exchange(request, [=](const nlmsghdr* h) { readRoute(h, family, out); });
}

int setLinkUp(int index, bool up) {
    ifinfomsg msg{};
    msg.ifi_family = AF_UNSPEC;
    msg.ifi_index = index;
    msg.ifi_change = IFF_UP;
    msg.ifi_flags = up ? IFF_UP : 0;
    Request request(RTM_NEWLINK, 0, &msg, sizeof msg);
    return ack(request);
}

int addAddress(const Address& address) {
    return addressRequest(RTM_NEWADDR, NLM_F_CREATE | NLM_F_EXCL, address);
}

int deleteAddress(const Address& address) {
    return addressRequest(RTM_DELADDR, 0, address);
}

int addDefaultRoute(const Route& route) {
    return routeRequest(RTM_NEWROUTE, NLM_F_CREATE | NLM_F_EXCL, route);
}

int deleteDefaultRoute(const Route& route) {
    return routeRequest(RTM_DELROUTE, 0, route);
}

int dumpRawAddresses(int family, std::vector<std::string>* out) {
    return dumpRaw(RTM_GETADDR, family, sizeof(ifaddrmsg), out);
}

int dumpRawRoutes(int family, std::vector<std::string>* out) {
    return dumpRaw(RTM_GETROUTE, family, sizeof(rtmsg), out);
}

int sendRaw(const std::string& message, int type, int flags) {
    if (message.size() < NLMSG_HDRLEN) return EINVAL;
    std::vector<unsigned char> data(NLMSG_ALIGN(message.size()) + NLMSG_ALIGNTO);
    // The copy starts on an aligned address whatever the string's storage is.
    size_t skew = reinterpret_cast<uintptr_t>(data.data()) % NLMSG_ALIGNTO;
    unsigned char* start = data.data() + (skew == 0 ? 0 : NLMSG_ALIGNTO - skew);
    std::memcpy(start, message.data(), message.size());
    nlmsghdr* h = reinterpret_cast<nlmsghdr*>(start);
    h->nlmsg_len = static_cast<unsigned>(message.size());
    h->nlmsg_type = static_cast<unsigned short>(type);
    h->nlmsg_flags = static_cast<unsigned short>(NLM_F_REQUEST | NLM_F_ACK | flags);
    h->nlmsg_pid = 0;
    return exchange(h, [](const nlmsghdr*) {});
}

}  // namespace netlink
}  // namespace velmora
