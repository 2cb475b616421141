// The receiver of failure reports. Every operation of the library that can fail takes one,
// reports into it and returns its failure value; a caller that needs the reason reads
// getLastError() of a handler that records (NullLog, FilteredLog, LogBuffer).
//
//   velmora::NullLog* log = velmora::NullLog::getInstance();
//   if (!doSomething(log)) puts(log->getLastError()->getText());
#pragma once

#include <velmora/Export.h>
#include <velmora/log/MessageBundle.h>

namespace velmora {

class VELMORA_API ErrorHandler {
public:
    virtual ~ErrorHandler();
    // Wraps the text in a temporary text-only bundle and passes it to error(bundle).
    virtual void error(const char* text);
    // The bundle belongs to the caller and may go when this returns: copy what you keep.
    virtual void error(MessageBundle* bundle) = 0;
    virtual void clearError();

    // The recorded error, owned by the handler; valid until the next record or clear.
    MessageBundle* getLastError() const { return lastError_; }

protected:
    ErrorHandler() = default;
    // Replaces the recorded error by a deep copy of `bundle` (left null when out of memory).
    virtual void saveError(MessageBundle* bundle);

private:
    ErrorHandler(const ErrorHandler&) = delete;
    ErrorHandler& operator=(const ErrorHandler&) = delete;
    void dropError();

    MessageBundle* lastError_ = nullptr;
};

}  // namespace velmora
