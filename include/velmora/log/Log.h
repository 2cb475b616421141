// An error handler that also takes trace, message and warning reports. Levels: 0 trace,
// 1 message, 2 warning, 3 error; a filter level L passes reports of level L and above.
//
//   void serve(velmora::Log* log) {
//       log->message("listening on port 8080");
//       log->trace("accepted a connection");
//   }
#pragma once

#include <velmora/Export.h>
#include <velmora/log/ErrorHandler.h>

namespace velmora {

class VELMORA_API Log : public virtual ErrorHandler {
public:
    // Each text form wraps the text in a temporary bundle and calls the bundle form.
    virtual void warning(const char* text);
    virtual void warning(MessageBundle* bundle) = 0;
    virtual void trace(const char* text);
    virtual void trace(MessageBundle* bundle) = 0;
    virtual void message(const char* text);
    virtual void message(MessageBundle* bundle) = 0;

    using ErrorHandler::error;

protected:
    Log() = default;
};

}  // namespace velmora
