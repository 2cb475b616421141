#include <velmora/xml/XContent.h>

#include <new>

#include "xml/NodePool.h"

namespace velmora {

void* XContent::operator new(size_t size) {
    void* p = xml::nodeAlloc(size);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}

void XContent::operator delete(void* p, size_t size) {
    xml::nodeFree(p, size);
}

XContent::~XContent() = default;

}  // namespace velmora
