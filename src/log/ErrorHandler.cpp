#include <velmora/log/ErrorHandler.h>

#include <new>

namespace velmora {

ErrorHandler::~ErrorHandler() {
    // This class's own clearing: an override is already gone with its subclass.
    dropError();
}

void ErrorHandler::error(const char* text) {
    MessageBundle bundle(text);
    error(&bundle);
}

void ErrorHandler::clearError() {
    dropError();
}

void ErrorHandler::saveError(MessageBundle* bundle) {
    dropError();
    if (bundle != nullptr) lastError_ = new (std::nothrow) MessageBundle(bundle);
}

void ErrorHandler::dropError() {
    delete lastError_;
    lastError_ = nullptr;
}

}  // namespace velmora
