// The daemon's endpoints. GET and HEAD everywhere, POST for /levels.
#include <velmora/http/HttpLog.h>
#include <velmora/http/HttpResponse.h>
#include <velmora/log/ErrorHandler.h>
#include <velmora/log/FilteredLogBundle.h>
#include <velmora/log/MessageBundle.h>
#include <velmora/net/Icmp.h>
#include <velmora/net/SocketOutput.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "Daemon.h"
#include "Exchange.h"
#include "Guard.h"
#include "NetworkRoutes.h"
#include "Reports.h"
#include "UiRoutes.h"
#include "WriteFilterRoutes.h"

namespace velmorad {

namespace {

const char kVersion[] = "1.0";
const char kXmlProlog[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

// A response whose head was already sent: committing it only flushes the output.
class BodyOnlyResponse : public velmora::HttpResponse {
public:
    explicit BodyOnlyResponse(velmora::SocketOutput* out) : velmora::HttpResponse(out) {}

protected:
    void doCommit() override {}
};

int clampedInt(const std::string& text, int def, int low, int high) {
    char* end = nullptr;
    long v = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || v < low || v > high) return def;
    return static_cast<int>(v);
}

void status(Exchange& x) {
    Daemon* d = x.daemon;
    x.reply(200, "text/xml",
            std::string(kXmlProlog) + "<status version=\"" + kVersion + "\" uptime=\"" +
                std::to_string(d->uptimeSeconds()) + "\" requests=\"" +
                std::to_string(d->requestsServed()) + "\" connections=\"" +
                std::to_string(d->connectionsOpen()) + "\"/>\n");
}

// Milliseconds of one echo, or -1 with the reason in `why`.
int pingOnce(const std::string& host, int timeout, std::string* why) {
    Reports recorder;
    velmora::Icmp* icmp = velmora::Icmp::getInstance(&recorder);
    int ms = icmp != nullptr ? icmp->ping(&recorder, host.c_str(), timeout) : -1;
    if (ms < 0) *why = recorder.last().empty() ? "no answer" : recorder.last();
    return ms;
}

void ping(Exchange& x) {
    std::string host = x.query("host", "");
    if (host.empty()) {
        x.replyError(400, "the parameter host is missing");
        return;
    }
    int timeout = clampedInt(x.query("timeout", "2"), -1, 1, 10);
    if (timeout < 0) {
        x.replyError(400, "timeout must be 1 to 10 seconds");
        return;
    }
    std::string why;
    int ms = pingOnce(host, timeout, &why);
    std::string body = std::string(kXmlProlog) + "<ping host=\"" + xmlEscape(host) +
                       "\" timeout=\"" + std::to_string(timeout) + "\" time=\"" +
                       std::to_string(ms) + "\"";
    body += ms < 0 ? " error=\"" + xmlEscape(why) + "\"/>\n" : "/>\n";
    x.reply(200, "text/xml", body);
}

void pingAll(Exchange& x) {
    std::string hosts = x.query("hosts", "");
    if (hosts.empty()) {
        x.replyError(400, "the parameter hosts is missing");
        return;
    }
    x.status = 200;
    x.keepAlive = false;
    // The head goes first, with no length (so "Connection: close"); the log then streams
    // the document into a response of its own whose commit only flushes, one entry per
    // host as it is answered.
    x.beginStream(200, "text/xml");
    if (x.head) return;
    BodyOnlyResponse body(x.socket->getOutput());
    velmora::HttpLog log(&body);
    size_t start = 0;
    while (start <= hosts.size()) {
        size_t comma = hosts.find(',', start);
        std::string host =
            hosts.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        start = comma == std::string::npos ? hosts.size() + 1 : comma + 1;
        if (host.empty()) continue;
        std::string why;
        int ms = pingOnce(host, 2, &why);
        if (ms >= 0) {
            std::string text = host + ": " + std::to_string(ms) + " ms";
            velmora::MessageBundle entry("platform", "velmorad.ping.answered", host.c_str(),
                                         text.c_str());
            entry.addLexiconArgument(ms);
            log.message(&entry);
        } else {
            std::string text = host + ": " + why;
            velmora::MessageBundle entry("platform", "velmorad.ping.failed", host.c_str(),
                                         text.c_str());
            log.error(&entry);
        }
        x.socket->getOutput()->flush();  // each answer reaches the client as it comes
    }
}

std::string levelsDocument(velmora::FilteredLogBundle* levels) {
    std::string body = std::string(kXmlProlog) + "<levels>\n";
    velmora::FilteredLogIterator it;
    levels->getIterator(&it);
    while (it.hasNext()) {
        velmora::FilteredLogRec* r = it.getNext();
        body += "  <log name=\"" + xmlEscape(r->getName()) + "\" level=\"" +
                std::to_string(r->getLog()->getFilterLevel()) + "\"/>\n";
    }
    return body + "</levels>\n";
}

void setLevel(Exchange& x) {
    std::string name = x.query("name", "");
    int level = clampedInt(x.query("level", ""), -1, 0, 3);
    if (name.empty() || name.size() > 63 || level < 0) {
        x.replyError(400, "name (1 to 63 characters) and level (0 to 3) are needed");
        return;
    }
    velmora::FilteredLogBundle* levels = x.daemon->levels();
    levels->get(name.c_str())->setFilterLevel(level);
    if (!levels->save()) {
        x.replyError(500, "the levels file could not be saved");
        return;
    }
    x.reply(200, "text/xml", levelsDocument(levels));
}

void methodNotAllowed(Exchange& x, const char* allow) {
    x.allow = allow;
    x.replyError(405, "method not allowed here");
}

}  // namespace

void route(Exchange& x) {
    if (!Guard::check(x)) return;
    const char* method = x.request->getMethod();
    bool get = std::strcmp(method, "GET") == 0 || x.head;
    std::string path = x.request->getDecodedURI();
    if (path == "/" || path.compare(0, 4, "/ui/") == 0) {
        get ? uiFile(x, path) : methodNotAllowed(x, "GET, HEAD");
    } else if (path == "/api") {
        get ? apiIndex(x) : methodNotAllowed(x, "GET, HEAD");
    } else if (path == "/status") {
        get ? status(x) : methodNotAllowed(x, "GET, HEAD");
    } else if (path == "/ping") {
        get ? ping(x) : methodNotAllowed(x, "GET, HEAD");
    } else if (path == "/ping-all") {
        get ? pingAll(x) : methodNotAllowed(x, "GET, HEAD");
    } else if (path == "/levels") {
        if (get) {
            x.reply(200, "text/xml", levelsDocument(x.daemon->levels()));
        } else if (std::strcmp(method, "POST") == 0) {
            setLevel(x);
        } else {
            methodNotAllowed(x, "GET, HEAD, POST");
        }
    } else if (path == "/network" || path.compare(0, 9, "/network/") == 0) {
        network(x, get);
    } else if (path == "/write-filter") {
        if (get) {
            getWriteFilter(x);
        } else if (std::strcmp(method, "POST") == 0) {
            postWriteFilter(x);
        } else {
            methodNotAllowed(x, "GET, HEAD, POST");
        }
    } else {
        x.replyError(404, "no such endpoint; GET /api lists them");
    }
}

}  // namespace velmorad
