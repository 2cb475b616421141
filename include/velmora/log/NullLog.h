// The log that writes nothing but still records errors, for callers that only want to
// know why something failed. One instance per process, made on first use (without a lock:
// make it before starting threads).
//
//   velmora::NullLog* log = velmora::NullLog::getInstance();
//   if (!doSomething(log)) puts(log->getLastError()->getText());
#pragma once

#include <velmora/log/Log.h>

namespace velmora {

class VELMORA_API NullLog : public virtual Log {
public:
    static NullLog* getInstance();
    // Deletes the instance; the next getInstance() makes a new one.
    static void unload();

    using ErrorHandler::error;
    using Log::message;
    using Log::trace;
    using Log::warning;
    void trace(MessageBundle* bundle) override;
    void message(MessageBundle* bundle) override;
    void warning(MessageBundle* bundle) override;
    void error(MessageBundle* bundle) override;

private:
    NullLog() = default;
};

}  // namespace velmora
