// A short tour of what the library can do so far: it keeps a log file with rotated
// backups in the platform home, writes to the console and the file at once, lets several
// threads write into one in-memory text, reads the file back and lists the folder.
#include <velmora/common.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

namespace {

struct Worker {
    velmora::StringWriter* out;
    int id;
};

uint32_t work(void* arg) {
    Worker* w = static_cast<Worker*>(arg);
    for (int i = 0; i < 3; ++i) {
        char line[64];
        std::snprintf(line, sizeof line, "  worker %d line %d\n", w->id, i);
        w->out->writeString(line);
    }
    return static_cast<uint32_t>(w->id);
}

}  // namespace

int main() {
    std::string home = velmora::Vre::getInstance()->getKovaHome();
    std::string logs = home + "/logs";
    std::string log = logs + "/showcase.log";
    std::printf("platform home: %s\n", home.c_str());

    if (!velmora::FileUtil::verifyPath(log.c_str())) {
        std::fprintf(stderr, "cannot create %s\n", logs.c_str());
        return 1;
    }
    if (velmora::FileUtil::isFileRegular(log.c_str()) &&
        velmora::FileUtil::renameToBackup(log.c_str(), 3) != 0) {
        std::printf("(a backup of this minute exists already; the log is overwritten)\n");
    }

    std::unique_ptr<velmora::FileWriter> file(velmora::FileWriter::make(log.c_str()));
    if (!file) {
        std::fprintf(stderr, "cannot open %s\n", log.c_str());
        return 1;
    }
    velmora::FileWriter console(stdout);
    {
        velmora::MulticastWriter both(file.get());
        both.addWriter(&console);
        both.writeString("showcase: this line goes to the console and to the log\n");

        velmora::StringWriter shared(64);
        Worker workers[4] = {{&shared, 1}, {&shared, 2}, {&shared, 3}, {&shared, 4}};
        velmora::PlatformThread threads[4];
        for (int i = 0; i < 4; ++i) {
            threads[i] = velmora::PlatformUtil::createThread(work, &workers[i], "worker");
        }
        for (auto& t : threads)
            velmora::PlatformUtil::joinThread(t);
        both.writeString("four threads wrote into one string writer:\n");
        both.write(shared.getString(), shared.getLength());
        // Closing the multicast writer closes both targets: the console stream too.
    }

    std::unique_ptr<velmora::FileReader> in(velmora::FileReader::make(log.c_str()));
    int bytes = 0, lines = 0;
    for (int c = in->getChar(); !in->eof(); c = in->getChar()) {
        ++bytes;
        if (c == '\n') ++lines;
    }
    std::fprintf(stderr, "read back %s: %d bytes, %d lines\n", log.c_str(), bytes, lines);

    std::unique_ptr<velmora::DirectoryListing> dir(velmora::DirectoryListing::make(logs.c_str()));
    while (dir) {
        std::unique_ptr<velmora::DirectoryEntry> e(dir->next());
        if (!e) break;
        std::fprintf(stderr, "  %-40s %8lld bytes\n", e->getName(),
                     static_cast<long long>(e->getSize()));
    }
    return 0;
}
