#include "tcpip/linux/RtMessage.h"

#include "tcpip/linux/LinuxNetwork.h"

#include <linux/if_addr.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace velmora {

namespace {

// The route flags that a request sets; the others (link down, dead, offloaded...) are the
// kernel's report on the moment.
const unsigned kRequestedRouteFlags = RTNH_F_ONLINK;
// The address flags that a request sets or that describe how the address was made.
const unsigned kLastingAddressFlags =
    IFA_F_PERMANENT | IFA_F_NODAD | IFA_F_NOPREFIXROUTE | IFA_F_MANAGETEMPADDR | IFA_F_HOMEADDRESS;

size_t fixedSize(bool route) {
    return NLMSG_HDRLEN + (route ? sizeof(rtmsg) : sizeof(ifaddrmsg));
}

uint32_t u32(const std::string& payload) {
    uint32_t v = 0;
    if (payload.size() >= 4) std::memcpy(&v, payload.data(), 4);
    return v;
}

void appendAttribute(std::string* out, int type, const std::string& payload) {
    rtattr a{};
    a.rta_type = static_cast<unsigned short>(type);
    a.rta_len = static_cast<unsigned short>(RTA_LENGTH(payload.size()));
    out->append(reinterpret_cast<const char*>(&a), sizeof a);
    out->append(payload);
    out->append(RTA_ALIGN(a.rta_len) - a.rta_len, '\0');
}

std::string addressOf(int family, std::string bytes) {
    bytes.resize(16, '\0');
    return linuxnet::addressText(family, reinterpret_cast<const unsigned char*>(bytes.data()));
}

std::string linkName(int index) {
    char name[IF_NAMESIZE] = "";
    if (index == 0 || if_indextoname(static_cast<unsigned>(index), name) == nullptr)
        return "#" + std::to_string(index);
    return name;
}

}  // namespace

RtMessage::RtMessage(const std::string& bytes) {
    if (bytes.size() < NLMSG_HDRLEN) return;
    nlmsghdr h;
    std::memcpy(&h, bytes.data(), sizeof h);
    if (h.nlmsg_type != RTM_NEWROUTE && h.nlmsg_type != RTM_NEWADDR) return;
    route_ = h.nlmsg_type == RTM_NEWROUTE;
    size_t fixed = fixedSize(route_);
    size_t length = h.nlmsg_len < bytes.size() ? h.nlmsg_len : bytes.size();
    if (length < fixed) return;
    head_ = bytes.substr(0, fixed);
    size_t at = NLMSG_ALIGN(fixed);
    while (at + sizeof(rtattr) <= length) {
        rtattr a;
        std::memcpy(&a, bytes.data() + at, sizeof a);
        if (a.rta_len < sizeof a || at + a.rta_len > length) break;
        attributes_.emplace_back(a.rta_type,
                                 bytes.substr(at + RTA_LENGTH(0), a.rta_len - RTA_LENGTH(0)));
        at += RTA_ALIGN(a.rta_len);
    }
}

int RtMessage::family() const {
    return head_.size() > NLMSG_HDRLEN ? static_cast<unsigned char>(head_[NLMSG_HDRLEN]) : 0;
}

int RtMessage::linkIndex() const {
    if (head_.empty()) return 0;
    if (!route_) {
        ifaddrmsg m;
        std::memcpy(&m, head_.data() + NLMSG_HDRLEN, sizeof m);
        return static_cast<int>(m.ifa_index);
    }
    std::string v;
    return get(RTA_OIF, &v) ? static_cast<int>(u32(v)) : 0;
}

int RtMessage::prefixLength() const {
    if (head_.empty()) return 0;
    return static_cast<unsigned char>(head_[NLMSG_HDRLEN + 1]);
}

int RtMessage::table() const {
    if (!route_ || head_.empty()) return 0;
    std::string v;
    if (get(RTA_TABLE, &v)) return static_cast<int>(u32(v));
    rtmsg m;
    std::memcpy(&m, head_.data() + NLMSG_HDRLEN, sizeof m);
    return m.rtm_table;
}

int RtMessage::protocol() const {
    if (!route_ || head_.empty()) return 0;
    rtmsg m;
    std::memcpy(&m, head_.data() + NLMSG_HDRLEN, sizeof m);
    return m.rtm_protocol;
}

int RtMessage::type() const {
    if (!route_ || head_.empty()) return 0;
    rtmsg m;
    std::memcpy(&m, head_.data() + NLMSG_HDRLEN, sizeof m);
    return m.rtm_type;
}

unsigned RtMessage::routeFlags() const {
    if (!route_ || head_.empty()) return 0;
    rtmsg m;
    std::memcpy(&m, head_.data() + NLMSG_HDRLEN, sizeof m);
    return m.rtm_flags;
}

bool RtMessage::isDefaultRoute() const {
    return route_ && prefixLength() == 0 && type() == RTN_UNICAST && table() == RT_TABLE_MAIN;
}

bool RtMessage::get(int type, std::string* value) const {
    for (const auto& a : attributes_) {
        if (a.first == type) {
            if (value != nullptr) *value = a.second;
            return true;
        }
    }
    return false;
}

void RtMessage::set(int type, const void* data, size_t size) {
    std::string payload(static_cast<const char*>(data), size);
    for (auto& a : attributes_) {
        if (a.first == type) {
            a.second = payload;
            return;
        }
    }
    attributes_.emplace_back(type, payload);
}

void RtMessage::erase(int type) {
    for (size_t i = 0; i < attributes_.size();) {
        if (attributes_[i].first == type)
            attributes_.erase(attributes_.begin() + static_cast<long>(i));
        else
            ++i;
    }
}

void RtMessage::setPrefixLength(int length) {
    if (!head_.empty()) head_[NLMSG_HDRLEN + 1] = static_cast<char>(length);
}

std::string RtMessage::bytes() const {
    if (head_.empty()) return "";
    std::string out = head_;
    out.append(NLMSG_ALIGN(out.size()) - out.size(), '\0');
    for (const auto& a : attributes_)
        appendAttribute(&out, a.first, a.second);
    nlmsghdr h;
    std::memcpy(&h, out.data(), sizeof h);
    h.nlmsg_len = static_cast<unsigned>(out.size());
    std::memcpy(&out[0], &h, sizeof h);
    return out;
}

std::string RtMessage::key() const {
    if (head_.empty()) return "";
    RtMessage copy = *this;
    // The netlink header carries sequence numbers and flags of the dump, not the object.
    std::memset(&copy.head_[0], 0, NLMSG_HDRLEN);
    if (route_) {
        rtmsg m;
        std::memcpy(&m, copy.head_.data() + NLMSG_HDRLEN, sizeof m);
        m.rtm_flags &= kRequestedRouteFlags;
        std::memcpy(&copy.head_[NLMSG_HDRLEN], &m, sizeof m);
        copy.erase(RTA_CACHEINFO);
        copy.erase(RTA_EXPIRES);
    } else {
        ifaddrmsg m;
        std::memcpy(&m, copy.head_.data() + NLMSG_HDRLEN, sizeof m);
        std::string flags;
        unsigned all = m.ifa_flags;
        if (copy.get(IFA_FLAGS, &flags)) all = u32(flags);
        all &= kLastingAddressFlags;
        m.ifa_flags = 0;
        std::memcpy(&copy.head_[NLMSG_HDRLEN], &m, sizeof m);
        copy.set(IFA_FLAGS, &all, 4);
        copy.erase(IFA_CACHEINFO);
    }
    // The same record made by a request and listed by the kernel may differ in the order
    // of its attributes only.
    std::stable_sort(copy.attributes_.begin(), copy.attributes_.end(),
                     [](const std::pair<int, std::string>& a,
                        const std::pair<int, std::string>& b) { return a.first < b.first; });
    return copy.bytes();
}

std::string RtMessage::destinationKey() const {
    if (!route_ || head_.empty()) return "";
    rtmsg m;
    std::memcpy(&m, head_.data() + NLMSG_HDRLEN, sizeof m);
    std::string dst;
    get(RTA_DST, &dst);
    return std::to_string(m.rtm_family) + "/" + std::to_string(table()) + "/" +
           std::to_string(m.rtm_dst_len) + "/" + std::to_string(m.rtm_tos) + "/" + dst;
}

std::string RtMessage::forRequest() const {
    RtMessage copy = *this;
    if (route_) {
        std::string info;
        if (family() == AF_INET6 && get(RTA_CACHEINFO, &info) &&
            info.size() >= sizeof(rta_cacheinfo)) {
            rta_cacheinfo c;
            std::memcpy(&c, info.data(), sizeof c);
            long ticks = ::sysconf(_SC_CLK_TCK);
            if (c.rta_expires != 0 && ticks > 0) {
                uint32_t seconds = static_cast<uint32_t>(c.rta_expires / ticks);
                if (seconds == 0) seconds = 1;
                copy.set(RTA_EXPIRES, &seconds, 4);
            }
        }
        copy.erase(RTA_CACHEINFO);
        rtmsg m;
        std::memcpy(&m, copy.head_.data() + NLMSG_HDRLEN, sizeof m);
        m.rtm_flags &= kRequestedRouteFlags;
        std::memcpy(&copy.head_[NLMSG_HDRLEN], &m, sizeof m);
    } else {
        // The remaining lifetimes are what IFA_CACHEINFO gives on input; the creation and
        // update stamps in it are ignored by the kernel.
        std::string info;
        if (get(IFA_CACHEINFO, &info) && info.size() >= sizeof(ifa_cacheinfo)) {
            ifa_cacheinfo c;
            std::memcpy(&c, info.data(), sizeof c);
            if (c.ifa_valid == 0xFFFFFFFFu) copy.erase(IFA_CACHEINFO);
        }
    }
    return copy.bytes();
}

std::string RtMessage::describe() const {
    int f = family();
    std::string v, text;
    if (route_) {
        text = get(RTA_DST, &v) ? addressOf(f, v) + "/" + std::to_string(prefixLength())
                                : std::string("default");
        if (get(RTA_GATEWAY, &v)) text += " via " + addressOf(f, v);
        if (linkIndex() != 0) text += " dev " + linkName(linkIndex());
        if (get(RTA_PREFSRC, &v)) text += " src " + addressOf(f, v);
        if (get(RTA_PRIORITY, &v)) text += " metric " + std::to_string(u32(v));
        if (table() != RT_TABLE_MAIN) text += " table " + std::to_string(table());
        return text;
    }
    if (get(IFA_LOCAL, &v) || get(IFA_ADDRESS, &v)) text = addressOf(f, v);
    return text + "/" + std::to_string(prefixLength()) + " dev " + linkName(linkIndex());
}

}  // namespace velmora
