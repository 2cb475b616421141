#include <velmora/log/SystemLog.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include "log/LogSystem.h"

namespace velmora {

namespace {

const char kSource[] = "Velmora";

SystemLog* instance = nullptr;
int filterLevel = -1;
char* destination = nullptr;

}  // namespace

SystemLog::SystemLog(void* handle) : handle_(handle) {}

SystemLog::~SystemLog() {
    logsys::closeEventLog(handle_);
}

SystemLog* SystemLog::getInstance(ErrorHandler* handler) {
    if (instance != nullptr) return instance;
    void* handle = logsys::openEventLog(destination, kSource);
    if (handle != nullptr) {
        instance = new (std::nothrow) SystemLog(handle);
        if (instance == nullptr) logsys::closeEventLog(handle);
    }
    if (instance == nullptr && handler != nullptr) {
        MessageBundle bundle("platform", "OutputBuffer.registerEventSourceError",
                             "Could not register event source for logging");
        handler->error(&bundle);
    }
    return instance;
}

void SystemLog::unload() {
    delete instance;
    instance = nullptr;
}

void SystemLog::setLogFilterLevel(int level) {
    filterLevel = level;
}

int SystemLog::getLogFilterLevel() {
    return filterLevel;
}

void SystemLog::setDestination(const char* path) {
    std::free(destination);
    destination = nullptr;
    if (path == nullptr) return;
    size_t n = std::strlen(path) + 1;
    destination = static_cast<char*>(std::malloc(n));
    if (destination != nullptr) std::memcpy(destination, path, n);
}

void SystemLog::log(int level, const char* text) {
    if (level < filterLevel) return;
    switch (level) {
        case 1:
            logsys::reportEvent(handle_, logsys::EventKind::information, 0x40000001u, text);
            break;
        case 2:
            logsys::reportEvent(handle_, logsys::EventKind::warning, 0x80000002u, text);
            break;
        case 3:
            logsys::reportEvent(handle_, logsys::EventKind::error, 0xC0000003u, text);
            break;
        default:
            break;  // trace and unknown levels never reach the system log
    }
}

}  // namespace velmora
