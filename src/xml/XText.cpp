#include <velmora/xml/XText.h>

#include <cstring>

#include <velmora/xml/XWriter.h>

#include "xml/XmlOut.h"

namespace velmora {

XText::XText() : buffer_(32) {}

XText::XText(const char* text)
    : XText(text, text != nullptr ? static_cast<int>(std::strlen(text)) : 0) {}

XText::XText(const char* text, int length) : buffer_(text, length) {}

XText::~XText() = default;

XContent* XText::newCopy() const {
    XText* copy = new XText(buffer_.getString(), buffer_.getLength());
    copy->cdata_ = cdata_;
    return copy;
}

void XText::write(XWriter* out) const {
    if (out == nullptr) return;
    const char* s = buffer_.getString();
    size_t n = static_cast<size_t>(buffer_.getLength());
    bool cdata = cdata_;
    xml::withRun(out, [s, n, cdata](xml::XmlOut& run) { run.text(s, n, cdata); });
}

}  // namespace velmora
