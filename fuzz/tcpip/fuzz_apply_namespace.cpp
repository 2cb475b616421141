// Documents applied all or nothing to the real Linux settings inside network and UTS
// namespaces of the target's own (made at start when it runs as root; otherwise only the
// strict check runs). The host holds two veth pairs with addresses, routes and files. A
// document the strict check accepts is applied as the daemon applies it; afterwards
// either it failed and the capture taken before matches the host, or it applied and the
// host's own document applied again changes nothing. The start state is then restored
// and must match, so that every input begins from the same host.
#include <velmora/log/ErrorHandler.h>
#include <velmora/log/MessageBundle.h>
#include <velmora/tcpip/TcpIpDocumentCheck.h>
#include <velmora/tcpip/TcpIpHostSettings.h>
#include <velmora/tcpip/TcpIpSnapshot.h>
#include <velmora/tcpip/TcpIpUtil.h>
#include <velmora/text/StringReader.h>
#include <velmora/text/StringWriter.h>
#include <velmora/xml/XElem.h>
#include <velmora/xml/XParser.h>
#include <velmora/xml/XWriter.h>

#include <sched.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

namespace {

class Quiet : public velmora::ErrorHandler {
public:
    using velmora::ErrorHandler::error;
    void error(velmora::MessageBundle*) override {}
};

// Says what differs when a check fails.
class Loud : public velmora::ErrorHandler {
public:
    using velmora::ErrorHandler::error;
    void error(velmora::MessageBundle* b) override {
        std::fprintf(stderr, "fuzz_apply_namespace: %s\n", b->getText() ? b->getText() : "");
    }
};

velmora::TcpIpHostSettings* host = nullptr;
velmora::TcpIpSnapshot* start = nullptr;

std::string document() {
    velmora::StringWriter text;
    {
        velmora::XWriter out(&text);
        velmora::TcpIpUtil::getHostSettingsXml(host, &out, nullptr);
    }
    return text.getString() != nullptr ? text.getString() : "";
}

std::unique_ptr<velmora::XElem> parse(const std::string& text) {
    velmora::StringReader in(text.c_str(), static_cast<int>(text.size()));
    velmora::XParser parser(&in);
    return std::unique_ptr<velmora::XElem>(parser.parse(true));
}

void check(bool ok, const char* what) {
    if (ok) return;
    std::fprintf(stderr, "fuzz_apply_namespace: %s\n", what);
    __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    if (geteuid() != 0 || unshare(CLONE_NEWNET | CLONE_NEWUTS) != 0) {
        std::fprintf(stderr,
                     "fuzz_apply_namespace: no namespaces here (root needed): "
                     "only the strict check runs\n");
        return 0;
    }
    static char dir[] = "/tmp/velmora-fuzz-XXXXXX";
    if (mkdtemp(dir) == nullptr) return 0;
    // libFuzzer may end the process without running exit handlers: a child removes the
    // files when the pipe it reads closes, which happens however this process ends.
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0) return 0;
    if (fork() == 0) {
        close(pipeEnds[1]);
        char byte;
        while (read(pipeEnds[0], &byte, 1) > 0) {
        }
        std::string rm = std::string("rm -rf ") + dir;
        _exit(std::system(rm.c_str()) == 0 ? 0 : 1);
    }
    close(pipeEnds[0]);
    std::string setup = std::string(
                            "sysctl -qw net.ipv6.conf.all.accept_dad=0 "
                            "net.ipv6.conf.default.accept_dad=0 && ip link set lo up && "
                            "ip link add v0 type veth peer name v1 && "
                            "ip link add v2 type veth peer name v3 && "
                            "for l in v0 v1 v2 v3; do ip link set $l up; done && "
                            "ip addr add 192.0.2.10/24 dev v0 && "
                            "ip addr add 192.0.2.11/24 dev v0 && "
                            "ip addr add 2001:db8::10/64 dev v0 && "
                            "ip addr add 198.51.100.5/25 dev v2 && "
                            "ip route add default via 192.0.2.1 metric 100 && "
                            "ip route add default dev v2 metric 900 && "
                            "ip route add 203.0.113.0/24 via 198.51.100.1 proto static && "
                            "ip -6 route add default via fe80::1 dev v0 && "
                            "hostname ns-fuzz && printf 'nameserver 192.0.2.53\\n"
                            "search example.net\\n' > ") +
                        dir + "/resolv.conf && echo ns-fuzz > " + dir + "/hostname";
    if (std::system(setup.c_str()) != 0) return 0;
    host = velmora::TcpIpHostSettings::getInstance(nullptr);
    host->setResolverPath((std::string(dir) + "/resolv.conf").c_str());
    host->setHostnamePath((std::string(dir) + "/hostname").c_str());
    start = velmora::TcpIpSnapshot::take(host, nullptr);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const char* text = reinterpret_cast<const char*>(data);
    velmora::TcpIpDocumentCheck strict(host);
    strict.requireAdapterFlags(true);
    if (strict.check(text, size, nullptr) != 0 || start == nullptr) return 0;
    std::unique_ptr<velmora::XElem> root = parse(std::string(text, size));
    if (root == nullptr) return 0;

    Quiet quiet;
    Loud loud;
    std::unique_ptr<velmora::TcpIpSnapshot> before(velmora::TcpIpSnapshot::take(host, nullptr));
    check(before != nullptr, "no capture");
    if (velmora::TcpIpSnapshot::applyAllOrNothing(host, root.get(), &quiet) != 0) {
        check(before->matches(&loud), "a failed apply left the host changed");
    } else {
        std::unique_ptr<velmora::TcpIpSnapshot> after(velmora::TcpIpSnapshot::take(host, nullptr));
        std::unique_ptr<velmora::XElem> own = parse(document());
        check(own != nullptr && velmora::TcpIpUtil::setHostSettingsXml(host, own.get(), &loud) == 0,
              "the host's own document did not apply");
        check(after->matches(&loud), "the host's own document changed the host");
    }
    start->restore(nullptr);
    check(start->matches(&loud), "the start state did not come back");
    return 0;
}
