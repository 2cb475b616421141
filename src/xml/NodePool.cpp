#include "xml/NodePool.h"

#include "xml/ItemSlabs.h"

#include <atomic>
#include <cstdlib>
#include <thread>

// Under AddressSanitizer a kept block is poisoned after its link word, so that a use of
// a node after its deletion is still reported although its memory stays with the pool
// (the link stays readable: the leak check follows no pointers in poisoned memory).
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VELMORA_POOL_ASAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) && !defined(VELMORA_POOL_ASAN)
#define VELMORA_POOL_ASAN 1
#endif
#ifdef VELMORA_POOL_ASAN
#include <sanitizer/asan_interface.h>
#define POOL_POISON(p, n)                                                     \
    ASAN_POISON_MEMORY_REGION(reinterpret_cast<char*>(p) + sizeof(FreeBlock), \
                              (n) - sizeof(FreeBlock))
#define POOL_UNPOISON(p, n)                                                     \
    ASAN_UNPOISON_MEMORY_REGION(reinterpret_cast<char*>(p) + sizeof(FreeBlock), \
                                (n) - sizeof(FreeBlock))
#else
#define POOL_POISON(p, n) ((void)(p), (void)(n))
#define POOL_UNPOISON(p, n) ((void)(p), (void)(n))
#endif

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
        POOL_UNPOISON(b, (c + 1) * kGrain);
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
        POOL_POISON(b, block);
    }
    sc.unlock();
    if (!keep) std::free(p);
}

void releaseNodePool() {
    releaseItemSlabs();
    for (size_t c = 0; c < kClasses; ++c) {
        SizeClass& sc = classes[c];
        sc.lock();
        FreeBlock* b = sc.head;
        sc.head = nullptr;
        sc.kept = 0;
        sc.unlock();
        while (b != nullptr) {
            POOL_UNPOISON(b, (c + 1) * kGrain);
            FreeBlock* next = b->next;
            std::free(b);
            b = next;
        }
    }
}

}  // namespace xml
}  // namespace velmora
