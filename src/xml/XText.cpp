#include <velmora/xml/XText.h>

#include <cstring>

#include <velmora/xml/XWriter.h>

namespace velmora {

XText::XText() : buffer_(new StringWriter(32)) {}

XText::XText(const char* text)
    : XText(text, text != nullptr ? static_cast<int>(std::strlen(text)) : 0) {}

XText::XText(const char* text, int length) : buffer_(new StringWriter(length)) {
    if (text != nullptr && length > 0) buffer_->write(text, length);
}

XText::~XText() {
    delete buffer_;
}

XContent* XText::newCopy() const {
    XText* copy = new XText(buffer_->getString(), buffer_->getLength());
    copy->cdata_ = cdata_;
    return copy;
}

void XText::write(XWriter* out) const {
    if (out == nullptr) return;
    if (cdata_) {
        out->w("<![CDATA[");
        out->write(buffer_->getString(), buffer_->getLength());
        out->w("]]>");
    } else {
        out->safe(buffer_->getString(), buffer_->getLength(), false);
    }
}

}  // namespace velmora
