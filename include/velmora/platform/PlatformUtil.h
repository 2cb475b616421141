// The library's thin layer over the operating system's locks, threads and processes.
// Every class that locks does so through these mutexes; they are recursive, so a thread
// that holds one may lock it again and must unlock it as often as it locked it.
//
//   velmora::PlatformMutex m;
//   velmora::PlatformUtil::createMutex(&m);
//   velmora::PlatformUtil::lockMutex(&m);
//   velmora::PlatformUtil::lockMutex(&m);  // same thread: does not block
//   velmora::PlatformUtil::unlockMutex(&m);
//   velmora::PlatformUtil::unlockMutex(&m);
//   velmora::PlatformUtil::destroyMutex(&m);
#pragma once

#include <cstdint>

#include <velmora/Export.h>

namespace velmora {

// An opaque, pointer-sized handle of a recursive mutex, owned by the object that stores it.
typedef void* PlatformMutex;
// An opaque handle of a thread started by PlatformUtil::createThread.
typedef void* PlatformThread;
// A process: a process handle on Windows, a process identifier elsewhere.
typedef intptr_t PlatformProcess;
// The start routine of a thread: takes the argument, returns the thread's exit code.
typedef uint32_t (*PlatformThreadRoutine)(void* arg);

class VELMORA_API PlatformUtil {
public:
    // Creates an unnamed recursive mutex that no thread owns and stores its handle.
    static void createMutex(PlatformMutex* mutex);
    // Closes the handle; the stored value is left as it is. Destroying a mutex that the
    // calling thread holds (at any depth) is allowed and releases it first. A mutex that
    // another thread still holds is a caller's error: its memory is then kept, never freed
    // under that thread.
    static void destroyMutex(PlatformMutex* mutex);
    // Waits without time limit until the calling thread owns the mutex.
    static void lockMutex(PlatformMutex* mutex);
    // 0 when the calling thread now owns the mutex, -1 otherwise (held elsewhere, or
    // abandoned by a thread that ended while holding it); never waits.
    static int trylockMutex(PlatformMutex* mutex);
    // Releases one level of ownership.
    static void unlockMutex(PlatformMutex* mutex);

    static void sleep(int milliseconds);

    // Starts a thread at the routine with the argument, default stack size, running at
    // once. The name is accepted and not used. Returns null when no thread could be started.
    // Every handle must be passed once to joinThread or releaseThread.
    static PlatformThread createThread(PlatformThreadRoutine routine, void* arg, const char* name);
    // Waits for the thread to end, releases its handle and returns its exit code.
    static uint32_t joinThread(PlatformThread thread);
    // Lets the thread run on its own; its resources go when it ends.
    static void releaseThread(PlatformThread thread);

    // Terminates the process: exit code 1 on Windows, SIGKILL elsewhere.
    static void killProcess(PlatformProcess process);
    // Restarts the host, forcing applications to close. Needs the shutdown privilege;
    // without it nothing happens and nothing is reported.
    static void reboot();
};

}  // namespace velmora
