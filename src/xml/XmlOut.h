// The writer's output run: escaped text, markup and indentation are gathered in a block
// and handed to the XWriter's target in one write(buf, n) per block, so that a whole
// element costs a few calls into the target (and a few takes of its lock) instead of
// two virtual calls and a lock per byte. A run gathers in the writer's own block when it
// has one (BufferedXWriter), else in a block on the stack (or the caller's) that reaches
// the writer when the run is flushed or ends. The bytes are exactly those the byte-wise
// helpers write.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <velmora/xml/XWriter.h>

namespace velmora {
namespace xml {

class XmlOut {
public:
    enum { kSize = 8192 };  // the block of a run on the stack
    // How far ahead of the escaping its text is asked for from memory.
    enum { kReadAhead = 1024 };
    // Gathers into the caller's `buf` of `cap` bytes (at least 64) unless the writer has
    // a block of its own: a whole tree goes out in larger blocks, so that a file target
    // gets fewer, larger writes.
    XmlOut(XWriter* out, char* buf, int cap)
        : out_(out), buf_(buf), cap_(cap), utf8_(out->isUtf8()) {
        if (out->block_ != nullptr) {
            buf_ = out->block_;
            cap_ = out->blockCap_;
            n_ = out->blockLen_;
            borrowed_ = true;
        }
    }
    ~XmlOut() {
        if (borrowed_) {
            out_->blockLen_ = n_;
        } else {
            flush();
        }
    }
    // True when `out` gathers in a block of its own (which every run then uses).
    static bool gathers(const XWriter* out) { return out->block_ != nullptr; }

    void put(char c) {
        if (n_ == cap_) flush();
        buf_[n_++] = c;
    }
    void put(const char* s, size_t n) {
        if (n <= static_cast<size_t>(cap_ - n_)) {
            copy(buf_ + n_, s, n);
            n_ += static_cast<int>(n);
            return;
        }
        putLong(s, n);
    }
    void put(const char* s) {
        if (s != nullptr) put(s, std::strlen(s));
    }
    void spaces(int n) {
        // The usual indentation, a few spaces, as two fixed-size stores; what they write
        // past the spaces lies beyond the gathered bytes and is overwritten next.
        if (n <= 16 && cap_ - n_ >= 16) {
            static const char kSpaces[16] = {' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ',
                                             ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '};
            std::memcpy(buf_ + n_, kSpaces, 16);
            if (n > 0) n_ += n;
            return;
        }
        manySpaces(n);
    }
    // `n` bytes escaped as XWriter::safe(char, escapeWhitespace) writes each one (in the
    // writer's UTF-8 mode, well-formed UTF-8 sequences as they are).
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
    void flush();
    // Bytes gathered by this run so far, for telling how much a piece of it wrote.
    size_t count() const { return flushed_ + static_cast<size_t>(n_); }

private:
    XmlOut(const XmlOut&) = delete;
    XmlOut& operator=(const XmlOut&) = delete;
    void putLong(const char* s, size_t n);
    void manySpaces(int n);
    void escape(unsigned char c);
    friend struct XmlOutWide;
    // Names, values and markup are mostly a few bytes: those are copied with fixed-size
    // moves (two overlapping ones) rather than a call into the library's memcpy.
    static void copy(char* to, const char* from, size_t n) {
        if (n > 32) {
            std::memcpy(to, from, n);
        } else if (n >= 16) {
            char a[16], b[16];
            std::memcpy(a, from, 16);
            std::memcpy(b, from + n - 16, 16);
            std::memcpy(to, a, 16);
            std::memcpy(to + n - 16, b, 16);
        } else if (n >= 8) {
            uint64_t a, b;
            std::memcpy(&a, from, 8);
            std::memcpy(&b, from + n - 8, 8);
            std::memcpy(to, &a, 8);
            std::memcpy(to + n - 8, &b, 8);
        } else if (n >= 4) {
            uint32_t a, b;
            std::memcpy(&a, from, 4);
            std::memcpy(&b, from + n - 4, 4);
            std::memcpy(to, &a, 4);
            std::memcpy(to + n - 4, &b, 4);
        } else {
            for (size_t i = 0; i < n; ++i)
                to[i] = from[i];
        }
    }

    XWriter* out_;
    char* buf_;
    int cap_;
    int n_ = 0;
    bool utf8_;
    bool borrowed_ = false;  // buf_ is the writer's block
    size_t flushed_ = 0;     // bytes handed on by flush()
};

#if defined(_MSC_VER)
#define VELMORA_XML_NOINLINE __declspec(noinline)
#else
#define VELMORA_XML_NOINLINE __attribute__((noinline))
#endif

// Runs `f` with a run on the writer's own block, or else on a block of the stack, kept in
// a function of its own so that the writers with a block never set up the large frame.
template <typename F>
VELMORA_XML_NOINLINE void withStackRun(XWriter* out, F& f) {
    char local[XmlOut::kSize];
    XmlOut run(out, local, XmlOut::kSize);
    f(run);
}

template <typename F>
inline void withRun(XWriter* out, F f) {
    if (XmlOut::gathers(out)) {
        XmlOut run(out, nullptr, 0);
        f(run);
    } else {
        withStackRun(out, f);
    }
}

}  // namespace xml
}  // namespace velmora
