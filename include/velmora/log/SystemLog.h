// The system's own log: the Windows event log under the source "Velmora", elsewhere the
// system log (syslog) under the same name. One instance per process, made on first use
// (without a lock: make it before starting threads).
//
//   velmora::SystemLog* sys = velmora::SystemLog::getInstance(handler);
//   if (sys != nullptr) sys->log(3, "the daemon could not start");
#pragma once

#include <velmora/log/ErrorHandler.h>

namespace velmora {

class VELMORA_API SystemLog {
public:
    // Registers the event source on first call. On failure reports
    // "OutputBuffer.registerEventSourceError" to the handler (when not null) and returns
    // null; the next call tries again.
    static SystemLog* getInstance(ErrorHandler* handler);
    // Closes the event source and forgets the instance.
    static void unload();
    // The process-wide filter level; -1 (the start value) lets every level through.
    static void setLogFilterLevel(int level);
    static int getLogFilterLevel();
    // Where the next registration sends its reports. Off Windows: the path of the system
    // log's datagram socket (null: "/dev/log"); on Windows: the server whose event log is
    // used (null: this machine). Takes effect for instances made after the call.
    static void setDestination(const char* destination);

    // Reports levels 1 (information), 2 (warning) and 3 (error) that pass the filter level;
    // every other level is dropped.
    void log(int level, const char* text);

private:
    explicit SystemLog(void* handle);
    ~SystemLog();
    SystemLog(const SystemLog&) = delete;
    SystemLog& operator=(const SystemLog&) = delete;

    void* handle_;
};

}  // namespace velmora
