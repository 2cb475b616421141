// Internal: what the reporting and log classes need from the operating system, one
// implementation per system (posix/, win32/).
#pragma once

#include <cstdint>

namespace velmora {
namespace logsys {

// The calling thread's last system error (GetLastError, errno) and last socket error
// (WSAGetLastError; off Windows errno, as the equal Windows Sockets code where there is
// one).
unsigned long lastError();
unsigned long lastSocketError();
// The system's message text for `code` in a new buffer to free with freeErrorText, or null
// when the system has none.
char* errorText(unsigned long code);
void freeErrorText(char* text);

// The calling thread's identifier, as the system's tools show it.
uint64_t currentThreadId();

// The system log. Kinds of report, in the order of the log levels 1 to 3.
enum class EventKind { information, warning, error };
// Opens the log under the source name at the destination (null: the default one); null
// on failure.
void* openEventLog(const char* destination, const char* source);
void reportEvent(void* handle, EventKind kind, uint32_t eventId, const char* text);
void closeEventLog(void* handle);

// The process's JNI_GetCreatedJavaVMs, found among the loaded modules at run time so that
// the library needs no Java library to link; null when no virtual machine is loaded.
typedef int (*GetCreatedJavaVMsFn)(void** vms, int size, int* count);
GetCreatedJavaVMsFn findGetCreatedJavaVMs();

}  // namespace logsys
}  // namespace velmora
