#include "xml/ItemSlabs.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>

#include "xml/NodePool.h"
#include "xml/SlabMemory.h"

// Under AddressSanitizer each item is a block of the node pool of its own: the leak
// check does not look into memory the program maps itself, and a slab made a root region
// would hide whole leaked trees (their children's items would point to them through the
// children's parent links).
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VELMORA_ITEMS_FROM_POOL 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) && !defined(VELMORA_ITEMS_FROM_POOL)
#define VELMORA_ITEMS_FROM_POOL 1
#endif

namespace velmora {
namespace xml {

#ifdef VELMORA_ITEMS_FROM_POOL

void* itemAlloc() {
    return nodeAlloc(16);
}

void itemFree(void* p) {
    nodeFree(p, 16);
}

void releaseItemSlabs() {}

#else

namespace {

const size_t kItemBytes = 16;
const size_t kHeaderBytes = 64;  // the slab's own fields, a line of their own
const uint32_t kItems = static_cast<uint32_t>((kSlabBytes - kHeaderBytes) / kItemBytes);

struct FreeItem {
    FreeItem* next;
};

struct Slab {
    Slab* prev;  // in the list of slabs with free items
    Slab* next;
    FreeItem* free;   // items given back
    uint32_t carved;  // items handed out at least once, from the start
    uint32_t used;    // items in use
    bool listed;

    char* item(uint32_t i) { return reinterpret_cast<char*>(this) + kHeaderBytes + i * kItemBytes; }
    bool full() const { return free == nullptr && carved == kItems; }
};
static_assert(sizeof(Slab) <= kHeaderBytes, "the slab's fields fit its header");

// The slab items are taken from, and the others that have free items. Full slabs are in
// no list; they are found again through their items. Plain data with constant
// initialisation, usable while static objects are destroyed at exit.
struct Slabs {
    std::atomic_flag busy = ATOMIC_FLAG_INIT;
    Slab* current = nullptr;
    Slab* partial = nullptr;

    void lock() {
        while (busy.test_and_set(std::memory_order_acquire))
            std::this_thread::yield();
    }
    void unlock() { busy.clear(std::memory_order_release); }

    void link(Slab* s) {
        s->prev = nullptr;
        s->next = partial;
        if (partial != nullptr) partial->prev = s;
        partial = s;
        s->listed = true;
    }
    void unlink(Slab* s) {
        (s->prev != nullptr ? s->prev->next : partial) = s->next;
        if (s->next != nullptr) s->next->prev = s->prev;
        s->listed = false;
    }
};

Slabs slabs;

Slab* newSlab() {
    auto* s = static_cast<Slab*>(slabMemory());
    if (s == nullptr) return nullptr;
    s->prev = s->next = nullptr;
    s->free = nullptr;
    s->carved = 0;
    s->used = 0;
    s->listed = false;
    return s;
}

void releaseSlab(Slab* s) {
    releaseSlabMemory(s);
}

Slab* slabOf(void* p) {
    return reinterpret_cast<Slab*>(reinterpret_cast<uintptr_t>(p) & ~(uintptr_t(kSlabBytes) - 1));
}

}  // namespace

void* itemAlloc() {
    slabs.lock();
    Slab* s = slabs.current;
    if (s == nullptr || s->full()) {
        // A slab with free items before a new one; the full one is found again through
        // its items when one of them is freed.
        s = slabs.partial;
        if (s != nullptr) {
            slabs.unlink(s);
        } else {
            s = newSlab();
            if (s == nullptr) {
                slabs.unlock();
                return nullptr;
            }
        }
        slabs.current = s;
    }
    char* p;
    if (s->carved < kItems) {
        // Items never handed out come first, in address order: a list built in one go
        // then lies in its own order.
        p = s->item(s->carved++);
    } else {
        FreeItem* f = s->free;
        s->free = f->next;
        p = reinterpret_cast<char*>(f);
    }
    ++s->used;
    slabs.unlock();
    return p;
}

void itemFree(void* p) {
    if (p == nullptr) return;
    Slab* s = slabOf(p);
    auto* f = static_cast<FreeItem*>(p);
    bool release = false;
    slabs.lock();
    f->next = s->free;
    s->free = f;
    --s->used;
    if (s != slabs.current) {
        if (s->used == 0) {
            if (s->listed) slabs.unlink(s);
            release = true;
        } else if (!s->listed) {
            slabs.link(s);
        }
    }
    slabs.unlock();
    if (release) releaseSlab(s);
}

void releaseItemSlabs() {
    slabs.lock();
    Slab* s = slabs.current;
    bool release = s != nullptr && s->used == 0;
    if (release) slabs.current = nullptr;
    slabs.unlock();
    if (release) releaseSlab(s);
}

#endif

}  // namespace xml
}  // namespace velmora
