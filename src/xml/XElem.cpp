#include <velmora/xml/XElem.h>

#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <velmora/xml/XWriter.h>

namespace velmora {

namespace {

const size_t kInline = 128;

// Stores `s` in the inline buffer when its size with the terminator is at most `limit`,
// else in a heap block; frees the heap block `*p` held before. A failed allocation leaves
// an empty text rather than none.
void storeText(char* inlineBuf, char** p, const char* s, size_t limit) {
    if (s == nullptr) s = "";
    size_t size = std::strlen(s) + 1;
    char* target = inlineBuf;
    if (size > limit) {
        target = static_cast<char*>(std::malloc(size));
        if (target == nullptr) {
            target = inlineBuf;
            s = "";
            size = 1;
        }
    }
    if (target != s) std::memmove(target, s, size);
    if (*p != nullptr && *p != inlineBuf) std::free(*p);
    *p = target;
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

struct XElem::Attr {
    char nameInline[kInline];
    char* name = nullptr;
    char valueInline[kInline];
    char* value = nullptr;
    XNs* ns = nullptr;
    Attr* next = nullptr;

    void set(const XNs* n, const char* nm, const char* v) {
        storeText(nameInline, &name, nm, kInline - 1);
        storeText(valueInline, &value, v, kInline - 1);
        setNs(n);
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
        // Heap texts go back; the node keeps its inline buffers and namespace for reuse.
        freeText(nameInline, name);
        freeText(valueInline, value);
        name = value = nullptr;
    }
    ~Attr() { delete ns; }
};

struct XElem::Item {
    XContent* node;
    Item* next;
};

XElem::XElem() : XElem("undefined") {}

XElem::XElem(const char* name) : name_(nullptr), qname_(nullptr) {
    storeText(nameInline_, &name_, name, kInline);
    updateQName();
}

XElem::XElem(const XNs* ns, const char* name) : name_(nullptr), qname_(nullptr) {
    ns_ = copyNs(ns);
    storeText(nameInline_, &name_, name, kInline);
    updateQName();
}

XElem::XElem(const char* prefix, const char* uri, const char* name)
    : name_(nullptr), qname_(nullptr) {
    if (prefix != nullptr || uri != nullptr) ns_ = new XNs(prefix, uri);
    storeText(nameInline_, &name_, name, kInline);
    updateQName();
}

XElem::~XElem() {
    clearAttr();
    while (spareAttrs_ != nullptr) {
        Attr* next = spareAttrs_->next;
        delete spareAttrs_;
        spareAttrs_ = next;
    }
    clearContent();
    delete ns_;
    freeText(nameInline_, name_);
    freeText(qnameInline_, qname_);
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
    storeText(nameInline_, &name_, name, kInline);
    updateQName();
}

void XElem::updateQName() {
    const char* p = prefix();
    if (p == nullptr) {
        storeText(qnameInline_, &qname_, name_, kInline - 1);
        return;
    }
    size_t pl = std::strlen(p);
    size_t nl = std::strlen(name_);
    size_t size = pl + 1 + nl + 1;
    char* target = qnameInline_;
    if (size > kInline - 1) {
        target = static_cast<char*>(std::malloc(size));
        if (target == nullptr) {
            storeText(qnameInline_, &qname_, name_, kInline - 1);
            return;
        }
    }
    std::memcpy(target, p, pl);
    target[pl] = ':';
    std::memcpy(target + pl + 1, name_, nl + 1);
    if (qname_ != nullptr && qname_ != qnameInline_) std::free(qname_);
    qname_ = target;
}

const char* XElem::prefix() const {
    if (ns_ == nullptr || ns_->isDefault()) return nullptr;
    return ns_->getPrefix();
}

const char* XElem::uri() const {
    return ns_ != nullptr ? ns_->getUri() : nullptr;
}

void XElem::setNs(const XNs* ns) {
    // The same namespace again (as the parser sets it on every start tag) keeps the copy
    // already held instead of making a new one.
    bool same = ns != nullptr && ns_ != nullptr && ns != ns_ &&
                sameText(ns->getPrefix(), ns_->getPrefix()) &&
                sameText(ns->getUri(), ns_->getUri());
    if (same) {
        ns_->setDeclarer(ns->getDeclarer());
    } else if (ns != ns_) {
        delete ns_;
        ns_ = copyNs(ns);
    }
    updateQName();
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
    Attr* a = spareAttrs_;
    if (a != nullptr) {
        spareAttrs_ = a->next;
        a->next = nullptr;
    } else {
        a = new Attr();
    }
    a->set(ns, name, value);
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
        storeText(a->valueInline, &a->value, value, kInline - 1);
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

void XElem::unlinkAttr(Attr* target) {
    Attr* prev = nullptr;
    for (Attr* a = attrs_; a != nullptr; prev = a, a = a->next) {
        if (a != target) continue;
        (prev != nullptr ? prev->next : attrs_) = a->next;
        if (attrsTail_ == a) attrsTail_ = prev;
        --attrCount_;
        a->release();
        delete a;
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
    Item* item = new Item{c, nullptr};
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
    delete item;
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
        delete item;
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
    const char* p = prefix();
    out->indent(indent)->w('<');
    if (p != nullptr) out->w(p)->w(':');
    out->w(name_);
    for (Attr* a = attrs_; a != nullptr; a = a->next) {
        out->w(' ');
        // An attribute namespace without a prefix is written as no prefix.
        if (a->ns != nullptr && !a->ns->isDefault()) out->w(a->ns->getPrefix())->w(':');
        out->w(a->name)->w("=\"")->safe(a->value, true)->w('"');
    }
    if (content_ == nullptr) {
        out->w("/>\n");
        return;
    }
    if (contentCount_ == 1 && content_->node->getType() == TEXT) {
        out->w('>');
        static_cast<XText*>(content_->node)->write(out);
    } else {
        out->w(">\n");
        for (Item* i = content_; i != nullptr; i = i->next) {
            if (i->node->getType() == ELEMENT) {
                static_cast<XElem*>(i->node)->write(out, indent + 1);
            } else {
                static_cast<XText*>(i->node)->write(out);
            }
        }
        out->indent(indent);
    }
    out->w("</");
    if (p != nullptr) out->w(p)->w(':');
    out->w(name_)->w(">\n");
}

}  // namespace velmora
