// The XML parser on any bytes, in the default (ASCII) mode and in the UTF-8 mode: every
// event is read (and must be the same whether the parser scans the reader's buffer or gets
// one byte per call), the trees it builds are written with the writer and parsed again,
// and the second tree must match the first. In the UTF-8 mode the writer's escaping of the
// bytes must also match a byte-by-byte reference, and what it writes be well-formed UTF-8. Texts are
// compared with white space removed and neighbouring texts joined, since the writer lays
// mixed content out on lines of its own; the namespace of an unprefixed element is not
// compared, since a prefix the document never declared is lost in the tree.
#include <velmora/text/StringReader.h>
#include <velmora/xml/BufferedXWriter.h>
#include <velmora/xml/XElem.h>
#include <velmora/xml/XParser.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

using namespace velmora;

namespace {

bool same(const char* a, const char* b) {
    if (a == nullptr || b == nullptr) return a == b;
    return std::strcmp(a, b) == 0;
}

// Content as compared: elements, CDATA sections, and runs of plain text without spaces.
struct Piece {
    const XElem* elem;
    bool cdata;
    std::string text;
};

std::vector<Piece> pieces(const XElem* e) {
    std::vector<Piece> out;
    std::string run;
    auto flush = [&] {
        if (!run.empty()) out.push_back({nullptr, false, run});
        run.clear();
    };
    for (int i = 0; i < e->getContentCount(); ++i) {
        if (const XElem* child = e->elem(i)) {
            flush();
            out.push_back({child, false, ""});
            continue;
        }
        const XText* t = e->text(i);
        std::string s(t->string(), static_cast<size_t>(t->getLength()));
        if (t->isCDATA()) {
            flush();
            out.push_back({nullptr, true, s});
            continue;
        }
        for (char c : s) {
            if (c != ' ' && c != '\t' && c != '\n' && c != '\r') run += c;
        }
    }
    flush();
    return out;
}

bool sameTree(const XElem* a, const XElem* b) {
    if (!same(a->getName(), b->getName()) || !same(a->prefix(), b->prefix())) return false;
    if (a->prefix() != nullptr && !same(a->uri(), b->uri())) return false;
    if (a->getAttrCount() != b->getAttrCount()) return false;
    for (int i = 0; i < a->getAttrCount(); ++i) {
        if (!same(a->attrName(i), b->attrName(i)) || !same(a->attrValue(i), b->attrValue(i)))
            return false;
        if (!XNs::equals(a->attrNs(i), b->attrNs(i))) return false;
    }
    std::vector<Piece> pa = pieces(a);
    std::vector<Piece> pb = pieces(b);
    if (pa.size() != pb.size()) return false;
    for (size_t i = 0; i < pa.size(); ++i) {
        if ((pa[i].elem == nullptr) != (pb[i].elem == nullptr)) return false;
        if (pa[i].elem != nullptr) {
            if (!sameTree(pa[i].elem, pb[i].elem)) return false;
        } else if (pa[i].cdata != pb[i].cdata || pa[i].text != pb[i].text) {
            return false;
        }
    }
    return true;
}

// A reader without a buffer to scan: the parser takes it one getChar() at a time.
class ByteReader : public CharReader {
public:
    ByteReader(const char* s, size_t n) : s_(s), n_(n) {}
    int getChar() override { return pos_ < n_ ? static_cast<unsigned char>(s_[pos_++]) : -1; }
    void getBuf(int, char** buf, int* len) override {
        *buf = nullptr;
        *len = 0;
    }
    bool eof() override { return pos_ >= n_; }

private:
    const char* s_;
    size_t n_;
    size_t pos_ = 0;
};

// The events with what they show and where the parser stands after each.
std::string trace(CharReader* in, bool utf8) {
    XParser p(in);
    p.setUtf8(utf8);
    std::string out;
    for (int e = p.next();; e = p.next()) {
        out += std::to_string(e) + "," + std::to_string(p.getLine()) + "," +
               std::to_string(p.getColumn()) + "," + std::to_string(p.getDepth());
        if ((e == 1 || e == 2) && p.elem() != nullptr) {
            const XElem* el = p.elem();
            out += el->getQName();
            out += el->uri() != nullptr ? el->uri() : "-";
            for (int i = 0; i < el->getAttrCount(); ++i) {
                const XNs* ns = el->attrNs(i);
                out += std::string(" ") + el->attrName(i) + "=" + el->attrValue(i) +
                       (ns != nullptr && ns->getUri() != nullptr ? ns->getUri() : "-");
            }
        } else if (e == 3 && p.text() != nullptr) {
            out += p.text()->isCDATA() ? "C" : "T";
            out.append(p.text()->string(), static_cast<size_t>(p.text()->getLength()));
        }
        out += '\n';
        if (e == -1) return out;
    }
}

// The length of the shortest-form UTF-8 sequence of a character other than U+FFFE and
// U+FFFF at `s`, by decoding it, else 0.
size_t character(const unsigned char* s, size_t left) {
    size_t len = s[0] >= 0xF8 ? 0 : s[0] >= 0xF0 ? 4 : s[0] >= 0xE0 ? 3 : s[0] >= 0xC0 ? 2 : 0;
    if (len == 0 || len > left) return 0;
    unsigned cp = s[0] & (0x7F >> len);
    for (size_t k = 1; k < len; ++k) {
        if ((s[k] & 0xC0) != 0x80) return 0;
        cp = cp << 6 | (s[k] & 0x3F);
    }
    const unsigned least[] = {0, 0, 0x80, 0x800, 0x10000};
    bool ok = cp >= least[len] && cp <= 0x10FFFF && (cp < 0xD800 || cp > 0xDFFF) && cp != 0xFFFE &&
              cp != 0xFFFF;
    return ok ? len : 0;
}

// The UTF-8 mode's escaping, one byte or sequence at a time.
std::string reference(const char* text, size_t n, bool escapeWhitespace) {
    const auto* s = reinterpret_cast<const unsigned char*>(text);
    std::string out;
    for (size_t i = 0; i < n;) {
        unsigned char c = s[i];
        size_t len = c >= 0x80 ? character(s + i, n - i) : 0;
        if (len > 0) {
            out.append(text + i, len);
            i += len;
            continue;
        }
        ++i;
        bool white = c == '\n' || c == '\r' || c == '\t';
        if (c == '<') {
            out += "&lt;";
        } else if (c == '>') {
            out += "&gt;";
        } else if (c == '&') {
            out += "&amp;";
        } else if (c < 32 || c > 126 || c == '"' || c == '\'') {
            if (white && !escapeWhitespace) {
                out += static_cast<char>(c);
            } else {
                char ref[8];
                std::snprintf(ref, sizeof ref, "&#x%x;", c);
                out += ref;
            }
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

bool wellFormedUtf8(const char* text, size_t n) {
    const auto* s = reinterpret_cast<const unsigned char*>(text);
    for (size_t i = 0; i < n;) {
        if (s[i] < 0x80) {
            ++i;
            continue;
        }
        size_t len = character(s + i, n - i);
        if (len == 0) return false;
        i += len;
    }
    return true;
}

void check(const char* text, size_t size, bool utf8) {
    const int n = static_cast<int>(size);
    if (utf8) {
        for (bool white : {false, true}) {
            BufferedXWriter out;
            out.setUtf8(true);
            out.safe(text, n, white);
            std::string written(out.getString(), out.getLength());
            if (written != reference(text, size, white)) std::abort();
            if (!wellFormedUtf8(written.data(), written.size())) std::abort();
        }
    }
    {
        StringReader in(text, n);
        XParser p(&in);
        p.setUtf8(utf8);
        for (int e = p.next(); e != -1; e = p.next()) {
            if (e == 1 || e == 2) {
                if (p.elem() == nullptr && e == 1) std::abort();
            } else if (e == 3 && p.text() == nullptr) {
                std::abort();
            }
        }
    }
    {
        StringReader buffered(text, n);
        ByteReader bytes(text, size);
        if (trace(&buffered, utf8) != trace(&bytes, utf8)) std::abort();
    }
    StringReader in(text, n);
    XParser p(&in);
    p.setUtf8(utf8);
    for (int round = 0; round < 8; ++round) {
        // A tree parsed inside open elements may use their namespace declarations, which
        // it does not carry; only trees read from the top level must come back the same.
        const bool topLevel = p.getDepth() == 0;
        std::unique_ptr<XElem> first(p.parse(false));
        if (first == nullptr) break;
        BufferedXWriter out;
        out.setUtf8(utf8);
        first->write(&out, 0);
        if (utf8 && !wellFormedUtf8(out.getString(), out.getLength())) std::abort();
        StringReader again(out.getString(), static_cast<int>(out.getLength()));
        XParser q(&again);
        q.setUtf8(utf8);
        std::unique_ptr<XElem> second(q.parse(true));
        if (second == nullptr || (topLevel && !sameTree(first.get(), second.get()))) std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 1 << 20) return 0;
    const char* text = reinterpret_cast<const char*>(data);
    check(text, size, false);
    check(text, size, true);
    return 0;
}
