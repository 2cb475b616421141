// Internal: how the networking classes hand a failure (or an accepted connection) to the
// caller's log. Each report is one bundle of the module "platform" with its key, its
// lexicon arguments in order and the English text already formatted.
#pragma once

namespace velmora {

class ErrorHandler;
class Log;

namespace netreport {

struct Report {
    const char* key = nullptr;   // null: a text-only report
    const char* text = nullptr;  // the formatted English text
    const char* textArgument = nullptr;
    int intArguments[2] = {0, 0};
    int intCount = 0;  // how many of intArguments follow textArgument

    Report(const char* reportKey, const char* reportText) : key(reportKey), text(reportText) {}
    Report& arg(const char* value) {
        textArgument = value;
        return *this;
    }
    Report& arg(int value) {
        if (intCount < 2) intArguments[intCount++] = value;
        return *this;
    }
};

void error(Log* log, const Report& report);
void trace(Log* log, const Report& report);
void error(ErrorHandler* handler, const Report& report);
// The symbolic name of the last socket error; the caller frees it.
char* socketErrorName();

}  // namespace netreport
}  // namespace velmora
