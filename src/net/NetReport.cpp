#include "net/NetReport.h"

#include <cstring>

#include "net/NetSystem.h"

#include <velmora/log/Log.h>
#include <velmora/log/MessageBundle.h>
#include <velmora/log/SystemErrorFactory.h>

namespace velmora {
namespace netreport {

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

}  // namespace netreport
}  // namespace velmora
