#include "Guard.h"

#include <velmora/collections/Map.h>
#include <velmora/collections/PropertiesFile.h>
#include <velmora/http/HeaderField.h>
#include <velmora/http/HttpRequest.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "Daemon.h"
#include "LogSafe.h"
#include "RequestText.h"

namespace velmorad {

namespace {

Guard* installed = nullptr;

// Every word of every field of that name, in order: the value and its attributes, commas
// dropped ("a, b" is read as the value "a," and the attribute "b").
std::vector<std::string> wordsOf(velmora::HttpRequest* request, const char* name) {
    std::vector<std::string> words;
    for (velmora::HeaderField* f = request->getFirstField(); f != nullptr; f = f->getNext()) {
        if (f->getName() == nullptr || lower(f->getName()) != lower(name)) continue;
        std::vector<std::string> pieces{f->getValue()};
        velmora::KeyedList* attributes = f->getAttributes();
        for (int i = 0; i < attributes->getCount(); ++i) {
            char key[64] = "", value[1024] = "";
            attributes->getKey(i, key, sizeof key - 1);
            attributes->getAtIndex(i, value, sizeof value - 1);
            // A piece without '=' is kept under its number; one with '=' was split.
            bool numbered = std::strcmp(key, std::to_string(i).c_str()) == 0;
            pieces.push_back(numbered ? std::string(value) : std::string(key) + "=" + value);
        }
        for (std::string& p : pieces) {
            while (!p.empty() && p.back() == ',')
                p.pop_back();
            if (!p.empty()) words.push_back(p);
        }
    }
    return words;
}

bool isWildcard(const std::string& canonical) {
    return !canonical.empty() &&
           canonical.find_first_not_of(std::string(1, '\0'), 1) == std::string::npos;
}

bool isSafeMethod(const char* method) {
    return std::strcmp(method, "GET") == 0 || std::strcmp(method, "HEAD") == 0 ||
           std::strcmp(method, "OPTIONS") == 0;
}

// The reads that show the host's settings or act on it: with auth.reads they need the token.
bool isGuardedRead(const std::string& path) {
    return path == "/levels" || path == "/write-filter" || path == "/ping" || path == "/ping-all" ||
           path == "/network" || path.compare(0, 9, "/network/") == 0;
}

bool switchedOn(const Settings& settings, const char* key) {
    std::unique_ptr<velmora::Map> map(
        velmora::PropertiesFile::makeMap(settings.settingsFile().c_str(), '='));
    return map != nullptr && map->getBoolean(key, false);
}

}  // namespace

bool mayListen(const Settings& s) {
    if (isLoopback(s.bind)) return true;
    if (!s.remoteAllow) {
        std::fprintf(stderr,
                     "velmorad: refusing to listen on %s: it is not a loopback address and the "
                     "daemon speaks plain HTTP. Keep it on 127.0.0.1 behind a TLS reverse proxy, "
                     "or set remote.allow=true in %s\n",
                     s.bind.c_str(), s.settingsFile().c_str());
        return false;
    }
    std::fprintf(stderr,
                 "velmorad: WARNING: listening on %s over plain HTTP: the token and every "
                 "document cross the network readable by anyone on the way; prefer a TLS "
                 "reverse proxy\n",
                 s.bind.c_str());
    return true;
}

Guard::Guard(const Settings& settings, Token* token, velmora::Log* log)
    : settings_(settings),
      token_(token),
      log_(log),
      reads_(settings.authReads < 0 ? !isLoopback(settings.bind) : settings.authReads > 0),
      bound_(canonicalAddress(settings.bind)),
      allowedHosts_(listOf(settings.allowedHosts)) {
    for (const std::string& proxy : listOf(settings.trustedProxies)) {
        std::string a = canonicalAddress(proxy);
        if (a.empty()) {
            log_->warning(
                ("velmorad: trustedProxies: " + logSafe(proxy) + " is not an address").c_str());
        } else {
            trustedProxies_.push_back(a);
        }
    }
    if (!isLoopback(settings.bind)) {
        log_->warning(("velmorad: listening on " + logSafe(settings.bind) +
                       " over plain HTTP: the token crosses the network unencrypted")
                          .c_str());
    }
}

void Guard::install(Guard* guard) {
    installed = guard;
}

bool Guard::check(Exchange& x) {
    if (installed != nullptr) return installed->admit(x);
    x.replyError(503, "the daemon is not ready");
    return false;
}

bool Guard::hostAllowed(const char* host) const {
    if (host == nullptr) return true;  // HTTP/1.0 without Host: no browser sends that
    std::string name = hostName(host);
    if (name.empty()) return false;
    if (name == "localhost") return true;
    for (const std::string& allowed : allowedHosts_) {
        if (name == allowed) return true;
    }
    std::string asked = canonicalAddress(name);
    if (asked.empty()) return false;
    // Bound to every address: any address literal names this host; names still need
    // allowedHosts, which is what defeats rebinding.
    return asked == bound_ || isWildcard(bound_);
}

// The peer, or when the peer is a trusted proxy, the address its X-Forwarded-For names:
// the last one that is not itself a trusted proxy.
std::string Guard::clientOf(Exchange& x) const {
    auto trusted = [this](const std::string& address) {
        std::string a = canonicalAddress(address);
        for (const std::string& t : trustedProxies_) {
            if (a == t) return true;
        }
        return false;
    };
    if (trustedProxies_.empty() || x.peer.empty() || !trusted(x.peer)) return x.peer;
    std::vector<std::string> chain = wordsOf(x.request, "X-Forwarded-For");
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
        if (canonicalAddress(*it).empty()) break;  // not an address: the chain is unusable
        if (!trusted(*it)) return *it;
    }
    return x.peer;
}

bool Guard::refuse(Exchange& x, int status, const std::string& message, bool log) {
    x.replyError(status, message.c_str());
    if (log) {
        std::string line = "refused " + logSafe(x.request->getMethod()) + " " +
                           logSafe(x.request->getEncodedURI()) + " from " + logSafe(x.client) +
                           ": " + std::to_string(status) + " " + logSafe(message);
        log_->warning(line.c_str());
    }
    return false;
}

bool Guard::admit(Exchange& x) {
    velmora::HttpRequest* request = x.request;
    x.client = clientOf(x);
    const char* method = request->getMethod();
    std::string path = request->getDecodedURI() != nullptr ? request->getDecodedURI() : "";
    const char* host = request->getField("Host");
    if (!hostAllowed(host)) {
        return refuse(x, 421,
                      "this daemon does not answer to the host " + std::string(host) +
                          "; name it in allowedHosts in " + settings_.settingsFile());
    }
    bool changes = !isSafeMethod(method);
    if (changes) {
        const char* origin = request->getField("Origin");
        std::string own = lower(host != nullptr ? host : "");
        if (origin != nullptr && (own.empty() || (lower(origin) != "http://" + own &&
                                                  lower(origin) != "https://" + own))) {
            return refuse(
                x, 403,
                "a request from the page " + std::string(origin) + " may not change this host");
        }
        const char* site = request->getField("Sec-Fetch-Site");
        if (site != nullptr && lower(site) != "same-origin" && lower(site) != "none") {
            return refuse(x, 403, "a " + std::string(site) + " request may not change this host");
        }
    }
    if (changes || (reads_ && isGuardedRead(path))) {
        int wait = throttle_.wait(x.client, Throttle::Clock::now());
        if (wait > 0) {
            x.fields.emplace_back("Retry-After", std::to_string(wait));
            return refuse(x, 429,
                          "too many wrong tokens from " + x.client + "; try again in " +
                              std::to_string(wait) + " s",
                          false);
        }
        std::vector<std::string> words = wordsOf(request, "Authorization");
        if (words.size() != 2 || lower(words[0]) != "bearer") {
            x.fields.emplace_back("WWW-Authenticate", "Bearer");
            return refuse(x, 401,
                          "this request needs the daemon's token as \"Authorization: Bearer "
                          "<token>\"; velmorad token prints it");
        }
        if (!token_->matches(words[1])) {
            int failures = throttle_.failed(x.client, Throttle::Clock::now());
            x.fields.emplace_back("WWW-Authenticate", "Bearer");
            refuse(x, 401, "the token is not this daemon's token",
                   failures <= Throttle::kFreeFailures);
            if (failures >= Throttle::kLockFailures) {
                log_->warning(("velmorad: " + std::to_string(failures) + " wrong tokens from " +
                               logSafe(x.client) + "; its tokens are refused for " +
                               std::to_string(Throttle::kLockSeconds) + " s")
                                  .c_str());
            }
            return false;
        }
        throttle_.succeeded(x.client);
    }
    if (std::strcmp(method, "POST") == 0 && path == "/network") {
        std::string type = mediaType(request->getField("Content-Type"));
        if (type != "application/xml" && type != "text/xml") {
            return refuse(x, 415,
                          "a tcpIpSettings document is posted as application/xml or text/xml, "
                          "not " +
                              (type.empty() ? std::string("without a type") : type));
        }
    }
    if (std::strcmp(method, "POST") == 0 && path == "/write-filter" &&
        !switchedOn(settings_, "writeFilter.apply")) {
        return refuse(x, 403,
                      "setting the write filter is off: set writeFilter.apply=true in " +
                          settings_.settingsFile());
    }
    return true;
}

}  // namespace velmorad
