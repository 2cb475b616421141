// velmorad: the sample platform daemon. It serves the platform's HTTP interface from a home
// directory it sets up (lib/velmorad.properties, logs/velmorad.log rotated at start and by size,
// logs/levels.properties for per-name log levels) until SIGINT or SIGTERM.
//
//   velmorad [--bind ADDR] [--port N] [--home DIR] [--config FILE]
#include <velmora/files/FileUtil.h>
#include <velmora/http/Http.h>
#include <velmora/http/HttpResponse.h>
#include <velmora/log/FilteredLogBundle.h>
#include <velmora/net/Icmp.h>
#include <velmora/xml/XWriter.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "Daemon.h"
#include "Guard.h"
#include "HostServices.h"
#include "RotatingLog.h"
#include "Settings.h"
#include "Token.h"

namespace {

velmorad::Daemon* running = nullptr;

void onStop() {
    if (running != nullptr) running->stop();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "token") == 0) return velmorad::tokenCommand(argc, argv);
    velmorad::Settings settings;
    if (!velmorad::loadSettings(argc, argv, &settings)) return 2;
    if (!velmorad::mayListen(settings)) return 2;
    if (!velmorad::startSockets()) {
        std::fprintf(stderr, "velmorad: the socket library did not start\n");
        return 1;
    }
    velmorad::RotatingLog file(settings.logFile(), settings.logBackups, settings.logMaxBytes);
    if (!file.open()) {
        std::fprintf(stderr, "velmorad: cannot open %s\n", settings.logFile().c_str());
        return 1;
    }
    velmora::FilteredLogBundle levels(settings.levelsFile().c_str(), &file);
    velmora::Log* log = levels.get("velmorad");
    levels.get("access");
    // A first start leaves a levels file that names the daemon's logs, ready to edit.
    if (!velmora::FileUtil::isFileRegular(settings.levelsFile().c_str())) levels.save();
    velmorad::Token token(settings.tokenPath());
    bool created = false;
    std::string problem;
    if (!token.open(false, &created, &problem)) {
        std::fprintf(stderr, "velmorad: %s\n", problem.c_str());
        return 1;
    }
    if (created) log->message(("velmorad: wrote a new token to " + token.path()).c_str());
    velmorad::Guard guard(settings, &token, log);
    velmorad::Guard::install(&guard);
    int status = 0;
    {
        velmorad::Daemon daemon(settings, log, &levels);
        if (!daemon.listen()) {
            const velmora::MessageBundle* why = log->getLastError();
            std::fprintf(stderr, "velmorad: cannot listen on %s:%d: %s", settings.bind.c_str(),
                         settings.port, why != nullptr && why->getText() ? why->getText() : "\n");
            status = 1;
        } else {
            running = &daemon;
            velmorad::installStopHandler(onStop);
            std::printf("velmorad listening on http://%s:%d/\n", settings.bind.c_str(),
                        daemon.getPort());
            std::printf("velmorad logging to %s (levels in %s)\n", settings.logFile().c_str(),
                        settings.levelsFile().c_str());
            std::fflush(stdout);
            log->message("velmorad started");
            daemon.run();
            log->message("velmorad stopped");
            running = nullptr;
        }
    }
    velmorad::Guard::install(nullptr);
    velmora::Icmp::unload();
    velmora::HttpResponse::unload();
    velmora::Http::unload();
    velmora::XWriter::unload();
    velmorad::stopSockets();
    return status;
}
