// The access log: one line per request in the combined log format that log tools read
//
//   127.0.0.1 - - [23/Nov/2026:18:20:01 +0000] "GET /status HTTP/1.1" 200 97 "-" "curl/8.5"
//
// in its own file, every byte that came from the client escaped (control characters,
// quotes, backslashes and bytes above 126 as \xNN) so that no request can end a line or
// a field early. Lines collect in a buffer of the event loop's thread, the only thread
// that logs requests, and reach the file in batches: at most every 100 ms and at stop,
// always whole lines. The file is rotated by size like the daemon's log.
//
//   velmorad::AccessLog log("logs/access.log", 5, 10 << 20);
//   log.open();
//   log.add(entry);           // buffered
//   log.flushIfDue(now);      // written once 100 ms have passed since the last write
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>

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
    bool open();

    void add(const Entry& entry);
    void flushIfDue(std::chrono::steady_clock::time_point now);
    // Writes what is buffered now.
    void flush();

    // Appends `text` to `out` with every byte that could forge or break a line or a quoted
    // field written as \xNN.
    static void escape(const char* text, size_t length, std::string* out);

private:
    void rotate();
    const std::string& stamp(std::time_t now);

    std::string path_;
    int backups_;
    int64_t maxBytes_;
    std::FILE* file_ = nullptr;
    int64_t size_ = 0;
    std::string buffer_;
    std::chrono::steady_clock::time_point lastWrite_{};
    std::time_t stampedAt_ = 0;
    std::string stamp_;
};

}  // namespace velmorad
