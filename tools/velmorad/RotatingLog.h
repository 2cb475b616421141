// The daemon's log file, rotated by size while the daemon runs: once the file has grown
// beyond the limit it is closed, renamed to a backup and started anew (the library's
// rotated backups, LogBuffer::makeFile), between two lines, so that no line is lost or
// split across the two files.
//
//   velmorad::RotatingLog log("logs/velmorad.log", 5, 10 * 1024 * 1024);
//   if (log.open()) log.message("started");
#pragma once

#include <velmora/log/Log.h>
#include <velmora/log/LogBuffer.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace velmorad {

class RotatingLog : public velmora::Log {
public:
    // `maxBytes` <= 0: never rotated while running (only when opened).
    RotatingLog(const std::string& path, int backups, int64_t maxBytes);
    // Opens the file (rotating the one a previous run left); false when it cannot be.
    bool open();

    using velmora::ErrorHandler::error;
    using velmora::Log::message;
    using velmora::Log::trace;
    using velmora::Log::warning;
    void trace(velmora::MessageBundle* bundle) override { write(0, bundle); }
    void message(velmora::MessageBundle* bundle) override { write(1, bundle); }
    void warning(velmora::MessageBundle* bundle) override { write(2, bundle); }
    void error(velmora::MessageBundle* bundle) override;

    int rotations() const { return rotations_; }

private:
    void write(int level, velmora::MessageBundle* bundle);
    void checkSize();

    std::string path_;
    int backups_;
    int64_t maxBytes_;
    std::mutex mutex_;
    std::unique_ptr<velmora::LogBuffer> file_;
    int64_t size_ = 0;       // the file's size at the last look, plus what was written since
    int64_t nextCheck_ = 0;  // the size at which the file is measured again
    int rotations_ = 0;
};

}  // namespace velmorad
