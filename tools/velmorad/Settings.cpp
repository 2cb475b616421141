#include "Settings.h"

#include <velmora/files/FileUtil.h>
#include <velmora/text/FileWriter.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <utility>

#include "BindAddress.h"
#include "RequestText.h"
#include "SettingsText.h"

namespace velmorad {

namespace {

// Written to lib/velmorad.properties when the home directory has none; the package ships
// the same text as /etc/velmorad/velmorad.properties.
const char kDefaultSettings[] =
    "# velmorad settings (man 5 velmorad.properties); check with velmorad --check --config FILE.\n"
    "# The command line overrides bind and port.\n"
    "bind=127.0.0.1\n"
    "port=8080\n"
    "# connections open at once; further ones get 503\n"
    "maxConnections=10000\n"
    "# milliseconds a stop lets requests in flight finish before it closes them\n"
    "stopGraceMs=5000\n"
    "# microseconds the event loop looks for requests before it sleeps, while the\n"
    "# machine's cores are a quarter idle or more (0: it sleeps at once)\n"
    "pollSpinMicros=200\n"
    "# header lines and bytes of one request head; beyond, the answer is 431\n"
    "maxHeaderLines=100\n"
    "maxHeadBytes=16384\n"
    "# milliseconds of silence that end a connection\n"
    "readTimeoutMs=10000\n"
    "# milliseconds that the head of one request may take to arrive\n"
    "requestDeadlineMs=30000\n"
    "keepAliveRequests=100\n"
    "# rotated log files kept\n"
    "logBackups=5\n"
    "# bytes beyond which the log is rotated while the daemon runs (0: only at start)\n"
    "logMaxBytes=10485760\n"
    "# true lets POST /network change the host's network settings (needs CAP_NET_ADMIN)\n"
    "network.apply=false\n"
    "# true lets POST /write-filter set the write filter's boot command\n"
    "writeFilter.apply=false\n"
    "# the token that every change needs (velmorad token prints it)\n"
    "auth.tokenFile=lib/velmorad.token\n"
    "# Host names this daemon answers to besides its address and localhost (a proxy's name)\n"
    "allowedHosts=\n"
    "# proxies (addresses) whose X-Forwarded-For names the client\n"
    "trustedProxies=\n"
    "# true lets the daemon listen beyond loopback (plain HTTP: prefer a TLS proxy)\n"
    "remote.allow=false\n";

enum class Kind { Int, Int64, Bool, TriBool, Text, Path, Address, AddressList, NameList };

// One known key: its type, its range (numbers), where it goes, and whether a reload
// (SIGHUP) may change it while the daemon runs.
struct Key {
    const char* name;
    Kind kind;
    int64_t low, high;
    bool live;
    int Settings::*i;
    int64_t Settings::*l;
    bool Settings::*b;
    std::string Settings::*t;
};

Key intKey(const char* name, int Settings::*m, int64_t low, int64_t high, bool live = false) {
    return {name, Kind::Int, low, high, live, m, nullptr, nullptr, nullptr};
}
Key int64Key(const char* name, int64_t Settings::*m, int64_t low, int64_t high, bool live) {
    return {name, Kind::Int64, low, high, live, nullptr, m, nullptr, nullptr};
}
Key boolKey(const char* name, bool Settings::*m, bool live) {
    return {name, Kind::Bool, 0, 1, live, nullptr, nullptr, m, nullptr};
}
Key textKey(const char* name, Kind kind, std::string Settings::*m, bool live = false) {
    return {name, kind, 0, 0, live, nullptr, nullptr, nullptr, m};
}
// true, false, or not given (-1: the daemon decides).
Key triKey(const char* name, int Settings::*m, bool live) {
    return {name, Kind::TriBool, -1, 1, live, m, nullptr, nullptr, nullptr};
}

const std::vector<Key>& keys() {
    static const std::vector<Key> table = {
        textKey("bind", Kind::Address, &Settings::bind),
        intKey("port", &Settings::port, 0, 65535),
        intKey("maxConnections", &Settings::maxConnections, 1, 1000000),
        intKey("readTimeoutMs", &Settings::readTimeoutMs, 100, 3600000),
        intKey("requestDeadlineMs", &Settings::requestDeadlineMs, 100, 3600000),
        intKey("keepAliveRequests", &Settings::keepAliveRequests, 1, 1000000),
        intKey("stopGraceMs", &Settings::stopGraceMs, 0, 600000),
        intKey("pollSpinMicros", &Settings::pollSpinMicros, 0, 10000),
        intKey("maxHeaderLines", &Settings::maxHeaderLines, 1, 10000),
        intKey("maxHeadBytes", &Settings::maxHeadBytes, 256, 1048576),
        intKey("logBackups", &Settings::logBackups, 0, 1000, true),
        int64Key("logMaxBytes", &Settings::logMaxBytes, 0, int64_t(1) << 40, true),
        textKey("auth.tokenFile", Kind::Path, &Settings::tokenFile),
        triKey("auth.reads", &Settings::authReads, false),
        textKey("allowedHosts", Kind::NameList, &Settings::allowedHosts),
        boolKey("remote.allow", &Settings::remoteAllow, false),
        textKey("trustedProxies", Kind::AddressList, &Settings::trustedProxies),
        boolKey("writeFilter.apply", &Settings::writeFilterApply, true),
        boolKey("network.apply", &Settings::networkApply, true),
        intKey("network.confirmWithin", &Settings::networkConfirmWithin, 1, 3600, true),
        textKey("network.resolverPath", Kind::Path, &Settings::networkResolverPath),
        textKey("network.hostnamePath", Kind::Path, &Settings::networkHostnamePath),
    };
    return table;
}

// Edits (insert, delete, replace, swap of neighbours) from one word to the other, ignoring
// letter case.
size_t distance(const std::string& a0, const std::string& b0) {
    const std::string a = lower(a0), b = lower(b0);
    std::vector<std::vector<size_t>> d(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); ++i)
        d[i][0] = i;
    for (size_t j = 0; j <= b.size(); ++j)
        d[0][j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        for (size_t j = 1; j <= b.size(); ++j) {
            size_t best = std::min(d[i - 1][j] + 1, d[i][j - 1] + 1);
            best = std::min(best, d[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1));
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                best = std::min(best, d[i - 2][j - 2] + 1);
            }
            d[i][j] = best;
        }
    }
    return d[a.size()][b.size()];
}

std::string nearestKey(const std::string& key) {
    const Key* best = nullptr;
    size_t bestDistance = 0;
    for (const Key& k : keys()) {
        const size_t d = distance(key, k.name);
        if (best == nullptr || d < bestDistance) {
            best = &k;
            bestDistance = d;
        }
    }
    const size_t allowed = std::max<size_t>(2, key.size() / 3);
    return best != nullptr && bestDistance <= allowed ? best->name : "";
}

// A decimal whole number; one too long for any range reads as the largest number.
bool parseInteger(const std::string& text, int64_t* out) {
    size_t i = !text.empty() && text[0] == '-' ? 1 : 0;
    if (i == text.size()) return false;
    int64_t value = 0;
    for (; i < text.size(); ++i) {
        if (!std::isdigit(static_cast<unsigned char>(text[i]))) return false;
        value = value < (int64_t(1) << 55) ? value * 10 + (text[i] - '0') : value;
    }
    *out = text[0] == '-' ? -value : value;
    return true;
}

// Sets the value of one known key; an empty string, or why the value is refused.
std::string setValue(const Key& k, const std::string& value, Settings* s) {
    switch (k.kind) {
        case Kind::Int:
        case Kind::Int64: {
            int64_t n = 0;
            if (!parseInteger(value, &n)) return "\"" + value + "\" is not a whole number";
            if (n < k.low || n > k.high) {
                return value + " is out of range (" + std::to_string(k.low) + " to " +
                       std::to_string(k.high) + ")";
            }
            if (k.kind == Kind::Int) {
                s->*k.i = static_cast<int>(n);
            } else {
                s->*k.l = n;
            }
            return "";
        }
        case Kind::Bool:
        case Kind::TriBool:
            if (value == "true" || value == "false") {
                if (k.kind == Kind::Bool) {
                    s->*k.b = value == "true";
                } else {
                    s->*k.i = value == "true" ? 1 : 0;
                }
                return "";
            }
            return "\"" + value + "\" is not true or false";
        case Kind::Address: {
            std::string numeric, why;
            if (!resolveBindAddress(value, &numeric, &why)) return why;
            s->*k.t = value;
            return "";
        }
        case Kind::Path:
            if (value.empty()) return "a path is needed";
            s->*k.t = value;
            return "";
        case Kind::Text:
            s->*k.t = value;
            return "";
        case Kind::AddressList:
        case Kind::NameList: {
            for (const std::string& item : itemsOf(value)) {
                if (k.kind == Kind::AddressList && !isAddressLiteral(item)) {
                    return "\"" + item + "\" is not a numeric IPv4 or IPv6 address";
                }
                if (k.kind == Kind::NameList && item.find_first_of(" /\\@") != std::string::npos) {
                    return "\"" + item + "\" is not a host name";
                }
            }
            s->*k.t = value;
            return "";
        }
    }
    return "unknown kind";
}

std::string valueText(const Key& k, const Settings& s) {
    switch (k.kind) {
        case Kind::Int:
            return std::to_string(s.*k.i);
        case Kind::Int64:
            return std::to_string(s.*k.l);
        case Kind::Bool:
            return s.*k.b ? "true" : "false";
        case Kind::TriBool:
            return s.*k.i < 0 ? "(by the address)" : s.*k.i > 0 ? "true" : "false";
        default:
            return s.*k.t;
    }
}

// The file's bytes, or false with the reason.
bool readFile(const std::string& path, std::string* text, std::string* why) {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) {
        *why = std::strerror(errno);
        return false;
    }
    char chunk[4096];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0)
        text->append(chunk, n);
    const bool failed = std::ferror(f) != 0;
    if (failed) *why = std::strerror(errno);
    std::fclose(f);
    if (!failed && velmora::FileUtil::isDirectory(path.c_str())) {
        *why = "it is a directory";
        return false;
    }
    return !failed;
}

}  // namespace

std::string Settings::tokenPath() const {
    bool absolute = !tokenFile.empty() && (tokenFile[0] == '/' || tokenFile[0] == '\\' ||
                                           (tokenFile.size() > 1 && tokenFile[1] == ':'));
    return absolute ? tokenFile : home + "/" + tokenFile;
}

std::string Settings::hostForUrl() const {
    return bindAddress.find(':') != std::string::npos ? "[" + bindAddress + "]" : bindAddress;
}

const char* defaultSettingsText() {
    return kDefaultSettings;
}

namespace {
std::mutex publishedLock;
std::shared_ptr<const Settings> published = std::make_shared<const Settings>();
}  // namespace

std::shared_ptr<const Settings> currentSettings() {
    std::lock_guard<std::mutex> lock(publishedLock);
    return published;
}

void publishSettings(const Settings& settings) {
    auto copy = std::make_shared<const Settings>(settings);
    std::lock_guard<std::mutex> lock(publishedLock);
    published = copy;
}

std::shared_ptr<const Settings> settingsFromFile() {
    std::shared_ptr<const Settings> running = currentSettings();
    auto now = std::make_shared<Settings>(*running);
    if (!readSettings(now.get(), true).errors.empty()) return running;
    // Where the daemon listens stays what it was started with (the command line may have
    // overridden the file).
    now->bind = running->bind;
    now->bindAddress = running->bindAddress;
    now->port = running->port;
    return now;
}

SettingsProblems applySettings(const std::string& text, const std::string& file, Settings* s) {
    SettingsText parsed = SettingsText::parse(text);
    // Errors in the order of their lines, whether the line's form or its value is wrong.
    std::vector<std::pair<int, std::string>> errors;
    for (const SettingsText::Problem& p : parsed.problems)
        errors.push_back({p.line, p.message});
    SettingsProblems out;
    for (const SettingsText::Problem& w : parsed.warnings) {
        out.warnings.push_back(file + ":" + std::to_string(w.line) + ": " + w.message);
    }
    for (const SettingsText::Entry& e : parsed.entries) {
        const Key* key = nullptr;
        for (const Key& k : keys()) {
            if (e.key == k.name) key = &k;
        }
        if (key == nullptr) {
            const std::string near = nearestKey(e.key);
            out.warnings.push_back(
                file + ":" + std::to_string(e.line) + ": unknown key " + e.key +
                (near.empty() ? " (ignored)" : " (ignored; did you mean " + near + "?)"));
            continue;
        }
        const std::string why = setValue(*key, e.value, s);
        if (!why.empty()) errors.push_back({e.line, e.key + ": " + why});
    }
    std::stable_sort(errors.begin(), errors.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    for (const auto& e : errors) {
        out.errors.push_back(file + ":" + std::to_string(e.first) + ": " + e.second);
    }
    std::string numeric, why;
    if (resolveBindAddress(s->bind, &numeric, &why)) s->bindAddress = numeric;
    return out;
}

SettingsProblems readSettings(Settings* s, bool checkOnly) {
    const std::string file = s->settingsFile();
    std::string text, why;
    if (s->config.empty() && !velmora::FileUtil::isFileRegular(file.c_str()) &&
        !velmora::FileUtil::isDirectory(file.c_str())) {
        // A new home: its settings file starts as the embedded default, ready to edit.
        text = kDefaultSettings;
        if (!checkOnly) {
            std::unique_ptr<velmora::FileWriter> out(velmora::FileUtil::verifyPath(file.c_str())
                                                         ? velmora::FileWriter::make(file.c_str())
                                                         : nullptr);
            if (!out || out->writeString(kDefaultSettings) !=
                            static_cast<int>(sizeof kDefaultSettings - 1)) {
                SettingsProblems problems;
                problems.errors.push_back(file + ": cannot be written");
                return problems;
            }
        }
    } else if (!readFile(file, &text, &why)) {
        SettingsProblems problems;
        problems.errors.push_back(file + ": cannot be read: " + why);
        return problems;
    }
    return applySettings(text, file, s);
}

std::vector<SettingChange> compareSettings(const Settings& before, const Settings& after) {
    std::vector<SettingChange> changes;
    for (const Key& k : keys()) {
        std::string a = valueText(k, before), b = valueText(k, after);
        if (a != b) changes.push_back({k.name, a, b, k.live});
    }
    return changes;
}

}  // namespace velmorad
