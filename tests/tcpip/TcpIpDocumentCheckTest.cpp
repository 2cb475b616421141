// The strict check of settings documents against a host of recording stand-ins: eth0 with
// 192.0.2.10/24 and 2001:db8::10/64, wlan0 without addresses and without IPv6, gateway
// 192.0.2.1 in use, three DNS servers at most.
#include <velmora/log/ErrorHandler.h>
#include <velmora/log/MessageBundle.h>
#include <velmora/tcpip/TcpIpDocumentCheck.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/Reports.h"
#include "tcpip/RecordingSettings.h"

namespace {

const std::string kEth0 =
    "<adapter id=\"eth0\" enabled=\"true\" ipv6Enabled=\"true\" ipAddress=\"192.0.2.10\" "
    "subnetMask=\"255.255.255.0\"/>";

std::string document(const std::string& rootAttributes, const std::string& adapters) {
    return "<tcpIpSettings hostname=\"h1\"" + rootAttributes + "><adapters>" + adapters +
           "</adapters></tcpIpSettings>";
}

}  // namespace

// Each document is accepted (no expected text) or refused with a report that holds the
// expected text, and nothing else is reported; what the text alone decides is the same
// without a host.
TEST(TcpIpDocumentCheck, RefusesWhatIsNotSoundAndAcceptsWhatIs) {
    velmora_test::Calls calls;
    velmora_test::RecordingHost host(&calls);
    velmora_test::RecordingAdapter* eth0 = host.add("eth0");
    eth0->answers.text = {{"getIpAddress", "192.0.2.10"},
                          {"getSubnetMask", "255.255.255.0"},
                          {"getIpv6Address", "2001:db8::10"}};
    eth0->answers.number = {
        {"isIpv6Supported", 1}, {"isIpv6Enabled", 1}, {"getIpv6SubnetPrefixLength", 64}};
    host.add("wlan0");
    host.answers.text["getDefaultGateway"] = "192.0.2.1";
    host.answers.number["getDnsHostLimit"] = 3;

    const std::vector<std::pair<std::string, std::string>> cases = {
        {"<?xml version=\"1.0\"?><!-- c -->" + document(" domain=\"a.example\"", kEth0) + "\n", ""},
        {document(" ipv6DefaultGateway=\"fe80::1%eth0\" defaultGateway=\"192.0.2.1\"",
                  "<adapter id=\"eth0\" enabled=\"true\" ipv6Enabled=\"true\" "
                  "ipAddress=\"198.51.100.2\" "
                  "subnetMask=\"255.255.255.0\" ipv6Address=\"\" ipv6SubnetPrefixLength=\"0\"/>"),
         ""},  // the gateway in use stays acceptable; no IPv6 address, no prefix
        {document(" defaultGateway=\"198.51.100.1\"",
                  "<adapter id=\"eth0\" enabled=\"true\" ipv6Enabled=\"true\" "
                  "ipAddress=\"198.51.100.2\" subnetMask=\"255.255.255.0\"/>"),
         ""},  // reached through the document's own new address
        {document(" desc=\"x\"", kEth0), "Unknown attribute desc on <tcpIpSettings>"},
        {document(" hostname=\"b\"", kEth0), "well-formed"},  // attribute twice
        {document(" domain=\"&nbsp;\"", kEth0), "unknown reference &nbsp;"},
        {document(" domain=\"&#xD800;\"", kEth0), "bad character reference"},
        {document(" domain=\"a&#9;b\"", kEth0), "holds a control character"},
        {"<!DOCTYPE x>" + document("", kEth0), "document types"},
        // The applying parser ends a comment at its first "--" and would read the rest as
        // markup: such a comment is refused, like the one that ends in "--->".
        {"<!-- a <!-- b -->" + document("", kEth0), "a comment holds \"--\""},
        {"<!-- a --->" + document("", kEth0), "a comment holds \"--\""},
        {document("", kEth0) + "<tcpIpSettings/>", "only one root"},
        {document("", "<![CDATA[x]]>"), "CDATA"},
        {document("", kEth0 + "<route/>"), "Unknown element <route> in <adapters>"},
        {document(" isReadonly=\"yes\"", kEth0), "isReadonly must be true or false"},
        {document(" defaultGateway=\"203.0.113.1\"", kEth0),
         "lies in no subnet an adapter reaches"},
        {document(" defaultGateway=\"192.0.2.10\"", kEth0), "an adapter's own address"},
        {document(" ipv6DefaultGateway=\"fe80::1%nope\"", kEth0), "no adapter named \"nope\""},
        {document("",
                  "<adapter id=\"eth0\" enabled=\"true\" ipv6Enabled=\"true\" "
                  "ipAddress=\"192.0.2.0\" subnetMask=\"255.255.255.0\"/>"),
         "the address of its subnet"},
        {document("",
                  "<adapter id=\"eth0\" enabled=\"true\" ipv6Enabled=\"true\" "
                  "ipv6Address=\"::1\"/>"),
         "loopback"},
        {document("",
                  "<adapter id=\"eth0\" enabled=\"true\" ipv6Enabled=\"true\" "
                  "ipv6SubnetPrefixLength=\"64x\"/>"),
         "is not 1 to 128"},
        {document("", "<adapter id=\"wlan0\" enabled=\"true\"/>"), ""},  // no IPv6 to keep
        {document("", "<adapter id=\"eth0\" enabled=\"true\"/>"), "ipv6Enabled is missing"},
        {document("", "<adapter id=\"eth1\" enabled=\"true\"/>"), "No network adapter named eth1"},
        {document("", kEth0 + kEth0), "adapter eth0 appears twice"},
        {"<tcpIpSettings><dnsHosts><dnsHost ipAddress=\"127.0.0.53\"/><dnsHost "
         "ipAddress=\"192.0.2.53\"/></dnsHosts><ipv6DnsHosts><ipv6DnsHost ipv6Address=\"::1\"/>"
         "<ipv6DnsHost ipv6Address=\"2001:db8::53\"/></ipv6DnsHosts></tcpIpSettings>",
         "4 DNS servers given; the resolver uses 3"},
    };
    for (const auto& c : cases) {
        velmora::test::Reports problems;
        velmora::TcpIpDocumentCheck check(&host);
        check.requireAdapterFlags(true);
        int found = check.check(c.first.data(), c.first.size(), &problems);
        if (c.second.empty()) {
            EXPECT_EQ(found, 0) << c.first << "\n" << problems.all();
        } else {
            EXPECT_EQ(found, 1) << c.first << "\n" << problems.all();
            EXPECT_NE(problems.all().find(c.second), std::string::npos) << c.first << "\n"
                                                                        << problems.all();
        }
    }
    velmora::test::Reports problems;
    std::string three =
        "<tcpIpSettings hostname=\"-bad\"><dnsHosts><dnsHost ipAddress=\"x\"/></dnsHosts>"
        "<adapters><adapter id=\"eth0\" ipAddress=\"1.2.3\" subnetMask=\"255.0.0.0\"/>"
        "</adapters></tcpIpSettings>";
    EXPECT_EQ(velmora::TcpIpDocumentCheck(nullptr).check(three.data(), three.size(), &problems), 3)
        << "host name, DNS server and address: every problem at once\n"
        << problems.all();
}
