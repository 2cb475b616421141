#include "tcpip/linux/KernelRecords.h"

#include "tcpip/linux/LinuxNetwork.h"
#include "tcpip/linux/Netlink.h"
#include "tcpip/linux/RtMessage.h"

#include <linux/if_addr.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <set>

namespace velmora {
namespace linuxnet {

namespace {

const char kKey[] = "TcpIpSettings.recordFailed";

bool contains(const std::vector<std::string>& keys, const std::string& key) {
    return std::find(keys.begin(), keys.end(), key) != keys.end();
}

void reportFailure(ErrorHandler* err, const std::string& what, int code) {
    linuxnet::reportSystem(err, kKey, what, code);
}

// Adds records in the order the kernel will list them: IPv4 keeps the order of adding,
// IPv6 lists the newest first among addresses of one scope.
int addAddresses(int family, std::vector<std::string> records, ErrorHandler* err) {
    if (family == AF_INET6) std::reverse(records.begin(), records.end());
    int failed = 0;
    for (const std::string& m : records) {
        RtMessage a(m);
        int code = netlink::sendRaw(a.forRequest(), RTM_NEWADDR, NLM_F_CREATE | NLM_F_EXCL);
        if (code != 0 && code != EEXIST) {
            reportFailure(err, "Cannot add the address " + a.describe(), code);
            ++failed;
        }
    }
    return failed;
}

void deleteAddresses(const std::vector<std::string>& records) {
    for (const std::string& m : records)
        netlink::sendRaw(RtMessage(m).forRequest(), RTM_DELADDR, 0);
}

// Routes of one destination that the kernel lists in another order than `wanted` (the
// kernel made some of them again, after those added later) are taken off and added again
// in the wanted order.
void reorderRoutes(int family, const std::vector<std::string>& wanted) {
    std::vector<std::string> now;
    if (dumpRecords(true, family, &now) != 0) return;
    std::map<std::string, std::vector<std::string>> wantedGroups, nowGroups;
    for (const std::string& m : wanted)
        wantedGroups[RtMessage(m).destinationKey()].push_back(m);
    for (const std::string& m : now)
        nowGroups[RtMessage(m).destinationKey()].push_back(m);
    int flags = addRouteFlags(family);
    for (const auto& group : wantedGroups) {
        // Routes of the destination through links that came later are left where they are.
        std::vector<std::string> wantedKeys = keysOf(group.second), current, currentKeys;
        for (const std::string& m : nowGroups[group.first]) {
            std::string key = RtMessage(m).key();
            if (contains(wantedKeys, key)) {
                current.push_back(m);
                currentKeys.push_back(key);
            }
        }
        if (group.second.size() < 2 || currentKeys == wantedKeys) continue;
        std::sort(currentKeys.begin(), currentKeys.end());
        std::vector<std::string> sortedWanted = wantedKeys;
        std::sort(sortedWanted.begin(), sortedWanted.end());
        if (currentKeys != sortedWanted) continue;  // not only the order differs: leave it
        bool onlyKernel = false;                    // an IPv6 metric of 0 cannot be asked for
        for (const std::string& m : group.second) {
            std::string metric;
            RtMessage r(m);
            onlyKernel = onlyKernel || (family == AF_INET6 && (!r.get(RTA_PRIORITY, &metric) ||
                                                               metric == std::string(4, '\0')));
        }
        if (onlyKernel) continue;
        for (const std::string& m : current)
            netlink::sendRaw(RtMessage(m).forRequest(), RTM_DELROUTE, 0);
        for (const std::string& m : group.second)
            netlink::sendRaw(RtMessage(m).forRequest(), RTM_NEWROUTE, flags);
    }
}

// The kernel installs the local route of a new IPv6 address a moment after the address,
// from its own work queue (after the duplicate check, even when that is off): wait for
// them, so that what is read next is what stays.
void waitForLocalRoutes(int index) {
    std::vector<netlink::Link> links;
    if (netlink::dumpLinks(&links) != 0) return;
    for (const netlink::Link& l : links) {
        if (l.index == index && ((l.flags & IFF_UP) == 0 || (l.flags & IFF_RUNNING) == 0))
            return;  // a link that does not work gets no local routes
    }
    waitForTentativeAddresses();
    for (int wait = 0; wait < 40; ++wait) {
        std::vector<std::string> addresses, routes;
        if (dumpRecords(false, AF_INET6, &addresses) != 0 ||
            dumpRecords(true, AF_INET6, &routes) != 0)
            return;
        bool missing = false;
        for (const std::string& m : onLink(addresses, index)) {
            std::string address, flags, dst;
            RtMessage a(m);
            unsigned f = 0;
            if (a.get(IFA_FLAGS, &flags) && flags.size() >= 4) std::memcpy(&f, flags.data(), 4);
            if (!a.get(IFA_ADDRESS, &address) || (f & (IFA_F_TENTATIVE | IFA_F_DADFAILED)) != 0)
                continue;
            bool found = false;
            for (const std::string& r : routes) {
                RtMessage route(r);
                found = found || (route.table() == RT_TABLE_LOCAL && route.prefixLength() == 128 &&
                                  route.get(RTA_DST, &dst) && dst == address);
            }
            missing = missing || !found;
        }
        if (!missing) return;
        ::usleep(50 * 1000);
    }
}

}  // namespace

int addRouteFlags(int family) {
    return NLM_F_CREATE | (family == AF_INET ? NLM_F_APPEND : 0);
}

// Records of one family, less the copies the kernel keeps for itself (route cache).
int dumpRecords(bool routes, int family, std::vector<std::string>* out) {
    int code =
        routes ? netlink::dumpRawRoutes(family, out) : netlink::dumpRawAddresses(family, out);
    if (code != 0) return code;
    out->erase(std::remove_if(out->begin(), out->end(),
                              [](const std::string& m) {
                                  RtMessage r(m);
                                  return r.family() == 0 ||
                                         (r.isRoute() && (r.routeFlags() & RTM_F_CLONED) != 0);
                              }),
               out->end());
    return 0;
}

std::vector<std::string> keysOf(const std::vector<std::string>& records) {
    std::vector<std::string> keys;
    for (const std::string& m : records)
        keys.push_back(RtMessage(m).key());
    return keys;
}

// The records of `records` on link `index`, in order.
std::vector<std::string> onLink(const std::vector<std::string>& records, int index) {
    std::vector<std::string> out;
    for (const std::string& m : records) {
        if (RtMessage(m).linkIndex() == index) out.push_back(m);
    }
    return out;
}

// One link's addresses of one family brought to the captured list: extra ones go, missing
// ones come back; when the order still differs, everything from the first difference on
// is taken off and put back in the captured order.
int setLinkAddresses(int family, int index, const std::vector<std::string>& wanted,
                     ErrorHandler* err) {
    std::vector<std::string> wantedKeys = keysOf(wanted);
    int failed = 0;
    for (int pass = 0; pass < 3; ++pass) {
        std::vector<std::string> all;
        if (dumpRecords(false, family, &all) != 0) return 1;
        std::vector<std::string> now = onLink(all, index);
        std::vector<std::string> nowKeys = keysOf(now);
        if (nowKeys == wantedKeys) return 0;
        std::vector<std::string> extra, missing;
        if (pass == 0) {
            for (size_t i = 0; i < now.size(); ++i) {
                if (!contains(wantedKeys, nowKeys[i])) extra.push_back(now[i]);
            }
            for (size_t i = 0; i < wanted.size(); ++i) {
                if (!contains(nowKeys, wantedKeys[i])) missing.push_back(wanted[i]);
            }
        } else {
            size_t k = 0;
            while (k < now.size() && k < wanted.size() && nowKeys[k] == wantedKeys[k])
                ++k;
            extra.assign(now.begin() + static_cast<long>(k), now.end());
            missing.assign(wanted.begin() + static_cast<long>(k), wanted.end());
        }
        deleteAddresses(extra);
        failed = addAddresses(family, missing, nullptr);
        if (family == AF_INET6 && !missing.empty()) waitForLocalRoutes(index);
    }
    std::vector<std::string> all;
    if (dumpRecords(false, family, &all) == 0 && keysOf(onLink(all, index)) == wantedKeys) return 0;
    // Say which addresses are still missing.
    std::vector<std::string> nowKeys = keysOf(onLink(all, index));
    for (size_t i = 0; i < wanted.size(); ++i) {
        if (!contains(nowKeys, wantedKeys[i]))
            linuxnet::report(err, kKey, RtMessage(wanted[i]).describe(),
                             "The address " + RtMessage(wanted[i]).describe() + " is missing");
    }
    return failed + 1;
}

int setRoutes(int family, const std::vector<std::string>& wanted, const std::set<int>& links,
              ErrorHandler* err) {
    std::vector<std::string> now;
    int code = dumpRecords(true, family, &now);
    if (code != 0) {
        reportFailure(err, "Cannot read the routes", code);
        return 1;
    }
    std::vector<std::string> wantedKeys = keysOf(wanted), nowKeys = keysOf(now);
    for (size_t i = 0; i < now.size(); ++i) {
        RtMessage r(now[i]);
        if (!contains(wantedKeys, nowKeys[i]) &&
            (r.linkIndex() == 0 || links.count(r.linkIndex()) != 0))
            netlink::sendRaw(r.forRequest(), RTM_DELROUTE, 0);
    }
    // The kernel's own routes come back with their addresses and links, some of them a
    // moment later; a copy added in their stead would differ (an IPv6 metric of 0 reads
    // as 1024 in a request), so they are waited for and added only when they do not come.
    int failed = 0;
    for (int round = 0; round < 2; ++round) {
        if (round == 1) {
            for (int wait = 0; wait < 20; ++wait) {
                bool missing = false;
                if (dumpRecords(true, family, &now) != 0) break;
                nowKeys = keysOf(now);
                for (size_t i = 0; i < wanted.size() && !missing; ++i)
                    missing = !contains(nowKeys, wantedKeys[i]);
                if (!missing) break;
                ::usleep(100 * 1000);
            }
        }
        for (size_t i = 0; i < wanted.size(); ++i) {
            RtMessage r(wanted[i]);
            if (contains(nowKeys, wantedKeys[i]) || (r.protocol() == RTPROT_KERNEL) != (round == 1))
                continue;
            code = netlink::sendRaw(r.forRequest(), RTM_NEWROUTE, addRouteFlags(family));
            if (code != 0 && code != EEXIST) {
                reportFailure(err, "Cannot put back the route " + r.describe(), code);
                ++failed;
            }
        }
    }
    if (failed == 0) reorderRoutes(family, wanted);
    return failed;
}

// IPv6 addresses of a link that came up are tentative while the kernel checks them for
// duplicates: their records change once more when that ends, so the wait comes first.
void waitForTentativeAddresses() {
    for (int i = 0; i < 40; ++i) {
        std::vector<std::string> all;
        std::vector<netlink::Link> links;
        if (dumpRecords(false, AF_INET6, &all) != 0 || netlink::dumpLinks(&links) != 0) return;
        // On a link that is down or has no carrier the check waits for the link, not time.
        std::set<int> working;
        for (const netlink::Link& l : links) {
            if ((l.flags & IFF_UP) != 0 && (l.flags & IFF_RUNNING) != 0) working.insert(l.index);
        }
        bool tentative = false;
        for (const std::string& m : all) {
            std::string flags;
            RtMessage a(m);
            if (working.count(a.linkIndex()) == 0) continue;
            if (a.get(IFA_FLAGS, &flags) && flags.size() >= 4) {
                unsigned f;
                std::memcpy(&f, flags.data(), 4);
                tentative = tentative || ((f & IFA_F_TENTATIVE) != 0 && (f & IFA_F_DADFAILED) == 0);
            }
        }
        if (!tentative) return;
        ::usleep(100 * 1000);
    }
}

int keepRoutes(int family, const std::vector<std::string>& before, ErrorHandler* err) {
    std::vector<std::string> now;
    if (dumpRecords(true, family, &now) != 0) return 0;
    std::vector<std::string> nowKeys = keysOf(now);
    int failed = 0;
    int flags = addRouteFlags(family);
    std::string replaced = replacedGateway(family);
    for (const std::string& m : before) {
        RtMessage r(m);
        if (r.protocol() == RTPROT_KERNEL || r.table() == RT_TABLE_LOCAL ||
            contains(nowKeys, r.key()) || (!replaced.empty() && r.key() == replaced)) {
            continue;
        }
        int code = netlink::sendRaw(r.forRequest(), RTM_NEWROUTE, flags);
        if (code != 0 && code != EEXIST) {
            reportFailure(err, "The route " + r.describe() + " could not be kept", code);
            ++failed;
        }
    }
    return failed;
}

}  // namespace linuxnet
}  // namespace velmora
