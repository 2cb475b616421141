#include <velmora/log/LogBuffer.h>
#include <velmora/log/NullLog.h>
#include <velmora/log/SystemLog.h>
#include <velmora/text/StringWriter.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/TempDir.h"

#ifndef _WIN32
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

using velmora::LogBuffer;
using velmora::NullLog;
using velmora::StringWriter;
using velmora::SystemLog;
using velmora::test::readFile;
using velmora::test::TempDir;
using velmora::test::writeFile;

namespace {

const std::regex kLine(
    R"((TRACE   |MESSAGE |WARNING |ERROR   )\[\d\d:\d\d:\d\d \d\d-[A-Z][a-z][a-z]-\d{4}\] )"
    R"(\[tid=(\d+)\] (.*))");

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> all;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        all.push_back(line);
    return all;
}

#ifndef _WIN32
// A datagram socket standing in for the system log daemon.
struct FakeSyslog {
    explicit FakeSyslog(const std::string& path) {
        fd = socket(AF_UNIX, SOCK_DGRAM, 0);
        sockaddr_un a{};
        a.sun_family = AF_UNIX;
        path.copy(a.sun_path, sizeof a.sun_path - 1);
        EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
    }
    ~FakeSyslog() { close(fd); }
    std::string next() {
        char buf[512];
        ssize_t n = recv(fd, buf, sizeof buf, MSG_DONTWAIT);
        return n > 0 ? std::string(buf, static_cast<size_t>(n)) : "";
    }
    int fd;
};
#endif

}  // namespace

// One line per report: level word, time stamp, thread id, the text and exactly one newline.
TEST(LogBuffer, WritesOneFormattedLinePerPassingReport) {
    StringWriter out;
    LogBuffer log(&out);
    log.trace("t");
    log.message("ends in newline\n");
    log.warning(static_cast<const char*>(nullptr));
    log.error("e");
    log.setFilterLevel(2);
    log.message("dropped");
    std::vector<std::string> all = lines(out.getString());
    ASSERT_EQ(all.size(), 4u) << out.getString();
    const char* words[] = {"TRACE   ", "MESSAGE ", "WARNING ", "ERROR   "};
    const char* texts[] = {"t", "ends in newline", "", "e"};
    for (size_t i = 0; i < all.size(); i++) {
        std::smatch m;
        ASSERT_TRUE(std::regex_match(all[i], m, kLine)) << all[i];
        EXPECT_EQ(m[1], words[i]);
        EXPECT_EQ(m[3], texts[i]);
    }
    ASSERT_NE(log.getLastError(), nullptr);
    EXPECT_STREQ(log.getLastError()->getText(), "e");
}

// Opening a log file moves the old one to a backup; when a backup of the same minute
// exists already, the new lines are appended instead of wiping the file.
TEST(LogBuffer, LogFileIsRotatedWhenOpened) {
    TempDir dir;
    std::string path = dir.file("logs/daemon.log");
    for (const char* run : {"first run", "second run", "third run"}) {
        std::unique_ptr<LogBuffer> log(LogBuffer::makeFile(path.c_str(), 3));
        ASSERT_NE(log, nullptr);
        log->message(run);
    }
    // Run 3 rotated (a new minute) or appended (the same one): every run is kept.
    std::string last = readFile(path);
    EXPECT_NE(last.find("third run"), std::string::npos);
    EXPECT_EQ(last.find("first run"), std::string::npos) << last;
    auto files = std::distance(std::filesystem::directory_iterator(dir.file("logs")), {});
    EXPECT_EQ(files + lines(last).size(), 4u) << "one file per run, or appended lines";
    EXPECT_EQ(LogBuffer::makeFile(dir.file("logs/daemon.log/x").c_str(), 3), nullptr);
}

// Many threads, one buffer, one writer: every line whole and each thread's lines in order.
TEST(LogBuffer, ConcurrentWritersNeverMixLines) {
    StringWriter out;
    LogBuffer log(&out);
    const int threads = 8, perThread = 300;
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; t++) {
        workers.emplace_back([&log, t] {
            for (int i = 0; i < perThread; i++) {
                std::string text = "worker " + std::to_string(t) + " line " + std::to_string(i);
                if (i % 2 == 0)
                    log.warning(text.c_str());
                else
                    log.message((text + "\n").c_str());
            }
        });
    }
    for (auto& w : workers)
        w.join();
    std::map<int, int> nextLine;
    std::map<int, std::string> tidOf;
    const std::regex body(R"(worker (\d+) line (\d+))");
    for (const std::string& line : lines(out.getString())) {
        std::smatch m, b;
        ASSERT_TRUE(std::regex_match(line, m, kLine)) << line;
        std::string text = m[3];
        ASSERT_TRUE(std::regex_match(text, b, body)) << line;
        int worker = std::stoi(b[1]);
        EXPECT_EQ(std::stoi(b[2]), nextLine[worker]++);
        if (tidOf.count(worker) == 0) tidOf[worker] = m[2];
        EXPECT_EQ(tidOf[worker], m[2]);
    }
    EXPECT_EQ(nextLine.size(), static_cast<size_t>(threads));
    for (auto& n : nextLine)
        EXPECT_EQ(n.second, perThread);
    std::set<std::string> distinct;
    for (auto& t : tidOf)
        distinct.insert(t.second);
    EXPECT_EQ(distinct.size(), static_cast<size_t>(threads)) << "each thread its own number";
}

#ifndef _WIN32
// A child forked after its parent logged carries its own thread number (its process id),
// not the one it inherited.
TEST(LogBuffer, ForkedChildLogsItsOwnThreadNumber) {
    TempDir dir;
    StringWriter parentOut;
    LogBuffer(&parentOut).message("parent");
    pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        StringWriter out;
        LogBuffer(&out).message("child");
        writeFile(dir.file("child.log"), out.getString());
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    std::smatch m;
    std::string line = lines(readFile(dir.file("child.log"))).at(0);
    ASSERT_TRUE(std::regex_match(line, m, kLine)) << line;
    EXPECT_EQ(m[2], std::to_string(child));
}
#endif

// Levels 1-3 reach the system log under "Velmora" unless below the process-wide filter;
// a log that cannot be reached is reported under its key.
TEST(SystemLog, ReportsPassingLevelsAndFailedRegistration) {
    NullLog* handler = NullLog::getInstance();
    SystemLog::unload();
    SystemLog::setLogFilterLevel(-1);
#ifndef _WIN32
    TempDir dir;
    FakeSyslog daemon(dir.file("log.sock"));
    SystemLog::setDestination(dir.file("log.sock").c_str());
#endif
    SystemLog* sys = SystemLog::getInstance(handler);
    ASSERT_NE(sys, nullptr);
    EXPECT_EQ(SystemLog::getInstance(handler), sys);
    StringWriter out;
    LogBuffer log(&out);
    ASSERT_TRUE(log.setSystemLogging(true, handler));
    sys->log(0, "trace");
    log.warning("from the buffer");
    SystemLog::setLogFilterLevel(2);
    sys->log(1, "filtered");
    sys->log(3, "failed");
#ifndef _WIN32
    std::string pid = "Velmora[" + std::to_string(getpid()) + "]: ";
    std::string got = daemon.next();
    EXPECT_EQ(got.rfind("<12>", 0), 0u) << got;
    EXPECT_NE(got.find(pid + "from the buffer"), std::string::npos) << got;
    got = daemon.next();
    EXPECT_EQ(got.rfind("<11>", 0), 0u) << got;
    EXPECT_NE(got.find(pid + "failed"), std::string::npos) << got;
    EXPECT_EQ(daemon.next(), "");
#endif
    SystemLog::setLogFilterLevel(-1);
    log.setSystemLogging(false, nullptr);
    SystemLog::unload();
#ifndef _WIN32
    // Wine's event log accepts every registration; the reporting of a failed one is the
    // same portable code on both systems, so it is checked here.
    SystemLog::setDestination(dir.file("nobody-listens").c_str());
    handler->clearError();
    EXPECT_FALSE(log.setSystemLogging(true, handler));
    ASSERT_NE(handler->getLastError(), nullptr);
    EXPECT_STREQ(handler->getLastError()->getKey(), "OutputBuffer.registerEventSourceError");
    EXPECT_STREQ(handler->getLastError()->getText(), "Could not register event source for logging");
    FakeSyslog late(dir.file("nobody-listens"));
    EXPECT_NE(SystemLog::getInstance(nullptr), nullptr) << "the next call tries again";
    SystemLog::unload();
#endif
    SystemLog::setDestination(nullptr);
    NullLog::unload();
}
