#include <velmora/xml/XNs.h>

#include <cstdlib>
#include <cstring>

namespace velmora {

namespace {

char* copyOf(const char* s) {
    if (s == nullptr) return nullptr;
    size_t n = std::strlen(s) + 1;
    char* c = static_cast<char*>(std::malloc(n));
    if (c != nullptr) std::memcpy(c, s, n);
    return c;
}

bool sameText(const char* a, const char* b) {
    if (a == nullptr || b == nullptr) return a == b;
    return std::strcmp(a, b) == 0;
}

}  // namespace

XNs::XNs(const char* prefix, const char* uri) : prefix_(copyOf(prefix)), uri_(copyOf(uri)) {}

XNs::~XNs() {
    std::free(prefix_);
    std::free(uri_);
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
