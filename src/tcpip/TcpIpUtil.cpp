// The tcpIpSettings document: written from the host and adapter settings and applied back
// to them. Which values appear, under which names and in which order, is fixed here; how
// a value is read from or written to the system is the settings classes' business.
#include <velmora/tcpip/TcpIpUtil.h>

#include <velmora/log/ErrorHandler.h>
#include <velmora/log/MessageBundle.h>
#include <velmora/tcpip/TcpIpAdapterSettings.h>
#include <velmora/tcpip/TcpIpHostSettings.h>
#include <velmora/text/StringReader.h>
#include <velmora/xml/XElem.h>
#include <velmora/xml/XElemList.h>
#include <velmora/xml/XParser.h>
#include <velmora/xml/XWriter.h>

#include <cstring>
#include <memory>
#include <new>
#include <string>

namespace velmora {

namespace {

const int kValueSize = 1024;      // every text value: 1023 characters and the terminator
const int kDnsEntrySize = 64;     // one DNS server address
const int kDnsListLength = 1023;  // the joined list handed to setDnsHosts

const char* boolText(bool b) {
    return b ? "true" : "false";
}

// Settings documents are UTF-8 both ways: names and descriptions go out as they are when
// they are well-formed UTF-8, and a document saved by a UTF-8 editor reads whole. The
// writer's own mode is put back afterwards.
class Utf8Output {
public:
    explicit Utf8Output(XWriter* out) : out_(out), was_(out->isUtf8()) { out->setUtf8(true); }
    ~Utf8Output() { out_->setUtf8(was_); }

private:
    XWriter* out_;
    bool was_;
};

void report(ErrorHandler* err, const char* key, const char* text) {
    if (err == nullptr) return;
    MessageBundle bundle("platform", key, text);
    err->error(&bundle);
}

void writeBool(XWriter* out, const char* name, bool value) {
    out->w(' ')->attr(name, boolText(value));
}

void writeText(XWriter* out, const char* name, const char* value) {
    out->w(' ')->attr(name, value);
}

// A value that a getter left empty is shown as "n/a".
void writeKnown(XWriter* out, const char* name, const char* value) {
    writeText(out, name, value[0] != '\0' ? value : "n/a");
}

void writeInt(XWriter* out, const char* name, int value) {
    out->w(' ')->attrf(name, "%d", 16, value);
}

// One DNS list of a host or an adapter: `n` entries of 64 bytes, at most `limit`.
// Both settings classes answer the same questions, so one template serves them.
template <typename Settings>
void writeDnsList(Settings* s, ErrorHandler* err, XWriter* out, bool ipv6, int limit) {
    const char* list = ipv6 ? "ipv6DnsHosts" : "dnsHosts";
    const char* entry = ipv6 ? "<ipv6DnsHost " : "<dnsHost ";
    const char* attrName = ipv6 ? "ipv6Address" : "ipAddress";
    out->w('<')->w(list)->w(' ')->attrf("limit", "%d", 16, limit)->w(">\n");
    int count = ipv6 ? s->getIpv6DnsHostCount(err) : s->getDnsHostCount(err);
    int n = count < limit ? count : limit;
    if (n > 0) {
        std::unique_ptr<char[]> block(
            new (std::nothrow) char[static_cast<size_t>(n) * kDnsEntrySize]);
        std::unique_ptr<char*[]> entries(new (std::nothrow) char*[static_cast<size_t>(n)]);
        if (block != nullptr && entries != nullptr) {
            for (int i = 0; i < n; ++i) {
                entries[i] = block.get() + static_cast<size_t>(i) * kDnsEntrySize;
                entries[i][0] = '\0';
            }
            if (ipv6) {
                s->getIpv6DnsHosts(err, n, entries.get(), kDnsEntrySize);
            } else {
                s->getDnsHosts(err, n, entries.get(), kDnsEntrySize);
            }
            for (int i = 0; i < n; ++i) {
                entries[i][kDnsEntrySize - 1] = '\0';
                out->w(entry)->attr(attrName, entries[i])->w("/>\n");
            }
        }
    }
    out->w("</")->w(list)->w(">\n");
}

template <typename Settings>
void writeDnsLists(Settings* s, ErrorHandler* err, XWriter* out, bool ipv6) {
    int limit = s->getDnsHostLimit(err);
    writeDnsList(s, err, out, false, limit);
    // Neither settings class has an IPv6 limit: the IPv4 one serves both lists.
    if (ipv6) writeDnsList(s, err, out, true, limit);
}

// The "ipAddress" (or `attrName`) values of the `entryName` children of `list`, joined
// with single spaces into at most 1023 characters. An entry that would not fit is not
// cut: the list stops before it and the loss is reported.
std::string joinDnsList(XElem* list, const char* entryName, const char* attrName,
                        ErrorHandler* err) {
    std::string joined;
    std::unique_ptr<XElemList> entries(list->elems(entryName));
    for (XElemListItem* i = entries->getFirst(); i != nullptr; i = i->getNext()) {
        const char* address = i->getElem()->get(attrName, nullptr);
        if (address == nullptr) continue;
        size_t extra = std::strlen(address) + (joined.empty() ? 0 : 1);
        if (joined.size() + extra > static_cast<size_t>(kDnsListLength)) {
            std::string text = std::string("DNS server list longer than 1023 characters: ") +
                               "the servers from " + address + " on are not applied";
            if (err != nullptr) {
                MessageBundle bundle("platform", "TcpIpUtil.dnsListTooLong", address, text.c_str());
                err->error(&bundle);
            }
            break;
        }
        if (!joined.empty()) joined += ' ';
        joined += address;
    }
    return joined;
}

// Applies a dnsHosts / ipv6DnsHosts child of `elem` when there is one; an empty list
// clears the servers.
template <typename Settings>
void applyDnsList(Settings* s, XElem* elem, bool ipv6, ErrorHandler* err) {
    XElem* list = elem->elem(ipv6 ? "ipv6DnsHosts" : "dnsHosts");
    if (list == nullptr) return;
    std::string joined = ipv6 ? joinDnsList(list, "ipv6DnsHost", "ipv6Address", err)
                              : joinDnsList(list, "dnsHost", "ipAddress", err);
    if (ipv6) {
        s->setIpv6DnsHosts(err, joined.c_str(), ' ');
    } else {
        s->setDnsHosts(err, joined.c_str(), ' ');
    }
}

// Leading decimal digits after optional blanks and sign, as atoi reads them, but
// saturating instead of overflowing.
int leadingInt(const char* s) {
    while (*s == ' ' || (*s >= '\t' && *s <= '\r'))
        ++s;
    bool negative = *s == '-';
    if (*s == '-' || *s == '+') ++s;
    long long v = 0;
    for (; *s >= '0' && *s <= '9'; ++s) {
        if (v < 2147483648LL) v = v * 10 + (*s - '0');
    }
    if (negative) v = -v;
    if (v > 2147483647LL) return 2147483647;
    if (v < -2147483647LL - 1) return -2147483647 - 1;
    return static_cast<int>(v);
}

// The whole document in `text` as a tree, or null (reported) when it is not one.
XElem* parseText(char* text, ErrorHandler* err) {
    XElem* root = nullptr;
    if (text != nullptr) {
        // The length form reads every byte: the one-argument reader would drop the last.
        StringReader in(text, static_cast<int>(std::strlen(text)));
        XParser parser(&in);
        parser.setUtf8(true);
        root = parser.parse(true);
    }
    if (root == nullptr) {
        report(err, "TcpIpUtil.malformedDocument",
               "The network settings are not a well-formed XML document");
    }
    return root;
}

}  // namespace

void TcpIpUtil::getHostSettingsXml(TcpIpHostSettings* host, XWriter* out, ErrorHandler* err) {
    Utf8Output utf8(out);
    int count = 0;
    TcpIpAdapterSettings** adapters = host->getAllAdapterSettings(err, &count);
    char value[kValueSize];

    host->getHostname(err, value, kValueSize);
    out->w("<tcpIpSettings ")->attr("hostname", value);
    writeBool(out, "isReadonly", host->isReadonly(err));

    bool ipv6 = false;
    for (int i = 0; i < count && !ipv6; ++i)
        ipv6 = adapters[i]->isIpv6Supported(err);
    if (ipv6) {
        writeBool(out, "velmoraUsesIpv6", host->getVelmoraUsesIpv6(err));
        writeBool(out, "isIPv6Readonly", host->isIPv6Readonly(err));
    } else {
        writeBool(out, "velmoraUsesIpv6", false);
        writeBool(out, "isIPv6Readonly", true);
    }

    bool adapterLevel = host->usesAdapterLevelSettings(err);
    writeBool(out, "usesAdapterLevelSettings", adapterLevel);
    if (adapterLevel) {
        out->w(">\n");
    } else {
        host->getDomain(err, value, kValueSize);
        writeText(out, "domain", value);
        host->getDefaultGateway(err, value, kValueSize);
        writeText(out, "defaultGateway", value);
        if (ipv6) {
            host->getIpv6DefaultGateway(err, value, kValueSize);
            writeText(out, "ipv6DefaultGateway", value);
        }
        out->w(">\n");
        writeDnsLists(host, err, out, ipv6);
    }

    out->w("<adapters>\n");
    for (int i = 0; i < count; ++i)
        getAdapterSettingsXml(adapters[i], adapterLevel, out, err);
    out->w("</adapters>\n");
    out->w("</tcpIpSettings>\n");
}

void TcpIpUtil::getAdapterSettingsXml(TcpIpAdapterSettings* a, bool adapterLevel, XWriter* out,
                                      ErrorHandler* err) {
    Utf8Output utf8(out);
    char value[kValueSize];
    a->getId(err, value, kValueSize);
    out->w("<adapter ")->attr("id", value);
    writeBool(out, "enabled", a->isEnabled(err));
    writeBool(out, "canDisable", a->canDisable(err));
    a->getDescription(err, value, kValueSize);
    writeText(out, "desc", value);
    a->getMACAddress(err, value, kValueSize);
    writeText(out, "macAddress", value);

    bool ipv6Supported = a->isIpv6Supported(err);
    bool ipv6Enabled = a->isIpv6Enabled(err);
    writeBool(out, "ipv6Supported", ipv6Supported);
    if (ipv6Supported) {
        writeBool(out, "ipv6Enabled", ipv6Enabled);
        writeBool(out, "canDisableIpv6", a->canDisableIpv6(err));
    }

    a->getIpAddress(err, value, kValueSize);
    writeText(out, "ipAddress", value);
    a->getSubnetMask(err, value, kValueSize);
    writeText(out, "subnetMask", value);
    if (adapterLevel) {
        a->getDomain(err, value, kValueSize);
        writeText(out, "domain", value);
        a->getDefaultGateway(err, value, kValueSize);
        writeText(out, "defaultGateway", value);
    }
    // Kept: the enabled answer decides here, even for an adapter that says IPv6 is not
    // supported.
    if (ipv6Enabled) {
        a->getIpv6Address(err, value, kValueSize);
        writeText(out, "ipv6Address", value);
        writeInt(out, "ipv6SubnetPrefixLength", a->getIpv6SubnetPrefixLength(err));
        if (adapterLevel) {
            a->getIpv6DefaultGateway(err, value, kValueSize);
            writeText(out, "ipv6DefaultGateway", value);
        }
    }

    bool canUseDhcp = a->canUseDhcp(err);
    writeBool(out, "canUseDhcp", canUseDhcp);
    if (canUseDhcp) {
        bool dhcp = a->isDhcpEnabled(err);
        writeBool(out, "dhcpEnabled", dhcp);
        if (dhcp) {
            a->getDhcpHost(err, value, kValueSize);
            writeKnown(out, "dhcpHost", value);
            a->getDhcpLeaseGranted(err, value, kValueSize);
            writeKnown(out, "dhcpLeaseGranted", value);
            a->getDhcpLeaseExpires(err, value, kValueSize);
            writeKnown(out, "dhcpLeaseExpires", value);
        }
    }
    if (ipv6Supported) {
        bool canUseIpv6Dhcp = a->canUseIpv6Dhcp(err);
        writeBool(out, "canUseIpv6Dhcp", canUseIpv6Dhcp);
        if (canUseIpv6Dhcp) {
            bool dhcp = a->isIpv6DhcpEnabled(err);
            writeBool(out, "ipv6DhcpEnabled", dhcp);
            if (dhcp) {
                a->getIpv6DhcpHost(err, value, kValueSize);
                writeKnown(out, "ipv6DhcpHost", value);
                a->getIpv6DhcpLeaseGranted(err, value, kValueSize);
                writeKnown(out, "ipv6DhcpLeaseGranted", value);
                a->getIpv6DhcpLeaseExpires(err, value, kValueSize);
                writeKnown(out, "ipv6DhcpLeaseExpires", value);
            }
        }
    }
    out->w(">\n");
    if (adapterLevel) writeDnsLists(a, err, out, ipv6Supported);
    out->w("</adapter>\n");
}

int TcpIpUtil::setHostSettingsXml(TcpIpHostSettings* host, XElem* root, ErrorHandler* err) {
    if (root == nullptr) {
        report(err, "TcpIpUtil.malformedDocument",
               "The network settings are not a well-formed XML document");
        return -1;
    }
    // The document's own flag decides, not the host's.
    if (root->getb("isReadonly", false)) return 0;

    const char* hostname = root->get("hostname", nullptr);
    if (hostname != nullptr) host->setHostName(err, hostname);

    if (!host->usesAdapterLevelSettings(err)) {
        const char* v = root->get("domain", nullptr);
        if (v != nullptr) host->setDomain(err, v);
        v = root->get("defaultGateway", nullptr);
        if (v != nullptr) host->setDefaultGateway(err, v);
        v = root->get("ipv6DefaultGateway", nullptr);
        if (v != nullptr) host->setIpv6DefaultGateway(err, v);
        applyDnsList(host, root, false, err);
        applyDnsList(host, root, true, err);
    }

    bool failed = false;
    XElem* adapters = root->elem("adapters");
    if (adapters != nullptr) {
        std::unique_ptr<XElemList> list(adapters->elems("adapter"));
        for (XElemListItem* i = list->getFirst(); i != nullptr && !failed; i = i->getNext()) {
            XElem* elem = i->getElem();
            const char* id = elem->get("id", nullptr);
            TcpIpAdapterSettings* a = id != nullptr ? host->getAdapterSettings(err, id) : nullptr;
            // After a failed apply the element may be gone: nothing below touches it again.
            failed = a == nullptr ||
                     setAdapterSettingsXml(a, host->usesAdapterLevelSettings(err), elem, err) != 0;
        }
    }
    if (failed) {
        report(err, "TcpIpUtil.saveAdapterFailed", "Error occurred when saving adapter settings");
        return -1;
    }
    return 0;
}

int TcpIpUtil::setHostSettingsXml(TcpIpHostSettings* host, char* text, ErrorHandler* err) {
    std::unique_ptr<XElem> root(parseText(text, err));
    if (root == nullptr) return -1;
    return setHostSettingsXml(host, root.get(), err);
}

int TcpIpUtil::setAdapterSettingsXml(TcpIpAdapterSettings* a, bool adapterLevel, XElem* elem,
                                     ErrorHandler* err) {
    if (elem == nullptr) return -1;
    // Flags that the element leaves out read as false: the adapter, DHCP and IPv6 are
    // switched off where the adapter allows it.
    if (a->canDisable(err)) a->setEnabled(err, elem->getb("enabled", false));
    // An adapter that is to take its address from DHCP gets no static address: its own
    // document carries the current lease, and applying that would pin the adapter to it.
    const bool canUseDhcp = a->canUseDhcp(err);
    const bool dhcp = canUseDhcp && elem->getb("dhcpEnabled", false);
    if (canUseDhcp) a->setDhcpEnabled(err, dhcp);
    if (a->isIpv6Supported(err)) {
        if (a->canDisableIpv6(err)) a->setIpv6Enabled(err, elem->getb("ipv6Enabled", false));
        if (a->canUseIpv6Dhcp(err)) {
            a->setIpv6DhcpEnabled(err, elem->getb("ipv6DhcpEnabled", false));
        }
    }

    const char* address = dhcp ? nullptr : elem->get("ipAddress", nullptr);
    if (address != nullptr) {
        const char* mask = elem->get("subnetMask", nullptr);
        if (mask == nullptr) {
            // Kept: the caller's element is destroyed here. It leaves its parent first, so
            // that the tree it belonged to can still be deleted safely.
            XElem* parent = elem->getParent();
            if (parent != nullptr) parent->removeContent(elem);
            delete elem;
            return -1;
        }
        a->setIpAddressSubnetMask(err, address, mask);
    }

    if (adapterLevel) {
        const char* v = elem->get("defaultGateway", nullptr);
        if (v != nullptr) a->setDefaultGateway(err, v);
        v = elem->get("domain", nullptr);
        if (v != nullptr) a->setDomain(err, v);
    }
    if (a->isIpv6Supported(err)) {
        const char* v = elem->get("ipv6Address", nullptr);
        if (v != nullptr) a->setIpv6Address(err, v);
        v = elem->get("ipv6SubnetPrefixLength", nullptr);
        if (v != nullptr) a->setIpv6SubnetPrefixLength(err, leadingInt(v));
    }
    if (adapterLevel) {
        const char* v = elem->get("ipv6DefaultGateway", nullptr);
        if (v != nullptr) a->setIpv6DefaultGateway(err, v);
        applyDnsList(a, elem, false, err);
        if (a->isIpv6Supported(err)) applyDnsList(a, elem, true, err);
    }
    // The setters' own results are not looked at: a failing one has reported already.
    return 0;
}

int TcpIpUtil::setAdapterSettingsXml(TcpIpAdapterSettings* a, bool adapterLevel, char* text,
                                     ErrorHandler* err) {
    XElem* root = parseText(text, err);
    if (root == nullptr) return -1;
    int result = setAdapterSettingsXml(a, adapterLevel, root, err);
    // A -1 from a missing "subnetMask" has destroyed the root already.
    if (result == 0) delete root;
    return result;
}

}  // namespace velmora
