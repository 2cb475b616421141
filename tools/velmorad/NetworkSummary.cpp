#include "NetworkSummary.h"

#include <velmora/text/StringReader.h>
#include <velmora/xml/XElem.h>
#include <velmora/xml/XElemList.h>
#include <velmora/xml/XParser.h>

#include <map>
#include <memory>
#include <vector>

namespace velmorad {

namespace {

using Values = std::map<std::string, std::string>;

const char* const kHostValues[] = {"hostname", "domain", "defaultGateway", "ipv6DefaultGateway"};
const char* const kAdapterValues[] = {"enabled",     "ipv6Enabled",    "ipAddress",
                                      "subnetMask",  "ipv6Address",    "ipv6SubnetPrefixLength",
                                      "domain",      "defaultGateway", "ipv6DefaultGateway",
                                      "dhcpEnabled", "ipv6DhcpEnabled"};

std::string servers(velmora::XElem* owner, const char* list, const char* entry,
                    const char* attribute) {
    velmora::XElem* l = owner->elem(list);
    if (l == nullptr) return "";
    std::string all;
    std::unique_ptr<velmora::XElemList> entries(l->elems(entry));
    for (velmora::XElemListItem* i = entries->getFirst(); i != nullptr; i = i->getNext()) {
        const char* v = i->getElem()->get(attribute, nullptr);
        if (v != nullptr) all += (all.empty() ? "" : " ") + std::string(v);
    }
    return all.empty() ? "(none)" : all;
}

void addServers(velmora::XElem* owner, const std::string& prefix, Values* out) {
    (*out)[prefix + "dnsHosts"] = servers(owner, "dnsHosts", "dnsHost", "ipAddress");
    (*out)[prefix + "ipv6DnsHosts"] = servers(owner, "ipv6DnsHosts", "ipv6DnsHost", "ipv6Address");
}

// Every value that a change can make, by a name that says where it is.
Values valuesOf(const std::string& text) {
    Values out;
    velmora::StringReader in(text.c_str(), static_cast<int>(text.size()));
    velmora::XParser parser(&in);
    std::unique_ptr<velmora::XElem> root(parser.parse(true));
    if (root == nullptr) return out;
    for (const char* name : kHostValues) {
        const char* v = root->get(name, nullptr);
        if (v != nullptr) out[name] = v;
    }
    addServers(root.get(), "", &out);
    velmora::XElem* adapters = root->elem("adapters");
    if (adapters == nullptr) return out;
    std::unique_ptr<velmora::XElemList> list(adapters->elems("adapter"));
    for (velmora::XElemListItem* i = list->getFirst(); i != nullptr; i = i->getNext()) {
        velmora::XElem* a = i->getElem();
        std::string prefix = std::string("adapter ") + a->get("id", "?") + " ";
        for (const char* name : kAdapterValues) {
            const char* v = a->get(name, nullptr);
            if (v != nullptr) out[prefix + name] = v;
        }
        addServers(a, prefix, &out);
    }
    return out;
}

std::string shown(const Values& values, const std::string& name) {
    auto i = values.find(name);
    if (i == values.end()) return "(none)";
    return i->second.empty() ? "\"\"" : i->second;
}

}  // namespace

std::string summarizeChange(const std::string& before, const std::string& after) {
    Values a = valuesOf(before), b = valuesOf(after);
    std::vector<std::string> names;
    for (const auto& v : a)
        names.push_back(v.first);
    for (const auto& v : b) {
        if (a.find(v.first) == a.end()) names.push_back(v.first);
    }
    std::string out;
    for (const std::string& name : names) {
        std::string x = shown(a, name), y = shown(b, name);
        if (x != y) out += (out.empty() ? "" : "; ") + name + " " + x + " -> " + y;
    }
    return out.empty() ? "no change" : out;
}

}  // namespace velmorad
