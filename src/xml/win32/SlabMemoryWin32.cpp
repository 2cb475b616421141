#include "xml/SlabMemory.h"

#include <windows.h>

namespace velmora {
namespace xml {

// VirtualAlloc places every block on a 64 KB boundary, the slab size.
static_assert(kSlabBytes == 64 * 1024, "slabs are the system's allocation granularity");

void* slabMemory() {
    return VirtualAlloc(nullptr, kSlabBytes, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
}

void releaseSlabMemory(void* p) {
    if (p != nullptr) VirtualFree(p, 0, MEM_RELEASE);
}

}  // namespace xml
}  // namespace velmora
