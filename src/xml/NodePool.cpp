#include "xml/NodePool.h"

#include <atomic>
#include <cstdlib>
#include <thread>

namespace velmora {
namespace xml {

namespace {

const size_t kGrain = 16;
const size_t kClasses = 32;  // blocks up to 512 bytes

struct FreeBlock {
    FreeBlock* next;
};

// One size class: its free list and the lock that guards it. Plain data with constant
// initialisation, so the lists stay usable while static objects are destroyed at exit.
struct SizeClass {
    std::atomic_flag busy = ATOMIC_FLAG_INIT;
    FreeBlock* head = nullptr;
    size_t kept = 0;  // bytes in the list

    void lock() {
        while (busy.test_and_set(std::memory_order_acquire))
            std::this_thread::yield();
    }
    void unlock() { busy.clear(std::memory_order_release); }
};

SizeClass classes[kClasses];

size_t classOf(size_t size) {
    return size == 0 ? 0 : (size - 1) / kGrain;
}

}  // namespace

void* nodeAlloc(size_t size) {
    size_t c = classOf(size);
    if (c >= kClasses) return std::malloc(size);
    SizeClass& sc = classes[c];
    sc.lock();
    FreeBlock* b = sc.head;
    if (b != nullptr) {
        sc.head = b->next;
        sc.kept -= (c + 1) * kGrain;
        // The next block is cold after a whole tree went into the list: start loading
        // it now, while the caller fills this one.
        if (sc.head != nullptr) __builtin_prefetch(sc.head);
    }
    sc.unlock();
    return b != nullptr ? b : std::malloc((c + 1) * kGrain);
}

void nodeFree(void* p, size_t size) {
    if (p == nullptr) return;
    size_t c = classOf(size);
    if (c >= kClasses) {
        std::free(p);
        return;
    }
    size_t block = (c + 1) * kGrain;
    SizeClass& sc = classes[c];
    auto* b = static_cast<FreeBlock*>(p);
    sc.lock();
    bool keep = sc.kept + block <= kClassLimit;
    if (keep) {
        b->next = sc.head;
        sc.head = b;
        sc.kept += block;
    }
    sc.unlock();
    if (!keep) std::free(p);
}

void releaseNodePool() {
    for (size_t c = 0; c < kClasses; ++c) {
        SizeClass& sc = classes[c];
        sc.lock();
        FreeBlock* b = sc.head;
        sc.head = nullptr;
        sc.kept = 0;
        sc.unlock();
        while (b != nullptr) {
            FreeBlock* next = b->next;
            std::free(b);
            b = next;
        }
    }
}

}  // namespace xml
}  // namespace velmora
