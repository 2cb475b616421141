// An XML element: a local name, an optional namespace, attributes and child content,
// both kept in order. The element owns its attributes, its namespace copy and its
// children. Names and attribute texts under 128 bytes live inside the element, so a
// typical element costs one allocation and each attribute one more.
//
//   velmora::XElem port("port");
//   port.setAttrInt("number", 8080);
//   port.addContent(new velmora::XText("http"));
//   int n = port.geti("number", 80);  // 8080
#pragma once

#include <cstddef>

#include <cstdint>

#include <velmora/xml/XContent.h>
#include <velmora/xml/XElemList.h>
#include <velmora/xml/XNs.h>
#include <velmora/xml/XText.h>

namespace velmora {

class XWriter;
namespace xml {
class XmlOut;
}

class VELMORA_API XElem : public XContent {
public:
    XElem();  // named "undefined"
    explicit XElem(const char* name);
    XElem(const XNs* ns, const char* name);  // copies `ns` when not null
    // Makes a namespace from the two strings unless both are null.
    XElem(const char* prefix, const char* uri, const char* name);
    ~XElem() override;

    int getType() const override { return ELEMENT; }
    XContent* newCopy() const override;

    // Names and namespaces.
    void setName(const char* name);
    const char* getName() const { return name_; }
    const char* getQName() const { return qname_; }  // "prefix:name" or the name
    const char* prefix() const;                      // null when none or empty
    const char* uri() const;
    const XNs* getNs() const { return ns_; }
    void setNs(const XNs* ns);  // stores a copy (or none)
    // The namespace of `uri` as this element knows it: its own, else the first attribute
    // whose value is `uri` when that attribute is a declaration. New, caller-owned, or null.
    XNs* findNs(const char* uri) const;
    // Declares `ns` with an xmlns attribute (replacing an existing one); returns `ns`.
    XNs* defineNs(XNs* ns);
    XNs* defineNs(const char* prefix, const char* uri);  // the result belongs to the caller

    // Attributes, found by local name (case-sensitive).
    int getAttrCount() const { return attrCount_; }
    const char* attrName(int i) const;  // null when i >= getAttrCount()
    const char* attrValue(int i) const;
    const XNs* attrNs(int i) const;
    int attrIndex(const char* name) const;  // -1 when absent
    int attrIndex(const XNs* ns, const char* name) const;
    const char* get(const char* name) const;
    const char* get(const char* name, const char* def) const;
    const char* get(const XNs* ns, const char* name) const;
    const char* get(const XNs* ns, const char* name, const char* def) const;
    // "true"/"false" in any case; anything else gives `def`.
    bool getb(const char* name, bool def) const;
    // The leading decimal number; a value that is no number reads as 0, not `def`.
    int geti(const char* name, int def) const;
    // Kept: read as a 32-bit number (saturating) and widened, whatever setAttrLong wrote.
    int64_t getl(const char* name, int64_t def) const;

    void setAttr(const char* name, const char* value);  // replaces the first or appends
    void setAttr(const XNs* ns, const char* name, const char* value);
    void setAttrInt(const char* name, int value);
    void setAttrInt(const XNs* ns, const char* name, int value);
    void setAttrLong(const char* name, int64_t value);
    void setAttrLong(const XNs* ns, const char* name, int64_t value);
    void setAttrBool(const char* name, bool value);
    void setAttrBool(const XNs* ns, const char* name, bool value);
    void addAttr(const char* name, const char* value);  // always appends
    void addAttr(const XNs* ns, const char* name, const char* value);
    void addAttrInt(const char* name, int value);
    void addAttrInt(const XNs* ns, const char* name, int value);
    void addAttrLong(const char* name, int64_t value);
    void addAttrLong(const XNs* ns, const char* name, int64_t value);
    void addAttrBool(const char* name, bool value);
    void addAttrBool(const XNs* ns, const char* name, bool value);
    void removeAttr(const char* name);  // the first attribute of that name
    void removeAttr(const XNs* ns, const char* name);
    void clearAttr();

    // Content, 0-based.
    int getContentCount() const { return contentCount_; }
    XContent* getContent(int i) const;
    // Takes ownership unless `c` already has a parent or `i` is past the end (then
    // nothing happens). Index 0 inserts first, i inserts after node i - 1.
    void addContent(XContent* c);
    void addContent(int i, XContent* c);
    // Puts `c` in place of node i and hands the old node back (its parent left set).
    XContent* replaceContent(int i, XContent* c);
    XContent* removeContent(int i);        // handed back with its parent left set
    XContent* removeContent(XContent* c);  // null when `c` is no child of this element
    void clearContent();                   // deletes every child
    XElem* elem(int i) const;              // child i when it is an element
    XText* text(int i) const;
    XText* text() const;                  // the first child when it is text
    const char* string() const;           // the characters of text(), or null
    XElem* elem(const char* name) const;  // the first child element of that local name
    XElem* elem(const XNs* ns, const char* name) const;
    // New caller-owned lists of matching child elements (empty, never null).
    XElemList* elems() const;
    XElemList* elems(const char* name) const;
    XElemList* elems(const XNs* ns) const;
    XElemList* elems(const XNs* ns, const char* name) const;

    // Writes the element and its subtree, this element indented by `indent` spaces.
    void write(XWriter* out, int indent) const;

    struct Attr;  // an attribute list node
    struct Item;  // a content list node

private:
    friend class XParser;
    // Moves the attributes of `from` (left without any) to the end of this element's.
    void takeAttrs(XElem* from);
    void storeNames(const char* name);
    void storeNames(const char* name, size_t length);  // `length` bytes of `name`
    Attr* attrAt(int i) const;
    Attr* findAttr(const XNs* ns, bool useNs, const char* name) const;
    void appendAttr(const XNs* ns, const char* name, const char* value);
    void putAttr(const XNs* ns, bool useNs, const char* name, const char* value);
    void unlinkAttr(Attr* a);
    void writeTo(xml::XmlOut& out, int indent) const;
    static void warmAhead(const Item* i);  // for writeTo: the siblings after `i`

    // The qualified name "prefix:name" (or just the name), inside the element when its
    // size is at most 128 bytes, else in a heap block; name_ points into it after the
    // colon, and without a prefix both are the same text.
    char nameInline_[128];
    char* name_ = nullptr;
    char* qname_ = nullptr;
    size_t qnameLength_ = 0;  // of qname_, for writing it without measuring
    Attr* attrs_ = nullptr;
    Attr* attrsTail_ = nullptr;
    int attrCount_ = 0;
    // Attribute nodes kept after clearAttr() for reuse, so that an element reused for
    // every start tag of a level allocates nothing for its attributes.
    Attr* spareAttrs_ = nullptr;
    Item* content_ = nullptr;
    Item* contentTail_ = nullptr;
    int contentCount_ = 0;
    XNs* ns_ = nullptr;
};

}  // namespace velmora
