// An XML namespace: a prefix and a URI, either of which may be null. Two namespaces are
// the same namespace when their URIs match; prefixes are only spelling.
//
//   velmora::XNs ns("cfg", "urn:velmora:config");
//   velmora::XNs::equals(&ns, elem->getNs());  // compares URIs only
#pragma once

#include <cstddef>

#include <velmora/Export.h>

namespace velmora {

class XElem;

class VELMORA_API XNs {
public:
    // Namespaces come from the library's pool of node memory, as tree nodes do.
    static void* operator new(size_t size);
    static void operator delete(void* p, size_t size);

    XNs(const char* prefix, const char* uri);  // copies both; either may be null
    ~XNs();

    XNs* newCopy() const;    // owned by the caller; the declaring element is copied too
    bool isDefault() const;  // no prefix, or an empty one
    // Two nulls are equal, one null is not; otherwise the URIs decide (both null, or
    // both present and equal case-sensitively).
    static bool equals(const XNs* a, const XNs* b);

    const char* getPrefix() const { return prefix_; }
    const char* getUri() const { return uri_; }
    // The element whose attribute declared this namespace while parsing, or null.
    XElem* getDeclarer() const { return declarer_; }
    void setDeclarer(XElem* e) { declarer_ = e; }

private:
    XNs(const XNs&) = delete;
    XNs& operator=(const XNs&) = delete;

    char* prefix_;
    char* uri_;
    XElem* declarer_ = nullptr;
};

}  // namespace velmora
