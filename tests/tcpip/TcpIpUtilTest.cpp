// The settings document: exact bytes and call order on the writing side, exact setter
// sequences on the applying side, against stand-ins that record every call.
#include <velmora/log/NullLog.h>
#include <velmora/tcpip/TcpIpUtil.h>
#include <velmora/text/StringReader.h>
#include <velmora/text/StringWriter.h>
#include <velmora/xml/XElem.h>
#include <velmora/xml/XParser.h>
#include <velmora/xml/XWriter.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#ifdef VELMORA_TEST_EXPAT
#include <expat.h>
#endif

#include "tcpip/RecordingSettings.h"

using namespace velmora;
using velmora_test::Calls;
using velmora_test::RecordingAdapter;
using velmora_test::RecordingHost;

namespace {

// Keeps every report, so that a test can see what was said and how often.
class Reports : public ErrorHandler {
public:
    void error(MessageBundle* b) override {
        texts.push_back(std::string(b->getKey() ? b->getKey() : "") + ": " + b->getText());
    }
    using ErrorHandler::error;
    std::vector<std::string> texts;
};

std::string document(RecordingHost* host, ErrorHandler* err) {
    StringWriter text;
    {
        XWriter out(&text);
        TcpIpUtil::getHostSettingsXml(host, &out, err);
    }
    return text.getString() != nullptr ? text.getString() : "";
}

// An adapter with IPv6 on, DHCP on without a known server, three DNS servers.
RecordingAdapter* richAdapter(RecordingHost* host) {
    RecordingAdapter* a = host->add("eth0");
    a->answers.number = {{"isEnabled", 1},
                         {"canUseDhcp", 1},
                         {"isDhcpEnabled", 1},
                         {"isIpv6Supported", 1},
                         {"isIpv6Enabled", 1},
                         {"canUseIpv6Dhcp", 1},
                         {"getIpv6SubnetPrefixLength", 64},
                         {"getDnsHostLimit", 2}};
    a->answers.text = {{"getId", "eth0"},
                       {"getDescription", "veth \"A\" & <B>"},
                       {"getMACAddress", "02:00:00:00:00:01"},
                       {"getIpAddress", "192.0.2.10"},
                       {"getSubnetMask", "255.255.255.0"},
                       {"getDefaultGateway", "192.0.2.1"},
                       {"getDomain", "example.org"},
                       {"getDhcpLeaseGranted", "Mon Nov 23\n"},
                       {"getIpv6Address", "2001:db8::10"},
                       {"getIpv6DefaultGateway", "2001:db8::1"}};
    a->answers.list["dns"] = {"192.0.2.53", "198.51.100.53", "192.0.2.54"};
    a->answers.list["ipv6Dns"] = {"2001:db8::53", "2001:db8::54", "2001:db8::55"};
    return a;
}

#ifdef VELMORA_TEST_EXPAT
// Element names and attribute pairs as expat reads them, one element per line.
void XMLCALL onStart(void* data, const XML_Char* name, const XML_Char** attrs) {
    auto* out = static_cast<std::string*>(data);
    *out += name;
    for (int i = 0; attrs[i] != nullptr; i += 2)
        *out += std::string(" ") + attrs[i] + "=" + attrs[i + 1];
    *out += "\n";
}

std::string readByExpat(const std::string& xml) {
    std::string out;
    XML_Parser p = XML_ParserCreate(nullptr);
    XML_SetUserData(p, &out);
    XML_SetStartElementHandler(p, onStart);
    bool ok = XML_Parse(p, xml.data(), static_cast<int>(xml.size()), 1) == XML_STATUS_OK;
    XML_ParserFree(p);
    return ok ? out : "not well-formed";
}
#endif

}  // namespace

// Host-level settings: gateway, domain and DNS lists on the root, both lists cut to the
// IPv4 limit, "n/a" for empty DHCP texts, markup characters escaped.
TEST(TcpIpUtil, HostLevelDocumentIsExact) {
    Calls calls;
    RecordingHost host(&calls);
    host.answers.text = {{"getHostname", "station7"},
                         {"getDomain", "example.org"},
                         {"getDefaultGateway", "192.0.2.1"},
                         {"getIpv6DefaultGateway", "2001:db8::1"}};
    host.answers.number = {{"getDnsHostLimit", 2}, {"getVelmoraUsesIpv6", 1}};
    host.answers.list["dns"] = {"192.0.2.53", "198.51.100.53", "192.0.2.54"};
    host.answers.list["ipv6Dns"] = {"2001:db8::53", "2001:db8::54", "2001:db8::55"};
    richAdapter(&host);
    host.add("eth1")->answers.number["canUseDhcp"] = 1;

    const std::string xml = document(&host, nullptr);
    EXPECT_EQ(
        xml,
        "<tcpIpSettings hostname=\"station7\" isReadonly=\"false\" velmoraUsesIpv6=\"true\" "
        "isIPv6Readonly=\"false\" usesAdapterLevelSettings=\"false\" domain=\"example.org\" "
        "defaultGateway=\"192.0.2.1\" ipv6DefaultGateway=\"2001:db8::1\">\n"
        "<dnsHosts limit=\"2\">\n<dnsHost ipAddress=\"192.0.2.53\"/>\n"
        "<dnsHost ipAddress=\"198.51.100.53\"/>\n</dnsHosts>\n"
        "<ipv6DnsHosts limit=\"2\">\n<ipv6DnsHost ipv6Address=\"2001:db8::53\"/>\n"
        "<ipv6DnsHost ipv6Address=\"2001:db8::54\"/>\n</ipv6DnsHosts>\n"
        "<adapters>\n"
        "<adapter id=\"eth0\" enabled=\"true\" canDisable=\"false\" "
        "desc=\"veth &#x22;A&#x22; &amp; &lt;B&gt;\" macAddress=\"02:00:00:00:00:01\" "
        "ipv6Supported=\"true\" ipv6Enabled=\"true\" canDisableIpv6=\"false\" "
        "ipAddress=\"192.0.2.10\" subnetMask=\"255.255.255.0\" ipv6Address=\"2001:db8::10\" "
        "ipv6SubnetPrefixLength=\"64\" canUseDhcp=\"true\" dhcpEnabled=\"true\" "
        "dhcpHost=\"n/a\" dhcpLeaseGranted=\"Mon Nov 23&#xa;\" dhcpLeaseExpires=\"n/a\" "
        "canUseIpv6Dhcp=\"true\" ipv6DhcpEnabled=\"false\">\n</adapter>\n"
        "<adapter id=\"eth1\" enabled=\"false\" canDisable=\"false\" desc=\"\" macAddress=\"\" "
        "ipv6Supported=\"false\" ipAddress=\"\" subnetMask=\"\" canUseDhcp=\"true\" "
        "dhcpEnabled=\"false\">\n</adapter>\n"
        "</adapters>\n</tcpIpSettings>\n");
    // The IPv6 list reuses the IPv4 limit without asking for it again.
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "host.getDnsHostLimit"), 1);
    EXPECT_NE(std::find(calls.begin(), calls.end(), "host.getIpv6DnsHosts(2)"), calls.end());
#ifdef VELMORA_TEST_EXPAT
    std::string seen = readByExpat(xml);
    EXPECT_NE(seen.find("adapter id=eth0 enabled=true canDisable=false desc=veth \"A\" & <B> "),
              std::string::npos)
        << seen;
    EXPECT_NE(seen.find("dhcpLeaseGranted=Mon Nov 23\n dhcpLeaseExpires=n/a"), std::string::npos)
        << "the line feed travels as a reference and comes back whole: " << seen;
#endif
}

// Without an adapter that supports IPv6 the host's own IPv6 answers are never asked, and
// adapter-level settings move gateway, domain and DNS lists into every adapter.
TEST(TcpIpUtil, AdapterLevelDocumentWithoutIpv6) {
    Calls calls;
    RecordingHost host(&calls);
    host.answers.number = {
        {"usesAdapterLevelSettings", 1}, {"getVelmoraUsesIpv6", 1}, {"isReadonly", 1}};
    RecordingAdapter* a = richAdapter(&host);
    a->answers.number["isIpv6Supported"] = 0;  // enabled but unsupported: the enabled answer rules
    a->answers.number["canUseDhcp"] = 0;

    const std::string xml = document(&host, nullptr);
    EXPECT_EQ(xml,
              "<tcpIpSettings hostname=\"\" isReadonly=\"true\" velmoraUsesIpv6=\"false\" "
              "isIPv6Readonly=\"true\" usesAdapterLevelSettings=\"true\">\n<adapters>\n"
              "<adapter id=\"eth0\" enabled=\"true\" canDisable=\"false\" "
              "desc=\"veth &#x22;A&#x22; &amp; &lt;B&gt;\" macAddress=\"02:00:00:00:00:01\" "
              "ipv6Supported=\"false\" ipAddress=\"192.0.2.10\" subnetMask=\"255.255.255.0\" "
              "domain=\"example.org\" defaultGateway=\"192.0.2.1\" ipv6Address=\"2001:db8::10\" "
              "ipv6SubnetPrefixLength=\"64\" ipv6DefaultGateway=\"2001:db8::1\" "
              "canUseDhcp=\"false\">\n"
              "<dnsHosts limit=\"2\">\n<dnsHost ipAddress=\"192.0.2.53\"/>\n"
              "<dnsHost ipAddress=\"198.51.100.53\"/>\n</dnsHosts>\n"
              "</adapter>\n</adapters>\n</tcpIpSettings>\n");
    for (const char* never : {"host.getVelmoraUsesIpv6", "host.isIPv6Readonly", "host.getDomain",
                              "host.getDnsHostLimit", "eth0.getIpv6DnsHostCount"})
        EXPECT_EQ(std::find(calls.begin(), calls.end(), never), calls.end()) << never;
}

// Applying one adapter: the exact setter order, and flags left out of the element switch
// off what the adapter allows to be switched off.
TEST(TcpIpUtil, AdapterApplyOrderAndMissingFlags) {
    Calls calls;
    RecordingHost host(&calls);
    RecordingAdapter* a = host.add("eth0");
    a->answers.number = {{"canDisable", 1},
                         {"canUseDhcp", 1},
                         {"isIpv6Supported", 1},
                         {"canDisableIpv6", 1},
                         {"canUseIpv6Dhcp", 1}};
    char text[] =
        "<adapter id=\"eth0\" ipAddress=\"192.0.2.10\" subnetMask=\"255.255.255.0\" "
        "domain=\"example.org\" defaultGateway=\"192.0.2.1\" ipv6Address=\"2001:db8::10\" "
        "ipv6SubnetPrefixLength=\" 64abc\" ipv6DefaultGateway=\"2001:db8::1\">"
        "<dnsHosts><dnsHost ipAddress=\"192.0.2.53\"/><dnsHost/><dnsHost ipAddress=\"192.0.2.54\"/>"
        "</dnsHosts><ipv6DnsHosts/></adapter>";
    ASSERT_EQ(TcpIpUtil::setAdapterSettingsXml(a, true, text, nullptr), 0);
    EXPECT_EQ(calls, (Calls{"eth0.canDisable", "eth0.setEnabled(false)", "eth0.canUseDhcp",
                            "eth0.setDhcpEnabled(false)", "eth0.isIpv6Supported",
                            "eth0.canDisableIpv6", "eth0.setIpv6Enabled(false)",
                            "eth0.canUseIpv6Dhcp", "eth0.setIpv6DhcpEnabled(false)",
                            "eth0.setIpAddressSubnetMask(192.0.2.10,255.255.255.0)",
                            "eth0.setDefaultGateway(192.0.2.1)", "eth0.setDomain(example.org)",
                            "eth0.isIpv6Supported", "eth0.setIpv6Address(2001:db8::10)",
                            "eth0.setIpv6SubnetPrefixLength(64)",
                            "eth0.setIpv6DefaultGateway(2001:db8::1)",
                            "eth0.setDnsHosts(192.0.2.53 192.0.2.54, )", "eth0.isIpv6Supported",
                            "eth0.setIpv6DnsHosts(, )"}));

    // Host level: the adapter's gateway, domain and lists are not applied.
    calls.clear();
    char hostLevel[] =
        "<adapter enabled=\"true\" dhcpEnabled=\"TRUE\" domain=\"x\"><dnsHosts/></adapter>";
    a->answers.number = {{"canDisable", 1}, {"canUseDhcp", 1}};
    ASSERT_EQ(TcpIpUtil::setAdapterSettingsXml(a, false, hostLevel, nullptr), 0);
    EXPECT_EQ(calls,
              (Calls{"eth0.canDisable", "eth0.setEnabled(true)", "eth0.canUseDhcp",
                     "eth0.setDhcpEnabled(true)", "eth0.isIpv6Supported", "eth0.isIpv6Supported"}));
}

// The host apply: read-only documents change nothing; adapters are applied in document
// order and the first that fails stops the rest with one report.
TEST(TcpIpUtil, HostApplyStopsAtTheFirstFailingAdapter) {
    Calls calls;
    RecordingHost host(&calls);
    host.add("eth0");
    host.add("eth1");
    Reports reports;
    char readonly[] =
        "<tcpIpSettings isReadonly=\"true\" hostname=\"x\"><adapters>"
        "<adapter id=\"nope\"/></adapters></tcpIpSettings>\n";
    EXPECT_EQ(TcpIpUtil::setHostSettingsXml(&host, readonly, &reports), 0);
    EXPECT_TRUE(calls.empty() && reports.texts.empty());

    // eth0 applies, eth1 has an address without a mask, the unknown adapter after it is
    // never looked up.
    char text[] =
        "<?xml version=\"1.0\"?>\n<tcpIpSettings hostname=\"station8\" domain=\"example.org\" "
        "defaultGateway=\"192.0.2.1\"><dnsHosts/><adapters>"
        "<adapter id=\"eth0\" ipAddress=\"192.0.2.10\" subnetMask=\"255.255.255.0\"/>"
        "<adapter id=\"eth1\" ipAddress=\"192.0.2.11\"/><adapter id=\"ghost\"/>"
        "</adapters></tcpIpSettings>";
    EXPECT_EQ(TcpIpUtil::setHostSettingsXml(&host, text, &reports), -1);
    EXPECT_EQ(calls, (Calls{"host.setHostName(station8)", "host.usesAdapterLevelSettings",
                            "host.setDomain(example.org)", "host.setDefaultGateway(192.0.2.1)",
                            "host.setDnsHosts(, )", "host.usesAdapterLevelSettings",
                            "eth0.canDisable", "eth0.canUseDhcp", "eth0.isIpv6Supported",
                            "eth0.setIpAddressSubnetMask(192.0.2.10,255.255.255.0)",
                            "eth0.isIpv6Supported", "host.usesAdapterLevelSettings",
                            "eth1.canDisable", "eth1.canUseDhcp", "eth1.isIpv6Supported"}));
    EXPECT_EQ(reports.texts,
              (std::vector<std::string>{
                  "TcpIpUtil.saveAdapterFailed: Error occurred when saving adapter settings"}));

    // An adapter element without an id, or with one that differs in case, fails the same way.
    for (const char* adapter : {"<adapter/>", "<adapter id=\"ETH0\"/>"}) {
        reports.texts.clear();
        std::string doc =
            std::string("<tcpIpSettings><adapters>") + adapter + "</adapters></tcpIpSettings>";
        EXPECT_EQ(TcpIpUtil::setHostSettingsXml(&host, &doc[0], &reports), -1) << adapter;
        EXPECT_EQ(reports.texts.size(), 1u);
    }

    // The element form hands its tree to the caller again, minus the destroyed adapter.
    char keep[] =
        "<tcpIpSettings><adapters><adapter id=\"eth0\" ipAddress=\"1\"/></adapters>"
        "</tcpIpSettings>";
    XElem* root = nullptr;
    {
        StringReader in(keep, static_cast<int>(sizeof keep - 1));
        XParser parser(&in);
        root = parser.parse(true);
    }
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(TcpIpUtil::setHostSettingsXml(&host, root, &reports), -1);
    EXPECT_EQ(root->elem("adapters")->elem("adapter"), nullptr);
    delete root;  // no double release under AddressSanitizer
}

// Text that is no document is reported and applies nothing; the joined DNS list stays
// within 1023 characters without cutting an address, and the dropped entry is reported.
TEST(TcpIpUtil, BadTextAndOverlongDnsLists) {
    Calls calls;
    RecordingHost host(&calls);
    RecordingAdapter* a = host.add("eth0");
    Reports reports;
    for (const char* bad : {"", "   ", "<tcpIpSettings hostname=\"x\"><adapters>", "no markup"}) {
        std::string text = bad;
        EXPECT_EQ(TcpIpUtil::setHostSettingsXml(&host, &text[0], &reports), -1) << bad;
        EXPECT_EQ(TcpIpUtil::setAdapterSettingsXml(a, true, &text[0], &reports), -1) << bad;
    }
    EXPECT_EQ(TcpIpUtil::setHostSettingsXml(&host, static_cast<char*>(nullptr), &reports), -1);
    EXPECT_TRUE(calls.empty()) << calls.front();
    ASSERT_EQ(reports.texts.size(), 9u);
    EXPECT_EQ(
        reports.texts[0],
        "TcpIpUtil.malformedDocument: The network settings are not a well-formed XML document");

    // 80 servers of 13 characters: 73 fit in 73 * 14 - 1 = 1021 characters, the 74th
    // would need 1035.
    std::string doc = "<tcpIpSettings><dnsHosts>";
    for (int i = 0; i < 80; ++i)
        doc += "<dnsHost ipAddress=\"192.0.200." + std::to_string(100 + i) + "\"/>";
    doc += "</dnsHosts></tcpIpSettings>";
    reports.texts.clear();
    ASSERT_EQ(TcpIpUtil::setHostSettingsXml(&host, &doc[0], &reports), 0);
    std::string set = calls.back();
    std::string list = set.substr(set.find('(') + 1, set.size() - set.find('(') - 4);
    EXPECT_EQ(list.size(), 1021u);
    EXPECT_EQ(list.substr(list.size() - 14), " 192.0.200.172");
    ASSERT_EQ(reports.texts.size(), 1u);
    EXPECT_NE(reports.texts[0].find("192.0.200.173"), std::string::npos) << reports.texts[0];
}

// A document written from one host and applied to another gives every shown and
// writable value to the matching setter.
TEST(TcpIpUtil, WrittenDocumentAppliesBack) {
    Calls source;
    RecordingHost from(&source);
    from.answers.text = {{"getHostname", "station7"},
                         {"getDomain", "example.org"},
                         {"getDefaultGateway", "192.0.2.1"},
                         {"getIpv6DefaultGateway", "2001:db8::1"}};
    from.answers.number = {{"getDnsHostLimit", 3}};
    from.answers.list["dns"] = {"192.0.2.53", "198.51.100.53"};
    from.answers.list["ipv6Dns"] = {"2001:db8::53"};
    richAdapter(&from)->answers.number["canDisable"] = 1;
    std::string xml = document(&from, nullptr);

    Calls calls;
    RecordingHost to(&calls);
    RecordingAdapter* a = to.add("eth0");
    a->answers.number = {{"canDisable", 1}, {"canUseDhcp", 1}, {"isIpv6Supported", 1}};
    std::string again = xml;
    ASSERT_EQ(TcpIpUtil::setHostSettingsXml(&to, &xml[0], nullptr), 0);
    Calls sets;
    for (const std::string& c : calls)
        if (c.find("(") != std::string::npos) sets.push_back(c);
    EXPECT_EQ(sets,
              (Calls{"host.setHostName(station7)", "host.setDomain(example.org)",
                     "host.setDefaultGateway(192.0.2.1)", "host.setIpv6DefaultGateway(2001:db8::1)",
                     "host.setDnsHosts(192.0.2.53 198.51.100.53, )",
                     "host.setIpv6DnsHosts(2001:db8::53, )", "eth0.setEnabled(true)",
                     "eth0.setDhcpEnabled(true)", "eth0.setIpv6Address(2001:db8::10)",
                     "eth0.setIpv6SubnetPrefixLength(64)"}))
        << "a DHCP adapter's own document does not pin it to its lease";

    // Where the adapter cannot use DHCP, the flag is no reason to leave the address out.
    calls.clear();
    a->answers.number["canUseDhcp"] = 0;
    ASSERT_EQ(TcpIpUtil::setHostSettingsXml(&to, &again[0], nullptr), 0);
    EXPECT_NE(std::find(calls.begin(), calls.end(),
                        "eth0.setIpAddressSubnetMask(192.0.2.10,255.255.255.0)"),
              calls.end());
}

// The document is UTF-8 both ways: a description with "é" is written as the two bytes of
// its UTF-8 (not a reference per byte, which a standard reader takes for "Ã©"), and a
// document saved by a UTF-8 editor applies whole, its text arriving byte for byte. A
// byte that is no UTF-8 is still written as a reference, so the document stays readable.
TEST(TcpIpUtil, SettingsDocumentIsUtf8BothWays) {
    Calls calls;
    RecordingHost host(&calls);
    host.answers.text = {{"getHostname", "station7"}};
    RecordingAdapter* a = host.add("eth0");
    a->answers.text = {{"getId", "eth0"}, {"getDescription", "Carte r\xc3\xa9seau \xe9"}};
    StringWriter text;
    XWriter out(&text);
    TcpIpUtil::getHostSettingsXml(&host, &out, nullptr);
    EXPECT_FALSE(out.isUtf8()) << "the caller's writer is left in its own mode";
    out.safe("\xc3\xa9");
    std::string xml = text.getString();
    EXPECT_NE(xml.find("desc=\"Carte r\xc3\xa9seau &#xe9;\""), std::string::npos) << xml;
    EXPECT_EQ(xml.substr(xml.size() - 12), "&#xc3;&#xa9;");
#ifdef VELMORA_TEST_EXPAT
    std::string seen = readByExpat(xml.substr(0, xml.size() - 12));
    EXPECT_NE(seen.find("desc=Carte r\xc3\xa9seau \xc3\xa9 "), std::string::npos) << seen;
#endif

    std::string edited =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<tcpIpSettings hostname=\"station7\" domain=\"r\xc3\xa9seau.example\">\n"
        "<adapters><adapter id=\"eth0\" desc=\"Carte r\xc3\xa9seau \xe2\x80\x94 &#xE9;\" "
        "enabled=\"true\"/></adapters></tcpIpSettings>\n";
#ifdef VELMORA_TEST_EXPAT
    EXPECT_NE(readByExpat(edited).find("desc=Carte r\xc3\xa9seau \xe2\x80\x94 \xc3\xa9 "),
              std::string::npos);
#endif
    calls.clear();
    a->answers.number["canDisable"] = 1;
    Reports reports;
    ASSERT_EQ(TcpIpUtil::setHostSettingsXml(&host, &edited[0], &reports), 0);
    EXPECT_TRUE(reports.texts.empty()) << reports.texts.front();
    EXPECT_NE(std::find(calls.begin(), calls.end(), "host.setDomain(r\xc3\xa9seau.example)"),
              calls.end());
    EXPECT_NE(std::find(calls.begin(), calls.end(), "eth0.setEnabled(true)"), calls.end());
}
