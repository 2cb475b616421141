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
#include <vector>

#include "Daemon.h"
#include "Exchange.h"
#include "Guard.h"
#include "NetworkRoutes.h"
#include "Reports.h"
#include "UiRoutes.h"
#include "WriteFilterRoutes.h"

namespace velmorad {

namespace {

const char kVersion[] = VELMORAD_VERSION;
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

// The hosts of a comma list, without the empty ones.
std::vector<std::string> hostList(const std::string& text) {
    std::vector<std::string> hosts;
    size_t start = 0;
    while (start <= text.size()) {
        size_t comma = text.find(',', start);
        if (comma == std::string::npos) comma = text.size();
        if (comma > start) hosts.push_back(text.substr(start, comma - start));
        start = comma + 1;
    }
    return hosts;
}

void pingAll(Exchange& x) {
    std::vector<std::string> hosts = hostList(x.query("hosts", ""));
    if (hosts.empty()) {
        x.replyError(400, "the parameter hosts names no host");
        return;
    }
    x.status = 200;
    x.keepAlive = false;
    // The head goes first, with no length (so "Connection: close"); the log then streams
    // the document into a response of its own whose commit only flushes, one entry per
    // host as it is answered.
    x.beginStream(200, "text/xml");
    if (x.head) return;
    BodyOnlyResponse body(x.out);
    velmora::HttpLog log(&body);
    for (const std::string& host : hosts) {
        // A client gone or a stop that cut the connection ends the list.
        if (x.out->getSocketError()) break;
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
        x.out->flush();  // each answer reaches the client as it comes
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

// The names of the daemon's logs, "velmorad, access".
std::string knownNames(velmora::FilteredLogBundle* levels) {
    std::string names;
    velmora::FilteredLogIterator it;
    levels->getIterator(&it);
    while (it.hasNext())
        names += std::string(names.empty() ? "" : ", ") + it.getNext()->getName();
    return names;
}

// POST /levels: name and level from the query or a form body. Only the daemon's own log
// names are taken: a mistyped name would otherwise make a log nobody writes to.
void setLevel(Exchange& x) {
    std::string name = x.param("name", "");
    int level = clampedInt(x.param("level", ""), -1, 0, 3);
    if (name.empty() || level < 0) {
        x.replyError(400,
                     "name (a log name) and level (0 to 3) are needed, in the query or a "
                     "form body");
        return;
    }
    velmora::FilteredLogBundle* levels = x.daemon->levels();
    velmora::FilteredLog* log = nullptr;
    velmora::FilteredLogIterator it;
    levels->getIterator(&it);
    while (it.hasNext() && log == nullptr) {
        velmora::FilteredLogRec* r = it.getNext();
        if (name == r->getName()) log = r->getLog();
    }
    if (log == nullptr) {
        x.replyError(
            400, ("no log is named \"" + name + "\"; the names are " + knownNames(levels)).c_str());
        return;
    }
    log->setFilterLevel(level);
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

bool routeBlocks(const Exchange& x) {
    std::string path = x.request->getDecodedURI();
    bool get = std::strcmp(x.request->getMethod(), "GET") == 0 || x.head;
    // Quick: the status, the levels read, the pages, error answers. Everything that waits
    // on the network, touches the host or saves a file goes to a worker.
    if (path == "/ping" || path == "/ping-all" || path.compare(0, 8, "/network") == 0 ||
        path == "/write-filter") {
        return true;
    }
    return path == "/levels" && !get;
}

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
