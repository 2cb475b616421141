// Memory for the items of elements' content lists (a node and a link each). Items come
// from slabs of 64 KB of their own, one after the other, so that the items of a list
// built in one go (a parse, a loop of addContent) lie side by side: walking a long list
// then reads a few lines in order instead of one scattered block per child. The slabs
// come from the system, not the allocator's heap, so that the nodes and texts the
// allocator places meanwhile stay in the order they were made in. A freed item goes back
// to its own slab (found from its address, slabs being aligned to their size); a slab
// whose items are all free goes back to the system, except the one items are being taken
// from.
//
// All threads share the slabs behind one short spin lock. Under AddressSanitizer items
// are single blocks of the node pool instead, so that the leak check sees every tree.
#pragma once

namespace velmora {
namespace xml {

// Room for one item (16 bytes, pointer-aligned), or null without memory.
void* itemAlloc();
// Takes back an item from itemAlloc.
void itemFree(void* p);
// Gives the slab items are taken from back when none of its items is in use (the others
// already went back when their last item did).
void releaseItemSlabs();

}  // namespace xml
}  // namespace velmora
