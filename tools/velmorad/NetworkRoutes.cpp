// GET /network: the host's TCP/IP settings as the tcpIpSettings document.
// POST /network[?confirmWithin=S]: applies a posted document all or nothing and answers
// the document read afterwards; with confirmWithin the change reverts by itself after S
// seconds unless POST /network/confirm?id=ID comes first (NetworkJournal.h).
// POST /network/revert[?id=ID], GET /network/pending: the change that waits.
//
// Applying changes the machine, so it is off unless the daemon's settings file says
// "network.apply=true" (read on every request: no restart needed to switch it); otherwise
// 403. Before anything is applied the body is checked strictly (TcpIpDocumentCheck) and
// every problem answered in one 400; a document that would take down the adapter or
// address the request came in on is refused unless it comes with a window. The host is
// captured first (TcpIpSnapshot) and put back when any step fails or reports, or when a
// gateway asked for does not show afterwards; the 400 then lists every report and says
// whether the former settings were restored. "network.resolverPath" and
// "network.hostnamePath" point the host at other resolver and host-name files (systems
// that keep them elsewhere, and tests).
#include "NetworkRoutes.h"

#include <velmora/log/ErrorHandler.h>
#include <velmora/log/Log.h>
#include <velmora/net/InetAddress.h>
#include <velmora/tcpip/TcpIpAdapterSettings.h>
#include <velmora/tcpip/TcpIpDocumentCheck.h>
#include <velmora/tcpip/TcpIpHostSettings.h>
#include <velmora/tcpip/TcpIpSnapshot.h>
#include <velmora/tcpip/TcpIpUtil.h>
#include <velmora/text/StringReader.h>
#include <velmora/text/StringWriter.h>
#include <velmora/xml/XElem.h>
#include <velmora/xml/XElemList.h>
#include <velmora/xml/XParser.h>
#include <velmora/xml/XWriter.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "AddressText.h"
#include "Daemon.h"
#include "HostServices.h"
#include "LogSafe.h"
#include "NetworkJournal.h"
#include "NetworkSummary.h"
#include "Reports.h"

namespace velmorad {

namespace {

const int kMaxWindow = 3600;

// The host's settings object, reading the resolver and host-name files that `s` names.
velmora::TcpIpHostSettings* hostFor(const Settings& s, velmora::ErrorHandler* err) {
    velmora::TcpIpHostSettings* host = velmora::TcpIpHostSettings::getInstance(err);
    if (host == nullptr) return nullptr;
    if (!s.networkResolverPath.empty()) host->setResolverPath(s.networkResolverPath.c_str());
    if (!s.networkHostnamePath.empty()) host->setHostnamePath(s.networkHostnamePath.c_str());
    return host;
}

std::string document(velmora::TcpIpHostSettings* host, velmora::ErrorHandler* err) {
    velmora::StringWriter text;
    {
        velmora::XWriter out(&text);
        velmora::TcpIpUtil::getHostSettingsXml(host, &out, err);
    }
    return std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n") +
           (text.getString() != nullptr ? text.getString() : "");
}

std::unique_ptr<velmora::XElem> parse(const std::string& body) {
    velmora::StringReader in(body.c_str(), static_cast<int>(body.size()));
    velmora::XParser parser(&in);
    parser.setUtf8(true);  // the settings document is UTF-8, as the library writes it
    return std::unique_ptr<velmora::XElem>(parser.parse(true));
}

// Equal texts, or the same address written two ways ("2001:DB8::1", "2001:db8::1"); a
// device suffix ("fe80::1%eth0") is not part of the address. Only literals are read: a
// name is never looked up here.
bool sameAddress(std::string a, std::string b) {
    for (std::string* s : {&a, &b}) {
        size_t percent = s->find('%');
        if (percent != std::string::npos) s->erase(percent);
    }
    if (a == b) return true;
    unsigned char x[16] = {}, y[16] = {};
    const int size = parseAddressLiteral(a.c_str(), x);
    return size != 0 && parseAddressLiteral(b.c_str(), y) == size &&
           std::memcmp(x, y, static_cast<size_t>(size)) == 0;
}

// A gateway that the document asks for but the host does not show afterwards (a system
// may accept one that no link reaches and leave it unset) is reported like a refusal.
void checkGateways(velmora::XElem* root, velmora::TcpIpHostSettings* host, Reports* reports) {
    if (root->getb("isReadonly", false) || host->usesAdapterLevelSettings(reports)) return;
    struct Gateway {
        const char* attribute;
        void (velmora::TcpIpHostSettings::*get)(velmora::ErrorHandler*, char*, int);
    };
    const Gateway gateways[] = {
        {"defaultGateway", &velmora::TcpIpHostSettings::getDefaultGateway},
        {"ipv6DefaultGateway", &velmora::TcpIpHostSettings::getIpv6DefaultGateway}};
    for (const Gateway& g : gateways) {
        const char* wanted = root->get(g.attribute, nullptr);
        char now[1024] = "";
        if (wanted == nullptr) continue;
        (host->*g.get)(reports, now, sizeof now);
        if (!sameAddress(wanted, now)) {
            reports->texts.push_back(std::string("The default gateway ") + wanted +
                                     " was not set: no adapter reaches it");
        }
    }
}

// The adapter (of the document) that the request came in through and what the document
// does to it, when that would cut the request's address off: "" when it would not.
std::string cutOff(Exchange& x, velmora::XElem* root, velmora::TcpIpHostSettings* host) {
    unsigned char local[16] = {};
    int family = x.handle != 0 ? localAddress(x.handle, local) : 0;
    if (family == 0) return "";
    char text[64] = "";
    velmora::InetAddress::inet_ntop(
        family == 4 ? velmora::InetAddress::getIpv4Family() : velmora::InetAddress::getIpv6Family(),
        local, text, sizeof text);
    velmora::XElem* adapters = root->elem("adapters");
    if (adapters == nullptr || root->getb("isReadonly", false)) return "";
    const std::string link = interfaceOf(local, family);
    std::unique_ptr<velmora::XElemList> list(adapters->elems("adapter"));
    for (velmora::XElemListItem* i = list->getFirst(); i != nullptr; i = i->getNext()) {
        velmora::XElem* a = i->getElem();
        const char* id = a->get("id", "");
        velmora::TcpIpAdapterSettings* settings = host->getAdapterSettings(nullptr, id);
        if (settings == nullptr) continue;
        char now[1024] = "";
        if (family == 4)
            settings->getIpAddress(nullptr, now, sizeof now);
        else
            settings->getIpv6Address(nullptr, now, sizeof now);
        // The address shown is the one a document replaces; the link may hold others.
        bool shown = sameAddress(now, text);
        if (!shown && link != id) continue;
        std::string why;
        const char* wanted = a->get(family == 4 ? "ipAddress" : "ipv6Address", nullptr);
        if (settings->canDisable(nullptr) && !a->getb("enabled", false))
            why = "switches off adapter " + std::string(id);
        else if (family == 6 && settings->canDisableIpv6(nullptr) && !a->getb("ipv6Enabled", false))
            why = "switches off IPv6 on adapter " + std::string(id);
        else if (shown && wanted != nullptr && !sameAddress(wanted, text))
            why = "changes the address of adapter " + std::string(id);
        if (!why.empty()) return why + ", which this request came in on (" + text + ")";
    }
    return "";
}

// confirmWithin: 0 when absent, -1 when not a number of seconds from 1 to 3600.
int windowOf(Exchange& x) {
    std::string text = x.query("confirmWithin", "");
    if (text.empty()) return x.query("confirmWithin", "-") == "-" ? 0 : -1;
    if (text.size() > 4) return -1;
    int seconds = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return -1;
        seconds = seconds * 10 + (c - '0');
    }
    return seconds >= 1 && seconds <= kMaxWindow ? seconds : -1;
}

// Every report of a refused document on a line of its own, escaped: the reports quote
// posted values, which must not start log lines of their own.
void logRefusal(Exchange& x, const Reports& reports) {
    for (const std::string& t : reports.texts)
        x.daemon->log()->warning(("network: " + logSafe(t)).c_str());
}

void apply(Exchange& x, const Settings& now) {
    if (!now.networkApply) {
        std::string why = "applying network settings is off: set network.apply=true in " +
                          x.daemon->settings().settingsFile();
        x.replyError(403, why.c_str());
        return;
    }
    int window = windowOf(x);
    if (window < 0) {
        x.replyError(400, "confirmWithin must be a number of seconds from 1 to 3600");
        return;
    }
    const std::string& body = x.requestBody;
    if (body.empty()) {
        x.replyError(400, "a tcpIpSettings document is needed as the request body");
        return;
    }
    NetworkJournal& journal = NetworkJournal::instance();
    std::lock_guard<std::mutex> hold(journal.lock());
    Reports reports;
    velmora::TcpIpHostSettings* host = hostFor(now, &reports);
    if (host == nullptr) {
        x.replyError(500, "the host's network settings are not available");
        return;
    }
    std::string waiting;
    long left = 0;
    if (journal.pending(&waiting, &left)) {
        std::string why =
            "change " + waiting + " waits for its confirmation: confirm or revert it first";
        x.replyError(409, why.c_str());
        return;
    }
    velmora::TcpIpDocumentCheck check(host);
    check.requireAdapterFlags(true);
    if (check.check(body.data(), body.size(), &reports) != 0) {
        logRefusal(x, reports);
        x.replyError(400, reports.joined().c_str());
        return;
    }
    std::unique_ptr<velmora::XElem> root = parse(body);
    if (root == nullptr) {
        x.replyError(400, "The network settings are not a well-formed XML document");
        return;
    }
    std::string lockOut = cutOff(x, root.get(), host);
    if (window == 0 && !lockOut.empty()) {
        std::string why = "the document " + lockOut +
                          ": send it with ?confirmWithin=S to apply it for S seconds unless "
                          "confirmed";
        x.replyError(400, why.c_str());
        return;
    }
    std::unique_ptr<velmora::TcpIpSnapshot> before(velmora::TcpIpSnapshot::take(host, &reports));
    if (before == nullptr) {
        std::string why = "the host's network settings could not be captured: " + reports.joined();
        x.replyError(500, why.c_str());
        return;
    }
    Reports ignored;
    std::string beforeDocument = document(host, &ignored);
    if (window > 0 && before->save(journal.capturePath().c_str(), &reports) != 0) {
        std::string why = "nothing applied: " + reports.joined();
        x.replyError(500, why.c_str());
        return;
    }
    int result = velmora::TcpIpUtil::setHostSettingsXml(host, root.get(), &reports);
    if (result == 0 && !reports.any()) checkGateways(root.get(), host, &reports);
    if (result != 0 || reports.any()) {
        Reports restoring;
        bool restored = before->restore(&restoring) == 0;
        if (restored) std::remove(journal.capturePath().c_str());
        std::string why =
            reports.joined() +
            (restored ? "; nothing was applied: the former settings were restored"
                      : "; the former settings could not all be restored: " + restoring.joined());
        logRefusal(x, reports);
        if (!restored) {
            x.daemon->log()->warning(("network: the former settings could not all be restored: " +
                                      logSafe(restoring.joined()))
                                         .c_str());
        }
        x.replyError(restored ? 400 : 500, why.c_str());
        return;
    }
    std::string answer = document(host, &ignored);
    std::string summary = summarizeChange(beforeDocument, answer);
    if (window > 0) {
        std::string id = journal.begin(std::move(before), window, summary);
        x.fields.emplace_back("X-Change-Id", id);
        x.fields.emplace_back("X-Confirm-Within", std::to_string(window));
        x.daemon->log()->message(("network: applied change " + id + ", reverts in " +
                                  std::to_string(window) + " s unless confirmed: " + summary)
                                     .c_str());
    } else {
        x.daemon->log()->message(("network: applied: " + summary).c_str());
    }
    x.reply(200, "text/xml", answer);
}

std::string changeDocument(const std::string& id, const char* state) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<change id=\"" + xmlEscape(id) +
           "\" state=\"" + state + "\"/>\n";
}

void confirm(Exchange& x) {
    std::string id = x.query("id", "");
    if (!NetworkJournal::instance().confirm(id)) {
        x.replyError(404, "no change with this id waits for its confirmation");
        return;
    }
    x.reply(200, "text/xml", changeDocument(id, "confirmed"));
}

void revert(Exchange& x) {
    std::string id = x.query("id", ""), reverted, failures;
    if (!NetworkJournal::instance().revert(id, &reverted, &failures)) {
        x.replyError(404, "no change waits for its confirmation");
        return;
    }
    if (!failures.empty()) {
        std::string why = "change " + reverted + " could not all be reverted: " + failures;
        x.replyError(500, why.c_str());
        return;
    }
    x.reply(200, "text/xml", changeDocument(reverted, "reverted"));
}

void pending(Exchange& x) {
    std::string id;
    long left = 0;
    std::string answer = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    if (NetworkJournal::instance().pending(&id, &left)) {
        answer += "<pending id=\"" + xmlEscape(id) + "\" secondsLeft=\"" + std::to_string(left) +
                  "\"/>\n";
    } else {
        answer += "<pending/>\n";
    }
    x.reply(200, "text/xml", answer);
}

}  // namespace

void resumeNetworkChanges(Daemon* daemon) {
    NetworkJournal::instance().resume(daemon->settings().home, daemon->log());
}

void endNetworkChanges() {
    NetworkJournal::instance().shutdown();
}

void network(Exchange& x, bool get) {
    std::string path = x.request->getDecodedURI();
    bool post = std::strcmp(x.request->getMethod(), "POST") == 0;
    if (path == "/network/confirm" || path == "/network/revert") {
        if (!post) {
            x.allow = "POST";
            x.replyError(405, "method not allowed here");
        } else if (path == "/network/confirm") {
            confirm(x);
        } else {
            revert(x);
        }
        return;
    }
    if (path == "/network/pending") {
        if (get) {
            pending(x);
        } else {
            x.allow = "GET, HEAD";
            x.replyError(405, "method not allowed here");
        }
        return;
    }
    if (path != "/network") {
        x.replyError(404, "no such endpoint; GET / lists them");
        return;
    }
    // The file is read again for each request with the daemon's own rules for settings, so
    // that network.apply and the file paths take effect without a reload.
    std::shared_ptr<const Settings> now = settingsFromFile();
    if (post) {
        apply(x, *now);
        return;
    }
    if (!get) {
        x.allow = "GET, HEAD, POST";
        x.replyError(405, "method not allowed here");
        return;
    }
    Reports reports;
    std::string answer;
    {
        std::lock_guard<std::mutex> hold(NetworkJournal::instance().lock());
        velmora::TcpIpHostSettings* host = hostFor(*now, &reports);
        if (host != nullptr) answer = document(host, &reports);
    }
    if (answer.empty()) {
        x.replyError(500, "the host's network settings are not available");
        return;
    }
    x.reply(200, "text/xml", answer);
}

}  // namespace velmorad
