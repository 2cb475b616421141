#include "net/NetReport.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "net/NetSystem.h"

#if __has_include(<velmora/log/Log.h>) && __has_include(<velmora/log/MessageBundle.h>) && \
    __has_include(<velmora/log/SystemErrorFactory.h>)
#include <velmora/log/Log.h>
#include <velmora/log/MessageBundle.h>
#include <velmora/log/SystemErrorFactory.h>
#define VELMORA_NET_HAS_LOG 1
#else
#define VELMORA_NET_HAS_LOG 0
#endif

namespace velmora {
namespace netreport {

#if VELMORA_NET_HAS_LOG
namespace {

// Builds the bundle on the stack, so that the handler copies whatever it keeps.
template <typename Deliver>
void withBundle(const Report& report, Deliver deliver) {
    if (report.key == nullptr) {
        MessageBundle bundle(report.text);
        deliver(&bundle);
        return;
    }
    MessageBundle bundle("platform", report.key, report.text);
    if (report.textArgument != nullptr) bundle.addLexiconArgument(report.textArgument);
    for (int i = 0; i < report.intCount; ++i)
        bundle.addLexiconArgument(report.intArguments[i]);
    deliver(&bundle);
}

}  // namespace

void error(Log* log, const Report& report) {
    if (log != nullptr) withBundle(report, [log](MessageBundle* b) { log->error(b); });
}

void trace(Log* log, const Report& report) {
    if (log != nullptr) withBundle(report, [log](MessageBundle* b) { log->trace(b); });
}

void error(ErrorHandler* handler, const Report& report) {
    if (handler != nullptr) withBundle(report, [handler](MessageBundle* b) { handler->error(b); });
}

char* socketErrorName() {
    return SystemErrorFactory::getWinsockErrorString();
}

#else
// Built without the log types: reports have nowhere to go.
void error(Log*, const Report&) {}
void trace(Log*, const Report&) {}
void error(ErrorHandler*, const Report&) {}

char* socketErrorName() {
    char* name = static_cast<char*>(std::calloc(64, 1));
    if (name != nullptr) std::snprintf(name, 64, "%d", netsys::lastSocketError());
    return name;
}
#endif

}  // namespace netreport
}  // namespace velmora
