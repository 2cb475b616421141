// velmorad's command line:
//
//   velmorad [--bind ADDR] [--port N] [--home DIR] [--config FILE]
//   velmorad --check [--config FILE] [--home DIR]
//   velmorad --help | --version
//
// Options take their value as the next word or after '=' (--port=8081).
#pragma once

#include <string>

#include "Settings.h"

namespace velmorad {

struct CommandLine {
    bool help = false;
    bool version = false;
    bool check = false;
    bool hasBind = false, hasPort = false, hasHome = false, hasConfig = false;
    std::string bind, home, config;
    int port = -1;
    std::string error;  // what is wrong with the command line, for the user; empty when fine

    static CommandLine parse(int argc, const char* const* argv);
};

// The --help text.
const char* usageText();

// The settings for this command line: the home (--home, else VELMORA_HOME or the current
// directory), the settings file (--config, else the home's), then --bind and --port.
// `checkOnly`: a missing home settings file is not written.
SettingsProblems settingsFor(const CommandLine& cl, bool checkOnly, Settings* s);

}  // namespace velmorad
