// Memory for the small nodes of XML trees (elements, texts, attribute and content list
// nodes). A freed node is kept in a free list of its size class instead of going back to
// the C allocator, and the next node of that class reuses it. Building and dropping
// trees one after the other then reuses the same memory: the allocator's search and
// merging of free blocks is skipped, and memory the allocator would give back to the
// system (to be faulted in again by the next tree) stays with the process.
//
// The lists are shared by all threads, each behind a short spin lock. Each size class
// keeps at most kClassLimit bytes; beyond that freed nodes go back to the allocator.
// releaseNodePool() gives every kept block back (the XML unload functions call it);
// later use fills the lists again.
#pragma once

#include <cstddef>

namespace velmora {
namespace xml {

const size_t kClassLimit = size_t(128) << 20;

// A block of at least `size` bytes, or null without memory. Blocks above the largest
// size class come straight from the allocator.
void* nodeAlloc(size_t size);
// Takes back a block from nodeAlloc; `size` must be the size it was asked for.
void nodeFree(void* p, size_t size);
void releaseNodePool();

}  // namespace xml
}  // namespace velmora
