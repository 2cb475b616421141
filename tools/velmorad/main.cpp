// velmorad: the sample platform daemon. It serves the platform's HTTP interface from a home
// directory it sets up (lib/velmorad.properties, logs/velmorad.log rotated at start and by size,
// logs/levels.properties for per-name log levels) until SIGINT or SIGTERM; SIGHUP reloads
// what can change while it runs. See CommandLine.h for the options.
#include <velmora/files/FileUtil.h>
#include <velmora/http/Http.h>
#include <velmora/http/HttpResponse.h>
#include <velmora/log/FilteredLogBundle.h>
#include <velmora/net/Icmp.h>
#include <velmora/xml/XWriter.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include "BindAddress.h"
#include "CommandLine.h"
#include "Daemon.h"
#include "Guard.h"
#include "HostServices.h"
#include "InstanceLock.h"
#include "ReloadSignal.h"
#include "RotatingLog.h"
#include "Settings.h"
#include "SettingsText.h"
#include "Token.h"

namespace {

velmorad::Daemon* running = nullptr;

void onStop() {
    if (running != nullptr) running->stop();
    velmorad::endReloadWait();
}

std::string sizeText(int64_t bytes) {
    char text[32];
    if (bytes >= 10 * 1024 * 1024) {
        std::snprintf(text, sizeof text, "%lld MiB", static_cast<long long>(bytes >> 20));
    } else {
        std::snprintf(text, sizeof text, "%lld KiB", static_cast<long long>((bytes + 1023) >> 10));
    }
    return text;
}

// Levels from the levels file for the names the daemon has; "name a -> b" for each change.
std::string reloadLevels(const velmorad::Settings& s, velmora::FilteredLogBundle* levels) {
    std::FILE* f = std::fopen(s.levelsFile().c_str(), "rb");
    if (f == nullptr) return "";
    std::string text;
    char chunk[4096];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0)
        text.append(chunk, n);
    std::fclose(f);
    velmorad::SettingsText parsed = velmorad::SettingsText::parse(text);
    std::string changed;
    velmora::FilteredLogIterator it;
    levels->getIterator(&it);
    while (it.hasNext()) {
        velmora::FilteredLogRec* r = it.getNext();
        const velmorad::SettingsText::Entry* e = parsed.find(r->getName());
        if (e == nullptr || e->value.size() != 1 || e->value[0] < '0' || e->value[0] > '3')
            continue;
        const int before = r->getLog()->getFilterLevel(), after = e->value[0] - '0';
        if (before == after) continue;
        r->getLog()->setFilterLevel(after);
        changed += std::string(changed.empty() ? "" : ", ") + "level of " + r->getName() + " " +
                   std::to_string(before) + " -> " + std::to_string(after);
    }
    return changed;
}

// SIGHUP: the logs are reopened, the settings file and the levels file read again; what
// may change while running is taken, the rest is reported as waiting for a restart. A
// file with errors changes nothing.
void reload(const velmorad::CommandLine& cl, velmorad::Settings* current,
            velmorad::RotatingLog* file, velmora::FilteredLogBundle* levels, velmora::Log* log) {
    file->reopen();
    velmorad::Settings fresh;
    velmorad::SettingsProblems problems = velmorad::settingsFor(cl, true, &fresh);
    for (const std::string& w : problems.warnings)
        log->warning(w.c_str());
    if (!problems.errors.empty()) {
        std::string text = "reload refused, the settings stay as they were:";
        for (const std::string& e : problems.errors)
            text += " " + e + ";";
        log->error(text.c_str());
        return;
    }
    std::string changed;
    for (const velmorad::SettingChange& c : velmorad::compareSettings(*current, fresh)) {
        if (!c.live) {
            log->warning((c.key + " changed from " + c.before + " to " + c.after +
                          " in the file; it takes effect at the next start")
                             .c_str());
            continue;
        }
        changed += (changed.empty() ? "" : ", ") + c.key + " " + c.before + " -> " + c.after;
    }
    // Values that need a restart keep what the daemon runs with.
    velmorad::Settings next = *current;
    next.logBackups = fresh.logBackups;
    next.logMaxBytes = fresh.logMaxBytes;
    next.writeFilterApply = fresh.writeFilterApply;
    next.networkApply = fresh.networkApply;
    next.networkConfirmWithin = fresh.networkConfirmWithin;
    *current = next;
    file->setLimits(next.logBackups, next.logMaxBytes);
    velmorad::publishSettings(next);
    const std::string levelChanges = reloadLevels(next, levels);
    if (!levelChanges.empty()) changed += (changed.empty() ? "" : ", ") + levelChanges;
    log->message(("reloaded " + next.settingsFile() + ": " +
                  (changed.empty() ? std::string("nothing changed") : changed))
                     .c_str());
}

int serve(const velmorad::CommandLine& cl, velmorad::Settings settings) {
    velmorad::InstanceLock instance;
    std::string why;
    if (!velmora::FileUtil::verifyPath(settings.lockFile().c_str()) ||
        !instance.acquire(settings.lockFile(), &why)) {
        std::fprintf(
            stderr, "velmorad: not started: %s\n",
            why.empty() ? ("cannot create " + settings.home + "/lib").c_str() : why.c_str());
        return 1;
    }
    velmorad::RotatingLog file(settings.logFile(), settings.logBackups, settings.logMaxBytes);
    if (!file.open()) {
        std::fprintf(stderr, "velmorad: cannot open %s\n", settings.logFile().c_str());
        return 1;
    }
    // Under systemd standard error is the journal, where an operator looks first.
    const char* journal = std::getenv("JOURNAL_STREAM");
    file.setEchoToStderr(journal != nullptr && journal[0] != '\0');
    velmorad::publishSettings(settings);
    velmora::FilteredLogBundle levels(settings.levelsFile().c_str(), &file);
    velmora::Log* log = levels.get("velmorad");
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
            const velmora::MessageBundle* failure = log->getLastError();
            std::fprintf(stderr, "velmorad: cannot listen on %s:%d: %s",
                         settings.hostForUrl().c_str(), settings.port,
                         failure != nullptr && failure->getText() ? failure->getText() : "\n");
            status = 1;
        } else {
            // Made before serving: every ping of every request then goes through its one
            // socket, which hands each reply to the request waiting for it.
            velmora::Icmp::getInstance(log);
            running = &daemon;
            velmorad::installStopHandler(onStop);
            velmorad::installReloadHandler();
            std::printf("velmorad listening on http://%s:%d/\n", settings.hostForUrl().c_str(),
                        daemon.getPort());
            // The daemon's log and the access log each keep to logMaxBytes and logBackups.
            const int64_t disk = file.diskLimit();
            const std::string limit =
                disk < 0 ? std::string("the logs grow without limit while running")
                         : "its logs and their backups take at most " + sizeText(2 * disk) +
                               " (velmorad.log and access.log, " +
                               std::to_string(settings.logBackups) + " backups each)";
            std::printf("velmorad logging to %s (levels in %s; %s)\n", settings.logFile().c_str(),
                        settings.levelsFile().c_str(), limit.c_str());
            // Where a new user finds what the settings page and every change ask for.
            std::printf("velmorad token in %s (velmorad token --home %s prints it)\n",
                        settings.tokenPath().c_str(), settings.home.c_str());
            std::fflush(stdout);
            log->message(("velmorad " VELMORAD_VERSION " started on http://" +
                          settings.hostForUrl() + ":" + std::to_string(daemon.getPort()) + "/")
                             .c_str());
            std::thread reloader([&] {
                while (velmorad::waitForReload())
                    reload(cl, &settings, &file, &levels, log);
            });
            daemon.run();
            velmorad::endReloadWait();
            reloader.join();
            std::string stopped = "velmorad stopped; connections cut at the end of the grace: " +
                                  std::to_string(daemon.connectionsCut());
            log->message(stopped.c_str());
            running = nullptr;
        }
    }
    velmorad::Guard::install(nullptr);
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "token") == 0) return velmorad::tokenCommand(argc, argv);
    const velmorad::CommandLine cl = velmorad::CommandLine::parse(argc, argv);
    if (!cl.error.empty()) {
        std::fprintf(stderr, "velmorad: %s\nTry velmorad --help.\n", cl.error.c_str());
        return 2;
    }
    if (cl.help) {
        std::fputs(velmorad::usageText(), stdout);
        return 0;
    }
    if (cl.version) {
        std::printf("velmorad %s\n", VELMORAD_VERSION);
        return 0;
    }
    if (!velmorad::startSockets()) {
        std::fprintf(stderr, "velmorad: the socket library did not start\n");
        return 1;
    }
    velmorad::Settings settings;
    const velmorad::SettingsProblems problems = velmorad::settingsFor(cl, cl.check, &settings);
    for (const std::string& w : problems.warnings) {
        std::fprintf(stderr, "velmorad: warning: %s\n", w.c_str());
    }
    for (const std::string& e : problems.errors) {
        std::fprintf(stderr, "velmorad: error: %s\n", e.c_str());
    }
    int status;
    if (cl.check) {
        if (problems.empty()) {
            const bool missing = settings.config.empty() &&
                                 !velmora::FileUtil::isFileRegular(settings.settingsFile().c_str());
            std::printf("velmorad: %s: no problems%s; would listen on http://%s:%d/\n",
                        settings.settingsFile().c_str(),
                        missing ? " (not written yet: the built-in default)" : "",
                        settings.hostForUrl().c_str(), settings.port);
        } else {
            const std::string where =
                "http://" + settings.hostForUrl() + ":" + std::to_string(settings.port) + "/";
            std::printf("velmorad: %s: %zu error(s), %zu warning(s)%s\n",
                        settings.settingsFile().c_str(), problems.errors.size(),
                        problems.warnings.size(),
                        problems.errors.empty() ? ("; would listen on " + where).c_str() : "");
        }
        status = problems.empty() ? 0 : 1;
    } else if (!problems.errors.empty()) {
        std::fprintf(stderr,
                     "velmorad: not started: correct %s (velmorad --check shows every problem)\n",
                     settings.settingsFile().c_str());
        // EX_CONFIG: the unit does not restart a daemon whose settings are wrong.
        status = 78;
    } else if (!velmorad::mayListen(settings)) {
        status = 2;
    } else {
        status = serve(cl, settings);
    }
    velmora::Icmp::unload();
    velmora::HttpResponse::unload();
    velmora::Http::unload();
    velmora::XWriter::unload();
    velmorad::stopSockets();
    return status;
}
