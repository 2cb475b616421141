// The daemon's log file, rotated by size while the daemon runs: once a line takes the
// file to the limit or beyond, the file is closed, renamed to a backup and started anew,
// so no line is split across two files and a file is never more than one line beyond the
// limit. Backups are named by the time and a sequence number
// (velmorad.backup_20261123_181500-000000.log), so two rotations in one second never
// collide, and only the newest `backups` of them are kept.
// Warnings and errors also go to standard error when asked (under systemd that is the
// journal), with the priority prefix the journal reads.
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
    ~RotatingLog() override;
    // Opens the file, first rotating the one a previous run left; false when it cannot be.
    bool open();
    // Closes and opens the file again, appending: for a log moved away by another tool.
    bool reopen();
    void setLimits(int backups, int64_t maxBytes);
    // Warnings and errors also to standard error.
    void setEchoToStderr(bool on) { echo_ = on; }
    // The most disk the file and its backups take: (backups + 1) times the limit, plus a
    // line for each; -1 when the size is not limited.
    int64_t diskLimit() const;

    using velmora::ErrorHandler::error;
    using velmora::Log::message;
    using velmora::Log::trace;
    using velmora::Log::warning;
    void trace(velmora::MessageBundle* bundle) override { write(0, bundle); }
    void message(velmora::MessageBundle* bundle) override { write(1, bundle); }
    void warning(velmora::MessageBundle* bundle) override { write(2, bundle); }
    void error(velmora::MessageBundle* bundle) override;

    int rotations() const { return rotations_; }

    class CountingFile;  // the file, counting the bytes written to it

private:
    void write(int level, velmora::MessageBundle* bundle);
    bool openLocked(bool rotateFirst);
    void rotateLocked();
    void pruneLocked();

    std::string path_;
    int backups_;
    int64_t maxBytes_;
    bool echo_ = false;
    std::mutex mutex_;
    CountingFile* file_ = nullptr;  // owned by lines_
    std::unique_ptr<velmora::LogBuffer> lines_;
    int rotations_ = 0;
    std::string lastStamp_;
    int sequence_ = 0;
};

}  // namespace velmorad
