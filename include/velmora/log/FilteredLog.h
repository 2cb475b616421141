// Passes the reports of its filter level and above to another log. Errors that pass are
// also recorded, so getLastError() tells why an operation given this log failed.
//
//   velmora::FilteredLog log(target, 2);  // warnings and errors only
//   log.message("dropped");
//   log.warning("passed on");
#pragma once

#include <velmora/log/Log.h>

namespace velmora {

class VELMORA_API FilteredLog : public virtual Log {
public:
    explicit FilteredLog(Log* log);  // filter level 1: trace is dropped
    FilteredLog(Log* log, int level);

    void setFilterLevel(int level) { filterLevel_ = level; }
    int getFilterLevel() const { return filterLevel_; }
    Log* getLog() const { return log_; }

    using ErrorHandler::error;
    using Log::message;
    using Log::trace;
    using Log::warning;
    void trace(MessageBundle* bundle) override;
    void message(MessageBundle* bundle) override;
    void warning(MessageBundle* bundle) override;
    void error(MessageBundle* bundle) override;

private:
    Log* log_;
    // Read and written without a lock: a level change racing a report is harmless.
    int filterLevel_;
};

}  // namespace velmora
