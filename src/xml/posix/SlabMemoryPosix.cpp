#include "xml/SlabMemory.h"

#include <sys/mman.h>

#include <cstdint>

namespace velmora {
namespace xml {

// The system maps whole pages where it likes: twice the size is mapped and what lies
// before and after the aligned block is given back at once.
void* slabMemory() {
    const size_t span = 2 * kSlabBytes;
    void* p = mmap(nullptr, span, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) return nullptr;
    auto start = reinterpret_cast<uintptr_t>(p);
    uintptr_t aligned = (start + kSlabBytes - 1) & ~(uintptr_t(kSlabBytes) - 1);
    if (aligned > start) munmap(p, aligned - start);
    uintptr_t end = start + span;
    if (end > aligned + kSlabBytes) {
        munmap(reinterpret_cast<void*>(aligned + kSlabBytes), end - aligned - kSlabBytes);
    }
    return reinterpret_cast<void*>(aligned);
}

void releaseSlabMemory(void* p) {
    if (p != nullptr) munmap(p, kSlabBytes);
}

}  // namespace xml
}  // namespace velmora
