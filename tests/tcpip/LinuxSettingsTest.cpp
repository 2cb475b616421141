// The Linux settings against the real kernel. Every test that changes links, routes or the
// host name runs in a forked child inside new network, UTS and mount namespaces, builds a
// veth pair there (v0 and v1), and checks the outcome with `ip -j`, not with the library.
// Resolver and host-name files are temporary files; nothing of the machine is touched.
#if defined(__linux__)

#include <velmora/log/ErrorHandler.h>
#include <velmora/log/MessageBundle.h>
#include <velmora/tcpip/TcpIpAdapterSettings.h>
#include <velmora/tcpip/TcpIpHostSettings.h>
#include <velmora/tcpip/TcpIpSnapshot.h>
#include <velmora/tcpip/TcpIpUtil.h>
#include <velmora/text/StringReader.h>
#include <velmora/text/StringWriter.h>
#include <velmora/xml/XElem.h>
#include <velmora/xml/XParser.h>
#include <velmora/xml/XWriter.h>

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/Reports.h"
#include "support/TempDir.h"

using namespace velmora;
using velmora::test::readFile;
using velmora::test::Reports;
using velmora::test::TempDir;
using velmora::test::writeFile;

namespace {

std::string run(const std::string& command) {
    std::string out;
    FILE* p = popen(command.c_str(), "r");
    if (p == nullptr) return out;
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, p)) > 0)
        out.append(buffer, n);
    pclose(p);
    while (!out.empty() && out.back() == '\n')
        out.pop_back();
    return out;
}

// `expr` evaluated by Python over the JSON `j` that `ip -j <args>` printed. The system's
// own interpreter when there is one: wrappers on PATH can take a second to start.
std::string ip(const std::string& args, const std::string& expr) {
    static const std::string python =
        access("/usr/bin/python3", X_OK) == 0 ? "/usr/bin/python3" : "python3";
    return run("ip -j " + args + " | " + python +
               " -c 'import json,sys; j=json.load(sys.stdin); print(" + expr + ")'");
}

// Addresses, link states and default routes as ip sees them, for before/after comparisons.
std::string kernelState() {
    return ip("addr show",
              "sorted((i[\"ifname\"], \"UP\" in i[\"flags\"], a[\"local\"], a[\"prefixlen\"]) "
              "for i in j for a in i[\"addr_info\"] if \"local\" in a)") +
           ip("route show default", "[r.get(\"gateway\") for r in j]") +
           ip("-6 route show default", "[r.get(\"gateway\") for r in j]");
}

std::string document(TcpIpHostSettings* host, ErrorHandler* err) {
    StringWriter text;
    {
        XWriter out(&text);
        TcpIpUtil::getHostSettingsXml(host, &out, err);
    }
    return text.getString() != nullptr ? text.getString() : "";
}

int apply(TcpIpHostSettings* host, const std::string& doc, ErrorHandler* err) {
    std::vector<char> text(doc.begin(), doc.end());
    text.push_back('\0');
    return TcpIpUtil::setHostSettingsXml(host, text.data(), err);
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    if (at != std::string::npos) text.replace(at, from.size(), to);
    return text;
}

// Runs `body` in a forked child inside its own namespaces, with the veth pair v0/v1 up,
// v0 holding 192.0.2.10/24 and 2001:db8::10/64 and default routes through 192.0.2.1 and
// 2001:db8::1, host name "ns-one", and the host object reading `dir`'s resolv.conf
// ("nameserver 192.0.2.53", "search example.net") and hostname files. False, with the
// reason, when no namespace can be made here.
bool isolated(const std::function<void(TcpIpHostSettings*, const TempDir&)>& body, std::string* why,
              const std::vector<std::string>& extra = {}) {
    if (geteuid() != 0) {
        *why = "new network namespaces need root";
        return false;
    }
    if (run("command -v ip && command -v python3").find('\n') == std::string::npos) {
        *why = "the checks need ip (iproute2) and python3";
        return false;
    }
    if (access("/proc/sys/net/ipv6", F_OK) != 0) {
        *why = "this kernel has no IPv6";
        return false;
    }
    std::fflush(nullptr);
    pid_t child = fork();
    if (child == 0) {
        if (unshare(CLONE_NEWNET | CLONE_NEWUTS | CLONE_NEWNS) != 0) _exit(77);
        // Mounts made here stay here (without that, none is made); sysfs then shows this
        // namespace's links.
        if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) _exit(77);
        mount("sysfs", "/sys", "sysfs", 0, nullptr);
        std::string setup =
            run("(sysctl -qw net.ipv6.conf.all.accept_dad=0 net.ipv6.conf.default.accept_dad=0 && "
                "ip link set lo up && ip link add v0 type veth peer name v1 && ip link set v0 up "
                "&& ip link set v1 up && ip addr add 192.0.2.10/24 dev v0 && "
                "ip addr add 2001:db8::10/64 dev v0 nodad && ip route add default via 192.0.2.1 && "
                "ip -6 route add default via 2001:db8::1 && hostname ns-one) 2>&1 || echo failed");
        for (const std::string& command : extra)
            setup += run("(" + command + ") 2>&1 || echo failed: " + command);
        if (setup.find("failed") != std::string::npos) {
            std::fprintf(stderr, "namespace setup: %s\n", setup.c_str());
            _exit(78);
        }
        {
            TempDir dir;
            writeFile(dir.file("resolv.conf"), "nameserver 192.0.2.53\nsearch example.net\n");
            writeFile(dir.file("hostname"), "ns-one\n");
            Reports reports;
            TcpIpHostSettings* host = TcpIpHostSettings::getInstance(&reports);
            host->setResolverPath(dir.file("resolv.conf").c_str());
            host->setHostnamePath(dir.file("hostname").c_str());
            body(host, dir);
            TcpIpHostSettings::unload();
        }
        std::fflush(nullptr);
        _exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 77) {
        *why = "new namespaces with private mounts cannot be made here";
        return false;
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
    return true;
}

#define IN_NAMESPACES(...)                                     \
    do {                                                       \
        std::string why;                                       \
        if (!isolated(__VA_ARGS__, &why)) GTEST_SKIP() << why; \
    } while (0)

// The state that applying must leave alone, one `ip` command a line: several primaries in
// different subnets with secondaries, default routes with metrics and without a gateway,
// a link-local IPv6 gateway (shown, being the lowest metric), onlink and source routes,
// static routes through the link, another table, and an RA-style route that expires.
const std::vector<std::string> kRichState = {
    "ip link add v2 type veth peer name v3 && ip link set v2 up && ip link set v3 up",
    "ip addr add 192.0.2.11/24 dev v0",
    "ip addr add 198.51.100.10/25 dev v0",
    "ip addr add 198.51.100.11/25 dev v0",
    "ip addr add 2001:db8:1::10/64 dev v0",
    "ip addr add 203.0.113.5/24 dev v2",
    "ip route add default via 198.51.100.1 metric 600",
    "ip route add default dev v2 metric 900",
    "ip route add 198.51.100.128/25 via 192.0.2.254 proto static metric 50",
    "ip route add 203.0.113.128/25 via 192.0.2.99 dev v0 onlink src 198.51.100.10",
    "ip route add default via 192.0.2.1 table 100",
    "ip route add 192.0.2.128/26 via 192.0.2.254 src 192.0.2.10 table 100",
    "ip -6 route add default via fe80::1 dev v0 metric 100",
    "ip -6 route add default dev v2 metric 4096",
    "ip -6 route add 2001:db8:2::/48 via 2001:db8::1 proto ra expires 600",
};

#define IN_RICH_NAMESPACES(...)                                            \
    do {                                                                   \
        std::string why;                                                   \
        if (!isolated(__VA_ARGS__, &why, kRichState)) GTEST_SKIP() << why; \
    } while (0)

// Everything applying may touch, as ip prints it (one object a line), the links' IPv6
// switches, the host name and both files. The seconds left of
// an expiring route are left out: they count down while the test runs.
std::string fullState(const TempDir& dir) {
    const std::string lines =
        "\"\\n\".join(json.dumps({k: v for k, v in o.items() if k != \"expires\"}, sort_keys=True) "
        "for o in j)";
    std::string state = ip("-d addr show", lines) + "\n" + ip("-4 -d route show table all", lines) +
                        "\n" + ip("-6 -d route show table all", lines) + "\n";
    for (const char* link : {"v0", "v1", "v2", "v3"})
        state += readFile(std::string("/proc/sys/net/ipv6/conf/") + link + "/disable_ipv6");
    return state + run("hostname") + "\n" + readFile(dir.file("hostname")) +
           readFile(dir.file("resolv.conf"));
}

}  // namespace

// The resolver file: only the lines of the list being set change, in place, the rest
// (comments, options, scoped servers, the other family) stays byte for byte; a list with
// one bad entry, or too many, is refused whole; the file's mode and a symbolic link to it
// survive the rewrite, and no temporary file is left behind.
TEST(LinuxSettings, ResolverFileRewritesOnlyItsOwnLines) {
    TempDir dir;
    const std::string conf = dir.file("real.conf");
    const std::string original =
        "# by hand\nnameserver 192.0.2.53\noptions edns0\nnameserver fe80::1%eth0\n"
        "nameserver 2001:db8::53\nsearch corp.example lab.example\n";
    ASSERT_TRUE(writeFile(conf, original));
    chmod(conf.c_str(), 0640);
    ASSERT_EQ(symlink(conf.c_str(), dir.file("resolv.conf").c_str()), 0);
    Reports r;
    TcpIpHostSettings* host = TcpIpHostSettings::getInstance(&r);
    ASSERT_NE(host, nullptr);
    host->setResolverPath(dir.file("resolv.conf").c_str());

    EXPECT_EQ(host->getDnsHostCount(&r), 1);
    EXPECT_EQ(host->getIpv6DnsHostCount(&r), 1) << "the scoped server is not an address";
    char domain[1024];
    host->getDomain(&r, domain, sizeof domain);
    EXPECT_STREQ(domain, "corp.example");

    const char* bad[] = {"192.0.2.1 192.0.2.256", "192.0.2.1 host.example", "2001:db8::1",
                         "192.0.2.1 192.0.2.2 192.0.2.3 192.0.2.4"};
    for (const char* list : bad) {
        r.texts.clear();
        EXPECT_EQ(host->setDnsHosts(&r, list), -1) << list;
        EXPECT_EQ(r.texts.size(), 1u) << list;
    }
    EXPECT_EQ(host->setIpv6DnsHosts(&r, "192.0.2.1"), -1);
    EXPECT_EQ(host->setDomain(&r, "two words"), -1);
    EXPECT_EQ(readFile(conf), original) << "a refused list changes nothing";

    r.texts.clear();
    EXPECT_EQ(host->setDnsHosts(&r, "198.51.100.53,192.0.2.54", ','), 0);
    EXPECT_EQ(host->setDomain(&r, "example.org"), 0);
    EXPECT_EQ(host->setIpv6DnsHosts(&r, ""), 0);
    EXPECT_EQ(r.all(), "");
    EXPECT_EQ(readFile(conf),
              "# by hand\nnameserver 198.51.100.53\nnameserver 192.0.2.54\noptions edns0\n"
              "nameserver fe80::1%eth0\nsearch example.org lab.example\n");
    struct stat st;
    ASSERT_EQ(lstat(dir.file("resolv.conf").c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode)) << "the link's target is replaced, not the link";
    ASSERT_EQ(stat(conf.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u);
    int entries = 0;
    for (const auto& e : std::filesystem::directory_iterator(dir.path())) {
        (void)e;
        ++entries;
    }
    EXPECT_EQ(entries, 2) << "no temporary file left";
    TcpIpHostSettings::unload();
}

// The files as the C library reads them: the last of "domain" and "search" decides and is
// the line edited; a server that stays keeps its comment; the host-name file keeps its
// other lines; values equal to what is there rewrite nothing.
TEST(LinuxSettings, ResolverAndHostNameFilesAsTheCLibraryReadsThem) {
    IN_NAMESPACES([](TcpIpHostSettings* host, const TempDir& dir) {
        Reports r;
        const std::string conf = dir.file("resolv.conf"), name = dir.file("hostname");
        const std::vector<std::vector<std::string>> domains = {
            // file, domain read, file after setDomain("example.org")
            {"domain a.example\nsearch b.example c.example\n", "b.example",
             "domain a.example\nsearch example.org c.example\n"},
            {"search b.example\ndomain a.example\n# end\n", "a.example",
             "search b.example\ndomain example.org\n# end\n"},
        };
        char domain[1024];
        for (const auto& d : domains) {
            writeFile(conf, d[0]);
            host->getDomain(&r, domain, sizeof domain);
            EXPECT_EQ(domain, d[1]);
            EXPECT_EQ(host->setDomain(&r, "example.org"), 0);
            EXPECT_EQ(readFile(conf), d[2]);
        }
        writeFile(conf, "nameserver 192.0.2.53 # primary\noptions edns0\nnameserver 192.0.2.54\n");
        EXPECT_EQ(host->setDnsHosts(&r, "192.0.2.53 192.0.2.54"), 0);
        EXPECT_EQ(readFile(conf),
                  "nameserver 192.0.2.53 # primary\noptions edns0\nnameserver 192.0.2.54\n");
        EXPECT_EQ(host->setDnsHosts(&r, "198.51.100.1 192.0.2.53"), 0);
        EXPECT_EQ(readFile(conf),
                  "nameserver 198.51.100.1\nnameserver 192.0.2.53 # primary\noptions edns0\n");

        writeFile(name, "# kept by hand\nns-one\n# trailer\n");
        EXPECT_EQ(host->setHostName(&r, "ns-one"), 0);
        EXPECT_EQ(readFile(name), "# kept by hand\nns-one\n# trailer\n");
        EXPECT_EQ(host->setHostName(&r, "ns-two"), 0);
        EXPECT_EQ(readFile(name), "# kept by hand\nns-two\n# trailer\n");
        EXPECT_EQ(run("hostname"), "ns-two");
        EXPECT_EQ(r.all(), "");
    });
}

// A link-local IPv6 gateway needs a device: the one of the route it replaces, or the one
// written after '%'; with neither it is refused and reported.
TEST(LinuxSettings, LinkLocalGatewayTakesItsDevice) {
    IN_NAMESPACES([](TcpIpHostSettings* host, const TempDir&) {
        Reports r;
        const std::string routes = "[(r[\"gateway\"], r[\"dev\"]) for r in j]";
        EXPECT_EQ(host->setIpv6DefaultGateway(&r, "fe80::7"), 0);
        EXPECT_EQ(ip("-6 route show default", routes), "[('fe80::7', 'v0')]");
        run("ip -6 route del default");
        EXPECT_EQ(host->setIpv6DefaultGateway(&r, "fe80::8"), -1);
        ASSERT_EQ(r.texts.size(), 1u);
        EXPECT_NE(r.texts[0].find("fe80::8 needs an adapter"), std::string::npos) << r.all();
        EXPECT_EQ(host->setIpv6DefaultGateway(&r, "fe80::9%v1"), 0);
        EXPECT_EQ(ip("-6 route show default", routes), "[('fe80::9', 'v1')]");
        EXPECT_EQ(host->setIpv6DefaultGateway(&r, "fe80::9%nope"), -1);
    });
}

// What ip set up, the library reads: ids, addresses, masks, prefix, hardware address,
// gateways, DNS, domain, host name, no loopback. Its own document applied unchanged
// changes nothing and reads back equal; a link made later is found.
TEST(LinuxSettings, ReadsWhatIpSetAndItsOwnDocumentAppliesUnchanged) {
    IN_NAMESPACES([](TcpIpHostSettings* host, const TempDir& dir) {
        Reports r;
        std::string doc = document(host, &r);
        std::string mac = ip("link show v0", "j[0][\"address\"].upper()");
        for (const std::string& part :
             {std::string("hostname=\"ns-one\""), std::string("domain=\"example.net\""),
              std::string("defaultGateway=\"192.0.2.1\""),
              std::string("ipv6DefaultGateway=\"2001:db8::1\""),
              std::string("<dnsHost ipAddress=\"192.0.2.53\"/>"),
              "<adapter id=\"v0\" enabled=\"true\" canDisable=\"true\" desc=\"veth\" "
              "macAddress=\"" +
                  mac + "\"",
              std::string("ipAddress=\"192.0.2.10\" subnetMask=\"255.255.255.0\" "
                          "ipv6Address=\"2001:db8::10\" ipv6SubnetPrefixLength=\"64\""),
              std::string("<adapter id=\"v1\"")}) {
            EXPECT_NE(doc.find(part), std::string::npos) << part << "\n" << doc;
        }
        EXPECT_EQ(doc.find("id=\"lo\""), std::string::npos);

        std::string before = kernelState();
        std::string resolver = readFile(dir.file("resolv.conf"));
        EXPECT_EQ(apply(host, doc, &r), 0);
        EXPECT_EQ(r.all(), "");
        EXPECT_EQ(document(host, &r), doc);
        EXPECT_EQ(kernelState(), before);
        EXPECT_EQ(readFile(dir.file("resolv.conf")), resolver);

        run("ip link add v2 type veth peer name v3");
        EXPECT_NE(host->getAdapterSettings(&r, "v2"), nullptr);
        EXPECT_EQ(host->getAdapterSettings(&r, "V2"), nullptr);
    });
}

// A changed document reaches the kernel and the files. The new gateways lie in networks
// that only the adapters' new addresses reach, which the document applies later.
TEST(LinuxSettings, AppliesAChangedDocumentAsIpThenSeesIt) {
    IN_NAMESPACES([](TcpIpHostSettings* host, const TempDir& dir) {
        Reports r;
        std::string doc =
            "<tcpIpSettings hostname=\"ns-two\" domain=\"example.com\" "
            "defaultGateway=\"198.51.100.1\" ipv6DefaultGateway=\"2001:db8:1::1\">"
            "<dnsHosts><dnsHost ipAddress=\"198.51.100.53\"/><dnsHost ipAddress=\"192.0.2.53\"/>"
            "</dnsHosts><ipv6DnsHosts><ipv6DnsHost ipv6Address=\"2001:db8::53\"/></ipv6DnsHosts>"
            "<adapters><adapter id=\"v0\" enabled=\"true\" ipv6Enabled=\"true\" "
            "ipAddress=\"198.51.100.2\" subnetMask=\"255.255.255.128\" "
            "ipv6Address=\"2001:db8:1::2\" ipv6SubnetPrefixLength=\"48\"/>"
            "<adapter id=\"v1\" enabled=\"false\" ipv6Enabled=\"false\" ipAddress=\"\" "
            "subnetMask=\"\"/></adapters></tcpIpSettings>";
        EXPECT_EQ(apply(host, doc, &r), 0);
        EXPECT_EQ(r.all(), "");
        const std::string addrs =
            "[a[\"local\"]+\"/\"+str(a[\"prefixlen\"]) for a in j[0][\"addr_info\"] if \"local\" "
            "in a]";
        EXPECT_EQ(ip("-4 addr show dev v0", addrs), "['198.51.100.2/25']");
        EXPECT_EQ(ip("-6 addr show dev v0 scope global", addrs), "['2001:db8:1::2/48']");
        EXPECT_EQ(ip("route show default", "[r[\"gateway\"] for r in j]"), "['198.51.100.1']");
        EXPECT_EQ(ip("-6 route show default", "[r[\"gateway\"] for r in j]"), "['2001:db8:1::1']");
        EXPECT_EQ(ip("link show v1", "\"UP\" in j[0][\"flags\"]"), "False");
        EXPECT_EQ(readFile("/proc/sys/net/ipv6/conf/v1/disable_ipv6"), "1\n");
        EXPECT_EQ(run("hostname"), "ns-two");
        EXPECT_EQ(readFile(dir.file("hostname")), "ns-two\n");
        EXPECT_EQ(readFile(dir.file("resolv.conf")),
                  "nameserver 198.51.100.53\nnameserver 192.0.2.53\nnameserver 2001:db8::53\n"
                  "search example.com\n");
    });
}

// Each bad value is reported and changes nothing: the kernel, the files and the
// document read back are as before.
TEST(LinuxSettings, BadValuesAreReportedAndApplyNothingOfTheirs) {
    IN_NAMESPACES([](TcpIpHostSettings* host, const TempDir& dir) {
        Reports r;
        const std::string doc = document(host, &r);
        const std::string state = kernelState();
        const std::string resolver = readFile(dir.file("resolv.conf"));
        const std::vector<std::pair<std::string, std::string>> bad = {
            {"ipAddress=\"192.0.2.10\"", "ipAddress=\"192.0.2.999\""},
            {"subnetMask=\"255.255.255.0\"", "subnetMask=\"255.0.255.0\""},
            {"ipv6Address=\"2001:db8::10\"", "ipv6Address=\"2001:db8::g\""},
            {"ipv6SubnetPrefixLength=\"64\"", "ipv6SubnetPrefixLength=\"129\""},
            // Well formed, refused by the kernel only after the old address was taken off.
            {"ipv6Address=\"2001:db8::10\"", "ipv6Address=\"ff02::5\""},
            {"id=\"v0\"", "id=\"nope\""},
            {"<dnsHost ipAddress=\"192.0.2.53\"/>",
             "<dnsHost ipAddress=\"192.0.2.53\"/><dnsHost ipAddress=\"192.0.2.5x\"/>"},
            {"defaultGateway=\"192.0.2.1\"", "defaultGateway=\"192.0.2\""},
            {"hostname=\"ns-one\"", "hostname=\"ns_one!\""},
        };
        for (const auto& change : bad) {
            r.texts.clear();
            apply(host, replaced(doc, change.first, change.second), &r);
            EXPECT_FALSE(r.texts.empty()) << change.second;
            EXPECT_EQ(kernelState(), state) << change.second;
            EXPECT_EQ(readFile(dir.file("resolv.conf")), resolver) << change.second;
            EXPECT_EQ(document(host, &r), doc) << change.second;
        }
        r.texts.clear();
        EXPECT_EQ(apply(host, replaced(doc, "id=\"v0\"", "id=\"nope\""), &r), -1);
        EXPECT_EQ(r.all(), "Error occurred when saving adapter settings\n");
    });
}

#endif  // __linux__

#if defined(__linux__)
namespace {

std::string withAdapter(std::string doc, const std::string& id, const std::string& from,
                        const std::string& to) {
    size_t at = doc.find("<adapter id=\"" + id + "\"");
    size_t found = doc.find(from, at);
    EXPECT_NE(found, std::string::npos) << from;
    if (at != std::string::npos && found != std::string::npos) doc.replace(found, from.size(), to);
    return doc;
}

int applyAllOrNothing(TcpIpHostSettings* host, const std::string& doc, ErrorHandler* err) {
    StringReader in(doc.c_str(), static_cast<int>(doc.size()));
    XParser parser(&in);
    std::unique_ptr<XElem> root(parser.parse(true));
    return TcpIpSnapshot::applyAllOrNothing(host, root.get(), err);
}

std::vector<std::string> sortedLines(const std::string& text);

// The lines of `text` sorted: ip lists routes of one destination in the order they were
// made, which a change may alter without changing any route.
std::string normalized(const std::string& text) {
    std::string out;
    for (const std::string& line : sortedLines(text))
        out += line + "\n";
    return out;
}

std::vector<std::string> sortedLines(const std::string& text) {
    std::vector<std::string> lines;
    size_t at = 0;
    while (at <= text.size()) {
        size_t end = text.find('\n', at);
        if (end == std::string::npos) end = text.size();
        if (end > at) lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

}  // namespace

// The host's own document applied back, and each setter given the value that is there,
// leave every address, route, link state, switch and file as they were, on a state with
// everything the document does not show.
TEST(LinuxSettings, OwnDocumentOnARichStateChangesNothing) {
    IN_RICH_NAMESPACES([](TcpIpHostSettings* host, const TempDir& dir) {
        Reports r;
        const std::string doc = document(host, &r);
        EXPECT_NE(doc.find("ipv6DefaultGateway=\"fe80::1\""), std::string::npos) << doc;
        const std::string before = fullState(dir);
        EXPECT_EQ(apply(host, doc, &r), 0);
        EXPECT_EQ(r.all(), "");
        EXPECT_EQ(fullState(dir), before);

        TcpIpAdapterSettings* v0 = host->getAdapterSettings(&r, "v0");
        ASSERT_NE(v0, nullptr);
        EXPECT_EQ(host->setDefaultGateway(&r, "192.0.2.1"), 0);
        EXPECT_EQ(host->setIpv6DefaultGateway(&r, "fe80::1"), 0);
        EXPECT_EQ(host->setDomain(&r, "example.net"), 0);
        EXPECT_EQ(host->setDnsHosts(&r, "192.0.2.53"), 0);
        EXPECT_EQ(host->setHostName(&r, "ns-one"), 0);
        EXPECT_EQ(v0->setIpAddressSubnetMask(&r, "192.0.2.10", "255.255.255.0"), 0);
        EXPECT_EQ(v0->setIpv6Address(&r, "2001:db8:1::10"), 0);
        EXPECT_EQ(v0->setIpv6SubnetPrefixLength(&r, 64), 0);
        EXPECT_EQ(v0->setEnabled(&r, true), 0);
        EXPECT_EQ(v0->setIpv6Enabled(&r, true), 0);
        EXPECT_EQ(r.all(), "");
        EXPECT_EQ(fullState(dir), before);

        // A gateway the kernel refuses leaves the route shown as it was, onlink and source
        // included; another one replaces the gateway only.
        run("ip route change default via 192.0.2.1 dev v0 onlink src 198.51.100.10");
        const std::string onlink = fullState(dir);
        EXPECT_EQ(host->setDefaultGateway(&r, "198.51.100.10"), 0);  // local: refused
        EXPECT_EQ(r.all(), "");
        EXPECT_EQ(fullState(dir), onlink);
        EXPECT_EQ(host->setDefaultGateway(&r, "198.51.100.200"), 0);
        EXPECT_EQ(ip("route show default",
                     "[(r.get(\"gateway\"), r[\"flags\"], r.get(\"prefsrc\"), "
                     "r.get(\"metric\")) for r in j]"),
                  "[('198.51.100.200', ['onlink'], '198.51.100.10', None), "
                  "('198.51.100.1', [], None, 600), (None, [], None, 900)]");
    });
}

// Changing the address shown, the gateway shown and a link-local IPv6 gateway changes
// those and nothing else: the link's other addresses keep their places, every route the
// kernel took with the old address comes back with all its attributes, the other default
// routes stay, and the one route that cannot be kept (its source was the old address) is
// reported by name.
TEST(LinuxSettings, AChangeTouchesOnlyWhatItNames) {
    IN_RICH_NAMESPACES([](TcpIpHostSettings* host, const TempDir& dir) {
        Reports r;
        std::string doc = document(host, &r);
        doc = withAdapter(doc, "v0", "ipAddress=\"192.0.2.10\"", "ipAddress=\"192.0.2.20\"");
        doc = replaced(doc, "defaultGateway=\"192.0.2.1\"", "defaultGateway=\"192.0.2.2\"");
        doc = replaced(doc, "ipv6DefaultGateway=\"fe80::1\"", "ipv6DefaultGateway=\"fe80::2\"");
        std::string expected;
        for (std::string line : sortedLines(fullState(dir))) {
            if (line.find("192.0.2.128/26") != std::string::npos) continue;  // reported below
            auto swap = [&line](const std::string& from, const std::string& to) {
                for (size_t at; (at = line.find(from)) != std::string::npos;)
                    line.replace(at, from.size(), to);
            };
            if (line.find("\"table\": \"main\"") != std::string::npos)
                swap("\"gateway\": \"192.0.2.1\"", "\"gateway\": \"192.0.2.2\"");
            swap("\"fe80::1\"", "\"fe80::2\"");
            swap("\"192.0.2.10\"", "\"192.0.2.20\"");
            expected += line + "\n";
        }
        expected = normalized(expected);
        apply(host, doc, &r);
        ASSERT_EQ(r.texts.size(), 2u) << r.all();
        EXPECT_EQ(r.texts[0].find("The route 192.0.2.128/26 via 192.0.2.254 dev v0 src 192.0.2.10 "
                                  "table 100 could not be kept: "),
                  0u)
            << r.all();
        EXPECT_EQ(normalized(fullState(dir)), expected);
    });
}

// A document that fails part-way (a prefix length the kernel refuses, an address it
// refuses, an adapter that does not exist) after changing the host name, the resolver
// file, an address, a link and an IPv6 switch leaves the host byte for byte as before.
// A capture saved to a file and loaded again puts back a change that succeeded.
TEST(LinuxSettings, AFailedApplyIsUndoneWholeAndASavedCaptureRestores) {
    IN_RICH_NAMESPACES([](TcpIpHostSettings* host, const TempDir& dir) {
        Reports r;
        const std::string doc = document(host, &r);
        const std::string before = fullState(dir);
        std::string changed = replaced(doc, "hostname=\"ns-one\"", "hostname=\"ns-two\"");
        changed = replaced(changed, "domain=\"example.net\"", "domain=\"example.org\"");
        changed = replaced(changed, "<dnsHost ipAddress=\"192.0.2.53\"/>",
                           "<dnsHost ipAddress=\"198.51.100.53\"/>");
        changed =
            withAdapter(changed, "v2", "ipAddress=\"203.0.113.5\"", "ipAddress=\"203.0.113.6\"");
        changed = withAdapter(changed, "v2", "enabled=\"true\"", "enabled=\"false\"");
        changed = withAdapter(changed, "v3", "ipv6Enabled=\"true\"", "ipv6Enabled=\"false\"");
        const std::vector<std::pair<std::string, std::string>> failures = {
            {"ipv6SubnetPrefixLength=\"64\"", "ipv6SubnetPrefixLength=\"200\""},
            {"ipv6Address=\"2001:db8:1::10\"", "ipv6Address=\"ff02::5\""},
            {"</adapters>", "<adapter id=\"nope\"/></adapters>"},
        };
        for (const auto& f : failures) {
            r.texts.clear();
            std::string bad = f.first == "</adapters>"
                                  ? replaced(changed, f.first, f.second)
                                  : withAdapter(changed, "v0", f.first, f.second);
            EXPECT_EQ(applyAllOrNothing(host, bad, &r), -1) << f.second;
            ASSERT_FALSE(r.texts.empty());
            EXPECT_EQ(r.texts.back(), "The former network settings were restored") << r.all();
            EXPECT_EQ(fullState(dir), before) << f.second << "\n" << r.all();
        }

        r.texts.clear();
        std::unique_ptr<TcpIpSnapshot> taken(TcpIpSnapshot::take(host, &r));
        ASSERT_NE(taken, nullptr);
        ASSERT_EQ(taken->save(dir.file("capture").c_str(), &r), 0);
        EXPECT_EQ(applyAllOrNothing(host, changed, &r), 0) << r.all();
        EXPECT_NE(fullState(dir), before);
        EXPECT_FALSE(taken->matches(nullptr));
        std::unique_ptr<TcpIpSnapshot> loaded(
            TcpIpSnapshot::load(host, dir.file("capture").c_str(), &r));
        ASSERT_NE(loaded, nullptr) << r.all();
        // A link that came up in the meantime is not the capture's to change.
        run("ip link add v4 type veth peer name v5 && ip link set v4 up && ip link set v5 up && "
            "ip addr add 203.0.113.77/24 dev v4 && ip route add 192.0.2.192/26 dev v4");
        EXPECT_EQ(loaded->restore(&r), 0) << r.all();
        EXPECT_EQ(ip("-4 addr show dev v4", "[a[\"local\"] for a in j[0][\"addr_info\"]]"),
                  "['203.0.113.77']");
        EXPECT_EQ(ip("route show 192.0.2.192/26", "len(j)"), "1");
        run("ip link del v4");
        EXPECT_TRUE(loaded->matches(&r)) << r.all();
        EXPECT_EQ(fullState(dir), before);
        writeFile(dir.file("capture"), "velmora-network-capture 1\nhostname 41\n");
        EXPECT_EQ(TcpIpSnapshot::load(host, dir.file("capture").c_str(), &r), nullptr)
            << "a capture cut short is refused";
    });
}
#endif  // __linux__
