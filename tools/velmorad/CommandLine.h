// velmorad's command line:
//
//   velmorad [--bind ADDR] [--port N] [--home DIR] [--config FILE]
//   velmorad --check [--config FILE] [--home DIR]
//   velmorad --help | --version
//
// Options take their value as the next word or after '=' (--port=8081).
#pragma once

#include <string>

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

}  // namespace velmorad
