#include <velmora/xml/XElem.h>

#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include <velmora/xml/XWriter.h>

#include "xml/ItemSlabs.h"
#include "xml/NodePool.h"
#include "xml/XmlOut.h"

namespace velmora {

namespace {

const size_t kInline = 128;

// Asks for the cache line at `p` ahead of its use; a hint, without effect where the
// compiler has no way to give it.
inline void prefetch(const void* p) {
#if defined(__GNUC__)
    __builtin_prefetch(p);
#else
    (void)p;
#endif
}

void freeText(char* inlineBuf, char* p) {
    if (p != inlineBuf) std::free(p);
}

bool sameText(const char* a, const char* b) {
    if (a == nullptr || b == nullptr) return a == b;
    return std::strcmp(a, b) == 0;
}

XNs* copyNs(const XNs* ns) {
    return ns != nullptr ? ns->newCopy() : nullptr;
}

bool equalsIgnoreCase(const char* a, const char* b) {
    for (; *a != '\0' && *b != '\0'; ++a, ++b) {
        char x = *a >= 'A' && *a <= 'Z' ? static_cast<char>(*a + 32) : *a;
        char y = *b >= 'A' && *b <= 'Z' ? static_cast<char>(*b + 32) : *b;
        if (x != y) return false;
    }
    return *a == *b;
}

// The leading decimal number of `s` (after white space, with an optional sign), clamped
// to the 32-bit range; 0 when there is none.
long readInt32(const char* s) {
    errno = 0;
    long long v = std::strtoll(s, nullptr, 10);
    if (v > INT32_MAX) return INT32_MAX;
    if (v < INT32_MIN) return INT32_MIN;
    return static_cast<long>(v);
}

}  // namespace

// An attribute node carries its short texts in the same block, right after the node:
// a text whose size with the terminator is below kInline lives there, a longer one in a
// heap block of its own. The block is sized for what it holds, so a typical attribute
// costs one small allocation. Nodes are plain data, kept in the node pool.
struct XElem::Attr {
    char* name;
    char* value;
    XNs* ns;
    Attr* next;
    size_t room;  // bytes of text space after the node

    char* space() { return reinterpret_cast<char*>(this + 1); }
    bool inBlock(const char* p) { return p >= space() && p < space() + room; }
    void freeText(char* p) {
        if (p != nullptr && p != emptyText() && !inBlock(p)) std::free(p);
    }
    // Stands for a text whose heap block could not be had.
    static char* emptyText() {
        static char empty[1] = {'\0'};
        return empty;
    }
    static size_t inlineSize(size_t size) { return size < kInline ? size : 0; }

    // A node with room for `room` bytes of text, or `a` grown to it (`a` unlinked, its
    // texts released); null without memory, `a` then left as it was.
    static Attr* reserve(Attr* a, size_t room) {
        if (a != nullptr && a->room >= room) return a;
        room = (room + 15) & ~static_cast<size_t>(15);
        auto* b = static_cast<Attr*>(xml::nodeAlloc(sizeof(Attr) + room));
        if (b == nullptr) return nullptr;
        if (a == nullptr) {
            b->name = b->value = nullptr;
            b->ns = nullptr;
            b->next = nullptr;
        } else {
            // `a` holds no texts here: only its namespace and link move over.
            *b = *a;
            xml::nodeFree(a, sizeof(Attr) + a->room);
        }
        b->room = room;
        return b;
    }
    // The node for `nm` = `v` in namespace `n`: `a` itself (unlinked, texts released)
    // when it has the room, else a grown or new node; null without memory.
    static Attr* make(Attr* a, const XNs* n, const char* nm, const char* v) {
        if (nm == nullptr) nm = "";
        if (v == nullptr) v = "";
        size_t nameSize = std::strlen(nm) + 1;
        size_t valueSize = std::strlen(v) + 1;
        Attr* b = reserve(a, inlineSize(nameSize) + inlineSize(valueSize));
        if (b == nullptr) return nullptr;
        char* t = b->space();
        b->name = b->put(&t, nm, nameSize);
        b->value = b->put(&t, v, valueSize);
        b->setNs(n);
        return b;
    }
    // Copies a text to `*t` in the block when it is short, else to a heap block.
    static char* put(char** t, const char* s, size_t size) {
        char* target = *t;
        if (inlineSize(size) == 0) {
            target = static_cast<char*>(std::malloc(size));
            if (target == nullptr) return emptyText();
        } else {
            *t += size;
        }
        std::memcpy(target, s, size);
        return target;
    }
    void setValue(const char* v) {
        if (v == nullptr) v = "";
        size_t size = std::strlen(v) + 1;
        char* t = inBlock(name) ? name + std::strlen(name) + 1 : space();
        char* target;
        if (inlineSize(size) != 0 && size <= static_cast<size_t>(space() + room - t)) {
            // The old value may be the new one's source: move, then nothing to free.
            std::memmove(t, v, size);
            freeText(value);
            value = t;
            return;
        }
        target = static_cast<char*>(std::malloc(size));
        if (target == nullptr)
            target = emptyText();
        else
            std::memcpy(target, v, size);
        freeText(value);
        value = target;
    }
    void setNs(const XNs* n) {
        // A node reused with the namespace it had (as for every start tag the parser
        // reads into the same element) keeps its copy instead of making a new one.
        if (n != nullptr && ns != nullptr && sameText(n->getPrefix(), ns->getPrefix()) &&
            sameText(n->getUri(), ns->getUri())) {
            ns->setDeclarer(n->getDeclarer());
            return;
        }
        delete ns;
        ns = copyNs(n);
    }
    void release() {
        // Heap texts go back; the node keeps its block and namespace for reuse.
        freeText(name);
        freeText(value);
        name = value = nullptr;
    }
    static void destroy(Attr* a) {
        a->release();
        delete a->ns;
        xml::nodeFree(a, sizeof(Attr) + a->room);
    }
};

struct XElem::Item {
    XContent* node;
    Item* next;
};
static_assert(sizeof(XElem::Item) <= 16, "an item fits the room itemAlloc gives");

XElem::XElem() : XElem("undefined") {}

XElem::XElem(const char* name) {
    storeNames(name);
}

XElem::XElem(const XNs* ns, const char* name) {
    ns_ = copyNs(ns);
    storeNames(name);
}

XElem::XElem(const char* prefix, const char* uri, const char* name) {
    if (prefix != nullptr || uri != nullptr) ns_ = new XNs(prefix, uri);
    storeNames(name);
}

XElem::~XElem() {
    clearAttr();
    while (spareAttrs_ != nullptr) {
        Attr* next = spareAttrs_->next;
        Attr::destroy(spareAttrs_);
        spareAttrs_ = next;
    }
    clearContent();
    delete ns_;
    freeText(nameInline_, qname_);
}

XContent* XElem::newCopy() const {
    XElem* copy = new XElem(ns_, name_);
    for (Attr* a = attrs_; a != nullptr; a = a->next)
        copy->addAttr(a->ns, a->name, a->value);
    for (Item* i = content_; i != nullptr; i = i->next)
        copy->addContent(i->node->newCopy());
    return copy;
}

// --- names and namespaces

void XElem::setName(const char* name) {
    storeNames(name);
}

// Stores the qualified name for `name` and the current namespace's prefix. `name` may
// point into the text it replaces.
void XElem::storeNames(const char* name) {
    if (name == nullptr) name = "";
    storeNames(name, std::strlen(name));
}

void XElem::storeNames(const char* name, size_t length) {
    const char* p = prefix();
    size_t lead = p != nullptr ? std::strlen(p) + 1 : 0;  // the prefix and its colon
    size_t size = lead + length + 1;
    char* old = qname_;
    char* target = nameInline_;
    if (size > kInline) {
        target = static_cast<char*>(std::malloc(size));
        if (target == nullptr) {
            // Without memory the element keeps an empty name rather than none.
            target = nameInline_;
            name = "";
            lead = 0;
            size = 1;
        }
    }
    std::memmove(target + lead, name, size - lead);
    if (lead > 0) {
        std::memcpy(target, p, lead - 1);
        target[lead - 1] = ':';
    }
    qname_ = target;
    name_ = target + lead;
    qnameLength_ = size - 1;
    if (old != nullptr && old != nameInline_ && old != target) std::free(old);
}

const char* XElem::prefix() const {
    if (ns_ == nullptr || ns_->isDefault()) return nullptr;
    return ns_->getPrefix();
}

const char* XElem::uri() const {
    return ns_ != nullptr ? ns_->getUri() : nullptr;
}

void XElem::setNs(const XNs* ns) {
    if (ns == nullptr && ns_ == nullptr) return;  // no namespace before or after
    // The same namespace again (as the parser sets it on every start tag) keeps the copy
    // already held instead of making a new one; the names change only with the prefix.
    bool hadPrefix = prefix() != nullptr;
    bool same = ns != nullptr && ns_ != nullptr && ns != ns_ &&
                sameText(ns->getPrefix(), ns_->getPrefix()) &&
                sameText(ns->getUri(), ns_->getUri());
    if (same) {
        ns_->setDeclarer(ns->getDeclarer());
        return;
    }
    if (ns != ns_) {
        delete ns_;
        ns_ = copyNs(ns);
    }
    if (hadPrefix || prefix() != nullptr) storeNames(name_);
}

XNs* XElem::findNs(const char* uri) const {
    if (ns_ != nullptr && sameText(uri, ns_->getUri())) return ns_->newCopy();
    if (uri == nullptr) return nullptr;
    for (Attr* a = attrs_; a != nullptr; a = a->next) {
        if (std::strcmp(a->value, uri) != 0) continue;
        // Kept: the first attribute carrying the URI decides, declaration or not.
        if (std::strcmp(a->name, "xmlns") == 0) return new XNs(nullptr, uri);
        if (std::strncmp(a->name, "xmlns:", 6) == 0) return new XNs(a->name + 6, uri);
        return nullptr;
    }
    return nullptr;
}

XNs* XElem::defineNs(XNs* ns) {
    if (ns == nullptr) return ns;
    if (ns->isDefault()) {
        setAttr("xmlns", ns->getUri());
        return ns;
    }
    const char* p = ns->getPrefix();
    size_t n = std::strlen(p);
    char* name = static_cast<char*>(std::malloc(n + 7));
    if (name == nullptr) return ns;
    std::memcpy(name, "xmlns:", 6);
    std::memcpy(name + 6, p, n + 1);
    setAttr(name, ns->getUri());
    std::free(name);
    return ns;
}

XNs* XElem::defineNs(const char* prefix, const char* uri) {
    return defineNs(new XNs(prefix, uri));
}

// --- attributes

XElem::Attr* XElem::attrAt(int i) const {
    if (i < 0 || i >= attrCount_) return nullptr;
    Attr* a = attrs_;
    for (; a != nullptr && i > 0; --i)
        a = a->next;
    return a;
}

XElem::Attr* XElem::findAttr(const XNs* ns, bool useNs, const char* name) const {
    if (name == nullptr) return nullptr;
    for (Attr* a = attrs_; a != nullptr; a = a->next) {
        if (std::strcmp(a->name, name) == 0 && (!useNs || XNs::equals(a->ns, ns))) return a;
    }
    return nullptr;
}

const char* XElem::attrName(int i) const {
    Attr* a = attrAt(i);
    return a != nullptr ? a->name : nullptr;
}

const char* XElem::attrValue(int i) const {
    Attr* a = attrAt(i);
    return a != nullptr ? a->value : nullptr;
}

const XNs* XElem::attrNs(int i) const {
    Attr* a = attrAt(i);
    return a != nullptr ? a->ns : nullptr;
}

int XElem::attrIndex(const char* name) const {
    if (name == nullptr) return -1;
    int i = 0;
    for (Attr* a = attrs_; a != nullptr; a = a->next, ++i) {
        if (std::strcmp(a->name, name) == 0) return i;
    }
    return -1;
}

int XElem::attrIndex(const XNs* ns, const char* name) const {
    if (name == nullptr) return -1;
    int i = 0;
    for (Attr* a = attrs_; a != nullptr; a = a->next, ++i) {
        if (std::strcmp(a->name, name) == 0 && XNs::equals(a->ns, ns)) return i;
    }
    return -1;
}

const char* XElem::get(const char* name) const {
    return get(name, nullptr);
}

const char* XElem::get(const char* name, const char* def) const {
    Attr* a = findAttr(nullptr, false, name);
    return a != nullptr ? a->value : def;
}

const char* XElem::get(const XNs* ns, const char* name) const {
    return get(ns, name, nullptr);
}

const char* XElem::get(const XNs* ns, const char* name, const char* def) const {
    Attr* a = findAttr(ns, true, name);
    return a != nullptr ? a->value : def;
}

bool XElem::getb(const char* name, bool def) const {
    const char* v = get(name);
    if (v == nullptr) return def;
    if (equalsIgnoreCase(v, "true")) return true;
    if (equalsIgnoreCase(v, "false")) return false;
    return def;
}

int XElem::geti(const char* name, int def) const {
    const char* v = get(name);
    return v != nullptr ? static_cast<int>(readInt32(v)) : def;
}

int64_t XElem::getl(const char* name, int64_t def) const {
    const char* v = get(name);
    return v != nullptr ? static_cast<int64_t>(readInt32(v)) : def;
}

void XElem::appendAttr(const XNs* ns, const char* name, const char* value) {
    Attr* spare = spareAttrs_;
    Attr* a = Attr::make(spare, ns, name, value);
    if (a == nullptr) return;  // no memory: the attribute is not added
    if (spare != nullptr) spareAttrs_ = a->next;
    a->next = nullptr;
    if (attrsTail_ == nullptr) {
        attrs_ = a;
    } else {
        attrsTail_->next = a;
    }
    attrsTail_ = a;
    ++attrCount_;
}

void XElem::putAttr(const XNs* ns, bool useNs, const char* name, const char* value) {
    if (name == nullptr) return;
    Attr* a = findAttr(ns, useNs, name);
    if (a != nullptr) {
        a->setValue(value);
    } else {
        appendAttr(useNs ? ns : nullptr, name, value);
    }
}

void XElem::setAttr(const char* name, const char* value) {
    putAttr(nullptr, false, name, value);
}

void XElem::setAttr(const XNs* ns, const char* name, const char* value) {
    putAttr(ns, true, name, value);
}

void XElem::setAttrInt(const char* name, int value) {
    setAttrInt(nullptr, name, value);
}

void XElem::setAttrInt(const XNs* ns, const char* name, int value) {
    setAttrLong(ns, name, value);  // the same decimal text
}

void XElem::setAttrLong(const char* name, int64_t value) {
    setAttrLong(nullptr, name, value);
}

void XElem::setAttrLong(const XNs* ns, const char* name, int64_t value) {
    char buf[50];
    if (std::snprintf(buf, sizeof buf, "%" PRId64, value) < 0) buf[0] = '\0';
    setAttr(ns, name, buf);
}

void XElem::setAttrBool(const char* name, bool value) {
    setAttr(name, value ? "true" : "false");
}

void XElem::setAttrBool(const XNs* ns, const char* name, bool value) {
    setAttr(ns, name, value ? "true" : "false");
}

void XElem::addAttr(const char* name, const char* value) {
    addAttr(nullptr, name, value);
}

void XElem::addAttr(const XNs* ns, const char* name, const char* value) {
    if (name != nullptr) appendAttr(ns, name, value);
}

void XElem::addAttrInt(const char* name, int value) {
    addAttrInt(nullptr, name, value);
}

void XElem::addAttrInt(const XNs* ns, const char* name, int value) {
    addAttrLong(ns, name, value);  // the same decimal text
}

void XElem::addAttrLong(const char* name, int64_t value) {
    addAttrLong(nullptr, name, value);
}

void XElem::addAttrLong(const XNs* ns, const char* name, int64_t value) {
    char buf[50];
    if (std::snprintf(buf, sizeof buf, "%" PRId64, value) < 0) buf[0] = '\0';
    addAttr(ns, name, buf);
}

void XElem::addAttrBool(const char* name, bool value) {
    addAttr(nullptr, name, value ? "true" : "false");
}

void XElem::addAttrBool(const XNs* ns, const char* name, bool value) {
    addAttr(ns, name, value ? "true" : "false");
}

void XElem::takeAttrs(XElem* from) {
    if (from == nullptr || from == this || from->attrs_ == nullptr) return;
    if (attrsTail_ == nullptr) {
        attrs_ = from->attrs_;
    } else {
        attrsTail_->next = from->attrs_;
    }
    attrsTail_ = from->attrsTail_;
    attrCount_ += from->attrCount_;
    from->attrs_ = from->attrsTail_ = nullptr;
    from->attrCount_ = 0;
}

void XElem::unlinkAttr(Attr* target) {
    Attr* prev = nullptr;
    for (Attr* a = attrs_; a != nullptr; prev = a, a = a->next) {
        if (a != target) continue;
        (prev != nullptr ? prev->next : attrs_) = a->next;
        if (attrsTail_ == a) attrsTail_ = prev;
        --attrCount_;
        Attr::destroy(a);
        return;
    }
}

void XElem::removeAttr(const char* name) {
    unlinkAttr(findAttr(nullptr, false, name));
}

void XElem::removeAttr(const XNs* ns, const char* name) {
    unlinkAttr(findAttr(ns, true, name));
}

void XElem::clearAttr() {
    // The nodes go to the front of the spare list in their order, so that the next tag
    // with the same attributes finds each node with the namespace it had.
    for (Attr* a = attrs_; a != nullptr; a = a->next)
        a->release();
    if (attrsTail_ != nullptr) {
        attrsTail_->next = spareAttrs_;
        spareAttrs_ = attrs_;
    }
    attrs_ = attrsTail_ = nullptr;
    attrCount_ = 0;
}

// --- content

XContent* XElem::getContent(int i) const {
    if (i < 0 || i >= contentCount_) return nullptr;
    Item* item = content_;
    for (; i > 0; --i)
        item = item->next;
    return item->node;
}

void XElem::addContent(XContent* c) {
    addContent(contentCount_, c);
}

void XElem::addContent(int i, XContent* c) {
    if (c == nullptr || c->getParent() != nullptr || i < 0 || i > contentCount_) return;
    auto* item = static_cast<Item*>(xml::itemAlloc());
    if (item == nullptr) return;
    item->node = c;
    item->next = nullptr;
    if (i == 0) {
        item->next = content_;
        content_ = item;
        if (contentTail_ == nullptr) contentTail_ = item;
    } else if (i == contentCount_) {
        contentTail_->next = item;
        contentTail_ = item;
    } else {
        Item* prev = content_;
        for (int k = 1; k < i; ++k)
            prev = prev->next;
        item->next = prev->next;
        prev->next = item;
    }
    c->setParent(this);
    ++contentCount_;
}

XContent* XElem::replaceContent(int i, XContent* c) {
    if (c == nullptr || i < 0 || i >= contentCount_ || c->getParent() != nullptr) return nullptr;
    Item* item = content_;
    for (; i > 0; --i)
        item = item->next;
    XContent* old = item->node;
    item->node = c;
    c->setParent(this);
    return old;
}

XContent* XElem::removeContent(int i) {
    if (i < 0 || i >= contentCount_) return nullptr;
    Item* prev = nullptr;
    Item* item = content_;
    for (; i > 0; --i) {
        prev = item;
        item = item->next;
    }
    (prev != nullptr ? prev->next : content_) = item->next;
    if (contentTail_ == item) contentTail_ = prev;
    XContent* node = item->node;
    xml::itemFree(item);
    --contentCount_;
    return node;
}

XContent* XElem::removeContent(XContent* c) {
    int i = 0;
    for (Item* item = content_; item != nullptr; item = item->next, ++i) {
        if (item->node == c) return removeContent(i);
    }
    return nullptr;
}

void XElem::clearContent() {
    Item* item = content_;
    while (item != nullptr) {
        Item* next = item->next;
        delete item->node;
        xml::itemFree(item);
        item = next;
    }
    content_ = contentTail_ = nullptr;
    contentCount_ = 0;
}

XElem* XElem::elem(int i) const {
    XContent* c = getContent(i);
    return c != nullptr && c->getType() == ELEMENT ? static_cast<XElem*>(c) : nullptr;
}

XText* XElem::text(int i) const {
    XContent* c = getContent(i);
    return c != nullptr && c->getType() == TEXT ? static_cast<XText*>(c) : nullptr;
}

XText* XElem::text() const {
    return text(0);
}

const char* XElem::string() const {
    XText* t = text();
    return t != nullptr ? t->string() : nullptr;
}

XElem* XElem::elem(const char* name) const {
    if (name == nullptr) return nullptr;
    for (Item* i = content_; i != nullptr; i = i->next) {
        if (i->node->getType() != ELEMENT) continue;
        auto* e = static_cast<XElem*>(i->node);
        if (std::strcmp(e->name_, name) == 0) return e;
    }
    return nullptr;
}

XElem* XElem::elem(const XNs* ns, const char* name) const {
    if (name == nullptr) return nullptr;
    for (Item* i = content_; i != nullptr; i = i->next) {
        if (i->node->getType() != ELEMENT) continue;
        auto* e = static_cast<XElem*>(i->node);
        if (std::strcmp(e->name_, name) == 0 && XNs::equals(e->ns_, ns)) return e;
    }
    return nullptr;
}

XElemList* XElem::elems() const {
    auto* list = new XElemList();
    for (Item* i = content_; i != nullptr; i = i->next) {
        if (i->node->getType() == ELEMENT) list->add(static_cast<XElem*>(i->node));
    }
    return list;
}

XElemList* XElem::elems(const char* name) const {
    auto* list = new XElemList();
    for (Item* i = content_; i != nullptr && name != nullptr; i = i->next) {
        if (i->node->getType() != ELEMENT) continue;
        auto* e = static_cast<XElem*>(i->node);
        if (std::strcmp(e->name_, name) == 0) list->add(e);
    }
    return list;
}

XElemList* XElem::elems(const XNs* ns) const {
    auto* list = new XElemList();
    for (Item* i = content_; i != nullptr; i = i->next) {
        if (i->node->getType() != ELEMENT) continue;
        auto* e = static_cast<XElem*>(i->node);
        if (XNs::equals(e->ns_, ns)) list->add(e);
    }
    return list;
}

XElemList* XElem::elems(const XNs* ns, const char* name) const {
    auto* list = new XElemList();
    for (Item* i = content_; i != nullptr && name != nullptr; i = i->next) {
        if (i->node->getType() != ELEMENT) continue;
        auto* e = static_cast<XElem*>(i->node);
        if (std::strcmp(e->name_, name) == 0 && XNs::equals(e->ns_, ns)) list->add(e);
    }
    return list;
}

// --- output

void XElem::write(XWriter* out, int indent) const {
    if (out == nullptr) return;
    // A tree goes out in blocks of 64 KB (the run's own 8 KB without the memory), or in
    // the writer's own block when it has one.
    const int kBlock = 64 * 1024;
    char* block = xml::XmlOut::gathers(out) ? nullptr : static_cast<char*>(std::malloc(kBlock));
    if (block == nullptr) {
        xml::withRun(out, [this, indent](xml::XmlOut& run) { writeTo(run, indent); });
        return;
    }
    {
        xml::XmlOut run(out, block, kBlock);
        writeTo(run, indent);
    }
    std::free(block);
}

namespace {

// Bytes the children of an element write on average from which the siblings after the
// one being written are warmed several steps ahead.
const size_t kLongChild = 512;

// The lines of a node that writing it reads first: an element's names and lists fill
// its first four.
void prefetchNode(const XContent* node) {
    const char* p = reinterpret_cast<const char*>(node);
    prefetch(p);
    prefetch(p + 64);
    prefetch(p + 128);
    prefetch(p + 192);
}

}  // namespace

// A tree read from a large document lies in memory the caches no longer hold, and each
// node is reached through the one before it. While one child is written, the siblings
// after it are brought in a step at a time, each step reading only what the step before
// asked for one child earlier: the list item five ahead and the node four ahead, the
// attributes and first content item three ahead, that item's node two ahead, and the
// first kilobyte of the next sibling's text.
void XElem::warmAhead(const Item* i) {
    const Item* n1 = i->next;
    if (n1 == nullptr) return;
    const Item* n2 = n1->next;
    if (n2 != nullptr) {
        const Item* n3 = n2->next;
        if (n3 != nullptr) {
            if (n3->next != nullptr) {
                prefetch(n3->next->next);
                prefetchNode(n3->next->node);
            }
            if (n3->node->getType() == ELEMENT) {
                const auto* e = static_cast<const XElem*>(n3->node);
                prefetch(e->attrs_);
                prefetch(e->content_);
            }
        }
        if (n2->node->getType() == ELEMENT) {
            const auto* e = static_cast<const XElem*>(n2->node);
            if (e->content_ != nullptr) prefetchNode(e->content_->node);
        }
    }
    const XContent* next = n1->node;
    if (next->getType() == ELEMENT) {
        const Item* first = static_cast<const XElem*>(next)->content_;
        if (first == nullptr) return;
        next = first->node;
    }
    if (next->getType() != TEXT) return;
    // The escaping asks for a text's lines some way ahead of where it reads; up to there
    // this asks for them.
    const auto* text = static_cast<const XText*>(next);
    const char* p = text->string();
    const int length = text->getLength();
    for (int at = 0; at < length && at < xml::XmlOut::kReadAhead; at += 64)
        prefetch(p + at);
}

void XElem::writeTo(xml::XmlOut& out, int indent) const {
    // The qualified name is "prefix:name" exactly when the element has a prefix to show.
    size_t qnameLen = qnameLength_;
    out.spaces(indent);
    out.put('<');
    out.put(qname_, qnameLen);
    for (Attr* a = attrs_; a != nullptr; a = a->next) {
        out.put(' ');
        // An attribute namespace without a prefix is written as no prefix.
        if (a->ns != nullptr && !a->ns->isDefault()) {
            out.put(a->ns->getPrefix());
            out.put(':');
        }
        // A name kept in the node's own block is followed there by its value.
        if (a->inBlock(a->name) && a->inBlock(a->value) && a->value > a->name) {
            out.put(a->name, static_cast<size_t>(a->value - a->name - 1));
        } else {
            out.put(a->name);
        }
        out.put("=\"", 2);
        out.escaped(a->value);
        out.put('"');
    }
    if (content_ == nullptr) {
        out.put("/>\n", 3);
        return;
    }
    if (contentCount_ == 1 && content_->node->getType() == TEXT) {
        out.put('>');
        const auto* t = static_cast<const XText*>(content_->node);
        out.text(t->string(), static_cast<size_t>(t->getLength()), t->isCDATA());
    } else {
        out.put(">\n", 2);
        const size_t start = out.count();
        size_t written = 0;  // children
        for (Item* i = content_; i != nullptr; i = i->next, ++written) {
            // Children that take a while to write (long texts) leave time to bring in
            // several siblings ahead; for small ones the lines of the next sibling's node
            // are enough (the list items lie together in their slab).
            if (written > 0 && out.count() - start >= kLongChild * written) {
                warmAhead(i);
            } else if (i->next != nullptr) {
                prefetch(i->next->next);
                prefetchNode(i->next->node);
            }
            if (i->node->getType() == ELEMENT) {
                static_cast<const XElem*>(i->node)->writeTo(out, indent + 1);
            } else {
                const auto* t = static_cast<const XText*>(i->node);
                out.text(t->string(), static_cast<size_t>(t->getLength()), t->isCDATA());
            }
        }
        out.spaces(indent);
    }
    out.put("</", 2);
    out.put(qname_, qnameLen);
    out.put(">\n", 2);
}

}  // namespace velmora
