// The daemon's settings: the defaults below, then the settings file (lib/velmorad.properties
// in the home, written from the embedded default when missing, or the file named by
// --config), then --bind and --port. Every key of the file must be one of the table of
// known keys (SettingsTable.cpp) and every value in its range; a file with errors is not
// used at all, so that the daemon never runs on a default where the operator gave a value.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace velmorad {

struct Settings {
    std::string home;
    std::string config;              // --config FILE; empty: lib/velmorad.properties in the home
    std::string bind = "127.0.0.1";  // as given; bindAddress is its numeric address
    std::string bindAddress = "127.0.0.1";
    int port = 8080;
    int maxConnections = 10000;     // connections served at once; more get 503
    int readTimeoutMs = 10000;      // silence that ends a connection
    int requestDeadlineMs = 30000;  // the most one request's head may take to arrive
    int keepAliveRequests = 100;    // requests on one connection
    int stopGraceMs = 5000;         // how long a stop waits for requests in flight
    int pollSpinMicros = 200;       // the loop looks for events this long before it sleeps
    int maxHeaderLines = 100;
    int maxHeadBytes = 16384;
    int logBackups = 5;
    int64_t logMaxBytes = 10 * 1024 * 1024;  // the log is rotated beyond this; 0: only at start
    // Who may ask what (the guard in front of every route):
    std::string tokenFile = "lib/velmorad.token";  // auth.tokenFile, relative to the home
    int authReads = -1;          // auth.reads: reads need the token; -1: when bound beyond loopback
    std::string allowedHosts;    // Host names besides the bound address and localhost, commas
    bool remoteAllow = false;    // remote.allow: may listen beyond loopback
    std::string trustedProxies;  // addresses whose X-Forwarded-For names the client, commas
    bool writeFilterApply = false;    // POST /write-filter may set a boot command
    bool networkApply = false;        // POST /network may change the host
    int networkConfirmWithin = 60;    // the settings page's confirmation window, s
    std::string networkResolverPath;  // where the resolver's file is (tests)
    std::string networkHostnamePath;  // where the host name file is (tests)

    std::string settingsFile() const {
        return config.empty() ? home + "/lib/velmorad.properties" : config;
    }
    std::string logFile() const { return home + "/logs/velmorad.log"; }
    std::string accessLogFile() const { return home + "/logs/access.log"; }
    std::string levelsFile() const { return home + "/logs/levels.properties"; }
    std::string lockFile() const { return home + "/lib/velmorad.lock"; }
    std::string tokenPath() const;
    // The address and port as they go into a URL: an IPv6 address in brackets.
    std::string hostForUrl() const;
};

// What reading a settings file found: errors keep the daemon from starting, warnings
// (unknown keys) do not. Each names the file and the line.
struct SettingsProblems {
    std::vector<std::string> errors;
    std::vector<std::string> warnings;
    bool empty() const { return errors.empty() && warnings.empty(); }
};

// Reads the settings file into `s` (whose home and config are set) and checks every value;
// a missing home settings file is written from the embedded default first unless
// `checkOnly`. On errors `s` may be partly changed and must not be used.
SettingsProblems readSettings(Settings* s, bool checkOnly);

// Applies a settings text (already read) to `s`, naming `file` in the problems.
SettingsProblems applySettings(const std::string& text, const std::string& file, Settings* s);

// For a reload: "key old -> new" for each key whose value differs, and whether it can
// change while the daemon runs.
struct SettingChange {
    std::string key, before, after;
    bool live;
};
std::vector<SettingChange> compareSettings(const Settings& before, const Settings& after);

// The settings in force, for code that runs while the daemon serves: a reload (SIGHUP)
// publishes a new copy, and a reader keeps the copy it took for as long as it needs it.
//   if (velmorad::currentSettings()->writeFilterApply) ...
std::shared_ptr<const Settings> currentSettings();
void publishSettings(const Settings& settings);
// The settings file as it is now, read with the same rules, for switches that take effect
// without a reload (network.apply, writeFilter.apply); the settings in force when the file
// has errors, so that a broken edit never turns into defaults.
std::shared_ptr<const Settings> settingsFromFile();

// The command line's settings for a command that needs them (velmorad token): the file and
// --bind/--port read as for a start, every problem printed; false on errors.
bool loadSettings(int argc, char** argv, Settings* settings);

// The text written to lib/velmorad.properties when the home has none (and shipped as
// /etc/velmorad/velmorad.properties).
const char* defaultSettingsText();

}  // namespace velmorad
