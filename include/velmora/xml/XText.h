// Character data of an XML tree, optionally marked as a CDATA section. The text may hold
// zero bytes; getLength() tells its full length.
//
//   velmora::XText* t = new velmora::XText("a < b");
//   elem->addContent(t);  // written as "a &lt; b"
#pragma once

#include <cstddef>

#include <velmora/text/StringWriter.h>
#include <velmora/xml/XContent.h>

namespace velmora {

class XWriter;

class VELMORA_API XText : public XContent {
public:
    XText();                              // empty, capacity 32
    explicit XText(const char* text);     // null is taken as empty
    XText(const char* text, int length);  // exactly `length` bytes, zeros included
    ~XText() override;

    int getType() const override { return TEXT; }
    XContent* newCopy() const override;

    bool isCDATA() const { return cdata_; }
    void setCDATA(bool cdata) { cdata_ = cdata; }
    const char* string() const { return buffer_.getString(); }
    int getLength() const { return buffer_.getLength(); }
    // The characters themselves, for appending or clearing in place.
    StringWriter* getBuffer() const { return &buffer_; }

    // A CDATA node as "<![CDATA[" raw "]]>"; other text escaped with line feeds, carriage
    // returns and tabs kept literal.
    void write(XWriter* out) const;

private:
    // Held inside the node (one allocation less per text); locked as any string writer.
    mutable StringWriter buffer_;
    bool cdata_ = false;
};

}  // namespace velmora
