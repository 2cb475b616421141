// The access log: one line per request in the combined log format that log tools read
//
//   127.0.0.1 - - [23/Nov/2026:18:20:01 +0000] "GET /status HTTP/1.1" 200 97 "-" "curl/8.5"
//
// in its own file, every byte that came from the client escaped (control characters,
// quotes, backslashes and bytes above 126 as \xNN) so that no request can end a line or
// a field early. Lines collect in a buffer of the event loop's thread, the only thread
// that logs requests, and are handed in batches (at most every 100 ms, and at stop) to a
// writer thread of the log's own, so that neither the write nor a rotation ever holds up
// the loop; the file always gets whole lines. It is rotated by size like the daemon's log.
//
//   velmorad::AccessLog log("logs/access.log", 5, 10 << 20);
//   log.open();
//   log.add(entry);           // buffered
//   log.flushIfDue(now);      // written once 100 ms have passed since the last write
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <string>
#include <thread>

namespace velmorad {

class AccessLog {
public:
    struct Entry {
        const char* peer;
        std::string requestLine;  // as received, unescaped
        int status;
        long bytes;
        std::string referer;  // empty: none
        std::string userAgent;
    };

    AccessLog(const std::string& path, int backups, int64_t maxBytes);
    ~AccessLog();
    // Opens the file and starts the writer.
    bool open();

    void add(const Entry& entry);
    void flushIfDue(std::chrono::steady_clock::time_point now);
    // Hands over what is buffered and waits until it is written.
    void flush();

    // Appends `text` to `out` with every byte that could forge or break a line or a quoted
    // field written as \xNN.
    static void escape(const char* text, size_t length, std::string* out);

private:
    void handOver();
    void writerLoop();
    // The writer's side: the file, its size and rotation.
    bool openFile();
    bool write(std::string* batch);
    void rotate();
    const std::string& stamp(std::time_t now);

    std::string path_;
    int backups_;
    int64_t maxBytes_;
    std::FILE* file_ = nullptr;
    int64_t size_ = 0;
    std::string buffer_;  // the loop's lines not yet handed over

    std::mutex mutex_;
    std::condition_variable handed_, written_;
    std::string pending_;  // handed over, not yet written (under mutex_)
    uint64_t batchesHanded_ = 0, batchesWritten_ = 0;
    bool stopping_ = false;
    std::thread writer_;
    std::chrono::steady_clock::time_point lastHandOver_{};
    std::time_t stampedAt_ = 0;
    std::string stamp_;
};

}  // namespace velmorad
