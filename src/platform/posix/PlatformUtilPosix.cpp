#include <velmora/platform/PlatformUtil.h>

#include <pthread.h>
#include <signal.h>
#include <sys/reboot.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <new>

namespace velmora {

namespace {

// A recursive pthread mutex that also knows its owner and depth, so that a holder can
// destroy it (the stores and writers destroy their mutex while holding it). It is robust:
// when its owner ends while holding it, the next locker learns so (EOWNERDEAD), as a
// Windows mutex reports itself abandoned.
struct RecursiveMutex {
    pthread_mutex_t mutex;
    std::atomic<pthread_t> owner{};
    std::atomic<bool> owned{false};
    int depth = 0;
};

RecursiveMutex* get(PlatformMutex* handle) {
    return handle != nullptr ? static_cast<RecursiveMutex*>(*handle) : nullptr;
}

// Only the holder writes `owner` and `owned`, and `owned` is published after `owner` with
// release order. A thread that sees `owned` set therefore also sees the owner that set it,
// and a thread that held the mutex before sees its own clearing of `owned` or a later
// holder's claim, never its own stale name; so no stronger (and on x86 far dearer,
// locked) ordering is needed on the path every write of a string writer takes.
bool heldByCaller(RecursiveMutex* m) {
    return m->owned.load(std::memory_order_acquire) &&
           pthread_equal(m->owner.load(std::memory_order_relaxed), pthread_self());
}

void acquired(RecursiveMutex* m, int result) {
    if (result == EOWNERDEAD) {
        // The ended owner's claim is void: the mutex is usable again, held once by us.
        pthread_mutex_consistent(&m->mutex);
        m->depth = 0;
    }
    if (m->depth++ == 0) {
        m->owner.store(pthread_self(), std::memory_order_relaxed);
        m->owned.store(true, std::memory_order_release);
    }
}

struct ThreadStart {
    PlatformThreadRoutine routine;
    void* arg;
};

void* threadMain(void* p) {
    ThreadStart start = *static_cast<ThreadStart*>(p);
    delete static_cast<ThreadStart*>(p);
    uint32_t code = start.routine(start.arg);
    return reinterpret_cast<void*>(static_cast<uintptr_t>(code));
}

}  // namespace

void PlatformUtil::createMutex(PlatformMutex* mutex) {
    if (mutex == nullptr) return;
    RecursiveMutex* m = new (std::nothrow) RecursiveMutex;
    if (m != nullptr) {
        pthread_mutexattr_t attr;
        pthread_mutexattr_init(&attr);
        pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
        pthread_mutexattr_setrobust(&attr, PTHREAD_MUTEX_ROBUST);
        pthread_mutex_init(&m->mutex, &attr);
        pthread_mutexattr_destroy(&attr);
    }
    *mutex = m;
}

void PlatformUtil::destroyMutex(PlatformMutex* mutex) {
    RecursiveMutex* m = get(mutex);
    if (m == nullptr) return;
    if (heldByCaller(m)) {
        while (m->depth > 0)
            unlockMutex(mutex);
    }
    // Kept rather than freed while another thread holds it.
    if (pthread_mutex_destroy(&m->mutex) == EBUSY) return;
    delete m;
}

void PlatformUtil::lockMutex(PlatformMutex* mutex) {
    RecursiveMutex* m = get(mutex);
    if (m == nullptr) return;
    int result = pthread_mutex_lock(&m->mutex);
    if (result == 0 || result == EOWNERDEAD) acquired(m, result);
}

int PlatformUtil::trylockMutex(PlatformMutex* mutex) {
    RecursiveMutex* m = get(mutex);
    if (m == nullptr) return -1;
    int result = pthread_mutex_trylock(&m->mutex);
    if (result == EOWNERDEAD) {
        // Abandoned by a thread that ended while holding it: not a plain acquisition, so
        // the caller gets -1 and the ownership it was handed goes back.
        acquired(m, result);
        unlockMutex(mutex);
        return -1;
    }
    if (result != 0) return -1;
    acquired(m, result);
    return 0;
}

void PlatformUtil::unlockMutex(PlatformMutex* mutex) {
    RecursiveMutex* m = get(mutex);
    if (m == nullptr || !heldByCaller(m)) return;
    if (--m->depth == 0) m->owned.store(false, std::memory_order_release);
    pthread_mutex_unlock(&m->mutex);
}

void PlatformUtil::sleep(int milliseconds) {
    if (milliseconds <= 0) return;
    timespec rest{milliseconds / 1000, (milliseconds % 1000) * 1000000L};
    while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
    }
}

PlatformThread PlatformUtil::createThread(PlatformThreadRoutine routine, void* arg,
                                          const char* /*name: deliberately unused*/) {
    if (routine == nullptr) return nullptr;
    ThreadStart* start = new (std::nothrow) ThreadStart{routine, arg};
    pthread_t* thread = new (std::nothrow) pthread_t;
    if (start == nullptr || thread == nullptr ||
        pthread_create(thread, nullptr, threadMain, start) != 0) {
        delete start;
        delete thread;
        return nullptr;
    }
    return thread;
}

uint32_t PlatformUtil::joinThread(PlatformThread thread) {
    if (thread == nullptr) return 0;
    pthread_t* t = static_cast<pthread_t*>(thread);
    void* result = nullptr;
    pthread_join(*t, &result);
    delete t;
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(result));
}

void PlatformUtil::releaseThread(PlatformThread thread) {
    if (thread == nullptr) return;
    pthread_t* t = static_cast<pthread_t*>(thread);
    pthread_detach(*t);
    delete t;
}

void PlatformUtil::killProcess(PlatformProcess process) {
    if (process > 0) ::kill(static_cast<pid_t>(process), SIGKILL);
}

void PlatformUtil::reboot() {
    ::sync();
    ::reboot(RB_AUTOBOOT);
}

}  // namespace velmora
