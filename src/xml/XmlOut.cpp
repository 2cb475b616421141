#include "xml/XmlOut.h"

namespace velmora {
namespace xml {

namespace {

// Bytes the escaping writes as themselves: printable ASCII except the quotes and < > &.
struct PlainTable {
    bool plain[256];
    constexpr PlainTable() : plain() {
        for (int c = 32; c <= 126; ++c)
            plain[c] = c != '"' && c != '\'' && c != '<' && c != '>' && c != '&';
    }
};

constexpr PlainTable kTable;

const char kHex[] = "0123456789abcdef";

}  // namespace

void XmlOut::putLong(const char* s, size_t n) {
    flush();
    if (n >= static_cast<size_t>(cap_)) {
        // Too long for the block: straight through, in pieces an int can count.
        while (n > 0) {
            int piece = n > 0x40000000 ? 0x40000000 : static_cast<int>(n);
            out_->write(s, piece);
            s += piece;
            n -= static_cast<size_t>(piece);
        }
        return;
    }
    std::memcpy(buf_, s, n);
    n_ = static_cast<int>(n);
}

void XmlOut::spaces(int n) {
    while (n > 0) {
        if (n_ == cap_) flush();
        int room = cap_ - n_;
        int k = n < room ? n : room;
        std::memset(buf_ + n_, ' ', static_cast<size_t>(k));
        n_ += k;
        n -= k;
    }
}

// A byte that does not stand for itself: its named entity, or "&#x%x;" (lower-case
// hexadecimal without leading zeros).
void XmlOut::escape(unsigned char c) {
    switch (c) {
        case '<':
            put("&lt;", 4);
            return;
        case '>':
            put("&gt;", 4);
            return;
        case '&':
            put("&amp;", 5);
            return;
        default:
            break;
    }
    char ref[6] = {'&', '#', 'x'};
    int len = 3;
    if (c >= 16) ref[len++] = kHex[c >> 4];
    ref[len++] = kHex[c & 15];
    ref[len++] = ';';
    put(ref, static_cast<size_t>(len));
}

void XmlOut::escaped(const char* s, size_t n, bool escapeWhitespace) {
    const char* end = s + n;
    while (s < end) {
        const char* start = s;
        while (s < end && kTable.plain[static_cast<unsigned char>(*s)])
            ++s;
        if (s > start) put(start, static_cast<size_t>(s - start));
        if (s == end) return;
        char c = *s++;
        if (!escapeWhitespace && (c == '\n' || c == '\r' || c == '\t')) {
            put(c);
        } else {
            escape(static_cast<unsigned char>(c));
        }
    }
}

// The same in one pass over a zero-terminated text: the zero is no plain byte, so a run
// stops at it as at any byte that needs a reference.
void XmlOut::escaped(const char* s) {
    if (s == nullptr) return;
    for (;;) {
        const char* start = s;
        while (kTable.plain[static_cast<unsigned char>(*s)])
            ++s;
        if (s > start) put(start, static_cast<size_t>(s - start));
        char c = *s++;
        if (c == '\0') return;
        escape(static_cast<unsigned char>(c));
    }
}

}  // namespace xml
}  // namespace velmora
