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

    void lock() {
        while (busy.test_and_set(std::memory_order_acquire))
            std::this_thread::yield();
    }
    void unlock() { busy.clear(std::memory_order_release); }
};

SizeClass classes[kClasses];
std::atomic<size_t> keptBytes(0);

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
    if (b != nullptr) sc.head = b->next;
    sc.unlock();
    if (b != nullptr) {
        keptBytes.fetch_sub((c + 1) * kGrain, std::memory_order_relaxed);
        return b;
    }
    return std::malloc((c + 1) * kGrain);
}

void nodeFree(void* p, size_t size) {
    if (p == nullptr) return;
    size_t c = classOf(size);
    if (c >= kClasses) {
        std::free(p);
        return;
    }
    size_t block = (c + 1) * kGrain;
    if (keptBytes.fetch_add(block, std::memory_order_relaxed) + block > kPoolLimit) {
        keptBytes.fetch_sub(block, std::memory_order_relaxed);
        std::free(p);
        return;
    }
    SizeClass& sc = classes[c];
    auto* b = static_cast<FreeBlock*>(p);
    sc.lock();
    b->next = sc.head;
    sc.head = b;
    sc.unlock();
}

void releaseNodePool() {
    for (size_t c = 0; c < kClasses; ++c) {
        SizeClass& sc = classes[c];
        sc.lock();
        FreeBlock* b = sc.head;
        sc.head = nullptr;
        sc.unlock();
        while (b != nullptr) {
            FreeBlock* next = b->next;
            std::free(b);
            keptBytes.fetch_sub((c + 1) * kGrain, std::memory_order_relaxed);
            b = next;
        }
    }
}

}  // namespace xml
}  // namespace velmora
