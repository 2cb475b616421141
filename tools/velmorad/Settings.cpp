#include "Settings.h"

#include <velmora/collections/Map.h>
#include <velmora/collections/PropertiesFile.h>
#include <velmora/files/FileUtil.h>
#include <velmora/text/FileWriter.h>
#include <velmora/vre/Vre.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace velmorad {

namespace {

// Written to lib/velmorad.properties when the home directory has none.
const char kDefaultSettings[] =
    "# velmorad settings; the command line overrides bind, port and home.\n"
    "bind=127.0.0.1\n"
    "port=8080\n"
    "# connections served at once; further ones get 503\n"
    "maxConnections=64\n"
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

void usage() {
    std::printf(
        "usage: velmorad [--bind ADDR] [--port N] [--home DIR] [--config FILE]\n"
        "  serves the platform's HTTP interface; default 127.0.0.1:8080, home from\n"
        "  VELMORA_HOME or the current directory, settings from FILE or else\n"
        "  lib/velmorad.properties in the home\n"
        "       velmorad token [--new] [--home DIR] [--config FILE]\n"
        "  prints the token that changes need (made when missing); --new replaces it\n");
}

bool number(const char* text, int* out) {
    char* end = nullptr;
    long value = std::strtol(text, &end, 10);
    if (end == text || *end != '\0' || value < 0 || value > 65535) return false;
    *out = static_cast<int>(value);
    return true;
}

}  // namespace

std::string Settings::tokenPath() const {
    bool absolute = !tokenFile.empty() && (tokenFile[0] == '/' || tokenFile[0] == '\\' ||
                                           (tokenFile.size() > 1 && tokenFile[1] == ':'));
    return absolute ? tokenFile : home + "/" + tokenFile;
}

bool loadSettings(int argc, char** argv, Settings* s) {
    const char* bind = nullptr;
    const char* home = nullptr;
    const char* config = nullptr;
    int port = -1;
    for (int i = 1; i < argc; ++i) {
        const char* arg = argv[i];
        const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
        if (std::strcmp(arg, "--help") == 0 || std::strcmp(arg, "-h") == 0) {
            usage();
            return false;
        }
        if (value == nullptr) {
            std::fprintf(stderr, "velmorad: %s needs a value\n", arg);
            return false;
        }
        if (std::strcmp(arg, "--bind") == 0) {
            bind = value;
        } else if (std::strcmp(arg, "--home") == 0) {
            home = value;
        } else if (std::strcmp(arg, "--config") == 0) {
            config = value;
        } else if (std::strcmp(arg, "--port") == 0) {
            if (!number(value, &port)) {
                std::fprintf(stderr, "velmorad: bad port %s\n", value);
                return false;
            }
        } else {
            std::fprintf(stderr, "velmorad: unknown option %s\n", arg);
            usage();
            return false;
        }
        ++i;
    }
    s->home = home != nullptr ? home : velmora::Vre::getInstance()->getKovaHome();
    // A packaged daemon reads its settings from /etc (read-only to it) and keeps only its
    // state in the home.
    if (config != nullptr) s->config = config;

    std::string file = s->settingsFile();
    if (!velmora::FileUtil::isFileRegular(file.c_str())) {
        std::unique_ptr<velmora::FileWriter> out(velmora::FileWriter::make(file.c_str()));
        if (!out ||
            out->writeString(kDefaultSettings) != static_cast<int>(sizeof kDefaultSettings - 1)) {
            std::fprintf(stderr, "velmorad: cannot write %s\n", file.c_str());
            return false;
        }
    }
    std::unique_ptr<velmora::Map> map(velmora::PropertiesFile::makeMap(file.c_str(), '='));
    char text[256];
    map->get("bind", text, sizeof text - 1, s->bind.c_str());
    text[sizeof text - 1] = '\0';
    s->bind = text;
    s->port = map->getInt("port", s->port);
    s->maxConnections = map->getInt("maxConnections", s->maxConnections);
    s->readTimeoutMs = map->getInt("readTimeoutMs", s->readTimeoutMs);
    s->requestDeadlineMs = map->getInt("requestDeadlineMs", s->requestDeadlineMs);
    s->keepAliveRequests = map->getInt("keepAliveRequests", s->keepAliveRequests);
    s->logBackups = map->getInt("logBackups", s->logBackups);
    s->logMaxBytes = map->getInt("logMaxBytes", s->logMaxBytes);
    map->get("auth.tokenFile", text, sizeof text - 1, s->tokenFile.c_str());
    s->tokenFile = text;
    map->get("auth.reads", text, sizeof text - 1, "");
    if (text[0] != '\0') s->authReads = map->getBoolean("auth.reads", false) ? 1 : 0;
    map->get("allowedHosts", text, sizeof text - 1, "");
    s->allowedHosts = text;
    map->get("trustedProxies", text, sizeof text - 1, "");
    s->trustedProxies = text;
    s->remoteAllow = map->getBoolean("remote.allow", false);
    if (bind != nullptr) s->bind = bind;
    if (port >= 0) s->port = port;
    if (!velmora::FileUtil::verifyPath(s->logFile().c_str())) {
        std::fprintf(stderr, "velmorad: cannot create %s/logs\n", s->home.c_str());
        return false;
    }
    return true;
}

}  // namespace velmorad
