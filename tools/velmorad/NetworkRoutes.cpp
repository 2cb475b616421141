// GET /network: the host's TCP/IP settings as the tcpIpSettings document.
// POST /network: applies a posted document and answers the document read afterwards.
//
// Applying changes the machine, so it is off unless the daemon's settings file says
// "network.apply=true" (read on every request: no restart needed to switch it); otherwise
// 403. A document with isReadonly="true" changes nothing. "network.resolverPath" and
// "network.hostnamePath" point the host at other resolver and host-name files (systems
// that keep them elsewhere, and tests).
//
// The settings objects are one process-wide instance and unsynchronised: one mutex
// serialises every reading and applying.
#include "NetworkRoutes.h"

#include <velmora/collections/Map.h>
#include <velmora/collections/PropertiesFile.h>
#include <velmora/log/ErrorHandler.h>
#include <velmora/log/Log.h>
#include <velmora/log/MessageBundle.h>
#include <velmora/net/InetAddress.h>
#include <velmora/tcpip/TcpIpHostSettings.h>
#include <velmora/tcpip/TcpIpUtil.h>
#include <velmora/text/StringReader.h>
#include <velmora/text/StringWriter.h>
#include <velmora/xml/XElem.h>
#include <velmora/xml/XParser.h>
#include <velmora/xml/XWriter.h>

#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Daemon.h"
#include "LogSafe.h"
#include "Reports.h"

namespace velmorad {

namespace {

std::mutex networkLock;

struct NetworkOptions {
    bool apply = false;
    std::string resolverPath, hostnamePath;
};

NetworkOptions readOptions(const Settings& settings) {
    NetworkOptions o;
    std::unique_ptr<velmora::Map> map(
        velmora::PropertiesFile::makeMap(settings.settingsFile().c_str(), '='));
    if (map == nullptr) return o;
    o.apply = map->getBoolean("network.apply", false);
    char text[260];
    map->get("network.resolverPath", text, sizeof text - 1, "");
    text[sizeof text - 1] = '\0';
    o.resolverPath = text;
    map->get("network.hostnamePath", text, sizeof text - 1, "");
    text[sizeof text - 1] = '\0';
    o.hostnamePath = text;
    return o;
}

velmora::TcpIpHostSettings* hostFor(const NetworkOptions& o, velmora::ErrorHandler* err) {
    velmora::TcpIpHostSettings* host = velmora::TcpIpHostSettings::getInstance(err);
    if (host == nullptr) return nullptr;
    if (!o.resolverPath.empty()) host->setResolverPath(o.resolverPath.c_str());
    if (!o.hostnamePath.empty()) host->setHostnamePath(o.hostnamePath.c_str());
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

// Equal texts, or the same address written two ways ("2001:DB8::1", "2001:db8::1").
bool sameAddress(const char* a, const char* b) {
    if (std::strcmp(a, b) == 0) return true;
    if (*a == '\0' || *b == '\0') return false;
    for (int family :
         {velmora::InetAddress::getIpv4Family(), velmora::InetAddress::getIpv6Family()}) {
        unsigned char x[16] = {}, y[16] = {};
        if (velmora::InetAddress::inet_pton(family, a, x) == 1 &&
            velmora::InetAddress::inet_pton(family, b, y) == 1) {
            return std::memcmp(x, y, sizeof x) == 0;
        }
    }
    return false;
}

// A gateway that the document asks for but the host does not show afterwards (a system
// may accept one that no link reaches and leave it unset) is reported like a refusal.
void checkGateways(const std::string& body, velmora::TcpIpHostSettings* host, Reports* reports) {
    velmora::StringReader in(body.c_str(), static_cast<int>(body.size()));
    velmora::XParser parser(&in);
    std::unique_ptr<velmora::XElem> root(parser.parse(true));
    if (root == nullptr || root->getb("isReadonly", false) ||
        host->usesAdapterLevelSettings(reports)) {
        return;
    }
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

void apply(Exchange& x, const NetworkOptions& options) {
    if (!options.apply) {
        std::string why = "applying network settings is off: set network.apply=true in " +
                          x.daemon->settings().settingsFile();
        x.replyError(403, why.c_str());
        return;
    }
    const std::string& body = x.requestBody;
    if (body.empty()) {
        x.replyError(400, "a tcpIpSettings document is needed as the request body");
        return;
    }
    Reports reports;
    std::string answer;
    int result = 0;
    {
        std::lock_guard<std::mutex> hold(networkLock);
        velmora::TcpIpHostSettings* host = hostFor(options, &reports);
        if (host == nullptr) {
            x.replyError(500, "the host's network settings are not available");
            return;
        }
        std::vector<char> text(body.begin(), body.end());
        text.push_back('\0');
        result = velmora::TcpIpUtil::setHostSettingsXml(host, text.data(), &reports);
        if (result == 0 && reports.texts.empty()) checkGateways(body, host, &reports);
        Reports readErrors;
        answer = document(host, &readErrors);
    }
    for (const std::string& t : reports.texts)
        x.daemon->log()->warning(("network: " + logSafe(t)).c_str());
    // What was applied before a failure stays applied: the message lists every report.
    if (result != 0 || !reports.texts.empty()) {
        x.replyError(400, reports.joined().c_str());
        return;
    }
    x.reply(200, "text/xml", answer);
}

}  // namespace

void network(Exchange& x, bool get) {
    NetworkOptions options = readOptions(x.daemon->settings());
    if (std::strcmp(x.request->getMethod(), "POST") == 0) {
        apply(x, options);
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
        std::lock_guard<std::mutex> hold(networkLock);
        velmora::TcpIpHostSettings* host = hostFor(options, &reports);
        if (host != nullptr) answer = document(host, &reports);
    }
    if (answer.empty()) {
        x.replyError(500, "the host's network settings are not available");
        return;
    }
    x.reply(200, "text/xml", answer);
}

}  // namespace velmorad
