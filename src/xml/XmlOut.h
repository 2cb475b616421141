// The writer's output run: escaped text, markup and indentation are gathered in a block
// on the stack and handed to the XWriter in one write(buf, n) per block, so that a whole
// element costs a few calls into the target (and a few takes of its lock) instead of
// two virtual calls and a lock per byte. Whatever is gathered reaches the writer when
// the run is flushed or ends; the bytes are exactly those the byte-wise helpers write.
#pragma once

#include <cstddef>
#include <cstring>

#include <velmora/xml/XWriter.h>

namespace velmora {
namespace xml {

class XmlOut {
public:
    explicit XmlOut(XWriter* out) : out_(out), buf_(local_), cap_(kSize) {}
    // Gathers into the caller's `buf` of `cap` bytes (at least 64): a whole tree goes out
    // in larger blocks, so that a file target gets fewer, larger writes.
    XmlOut(XWriter* out, char* buf, int cap) : out_(out), buf_(buf), cap_(cap) {}
    ~XmlOut() { flush(); }

    void put(char c) {
        if (n_ == cap_) flush();
        buf_[n_++] = c;
    }
    void put(const char* s, size_t n) {
        if (n <= static_cast<size_t>(cap_ - n_)) {
            std::memcpy(buf_ + n_, s, n);
            n_ += static_cast<int>(n);
            return;
        }
        putLong(s, n);
    }
    void put(const char* s) {
        if (s != nullptr) put(s, std::strlen(s));
    }
    void spaces(int n);
    // `n` bytes escaped as XWriter::safe(char, escapeWhitespace) writes each one.
    void escaped(const char* s, size_t n, bool escapeWhitespace);
    // A zero-terminated text, escaped with white space.
    void escaped(const char* s);
    // Character data: a CDATA section raw inside its markers, other text escaped with
    // line feeds, carriage returns and tabs kept.
    void text(const char* s, size_t n, bool cdata) {
        if (!cdata) return escaped(s, n, false);
        put("<![CDATA[", 9);
        put(s, n);
        put("]]>", 3);
    }
    void flush() {
        if (n_ > 0) out_->write(buf_, n_);
        n_ = 0;
    }

private:
    enum { kSize = 8192 };
    XmlOut(const XmlOut&) = delete;
    XmlOut& operator=(const XmlOut&) = delete;
    void putLong(const char* s, size_t n);
    void escape(unsigned char c);

    XWriter* out_;
    char* buf_;
    int cap_;
    int n_ = 0;
    char local_[kSize];
};

}  // namespace xml
}  // namespace velmora
