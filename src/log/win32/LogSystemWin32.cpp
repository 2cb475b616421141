// winsock2.h must come before windows.h.
#include <winsock2.h>

#include <windows.h>

#include <cstdlib>

#include "log/LogSystem.h"

namespace velmora {
namespace logsys {

unsigned long lastError() {
    return GetLastError();
}

unsigned long lastSocketError() {
    return static_cast<unsigned long>(WSAGetLastError());
}

char* errorText(unsigned long code) {
    char* text = nullptr;
    DWORD n = FormatMessageA(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM,
        nullptr, code, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<LPSTR>(&text), 0,
        nullptr);
    if (n == 0) {
        if (text != nullptr) LocalFree(text);
        return nullptr;
    }
    return text;
}

void freeErrorText(char* text) {
    if (text != nullptr) LocalFree(text);
}

uint64_t currentThreadId() {
    return GetCurrentThreadId();
}

void* openEventLog(const char* destination, const char* source) {
    return RegisterEventSourceA(destination, source);
}

void reportEvent(void* handle, EventKind kind, uint32_t eventId, const char* text) {
    if (handle == nullptr || text == nullptr) return;
    WORD type = kind == EventKind::error     ? EVENTLOG_ERROR_TYPE
                : kind == EventKind::warning ? EVENTLOG_WARNING_TYPE
                                             : EVENTLOG_INFORMATION_TYPE;
    LPCSTR strings[1] = {text};
    ReportEventA(static_cast<HANDLE>(handle), type, 0, eventId, nullptr, 1, 0, strings, nullptr);
}

void closeEventLog(void* handle) {
    // An event source handle is no kernel object: it is released by its own call.
    if (handle != nullptr) DeregisterEventSource(static_cast<HANDLE>(handle));
}

GetCreatedJavaVMsFn findGetCreatedJavaVMs() {
    HMODULE jvm = GetModuleHandleA("jvm.dll");
    if (jvm == nullptr) return nullptr;
    return reinterpret_cast<GetCreatedJavaVMsFn>(
        reinterpret_cast<void*>(GetProcAddress(jvm, "JNI_GetCreatedJavaVMs")));
}

}  // namespace logsys
}  // namespace velmora
