// Internal: memory for the item slabs straight from the system, outside the C
// allocator's heap, in blocks of kSlabBytes aligned to their size (so that a slab is
// found from the address of anything inside it).
#pragma once

#include <cstddef>

namespace velmora {
namespace xml {

const size_t kSlabBytes = 64 * 1024;

// A zero-filled, aligned block of kSlabBytes, or null without memory.
void* slabMemory();
// Gives a block from slabMemory() back to the system.
void releaseSlabMemory(void* p);

}  // namespace xml
}  // namespace velmora
