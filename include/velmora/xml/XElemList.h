// A throw-away list of child elements, returned by XElem::elems(). The list belongs to
// the caller; the elements stay with their parent.
//
//   std::unique_ptr<velmora::XElemList> ports(root->elems("port"));
//   for (auto* i = ports->getFirst(); i != nullptr; i = i->getNext()) use(i->getElem());
#pragma once

#include <velmora/Export.h>

namespace velmora {

class XElem;

class VELMORA_API XElemListItem {
public:
    XElem* getElem() const { return elem_; }
    XElemListItem* getNext() const { return next_; }

private:
    friend class XElemList;
    explicit XElemListItem(XElem* e) : elem_(e) {}
    XElem* elem_;
    XElemListItem* next_ = nullptr;
};

class VELMORA_API XElemList {
public:
    XElemList() = default;
    ~XElemList();  // deletes the items, never the elements

    void add(XElem* e);
    XElemListItem* getFirst() const { return first_; }
    XElemListItem* getLast() const { return last_; }
    int getSize() const { return size_; }
    XElem* get(int i) const;  // null when out of range

private:
    XElemList(const XElemList&) = delete;
    XElemList& operator=(const XElemList&) = delete;

    XElemListItem* first_ = nullptr;
    XElemListItem* last_ = nullptr;
    int size_ = 0;
};

}  // namespace velmora
