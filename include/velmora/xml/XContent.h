// A node of an XML tree: an element (XElem) or character data (XText). A node belongs to
// at most one element; the element that holds it deletes it.
//
//   if (node->getType() == velmora::XContent::ELEMENT) use(static_cast<velmora::XElem*>(node));
#pragma once

#include <cstddef>

#include <velmora/Export.h>

namespace velmora {

class XElem;

class VELMORA_API XContent {
public:
    enum { ELEMENT = 1, TEXT = 2 };

    // Elements and texts come from the library's pool of node memory: a dropped tree's
    // memory is reused by the next instead of going back to the system. The destructor is
    // virtual, so a node goes back to the size class of its own type.
    static void* operator new(size_t size);
    static void operator delete(void* p, size_t size);

    XContent() = default;
    virtual ~XContent();
    virtual int getType() const = 0;  // 1 element, 2 text
    // A deep copy without parent, owned by the caller.
    virtual XContent* newCopy() const = 0;

    // The element that took this node as content. Removing or replacing the node does not
    // clear it, so a removed node cannot be added elsewhere until setParent(nullptr).
    XElem* getParent() const { return parent_; }
    void setParent(XElem* parent) { parent_ = parent; }

private:
    XContent(const XContent&) = delete;
    XContent& operator=(const XContent&) = delete;

    XElem* parent_ = nullptr;
};

}  // namespace velmora
