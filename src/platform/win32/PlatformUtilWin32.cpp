#include <velmora/platform/PlatformUtil.h>

#include <windows.h>

#include <new>

namespace velmora {

namespace {

HANDLE handleOf(PlatformMutex* mutex) {
    return mutex != nullptr ? static_cast<HANDLE>(*mutex) : nullptr;
}

struct ThreadStart {
    PlatformThreadRoutine routine;
    void* arg;
};

DWORD WINAPI threadMain(LPVOID p) {
    ThreadStart start = *static_cast<ThreadStart*>(p);
    delete static_cast<ThreadStart*>(p);
    return start.routine(start.arg);
}

}  // namespace

void PlatformUtil::createMutex(PlatformMutex* mutex) {
    if (mutex != nullptr) *mutex = CreateMutexA(nullptr, FALSE, nullptr);
}

void PlatformUtil::destroyMutex(PlatformMutex* mutex) {
    HANDLE h = handleOf(mutex);
    if (h == nullptr) return;
    // A kernel mutex may be closed while held: the holder's claim ends with the handle.
    while (ReleaseMutex(h)) {
    }
    CloseHandle(h);
}

void PlatformUtil::lockMutex(PlatformMutex* mutex) {
    HANDLE h = handleOf(mutex);
    if (h != nullptr) WaitForSingleObject(h, INFINITE);
}

int PlatformUtil::trylockMutex(PlatformMutex* mutex) {
    HANDLE h = handleOf(mutex);
    if (h == nullptr) return -1;
    // Only the plain acquired result counts; WAIT_ABANDONED gives ownership too, but the
    // caller is told -1, and the ownership it was handed is given back.
    DWORD r = WaitForSingleObject(h, 0);
    if (r == WAIT_OBJECT_0) return 0;
    if (r == WAIT_ABANDONED) ReleaseMutex(h);
    return -1;
}

void PlatformUtil::unlockMutex(PlatformMutex* mutex) {
    HANDLE h = handleOf(mutex);
    if (h != nullptr) ReleaseMutex(h);
}

void PlatformUtil::sleep(int milliseconds) {
    if (milliseconds > 0) Sleep(static_cast<DWORD>(milliseconds));
}

PlatformThread PlatformUtil::createThread(PlatformThreadRoutine routine, void* arg,
                                          const char* /*name: deliberately unused*/) {
    if (routine == nullptr) return nullptr;
    ThreadStart* start = new (std::nothrow) ThreadStart{routine, arg};
    if (start == nullptr) return nullptr;
    HANDLE h = CreateThread(nullptr, 0, threadMain, start, 0, nullptr);
    if (h == nullptr) delete start;
    return h;
}

uint32_t PlatformUtil::joinThread(PlatformThread thread) {
    if (thread == nullptr) return 0;
    HANDLE h = static_cast<HANDLE>(thread);
    WaitForSingleObject(h, INFINITE);
    DWORD code = 0;
    GetExitCodeThread(h, &code);
    CloseHandle(h);
    return code;
}

void PlatformUtil::releaseThread(PlatformThread thread) {
    if (thread != nullptr) CloseHandle(static_cast<HANDLE>(thread));
}

void PlatformUtil::killProcess(PlatformProcess process) {
    if (process != 0) TerminateProcess(reinterpret_cast<HANDLE>(process), 1);
}

void PlatformUtil::reboot() {
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &token)) {
        return;
    }
    TOKEN_PRIVILEGES privileges{};
    if (!LookupPrivilegeValueA(nullptr, "SeShutdownPrivilege", &privileges.Privileges[0].Luid)) {
        CloseHandle(token);
        return;
    }
    privileges.PrivilegeCount = 1;
    privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    AdjustTokenPrivileges(token, FALSE, &privileges, 0, nullptr, nullptr);
    CloseHandle(token);
    ExitWindowsEx(EWX_REBOOT | EWX_FORCE, 0);
}

}  // namespace velmora
