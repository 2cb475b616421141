#include "CommandLine.h"

#include <velmora/vre/Vre.h>

#include <cctype>
#include <cstdio>
#include <cstring>

#include "BindAddress.h"

namespace velmorad {

namespace {

const char kUsage[] =
    "usage: velmorad [--bind ADDR] [--port N] [--home DIR] [--config FILE]\n"
    "       velmorad --check [--config FILE] [--home DIR]\n"
    "       velmorad token [--new] [--home DIR] [--config FILE]\n"
    "       velmorad --help | --version\n"
    "Serves the platform's HTTP interface (default http://127.0.0.1:8080/) from a home\n"
    "directory: VELMORA_HOME, else the current directory.\n"
    "  --bind ADDR    address to listen on: IPv4, IPv6 or a host name (setting bind)\n"
    "  --port N       port to listen on, 0 for any free one (setting port)\n"
    "  --home DIR     the home: logs/ and lib/ below it\n"
    "  --config FILE  settings file instead of lib/velmorad.properties in the home\n"
    "  --check        check the settings and the command line, report every problem,\n"
    "                 exit 0 when there is none and 1 otherwise\n"
    "  --help         this text\n"
    "  --version      the version\n"
    "velmorad token prints the token that changes need (made when missing); --new\n"
    "replaces it.\n"
    "SIGHUP reloads the settings that can change while running and reopens the logs;\n"
    "SIGINT and SIGTERM stop. See velmorad(8) and velmorad.properties(5).\n";

bool portNumber(const std::string& text, int* out) {
    if (text.empty() || text.size() > 5) return false;
    int value = 0;
    for (char c : text) {
        if (!std::isdigit(static_cast<unsigned char>(c))) return false;
        value = value * 10 + (c - '0');
    }
    if (value > 65535) return false;
    *out = value;
    return true;
}

}  // namespace

const char* usageText() {
    return kUsage;
}

CommandLine CommandLine::parse(int argc, const char* const* argv) {
    CommandLine c;
    for (int i = 1; i < argc && c.error.empty(); ++i) {
        std::string arg = argv[i];
        std::string name = arg, value;
        bool inlineValue = false;
        const size_t equals = arg.find('=');
        if (arg.compare(0, 2, "--") == 0 && equals != std::string::npos) {
            name = arg.substr(0, equals);
            value = arg.substr(equals + 1);
            inlineValue = true;
        }
        if (name == "--help" || name == "-h" || name == "--version" || name == "--check") {
            if (inlineValue) {
                c.error = name + " takes no value";
            } else if (name == "--version") {
                c.version = true;
            } else if (name == "--check") {
                c.check = true;
            } else {
                c.help = true;
            }
            continue;
        }
        std::string* target = nullptr;
        bool* given = nullptr;
        if (name == "--bind") {
            target = &c.bind, given = &c.hasBind;
        } else if (name == "--home") {
            target = &c.home, given = &c.hasHome;
        } else if (name == "--config") {
            target = &c.config, given = &c.hasConfig;
        } else if (name == "--port") {
            target = &value, given = &c.hasPort;
        } else if (arg.compare(0, 1, "-") == 0) {
            c.error = "unknown option " + name;
            break;
        } else {
            c.error = "unexpected argument " + arg;
            break;
        }
        if (*given) {
            c.error = name + " is given twice";
            break;
        }
        if (!inlineValue) {
            // "--port --home x": the value is missing, not "--home".
            if (i + 1 >= argc || std::strncmp(argv[i + 1], "--", 2) == 0) {
                c.error = name + " needs a value";
                break;
            }
            value = argv[++i];
        }
        if (value.empty()) {
            c.error = name + " needs a value";
            break;
        }
        *given = true;
        if (target != &value) {
            *target = value;
        } else if (!portNumber(value, &c.port)) {
            c.error = "--port " + value + ": a port is a number 0 to 65535";
        }
    }
    return c;
}

SettingsProblems settingsFor(const CommandLine& cl, bool checkOnly, Settings* s) {
    s->home = cl.hasHome ? cl.home : velmora::Vre::getInstance()->getKovaHome();
    if (cl.hasConfig) s->config = cl.config;
    SettingsProblems problems = readSettings(s, checkOnly);
    if (cl.hasBind) {
        std::string numeric, why;
        if (resolveBindAddress(cl.bind, &numeric, &why)) {
            s->bind = cl.bind;
            s->bindAddress = numeric;
        } else {
            problems.errors.push_back("--bind: " + why);
        }
    }
    if (cl.hasPort) s->port = cl.port;
    return problems;
}

bool loadSettings(int argc, char** argv, Settings* s) {
    const CommandLine cl = CommandLine::parse(argc, argv);
    if (!cl.error.empty() || cl.help || cl.version || cl.check) {
        std::fprintf(stderr, "velmorad: %s\n",
                     cl.error.empty() ? "this command takes --home, --config, --bind and --port"
                                      : cl.error.c_str());
        return false;
    }
    const SettingsProblems problems = settingsFor(cl, false, s);
    for (const std::string& w : problems.warnings) {
        std::fprintf(stderr, "velmorad: warning: %s\n", w.c_str());
    }
    for (const std::string& e : problems.errors)
        std::fprintf(stderr, "velmorad: error: %s\n", e.c_str());
    return problems.errors.empty();
}

}  // namespace velmorad
