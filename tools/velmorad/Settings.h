// The daemon's settings: an embedded default, then lib/velmorad.properties below the
// home directory (written from the default when missing) or the file named by --config,
// then the command line.
#pragma once

#include <string>

namespace velmorad {

struct Settings {
    std::string home;
    std::string config;  // --config FILE; empty: lib/velmorad.properties in the home
    std::string bind = "127.0.0.1";
    int port = 8080;
    int maxConnections = 64;        // connections served at once; more get 503
    int readTimeoutMs = 10000;      // silence that ends a connection
    int requestDeadlineMs = 30000;  // the most one request's head may take to arrive
    int keepAliveRequests = 100;    // requests on one connection
    int logBackups = 5;
    int logMaxBytes = 10 * 1024 * 1024;  // the log is rotated while running beyond this; 0: never
    // Who may ask what (the guard in front of every route):
    std::string tokenFile = "lib/velmorad.token";  // auth.tokenFile, relative to the home
    int authReads = -1;          // auth.reads: reads need the token; -1: when bound beyond loopback
    std::string allowedHosts;    // Host names besides the bound address and localhost, commas
    bool remoteAllow = false;    // remote.allow: may listen beyond loopback
    std::string trustedProxies;  // addresses whose X-Forwarded-For names the client, commas

    std::string settingsFile() const {
        return config.empty() ? home + "/lib/velmorad.properties" : config;
    }
    std::string logFile() const { return home + "/logs/velmorad.log"; }
    std::string levelsFile() const { return home + "/logs/levels.properties"; }
    std::string tokenPath() const;
};

// Reads the command line (--bind ADDR --port N --home DIR --config FILE, --help) and the settings file.
// False, with a message printed, on a bad command line or an unusable home directory.
bool loadSettings(int argc, char** argv, Settings* settings);

}  // namespace velmorad
