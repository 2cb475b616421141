// The guard in front of every route: it decides whether a request may reach its route at
// all, so that no route checks these things itself. In order:
//   - Host must name this daemon: its bound address (any address literal when bound to
//     all), "localhost" or a name in allowedHosts; else 421. A browser page whose own name
//     resolves to this host (DNS rebinding) sends its own name and is refused.
//   - A state-changing request (any method but GET, HEAD and OPTIONS) that carries Origin
//     or Sec-Fetch-Site must come from the daemon's own origin; else 403.
//   - A state-changing request, and with auth.reads the reads of the host's settings, need
//     "Authorization: Bearer <token>"; else 401 with "WWW-Authenticate: Bearer". Wrong tokens
//     are throttled per client (429 with Retry-After).
//   - POST /network takes application/xml or text/xml only (415); POST /write-filter is
//     refused (403) unless writeFilter.apply=true in the settings file.
// Every refusal is answered with the daemon's error page and logged, request bytes escaped.
#pragma once

#include <velmora/log/Log.h>

#include <string>
#include <vector>

#include "Exchange.h"
#include "Settings.h"
#include "Throttle.h"
#include "Token.h"

namespace velmorad {

class Guard {
public:
    // Bound beyond loopback, the guard logs that plain HTTP shows the token to the network.
    Guard(const Settings& settings, Token* token, velmora::Log* log);

    // True when the request may go to its route; otherwise it was answered and logged.
    bool admit(Exchange& x);

    // The guard that route() asks; without one every request is refused.
    static void install(Guard* guard);
    static bool check(Exchange& x);

private:
    bool hostAllowed(const char* host) const;
    std::string clientOf(Exchange& x) const;
    bool refuse(Exchange& x, int status, const std::string& message, bool log = true);

    Settings settings_;
    Token* token_;
    velmora::Log* log_;
    bool reads_;         // reads of the host's settings need the token too
    std::string bound_;  // the bound address, canonical ("" for a name)
    std::vector<std::string> allowedHosts_;
    std::vector<std::string> trustedProxies_;  // canonical address texts
    Throttle throttle_;
};

// At start: false, with the reason on standard error, when the settings would have the
// daemon listen beyond loopback without remote.allow=true.
bool mayListen(const Settings& settings);

}  // namespace velmorad
