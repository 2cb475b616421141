#include <velmora/tcpip/TcpIpDocumentCheck.h>

#include <velmora/log/ErrorHandler.h>
#include <velmora/log/MessageBundle.h>
#include <velmora/tcpip/TcpIpAdapterSettings.h>
#include <velmora/tcpip/TcpIpHostSettings.h>

#include "tcpip/ResolverText.h"
#include "tcpip/StrictXml.h"

#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <vector>

namespace velmora {

namespace {

const int kValueSize = 1024;

struct ElementNames {
    const char* name;
    std::vector<const char*> attributes;
    std::vector<const char*> children;
};

const char* const kBooleans[] = {
    "isReadonly",  "velmoraUsesIpv6", "isIPv6Readonly", "usesAdapterLevelSettings", "enabled",
    "canDisable",  "ipv6Supported",   "ipv6Enabled",    "canDisableIpv6",           "canUseDhcp",
    "dhcpEnabled", "canUseIpv6Dhcp",  "ipv6DhcpEnabled"};

const ElementNames kElements[] = {
    {"tcpIpSettings",
     {"hostname", "isReadonly", "velmoraUsesIpv6", "isIPv6Readonly", "usesAdapterLevelSettings",
      "domain", "defaultGateway", "ipv6DefaultGateway"},
     {"dnsHosts", "ipv6DnsHosts", "adapters"}},
    {"dnsHosts", {"limit"}, {"dnsHost"}},
    {"dnsHost", {"ipAddress"}, {}},
    {"ipv6DnsHosts", {"limit"}, {"ipv6DnsHost"}},
    {"ipv6DnsHost", {"ipv6Address"}, {}},
    {"adapters", {}, {"adapter"}},
    {"adapter",
     {"id",
      "enabled",
      "canDisable",
      "desc",
      "macAddress",
      "ipv6Supported",
      "ipv6Enabled",
      "canDisableIpv6",
      "ipAddress",
      "subnetMask",
      "domain",
      "defaultGateway",
      "ipv6Address",
      "ipv6SubnetPrefixLength",
      "ipv6DefaultGateway",
      "canUseDhcp",
      "dhcpEnabled",
      "dhcpHost",
      "dhcpLeaseGranted",
      "dhcpLeaseExpires",
      "canUseIpv6Dhcp",
      "ipv6DhcpEnabled",
      "ipv6DhcpHost",
      "ipv6DhcpLeaseGranted",
      "ipv6DhcpLeaseExpires"},
     {"dnsHosts", "ipv6DnsHosts"}},
};

const ElementNames* namesOf(const std::string& element) {
    for (const ElementNames& e : kElements) {
        if (element == e.name) return &e;
    }
    return nullptr;
}

bool listed(const std::vector<const char*>& names, const std::string& name) {
    for (const char* n : names) {
        if (name == n) return true;
    }
    return false;
}

// A subnet an adapter reaches.
struct Subnet {
    int family = 0;
    unsigned char bytes[16] = {};
    int prefix = 0;
};

bool inSubnet(const unsigned char* address, const Subnet& s) {
    for (int bit = 0; bit < s.prefix; ++bit) {
        unsigned char mask = static_cast<unsigned char>(0x80 >> (bit % 8));
        if ((address[bit / 8] & mask) != (s.bytes[bit / 8] & mask)) return false;
    }
    return true;
}

enum class Use { adapter, gateway, server };

class Checker {
public:
    Checker(TcpIpHostSettings* host, bool requireFlags, ErrorHandler* err)
        : host_(host), requireFlags_(requireFlags), err_(err) {}

    int run(const char* text, size_t length) {
        StrictXml::Node root;
        std::string why;
        if (!StrictXml::parse(text, length, &root, &why)) {
            problem("The network settings are not a well-formed XML document: " + why);
            return problems_;
        }
        if (root.name != "tcpIpSettings") {
            problem("The root element is <" + root.name + ">, not <tcpIpSettings>");
            return problems_;
        }
        names(root);
        if (problems_ != 0) return problems_;
        adapterLevel_ = host_ != nullptr && host_->usesAdapterLevelSettings(nullptr);
        learnSubnets(root);
        values(root);
        return problems_;
    }

private:
    void problem(const std::string& text) {
        ++problems_;
        if (err_ == nullptr) return;
        MessageBundle bundle("platform", "TcpIpDocumentCheck.problem", text.c_str());
        err_->error(&bundle);
    }

    // Element and attribute names, and characters no value may hold.
    void names(const StrictXml::Node& node) {
        const ElementNames* known = namesOf(node.name);
        std::set<std::string> seen;
        for (const auto& a : node.attributes) {
            if (!listed(known->attributes, a.first))
                problem("Unknown attribute " + a.first + " on <" + node.name + ">");
            for (unsigned char c : a.second) {
                if (c < 0x20 || c == 0x7F) {
                    problem("The value of " + a.first + " on <" + node.name +
                            "> holds a control character");
                    break;
                }
            }
            for (const char* b : kBooleans) {
                if (a.first == b && a.second != "true" && a.second != "false")
                    problem(a.first + " must be true or false, not \"" + a.second + "\"");
            }
        }
        for (const StrictXml::Node& child : node.children) {
            if (!listed(known->children, child.name) || namesOf(child.name) == nullptr) {
                problem("Unknown element <" + child.name + "> in <" + node.name + ">");
                continue;
            }
            if (child.name != "dnsHost" && child.name != "ipv6DnsHost" && child.name != "adapter" &&
                !seen.insert(child.name).second) {
                problem("<" + child.name + "> appears twice in <" + node.name + ">");
            }
            names(child);
        }
    }

    // The subnets and addresses the adapters will have: the document's where it names
    // them, the host's for the others.
    void learnSubnets(const StrictXml::Node& root) {
        if (host_ == nullptr) return;
        int count = 0;
        TcpIpAdapterSettings** all = host_->getAllAdapterSettings(nullptr, &count);
        const StrictXml::Node* adapters = child(root, "adapters");
        for (int i = 0; i < count; ++i) {
            const StrictXml::Node* elem = nullptr;
            for (size_t j = 0; adapters != nullptr && j < adapters->children.size(); ++j) {
                const std::string* id = adapters->children[j].get("id");
                if (id != nullptr && *id == all[i]->id()) elem = &adapters->children[j];
            }
            char address[kValueSize] = "", mask[kValueSize] = "";
            const std::string* v4 = elem != nullptr ? elem->get("ipAddress") : nullptr;
            const std::string* m4 = elem != nullptr ? elem->get("subnetMask") : nullptr;
            if (v4 != nullptr && m4 != nullptr) {
                std::snprintf(address, sizeof address, "%s", v4->c_str());
                std::snprintf(mask, sizeof mask, "%s", m4->c_str());
            } else {
                all[i]->getIpAddress(nullptr, address, kValueSize);
                all[i]->getSubnetMask(nullptr, mask, kValueSize);
            }
            Subnet s;
            if (ResolverText::parseAddress(address, s.bytes) == 4 &&
                (s.prefix = ResolverText::maskPrefix(mask)) > 0) {
                s.family = 4;
                subnets_.push_back(s);
            }
            const std::string* v6 = elem != nullptr ? elem->get("ipv6Address") : nullptr;
            const std::string* p6 = elem != nullptr ? elem->get("ipv6SubnetPrefixLength") : nullptr;
            Subnet s6;
            s6.prefix = -1;
            if (v6 != nullptr) {
                std::snprintf(address, sizeof address, "%s", v6->c_str());
            } else {
                all[i]->getIpv6Address(nullptr, address, kValueSize);
            }
            if (p6 != nullptr) s6.prefix = prefixOf(*p6);
            if (s6.prefix < 0 && all[i]->isIpv6Enabled(nullptr))
                s6.prefix = all[i]->getIpv6SubnetPrefixLength(nullptr);
            if (ResolverText::parseAddress(address, s6.bytes) == 6 && s6.prefix > 0) {
                s6.family = 6;
                subnets_.push_back(s6);
            }
        }
    }

    static const StrictXml::Node* child(const StrictXml::Node& node, const char* name) {
        for (const StrictXml::Node& c : node.children) {
            if (c.name == name) return &c;
        }
        return nullptr;
    }

    // 0 to 128 in plain decimal digits, else -1.
    static int prefixOf(const std::string& text) {
        if (text.empty() || text.size() > 3) return -1;
        int v = 0;
        for (char c : text) {
            if (c < '0' || c > '9') return -1;
            v = v * 10 + (c - '0');
        }
        return v <= 128 ? v : -1;
    }

    bool isOwnAddress(int family, const unsigned char* bytes) const {
        for (const Subnet& s : subnets_) {
            if (s.family == family && std::memcmp(s.bytes, bytes, family == 4 ? 4 : 16) == 0)
                return true;
        }
        return false;
    }

    bool isConnected(int family, const unsigned char* bytes) const {
        for (const Subnet& s : subnets_) {
            if (s.family == family && inSubnet(bytes, s)) return true;
        }
        return false;
    }

    // Whether `text` is an address of `family` (4 or 6) that may serve as `use`; false
    // with the problem reported.
    bool address(const std::string& what, const std::string& text, int family, Use use,
                 unsigned char* bytes) {
        int got = ResolverText::parseAddress(text.c_str(), bytes);
        if (got != family) {
            problem(what + ": \"" + text + "\" is not an IPv" + std::to_string(family) +
                    " address");
            return false;
        }
        std::string bad;
        if (family == 4) {
            if (bytes[0] == 0) bad = "is not a unicast address (network 0)";
            if (bytes[0] >= 224) bad = "is not a unicast address (multicast or reserved)";
            if (bytes[0] == 127 && use != Use::server) bad = "is a loopback address";
        } else {
            static const unsigned char mapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
            unsigned char zero[16] = {}, loop[16] = {};
            loop[15] = 1;
            if (std::memcmp(bytes, zero, 16) == 0) bad = "is the unspecified address";
            if (bytes[0] == 0xFF) bad = "is a multicast address";
            if (std::memcmp(bytes, mapped, 12) == 0) bad = "is an IPv4-mapped address";
            if (std::memcmp(bytes, loop, 16) == 0 && use != Use::server)
                bad = "is the loopback address";
        }
        if (!bad.empty()) {
            problem(what + ": " + text + " " + bad);
            return false;
        }
        return true;
    }

    void gateway(const std::string& what, std::string text, int family, const char* current) {
        if (text.empty()) return;
        unsigned char bytes[16] = {};
        size_t percent = family == 6 ? text.find('%') : std::string::npos;
        if (percent != std::string::npos) {
            std::string device = text.substr(percent + 1);
            if (host_ != nullptr && host_->getAdapterSettings(nullptr, device.c_str()) == nullptr)
                problem(what + ": no adapter named \"" + device + "\"");
            text.erase(percent);
        }
        if (!address(what, text, family, Use::gateway, bytes)) return;
        if (host_ == nullptr) return;
        unsigned char now[16] = {};
        bool inUse = current != nullptr && ResolverText::parseAddress(current, now) == family &&
                     std::memcmp(now, bytes, family == 4 ? 4 : 16) == 0;
        bool linkLocal = family == 6 && bytes[0] == 0xFE && (bytes[1] & 0xC0) == 0x80;
        if (isOwnAddress(family, bytes)) {
            problem(what + ": " + text + " is an adapter's own address");
        } else if (!inUse && !linkLocal && !isConnected(family, bytes)) {
            problem(what + ": " + text + " lies in no subnet an adapter reaches");
        }
    }

    void servers(const StrictXml::Node& owner, const std::string& who) {
        int count = 0;
        for (int family : {4, 6}) {
            const StrictXml::Node* list = child(owner, family == 4 ? "dnsHosts" : "ipv6DnsHosts");
            if (list == nullptr) continue;
            for (const StrictXml::Node& entry : list->children) {
                const std::string* v = entry.get(family == 4 ? "ipAddress" : "ipv6Address");
                if (v == nullptr) continue;
                unsigned char bytes[16];
                address(who + "DNS server", *v, family, Use::server, bytes);
                ++count;
            }
        }
        int limit = host_ != nullptr ? host_->getDnsHostLimit(nullptr) : 0;
        if (limit > 0 && count > limit) {
            problem(who + std::to_string(count) + " DNS servers given; the resolver uses " +
                    std::to_string(limit));
        }
    }

    void values(const StrictXml::Node& root) {
        const std::string* v = root.get("hostname");
        if (v != nullptr && !ResolverText::isHostName(v->c_str()))
            problem("hostname \"" + *v + "\" is not a host name the system keeps");
        v = root.get("domain");
        if (v != nullptr && !ResolverText::isDomain(v->c_str()))
            problem("domain \"" + *v + "\" is not a domain name");
        char current[kValueSize] = "";
        if (host_ != nullptr && !adapterLevel_)
            host_->getDefaultGateway(nullptr, current, kValueSize);
        if ((v = root.get("defaultGateway")) != nullptr) gateway("defaultGateway", *v, 4, current);
        current[0] = '\0';
        if (host_ != nullptr && !adapterLevel_)
            host_->getIpv6DefaultGateway(nullptr, current, kValueSize);
        if ((v = root.get("ipv6DefaultGateway")) != nullptr)
            gateway("ipv6DefaultGateway", *v, 6, current);
        servers(root, "");
        const StrictXml::Node* adapters = child(root, "adapters");
        std::set<std::string> ids;
        for (size_t i = 0; adapters != nullptr && i < adapters->children.size(); ++i) {
            const StrictXml::Node& a = adapters->children[i];
            const std::string* id = a.get("id");
            if (id == nullptr) {
                problem("An <adapter> has no id");
                continue;
            }
            if (!ids.insert(*id).second) problem("adapter " + *id + " appears twice");
            adapter(a, *id);
        }
    }

    void adapter(const StrictXml::Node& a, const std::string& id) {
        const std::string who = "adapter " + id;
        TcpIpAdapterSettings* settings =
            host_ != nullptr ? host_->getAdapterSettings(nullptr, id.c_str()) : nullptr;
        if (host_ != nullptr && settings == nullptr) {
            problem("No network adapter named " + id);
            return;
        }
        bool ipv6 = settings == nullptr || settings->isIpv6Supported(nullptr);
        if (requireFlags_ && a.get("enabled") == nullptr)
            problem(who + ": enabled is missing (the adapter would be switched off)");
        if (requireFlags_ && ipv6 && a.get("ipv6Enabled") == nullptr)
            problem(who + ": ipv6Enabled is missing (IPv6 would be switched off)");

        const std::string* ip = a.get("ipAddress");
        const std::string* mask = a.get("subnetMask");
        if (ip != nullptr && mask == nullptr) problem(who + ": ipAddress needs subnetMask");
        if (ip != nullptr && mask != nullptr && !(ip->empty() && mask->empty())) {
            unsigned char bytes[16];
            int prefix = ResolverText::maskPrefix(mask->c_str());
            if (prefix <= 0)
                problem(who + ": subnetMask \"" + *mask +
                        "\" is not a contiguous mask other than 0");
            if (address(who + " ipAddress", *ip, 4, Use::adapter, bytes) && prefix > 0 &&
                prefix < 31) {
                unsigned host = (static_cast<unsigned>(bytes[0]) << 24 | bytes[1] << 16 |
                                 bytes[2] << 8 | bytes[3]) &
                                (0xFFFFFFFFu >> prefix);
                if (host == 0) problem(who + ": " + *ip + " is the address of its subnet");
                if (host == (0xFFFFFFFFu >> prefix))
                    problem(who + ": " + *ip + " is the broadcast address of its subnet");
            }
        }
        const std::string* ip6 = a.get("ipv6Address");
        if (ip6 != nullptr && !ip6->empty()) {
            unsigned char bytes[16];
            address(who + " ipv6Address", *ip6, 6, Use::adapter, bytes);
        }
        const std::string* length = a.get("ipv6SubnetPrefixLength");
        if (length != nullptr) {
            int prefix = prefixOf(*length);
            bool none = prefix == 0 && (ip6 == nullptr || ip6->empty());
            if (prefix < 1 && !none)
                problem(who + ": ipv6SubnetPrefixLength \"" + *length + "\" is not 1 to 128");
        }
        if (!adapterLevel_) return;
        const std::string* v = a.get("domain");
        if (v != nullptr && !ResolverText::isDomain(v->c_str()))
            problem(who + ": domain \"" + *v + "\" is not a domain name");
        char current[kValueSize] = "";
        if (settings != nullptr) settings->getDefaultGateway(nullptr, current, kValueSize);
        if ((v = a.get("defaultGateway")) != nullptr)
            gateway(who + " defaultGateway", *v, 4, current);
        current[0] = '\0';
        if (settings != nullptr) settings->getIpv6DefaultGateway(nullptr, current, kValueSize);
        if ((v = a.get("ipv6DefaultGateway")) != nullptr)
            gateway(who + " ipv6DefaultGateway", *v, 6, current);
        servers(a, who + ": ");
    }

    TcpIpHostSettings* host_;
    bool requireFlags_;
    ErrorHandler* err_;
    bool adapterLevel_ = false;
    int problems_ = 0;
    std::vector<Subnet> subnets_;
};

}  // namespace

int TcpIpDocumentCheck::check(const char* text, size_t length, ErrorHandler* err) const {
    Checker checker(host_, requireFlags_, err);
    return checker.run(text, length);
}

}  // namespace velmora
