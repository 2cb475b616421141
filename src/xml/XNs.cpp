#include <velmora/xml/XNs.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include "xml/NodePool.h"

namespace velmora {

namespace {

bool sameText(const char* a, const char* b) {
    if (a == nullptr || b == nullptr) return a == b;
    return std::strcmp(a, b) == 0;
}

}  // namespace

// Both texts share one block from the node pool: the prefix first, then the URI.
XNs::XNs(const char* prefix, const char* uri) : prefix_(nullptr), uri_(nullptr) {
    size_t prefixSize = prefix != nullptr ? std::strlen(prefix) + 1 : 0;
    size_t uriSize = uri != nullptr ? std::strlen(uri) + 1 : 0;
    if (prefixSize + uriSize == 0) return;
    char* block = static_cast<char*>(xml::nodeAlloc(prefixSize + uriSize));
    if (block == nullptr) return;
    if (prefix != nullptr) {
        std::memcpy(block, prefix, prefixSize);
        prefix_ = block;
    }
    if (uri != nullptr) {
        std::memcpy(block + prefixSize, uri, uriSize);
        uri_ = block + prefixSize;
    }
}

XNs::~XNs() {
    size_t size = (prefix_ != nullptr ? std::strlen(prefix_) + 1 : 0) +
                  (uri_ != nullptr ? std::strlen(uri_) + 1 : 0);
    xml::nodeFree(prefix_ != nullptr ? prefix_ : uri_, size);
}

void* XNs::operator new(size_t size) {
    void* p = xml::nodeAlloc(size);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}

void XNs::operator delete(void* p, size_t size) {
    xml::nodeFree(p, size);
}

XNs* XNs::newCopy() const {
    XNs* c = new XNs(prefix_, uri_);
    c->declarer_ = declarer_;
    return c;
}

bool XNs::isDefault() const {
    return prefix_ == nullptr || prefix_[0] == '\0';
}

bool XNs::equals(const XNs* a, const XNs* b) {
    if (a == b) return true;
    if (a == nullptr || b == nullptr) return false;
    return sameText(a->uri_, b->uri_);
}

}  // namespace velmora
