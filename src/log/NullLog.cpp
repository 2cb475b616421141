#include <velmora/log/NullLog.h>

#include <new>

namespace velmora {

namespace {

NullLog* instance = nullptr;

}  // namespace

NullLog* NullLog::getInstance() {
    if (instance == nullptr) instance = new (std::nothrow) NullLog;
    return instance;
}

void NullLog::unload() {
    delete instance;
    instance = nullptr;
}

void NullLog::trace(MessageBundle*) {}

void NullLog::message(MessageBundle*) {}

void NullLog::warning(MessageBundle*) {}

void NullLog::error(MessageBundle* bundle) {
    saveError(bundle);
}

}  // namespace velmora
