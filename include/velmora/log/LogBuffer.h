// The log that writes reports as text lines, one per report that passes its filter level:
//
//   WARNING [13:03:07 19-Apr-2026] [tid=4711] disk almost full
//
// Each whole line is written under the buffer's lock, so many threads may share one.
// It writes to any CharWriter: a log file (rotated when opened), a string writer in tests.
// With system logging on, each passing report also goes to the SystemLog.
//
//   velmora::LogBuffer* log = velmora::LogBuffer::makeFile("logs/daemon.log", 5);
//   if (log != nullptr) log->message("started");
//   delete log;  // closes the file
#pragma once

#include <velmora/log/Log.h>
#include <velmora/platform/PlatformUtil.h>
#include <velmora/text/CharWriter.h>

namespace velmora {

class FileWriter;
class SystemLog;

class VELMORA_API LogBuffer : public virtual Log {
public:
    // Writes to `out`, filter level 0 (everything); deletes `out` at the end when `owned`.
    explicit LogBuffer(CharWriter* out, bool owned = false);
    // Opens a log file: creates its directories, renames an existing file to a backup
    // (FileUtil::renameToBackup, keeping at most `maxBackups` + 1 backups when above 1;
    // -1 keeps them all) and starts a new one. Lines are flushed as they are written.
    // Null when the file cannot be opened.
    static LogBuffer* makeFile(const char* path, int maxBackups);
    ~LogBuffer() override;

    void setFilterLevel(int level);
    int getFilterLevel() const;
    // Also sends every passing report to the system log. False (reported to the handler)
    // when the system log cannot be reached; system logging then stays off.
    bool setSystemLogging(bool on, ErrorHandler* handler);
    bool getSystemLogging() const { return system_ != nullptr; }

    using ErrorHandler::error;
    using Log::message;
    using Log::trace;
    using Log::warning;
    void trace(MessageBundle* bundle) override;
    void message(MessageBundle* bundle) override;
    void warning(MessageBundle* bundle) override;
    // Passing errors are also recorded (getLastError()).
    void error(MessageBundle* bundle) override;

private:
    void writeLine(int level, MessageBundle* bundle);

    CharWriter* out_;
    bool owned_;
    FileWriter* file_ = nullptr;  // set when the output is a file to flush
    int filterLevel_ = 0;
    SystemLog* system_ = nullptr;
    PlatformMutex mutex_ = nullptr;
};

}  // namespace velmora
