#include <velmora/xml/XElemList.h>

namespace velmora {

XElemList::~XElemList() {
    // Walks the items one by one rather than recursively, so long lists cannot exhaust
    // the stack.
    XElemListItem* item = first_;
    while (item != nullptr) {
        XElemListItem* next = item->next_;
        delete item;
        item = next;
    }
}

void XElemList::add(XElem* e) {
    auto* item = new XElemListItem(e);
    if (last_ == nullptr) {
        first_ = item;
    } else {
        last_->next_ = item;
    }
    last_ = item;
    ++size_;
}

XElem* XElemList::get(int i) const {
    if (i < 0) return nullptr;
    XElemListItem* item = first_;
    for (; item != nullptr && i > 0; --i)
        item = item->next_;
    return item != nullptr ? item->elem_ : nullptr;
}

}  // namespace velmora
