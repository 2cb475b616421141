// The Linux capture: the kernel's address and route records whole, link states, IPv6
// switches, the host name and the two files. Restoring compares record keys (RtMessage)
// so that what did not change is never touched, and puts records back from the captured
// bytes so that they come back with every attribute.
#include <velmora/tcpip/TcpIpSnapshot.h>

#include <velmora/tcpip/TcpIpHostSettings.h>

#include "tcpip/linux/KernelRecords.h"
#include "tcpip/linux/LinuxNetwork.h"
#include "tcpip/linux/Netlink.h"
#include "tcpip/linux/RtMessage.h"

#include <fcntl.h>
#include <linux/if_addr.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <set>
#include <string>
#include <vector>

namespace velmora {

struct TcpIpSnapshot::State {
    struct File {
        std::string path;
        bool exists = false;
        std::string bytes;
    };
    struct Link {
        std::string name;
        int index = 0;
        bool up = false;
        int ipv6Disabled = -1;  // -1: the link has no IPv6
    };
    std::string hostname;
    File resolver, hostnameFile;
    std::vector<Link> links;
    std::vector<std::string> addresses[2];  // IPv4, IPv6: whole records in kernel order
    std::vector<std::string> routes[2];
};

namespace {

using State = TcpIpSnapshot::State;

const char kKey[] = "TcpIpSnapshot.restoreFailed";

void reportFailure(ErrorHandler* err, const std::string& what, int code) {
    linuxnet::reportSystem(err, kKey, what, code);
}
const int kFamilies[2] = {AF_INET, AF_INET6};
const char kMagic[] = "velmora-network-capture 1";

// 1 when the link's IPv6 is switched off, 0 when on, -1 when the link has none.
int readIpv6Switch(const std::string& link) {
    bool disabled = false;
    if (!linuxnet::readIpv6Switch(link, &disabled)) return -1;
    return disabled ? 1 : 0;
}

bool readFile(State::File* f, const char* path) {
    f->path = path != nullptr ? path : "";
    int code = 0;
    f->exists = linuxnet::readText(f->path.c_str(), &f->bytes, &code);
    return f->exists || code == ENOENT;
}

std::string hostName() {
    char name[256] = "";
    if (::gethostname(name, sizeof name - 1) != 0) name[0] = '\0';
    return name;
}

int capture(TcpIpHostSettings* host, State* s, std::string* what) {
    s->hostname = hostName();
    if (!readFile(&s->resolver, host->getResolverPath())) {
        *what = std::string("Cannot read ") + host->getResolverPath();
        return errno != 0 ? errno : EIO;
    }
    if (!readFile(&s->hostnameFile, host->getHostnamePath())) {
        *what = std::string("Cannot read ") + host->getHostnamePath();
        return errno != 0 ? errno : EIO;
    }
    std::vector<netlink::Link> links;
    int code = netlink::dumpLinks(&links);
    *what = "Cannot read the network state";
    if (code != 0) return code;
    for (const netlink::Link& l : links) {
        State::Link link;
        link.name = l.name;
        link.up = (l.flags & IFF_UP) != 0;
        link.ipv6Disabled = readIpv6Switch(l.name);
        link.index = l.index;
        s->links.push_back(link);
    }
    for (int i = 0; i < 2 && code == 0; ++i) {
        code = linuxnet::dumpRecords(false, kFamilies[i], &s->addresses[i]);
        if (code == 0) code = linuxnet::dumpRecords(true, kFamilies[i], &s->routes[i]);
    }
    return code;
}

int restoreFile(const State::File& f, ErrorHandler* err) {
    if (f.path.empty()) return 0;
    std::string now;
    int code = 0;
    bool exists = linuxnet::readText(f.path.c_str(), &now, &code);
    if (exists == f.exists && now == f.bytes) return 0;
    if (f.exists)
        code = linuxnet::writeAtomically(f.path.c_str(), f.bytes);
    else
        code = ::unlink(f.path.c_str()) == 0 || errno == ENOENT ? 0 : errno;
    if (code == 0) return 0;
    reportFailure(err, "Cannot put back " + f.path, code);
    return 1;
}

int restoreLinks(const State& s, ErrorHandler* err) {
    int failed = 0;
    bool changed = false;
    for (const State::Link& l : s.links) {
        netlink::Link now;
        if (netlink::findLink(l.name.c_str(), &now) != 0) {
            reportFailure(err, "Cannot put back the link " + l.name, ENODEV);
            ++failed;
            continue;
        }
        int disabled = readIpv6Switch(l.name);
        if (l.ipv6Disabled >= 0 && disabled >= 0 && disabled != l.ipv6Disabled) {
            int code = linuxnet::writeIpv6Switch(l.name, l.ipv6Disabled != 0);
            if (code != 0) {
                reportFailure(err, "Cannot put back the IPv6 switch of " + l.name, code);
                ++failed;
            }
            changed = true;
        }
        if (((now.flags & IFF_UP) != 0) != l.up) {
            int code = netlink::setLinkUp(now.index, l.up);
            if (code != 0) {
                reportFailure(err, "Cannot put back the state of " + l.name, code);
                ++failed;
            }
            changed = true;
        }
    }
    if (changed) linuxnet::waitForTentativeAddresses();
    return failed;
}

// "" when the records are the same in the same order, else what differs first.
std::string firstDifference(const std::vector<std::string>& was, const std::vector<std::string>& is,
                            const char* family, const char* what) {
    std::vector<std::string> wasKeys = linuxnet::keysOf(was), isKeys = linuxnet::keysOf(is);
    if (wasKeys == isKeys) return "";
    for (size_t i = 0; i < was.size(); ++i) {
        if (std::find(isKeys.begin(), isKeys.end(), wasKeys[i]) == isKeys.end())
            return std::string("the ") + what + " " + RtMessage(was[i]).describe() + " is gone";
    }
    for (size_t i = 0; i < is.size(); ++i) {
        if (std::find(wasKeys.begin(), wasKeys.end(), isKeys[i]) == wasKeys.end())
            return std::string("the ") + what + " " + RtMessage(is[i]).describe() + " is new";
    }
    return std::string("the ") + family + " " +
           (std::string(what) == "address" ? "addresses" : "routes") +
           " are listed in another order";
}

std::string hex(const std::string& bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string out;
    out.reserve(bytes.size() * 2 + 1);
    for (unsigned char c : bytes) {
        out += digits[c >> 4];
        out += digits[c & 15];
    }
    return out.empty() ? "-" : out;
}

bool unhex(const std::string& text, std::string* out) {
    out->clear();
    if (text == "-") return true;
    if (text.size() % 2 != 0) return false;
    auto value = [](char c) {
        return c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
    };
    for (size_t i = 0; i < text.size(); i += 2) {
        int hi = value(text[i]), lo = value(text[i + 1]);
        if (hi < 0 || lo < 0) return false;
        out->push_back(static_cast<char>(hi * 16 + lo));
    }
    return true;
}

std::vector<std::string> words(const std::string& line) {
    std::vector<std::string> out;
    size_t at = 0;
    while (at < line.size()) {
        size_t end = line.find(' ', at);
        if (end == std::string::npos) end = line.size();
        out.push_back(line.substr(at, end - at));
        at = end + 1;
    }
    return out;
}

bool parse(const std::string& text, State* s) {
    size_t at = 0;
    bool magic = false;
    while (at < text.size()) {
        size_t end = text.find('\n', at);
        if (end == std::string::npos) return false;  // cut short
        std::vector<std::string> w = words(text.substr(at, end - at));
        at = end + 1;
        if (!magic) {
            magic = text.compare(0, sizeof kMagic - 1, kMagic) == 0;
            if (!magic) return false;
            continue;
        }
        std::string a, b;
        if (w.size() == 2 && w[0] == "hostname" && unhex(w[1], &a)) {
            s->hostname = a;
        } else if (w.size() == 4 && (w[0] == "resolver" || w[0] == "hostnameFile") &&
                   unhex(w[1], &a) && unhex(w[3], &b)) {
            State::File& f = w[0] == "resolver" ? s->resolver : s->hostnameFile;
            f.path = a;
            f.exists = w[2] == "1";
            f.bytes = b;
        } else if (w.size() == 5 && w[0] == "link" && unhex(w[1], &a)) {
            State::Link l;
            l.name = a;
            l.index = std::atoi(w[4].c_str());
            l.up = w[2] == "1";
            l.ipv6Disabled = std::atoi(w[3].c_str());
            s->links.push_back(l);
        } else if (w.size() == 3 && (w[0] == "address" || w[0] == "route") &&
                   (w[1] == "4" || w[1] == "6") && unhex(w[2], &a) && RtMessage(a).family() != 0) {
            std::vector<std::string>* lists = w[0] == "address" ? s->addresses : s->routes;
            lists[w[1] == "6" ? 1 : 0].push_back(a);
        } else if (!(w.size() == 1 && w[0] == "end")) {
            return false;
        }
    }
    return magic && text.size() >= 4 && text.compare(text.size() - 4, 4, "end\n") == 0;
}

}  // namespace

TcpIpSnapshot* TcpIpSnapshot::take(TcpIpHostSettings* host, ErrorHandler* err) {
    if (host == nullptr) return nullptr;
    State* s = new (std::nothrow) State();
    if (s == nullptr) return nullptr;
    std::string what;
    errno = 0;
    int code = capture(host, s, &what);
    if (code != 0) {
        linuxnet::reportSystem(err, "TcpIpSnapshot.captureFailed", what, code);
        delete s;
        return nullptr;
    }
    TcpIpSnapshot* snapshot = new (std::nothrow) TcpIpSnapshot(host, s);
    if (snapshot == nullptr) delete s;
    return snapshot;
}

TcpIpSnapshot* TcpIpSnapshot::load(TcpIpHostSettings* host, const char* path, ErrorHandler* err) {
    std::string text;
    int code = 0;
    if (!linuxnet::readText(path, &text, &code)) {
        linuxnet::reportSystem(err, "TcpIpSnapshot.loadFailed", std::string("Cannot read ") + path,
                               code);
        return nullptr;
    }
    State* s = new (std::nothrow) State();
    if (s == nullptr) return nullptr;
    if (!parse(text, s)) {
        linuxnet::report(err, "TcpIpSnapshot.damaged", path,
                         std::string("Not a saved network capture: ") + path);
        delete s;
        return nullptr;
    }
    TcpIpSnapshot* snapshot = new (std::nothrow) TcpIpSnapshot(host, s);
    if (snapshot == nullptr) delete s;
    return snapshot;
}

TcpIpSnapshot::~TcpIpSnapshot() {
    delete state_;
}

int TcpIpSnapshot::restore(ErrorHandler* err) {
    const State& s = *state_;
    // A gateway that a refused document asked for must not come back with a later change.
    linuxnet::forgetGateways();
    int failed = 0;
    if (hostName() != s.hostname && ::sethostname(s.hostname.c_str(), s.hostname.size()) != 0) {
        reportFailure(err, "Cannot put back the host name " + s.hostname, errno);
        ++failed;
    }
    failed += restoreFile(s.resolver, err);
    failed += restoreFile(s.hostnameFile, err);
    failed += restoreLinks(s, err);
    // Links that came up after the capture (a tunnel, a container's) are not ours to
    // change: only the captured links get their addresses and routes back.
    std::set<int> indexes;
    for (const State::Link& l : s.links)
        indexes.insert(l.index);
    for (int i = 0; i < 2; ++i) {
        for (int index : indexes)
            failed += linuxnet::setLinkAddresses(kFamilies[i], index,
                                                 linuxnet::onLink(s.addresses[i], index), err);
    }
    for (int i = 0; i < 2; ++i)
        failed += linuxnet::setRoutes(kFamilies[i], s.routes[i], indexes, err);
    return failed == 0 ? 0 : -1;
}

bool TcpIpSnapshot::matches(ErrorHandler* err) {
    State now;
    std::string what;
    int code = capture(host_, &now, &what);
    if (code != 0) {
        linuxnet::reportSystem(err, "TcpIpSnapshot.captureFailed", what, code);
        return false;
    }
    const State& s = *state_;
    std::string difference;
    if (now.hostname != s.hostname) {
        difference = "the host name is " + now.hostname;
    } else if (now.resolver.bytes != s.resolver.bytes || now.resolver.exists != s.resolver.exists) {
        difference = s.resolver.path + " differs";
    } else if (now.hostnameFile.bytes != s.hostnameFile.bytes ||
               now.hostnameFile.exists != s.hostnameFile.exists) {
        difference = s.hostnameFile.path + " differs";
    }
    for (const State::Link& l : s.links) {
        if (!difference.empty()) break;
        auto same = std::find_if(now.links.begin(), now.links.end(), [&](const State::Link& n) {
            return n.name == l.name && n.up == l.up && n.ipv6Disabled == l.ipv6Disabled;
        });
        if (same == now.links.end()) difference = "the state of " + l.name + " differs";
    }
    for (int i = 0; i < 2 && difference.empty(); ++i) {
        const char* family = i == 0 ? "IPv4" : "IPv6";
        difference = firstDifference(s.addresses[i], now.addresses[i], family, "address");
        if (difference.empty())
            difference = firstDifference(s.routes[i], now.routes[i], family, "route");
    }
    if (difference.empty()) return true;
    linuxnet::report(err, "TcpIpSnapshot.differs", difference,
                     "The network settings differ from the capture: " + difference);
    return false;
}

int TcpIpSnapshot::save(const char* path, ErrorHandler* err) const {
    const State& s = *state_;
    std::string text = std::string(kMagic) + "\n";
    text += "hostname " + hex(s.hostname) + "\n";
    text += "resolver " + hex(s.resolver.path) + (s.resolver.exists ? " 1 " : " 0 ") +
            hex(s.resolver.bytes) + "\n";
    text += "hostnameFile " + hex(s.hostnameFile.path) + (s.hostnameFile.exists ? " 1 " : " 0 ") +
            hex(s.hostnameFile.bytes) + "\n";
    for (const State::Link& l : s.links)
        text += "link " + hex(l.name) + (l.up ? " 1 " : " 0 ") + std::to_string(l.ipv6Disabled) +
                " " + std::to_string(l.index) + "\n";
    for (int i = 0; i < 2; ++i) {
        const char* family = i == 0 ? " 4 " : " 6 ";
        for (const std::string& m : s.addresses[i])
            text += std::string("address") + family + hex(m) + "\n";
        for (const std::string& m : s.routes[i])
            text += std::string("route") + family + hex(m) + "\n";
    }
    text += "end\n";
    int code = linuxnet::writePrivately(path, text);
    if (code == 0) return 0;
    linuxnet::reportSystem(err, "TcpIpSnapshot.saveFailed", std::string("Cannot write ") + path,
                           code);
    return -1;
}

}  // namespace velmora
