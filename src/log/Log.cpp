#include <velmora/log/Log.h>

namespace velmora {

void Log::warning(const char* text) {
    MessageBundle bundle(text);
    warning(&bundle);
}

void Log::trace(const char* text) {
    MessageBundle bundle(text);
    trace(&bundle);
}

void Log::message(const char* text) {
    MessageBundle bundle(text);
    message(&bundle);
}

}  // namespace velmora
