#include <velmora/xml/XParser.h>

#include <cstdlib>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <velmora/text/FileReader.h>
#include <velmora/text/StringReader.h>

#include "xml/NodePool.h"
#include "xml/XmlTables.h"
#include "xml/XmlUtf8.h"

namespace velmora {

namespace {

const int kScratch = 128;

// The bytes at which a run of characters that stand for themselves ends: the markup and
// reference characters, CR and LF (they count lines), and every byte above 127.
struct Stops {
    unsigned char c[6];
    bool stop[256];
    constexpr Stops(unsigned char a, unsigned char b, unsigned char d, unsigned char e,
                    unsigned char f, unsigned char g)
        : c{a, b, d, e, f, g}, stop() {
        for (int i = 128; i < 256; ++i)
            stop[i] = true;
        stop[a] = stop[b] = stop[d] = stop[e] = stop[f] = stop[g] = true;
    }
};

constexpr Stops kTextStops('<', '>', '&', '\r', '\n', '<');
constexpr Stops kDoubleQuotedStops('"', '<', '>', '&', '\r', '\n');
constexpr Stops kSingleQuotedStops('\'', '<', '>', '&', '\r', '\n');

// The first stop from `p` on, or `end`: sixteen bytes at a time where the processor has
// the instructions for it, as memchr does for one byte.
inline const unsigned char* findStop(const unsigned char* p, const unsigned char* end,
                                     const Stops& st) {
#if defined(__SSE2__)
    const __m128i c0 = _mm_set1_epi8(static_cast<char>(st.c[0]));
    const __m128i c1 = _mm_set1_epi8(static_cast<char>(st.c[1]));
    const __m128i c2 = _mm_set1_epi8(static_cast<char>(st.c[2]));
    const __m128i c3 = _mm_set1_epi8(static_cast<char>(st.c[3]));
    const __m128i c4 = _mm_set1_epi8(static_cast<char>(st.c[4]));
    const __m128i c5 = _mm_set1_epi8(static_cast<char>(st.c[5]));
    while (end - p >= 16) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        __m128i hit = _mm_or_si128(_mm_cmpeq_epi8(v, c0), _mm_cmpeq_epi8(v, c1));
        hit = _mm_or_si128(hit, _mm_or_si128(_mm_cmpeq_epi8(v, c2), _mm_cmpeq_epi8(v, c3)));
        hit = _mm_or_si128(hit, _mm_or_si128(_mm_cmpeq_epi8(v, c4), _mm_cmpeq_epi8(v, c5)));
        // The high bit of each byte marks the bytes above 127.
        int mask = _mm_movemask_epi8(hit) | _mm_movemask_epi8(v);
        if (mask != 0) return p + __builtin_ctz(static_cast<unsigned>(mask));
        p += 16;
    }
#endif
    while (p < end && !st.stop[*p])
        ++p;
    return p;
}

char* newScratch() {
    return static_cast<char*>(std::malloc(kScratch));
}

}  // namespace

struct XParser::NsDecl {
    XNs* ns;
    NsDecl* next;
};

XParser::XParser(CharReader* in)
    : reader_(in),
      text_(new XText()),
      elemStack_(new XElem*[MAX_DEPTH]()),
      nsStack_(new NsDecl*[MAX_DEPTH]()),
      classes_(xml::charClasses()),
      name_(newScratch()),
      nameCap_(kScratch),
      prefix_(newScratch()),
      prefixCap_(kScratch),
      buf_(newScratch()),
      bufCap_(kScratch) {
    // The two readers of the library are read through their buffers directly.
    stringReader_ = dynamic_cast<StringReader*>(in);
    if (stringReader_ == nullptr) fileReader_ = dynamic_cast<FileReader*>(in);
    if (name_ == nullptr || prefix_ == nullptr || buf_ == nullptr)
        nameCap_ = prefixCap_ = bufCap_ = 0;
}

XParser::~XParser() {
    for (int i = 0; i < MAX_DEPTH; ++i) {
        delete elemStack_[i];
        for (NsDecl* d = nsStack_[i]; d != nullptr;) {
            NsDecl* next = d->next;
            delete d->ns;
            delete d;
            d = next;
        }
    }
    delete[] elemStack_;
    delete[] nsStack_;
    delete text_;
    delete defaultNs_;
    std::free(name_);
    std::free(prefix_);
    std::free(buf_);
}

// --- reading

// The reader's next byte (0-255), or -1 at the end.
inline int XParser::fetch() {
    if (cur_ < end_) return *cur_++;
    return refill();
}

int XParser::refill() {
    sync();
    int count = 0;
    const char* p = nullptr;
    if (stringReader_ != nullptr) {
        p = stringReader_->peekRemaining(&count);
    } else if (fileReader_ != nullptr) {
        p = fileReader_->peekBuffered(&count);
    } else {
        // Readers give bytes as 0-255 or as signed values; -1 is the end either way (the
        // byte 255 it may also stand for is no text in either mode).
        int c = reader_ != nullptr ? reader_->getChar() : -1;
        return c == -1 ? -1 : c & 0xFF;
    }
    if (p == nullptr || count <= 0) return -1;
    windowStart_ = cur_ = reinterpret_cast<const unsigned char*>(p);
    end_ = cur_ + count;
    return fetch();
}

// Hands the bytes taken from the reader's buffer back as read, so that the reader stands
// exactly where a byte-by-byte parser would have left it. The rest of the window is kept
// for the next event (checkWindow tells whether it still holds), so that an event costs no
// call into the reader.
void XParser::sync() {
    if (cur_ == nullptr) return;
    int n = static_cast<int>(cur_ - windowStart_);
    if (stringReader_ != nullptr) {
        stringReader_->position_ += n;
    } else if (fileReader_ != nullptr) {
        fileReader_->aheadPos_ += n;
    } else {
        cur_ = end_ = nullptr;
    }
    windowStart_ = cur_;
}

// The kept window is the reader's own unread buffer unless someone read from the reader,
// or it refilled or closed, since the last event; then it is dropped and taken afresh.
void XParser::checkWindow() {
    if (cur_ == nullptr) return;
    const char* start = nullptr;
    const char* end = nullptr;
    if (stringReader_ != nullptr) {
        start = stringReader_->buffer_ + stringReader_->position_;
        end = stringReader_->buffer_ + stringReader_->length_;
    } else if (fileReader_ != nullptr && fileReader_->ahead_ != nullptr && fileReader_->fd_ >= 0) {
        start = fileReader_->ahead_ + fileReader_->aheadPos_;
        end = fileReader_->ahead_ + fileReader_->aheadLen_;
    }
    if (reinterpret_cast<const unsigned char*>(start) != cur_ ||
        reinterpret_cast<const unsigned char*>(end) != end_) {
        cur_ = end_ = windowStart_ = nullptr;
    }
}

// In the UTF-8 mode, whether byte `c` (above 127) continues well-formed UTF-8: a lead
// byte opens a sequence, a continuation byte must be one that is due.
bool XParser::acceptUtf8(int c) {
    if (!utf8_ || c > 255) return false;
    auto b = static_cast<unsigned char>(c);
    if (utf8Need_ == 0) {
        utf8Need_ = xml::utf8Lead(b, &utf8Lo_, &utf8Hi_);
        utf8Lead_ = b;
        return utf8Need_ > 0;
    }
    if (b < utf8Lo_ || b > utf8Hi_) return false;
    --utf8Need_;
    utf8Lo_ = 0x80;
    // After EF BF only up to BD: EF BF BE and EF BF BF are U+FFFE and U+FFFF.
    utf8Hi_ = utf8Need_ == 1 && xml::utf8NonCharacter(utf8Lead_, b, 0xBE) ? 0xBD : 0xBF;
    return true;
}

// One character of the document: CR LF and a lone CR become one line feed, and a byte
// above 127 ends the input (the parser reads ASCII only, on purpose; in the UTF-8 mode,
// a byte that breaks well-formed UTF-8 does, and an ASCII byte where a continuation byte
// is due). The character read
// after a CR to look for its LF is kept raw and goes through these rules in turn, so that
// CR CR is two line feeds and never leaves a CR in the text.
inline int XParser::readChar() {
    if (pushback_ >= 0) {
        int c = pushback_;
        pushback_ = -1;
        return c;
    }
    if (stopped_) return -1;
    int c;
    if (lookahead_ >= 0) {
        c = lookahead_;
        lookahead_ = -1;
    } else {
        c = fetch();
    }
    if (c < 0 || (c > 127 && !acceptUtf8(c)) || (c <= 127 && utf8Need_ > 0)) {
        stopped_ = true;
        return -1;
    }
    if (c == '\n') {
        ++line_;
        column_ = 0;
    } else if (c == '\r') {
        int d = fetch();
        if (d != '\n') lookahead_ = d < 0 ? 255 : d;  // 255: a stop, taken as such next
        ++line_;
        column_ = 0;
        c = '\n';
    } else {
        ++column_;
    }
    return c;
}

// After a character taken and dropped: in the UTF-8 mode, when it began a sequence, the
// rest of the sequence goes with it, so that no text starts with continuation bytes.
void XParser::finishChar(int c) {
    if (!utf8_ || c < 0xC0) return;
    while (utf8Need_ > 0 && readChar() >= 0) {
    }
}

// Inside character references the reader is read straight, counting columns only.
int XParser::readRaw() {
    if (stopped_) return -1;
    ++column_;
    if (lookahead_ >= 0) {
        int c = lookahead_;
        lookahead_ = -1;
        return c == 255 ? -1 : c;
    }
    return fetch();
}

bool XParser::skipWhitespace() {
    bool skipped = false;
    // Blanks, tabs and line feeds straight from the reader's buffer; a carriage return,
    // a stop or the end of the buffer goes the general way.
    if (direct()) {
        const unsigned char* p = cur_;
        for (; p < end_; ++p) {
            if (*p == ' ' || *p == '\t') {
                ++column_;
            } else if (*p == '\n') {
                ++line_;
                column_ = 0;
            } else {
                break;
            }
        }
        skipped = p != cur_;
        cur_ = p;
        if (p < end_ && *p < 128 && *p != '\r') {
            // The first character after the blanks, read and handed back as readChar()
            // and pushBack() would (a line feed was taken above).
            ++cur_;
            ++column_;
            pushBack(*p);
            return skipped;
        }
    }
    for (;;) {
        int c = readChar();
        if (c < 0) return skipped;
        if ((classes_[c] & xml::kSpaceChar) == 0) {
            pushBack(c);
            return skipped;
        }
        skipped = true;
    }
}

inline bool XParser::append(char** buf, int* len, int* cap, int c) {
    if (*len + 1 >= *cap) {
        int bigger = *cap > 0 ? *cap * 2 : kScratch;
        char* grown = static_cast<char*>(std::realloc(*buf, static_cast<size_t>(bigger)));
        if (grown == nullptr) return false;  // the character is lost, nothing else
        *buf = grown;
        *cap = bigger;
    }
    (*buf)[(*len)++] = static_cast<char>(c);
    return true;
}

// Takes `n` plain characters at `run` (the reader's buffer at cur_) as read: appended to
// `*buf`, counted as columns, consumed.
inline void XParser::appendRun(char** buf, int* len, int* cap, const unsigned char* run, int n) {
    if (n <= 0) return;
    while (*len + n + 1 >= *cap) {
        int bigger = *cap > 0 ? *cap * 2 : kScratch;
        char* grown = static_cast<char*>(std::realloc(*buf, static_cast<size_t>(bigger)));
        if (grown == nullptr) break;
        *buf = grown;
        *cap = bigger;
    }
    if (*len + n + 1 < *cap) {
        std::memcpy(*buf + *len, run, static_cast<size_t>(n));
        *len += n;
    }
    column_ += n;
    cur_ = run + n;
}

// A plain name beginning with `c` (a name character) into `*buf`, zero-terminated; the
// character after it is pushed back. Returns its length.
int XParser::readPlainName(int c, char** buf, int* cap) {
    int len = 0;
    if (c >= 0 && (classes_[c] & xml::kNameChar) != 0 && direct()) {
        // The whole name in the reader's buffer: name characters are plain ASCII that
        // only move the column on, and the character after the name is read and handed
        // back as readChar() and pushBack() would, when it is plain too.
        const unsigned char* p = cur_;
        while (p < end_ && (classes_[*p] & xml::kNameChar) != 0)
            ++p;
        if (p < end_ && *p < 128 && *p != '\r') {
            append(buf, &len, cap, c);
            appendRun(buf, &len, cap, cur_, static_cast<int>(p - cur_));
            unsigned char after = *cur_++;
            if (after == '\n') {
                ++line_;
                column_ = 0;
            } else {
                ++column_;
            }
            pushBack(after);
            if (*cap > 0) (*buf)[len] = '\0';
            return len;
        }
    }
    while (c >= 0 && (classes_[c] & xml::kNameChar) != 0) {
        append(buf, &len, cap, c);
        // The rest of the name straight from the reader's buffer.
        if (direct()) {
            const unsigned char* p = cur_;
            while (p < end_ && (classes_[*p] & xml::kNameChar) != 0)
                ++p;
            appendRun(buf, &len, cap, cur_, static_cast<int>(p - cur_));
        }
        c = readChar();
    }
    if (c >= 0) pushBack(c);
    if (*cap > 0) (*buf)[len] = '\0';
    return len;
}

// A qualified name beginning with `c`: name_, and prefix_ when it has one. False (and `c`
// pushed back) when it does not start with a name character.
bool XParser::readQName(int c) {
    // Each name starts without a prefix, so that an unprefixed name never inherits the
    // prefix of the name read before it.
    hasPrefix_ = false;
    hasName_ = false;
    if (c < 0) return false;
    if ((classes_[c] & xml::kNameChar) == 0 || nameCap_ == 0) {
        pushBack(c);
        return false;
    }
    nameLen_ = readPlainName(c, &name_, &nameCap_);
    int d = readChar();
    if (d != ':') {
        if (d >= 0) pushBack(d);
        hasName_ = true;
        return true;
    }
    // "a:b": the first part becomes the prefix.
    char* t = prefix_;
    prefix_ = name_;
    name_ = t;
    int tc = prefixCap_;
    prefixCap_ = nameCap_;
    nameCap_ = tc;
    hasPrefix_ = true;
    d = readChar();
    if (d < 0 || (classes_[d] & xml::kNameChar) == 0) {
        if (d >= 0) pushBack(d);
        return false;
    }
    nameLen_ = readPlainName(d, &name_, &nameCap_);
    hasName_ = true;
    return true;
}

// --- entity and character references

// What follows "&", "<" or ">" in text or a value: the byte (in the UTF-8 mode, the
// character) it stands for. What names nothing known reads as the byte 255, in the UTF-8
// mode as U+FFFD, the replacement character.
int XParser::decode(int c) {
    if (c == '<' || c == '>') return utf8_ ? 0xFFFD : 255;
    if (c != '&') return c;
    int d = readChar();
    if (d == '#') return decodeReference();
    return decodeEntity(d);
}

// A decoded character: one byte, or in the UTF-8 mode the UTF-8 of what lies above 127.
void XParser::appendDecoded(int c) {
    if (!utf8_ || c < 0x80) {
        append(&buf_, &bufLen_, &bufCap_, c);
        return;
    }
    char bytes[4];
    int n = xml::utf8Encode(static_cast<unsigned>(c), bytes);
    for (int i = 0; i < n; ++i)
        append(&buf_, &bufLen_, &bufCap_, static_cast<unsigned char>(bytes[i]));
}

// "&#65;" or "&#x41;": digits up to ";", the value cut to one byte (no UTF-8). In the
// UTF-8 mode the character itself, or U+FFFD when the value names no character (a
// surrogate, U+FFFE, U+FFFF, beyond U+10FFFF). Zero stays the byte zero, as the writer
// writes that byte so, in either mode.
int XParser::decodeReference() {
    int c = readRaw();
    unsigned base = 10;
    if (c == 'x') {
        base = 16;
        c = readRaw();
    }
    unsigned value = 0;
    // Well-formed digits give their value; anything else adds some value, but the
    // arithmetic stays unsigned and the loop ends at ";" or the end of input.
    while (c != ';' && c != -1) {
        unsigned digit;
        if (c >= '0' && c <= '9') {
            digit = static_cast<unsigned>(c - '0');
        } else if (c >= 'a' && c <= 'f') {
            digit = static_cast<unsigned>(c - 'a' + 10);
        } else if (c >= 'A' && c <= 'F') {
            digit = static_cast<unsigned>(c - 'A' + 10);
        } else {
            digit = static_cast<unsigned>(c) & 0xFFu;
        }
        value = value * base + digit;
        if (utf8_ && value > 0x10FFFF) value = 0x110000;  // stays out of range
        c = readRaw();
    }
    if (!utf8_) return static_cast<int>(value & 0xFFu);
    if (value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF) || value == 0xFFFE ||
        value == 0xFFFF)
        return 0xFFFD;
    return static_cast<int>(value);
}

// "&name;" read up to ";" or the end: the five predefined entities, else the byte 255
// (U+FFFD in the UTF-8 mode).
int XParser::decodeEntity(int first) {
    char name[5];
    int len = 0;
    for (int c = first; c >= 0 && c != ';'; c = readChar()) {
        if (len < 5) name[len] = static_cast<char>(c);
        ++len;
    }
    if (len == 2 && name[0] == 'l' && name[1] == 't') return '<';
    if (len == 2 && name[0] == 'g' && name[1] == 't') return '>';
    if (len == 3 && std::memcmp(name, "amp", 3) == 0) return '&';
    if (len == 4 && std::memcmp(name, "quot", 4) == 0) return '"';
    if (len == 4 && std::memcmp(name, "apos", 4) == 0) return '\'';
    return utf8_ ? 0xFFFD : 255;
}

// --- text and skipped markup

// A text event leaves its characters in the scratch buffer; they are copied into the
// parser's XText when text() asks for them, so that a scan that never looks at the texts
// does not copy them (nor take the text's lock).
void XParser::setText(bool cdata) {
    textPending_ = true;
    textCdata_ = cdata;
}

void XParser::fillText() const {
    textPending_ = false;
    StringWriter* b = text_->getBuffer();
    if (b->getCapacity() > 65536 && bufLen_ < 4096) {
        // After one huge text, a fresh buffer keeps clearing cheap.
        delete text_;
        text_ = new XText();
        b = text_->getBuffer();
    }
    b->clear();
    b->write(buf_, bufLen_);
    text_->setCDATA(textCdata_);
}

// Text beginning with `first`, up to the next "<". True when it holds something other than
// whitespace; text cut short by ">" or the end of input is dropped.
bool XParser::readText(int first) {
    bufLen_ = 0;
    bool nonBlank = (classes_[first] & xml::kSpaceChar) == 0;
    if (first == '&' || first == '>') {
        appendDecoded(decode(first));
    } else {
        append(&buf_, &bufLen_, &bufCap_, first);
    }
    for (;;) {
        // Characters that stand for themselves straight from the reader's buffer, up to
        // the next byte that needs a look (line feeds are counted on the way).
        if (direct()) {
            const unsigned char* p = cur_;
            const unsigned char* start = p;
            for (;;) {
                const unsigned char* stop = findStop(p, end_, kTextStops);
                for (; !nonBlank && p < stop; ++p)
                    nonBlank = *p != ' ' && *p != '\t';
                p = stop;
                if (p == end_) break;
                if (*p == '\n') {
                    // A line feed ends a line: the run before it counts its columns.
                    appendRun(&buf_, &bufLen_, &bufCap_, start, static_cast<int>(p - start));
                    append(&buf_, &bufLen_, &bufCap_, '\n');
                    ++line_;
                    column_ = 0;
                    start = cur_ = ++p;
                    continue;
                }
                if (*p > 127 && utf8_) {
                    int k = xml::utf8Sequence(p, end_);
                    if (k > 0) {
                        p += k;
                        nonBlank = true;
                        continue;
                    }
                }
                break;
            }
            appendRun(&buf_, &bufLen_, &bufCap_, start, static_cast<int>(p - start));
        }
        int c = readChar();
        if (c < 0) return false;
        if (c == '<') {
            pushBack(c);
            break;
        }
        if (c == '>') return false;
        if ((classes_[c] & xml::kSpaceChar) == 0) nonBlank = true;
        if (c == '&') {
            appendDecoded(decode(c));
        } else {
            append(&buf_, &bufLen_, &bufCap_, c);
        }
    }
    if (!nonBlank) return false;
    setText(false);
    return true;
}

// The characters up to the first "]]>", which is consumed but not kept; at the end of
// input, everything read.
void XParser::readCData() {
    bufLen_ = 0;
    for (;;) {
        int c = readChar();
        if (c < 0) break;
        if (c == '>' && bufLen_ >= 2 && buf_[bufLen_ - 1] == ']' && buf_[bufLen_ - 2] == ']') {
            bufLen_ -= 2;
            break;
        }
        append(&buf_, &bufLen_, &bufCap_, c);
    }
    setText(true);
}

// After "<!--": up to two dashes in a row and one character more (taken to be ">").
void XParser::skipComment() {
    int dashes = 0;
    for (;;) {
        int c = readChar();
        if (c < 0) return;
        if (c != '-') {
            dashes = 0;
        } else if (++dashes == 2) {
            finishChar(readChar());
            return;
        }
    }
}

// The characters of `expected` as long as they match; the first mismatch is consumed too.
void XParser::consume(const char* expected) {
    for (; *expected != '\0'; ++expected) {
        int c = readChar();
        if (c != *expected) {
            finishChar(c);
            return;
        }
    }
}

// After "<!DOCTYPE": a block in which "<" and ">" nest, internal subsets included.
void XParser::skipDoctype() {
    int open = 1;
    while (open > 0) {
        int c = readChar();
        if (c < 0) return;
        if (c == '<') ++open;
        if (c == '>') --open;
    }
}

// After "<?": up to "?>".
void XParser::skipInstruction() {
    int prev = 0;
    for (;;) {
        int c = readChar();
        if (c < 0 || (prev == '?' && c == '>')) return;
        prev = c;
    }
}

// --- tags and namespaces

const XNs* XParser::lookup(const char* prefix) const {
    for (int level = depth_ - 1; level >= 0; --level) {
        for (NsDecl* d = nsStack_[level]; d != nullptr; d = d->next) {
            const char* p = d->ns->getPrefix();
            if (p != nullptr && std::strcmp(p, prefix) == 0) return d->ns;
        }
    }
    return nullptr;
}

void XParser::declare(int level, const char* prefix, const char* uri) {
    XNs* ns = new XNs(prefix, uri);
    ns->setDeclarer(elemStack_[level]);
    NsDecl* decl = new NsDecl{ns, nullptr};
    NsDecl** tail = &nsStack_[level];
    while (*tail != nullptr)
        tail = &(*tail)->next;
    *tail = decl;
    if (ns->isDefault()) {
        delete defaultNs_;
        defaultNs_ = uri[0] != '\0' ? ns->newCopy() : nullptr;
    }
}

void XParser::readAttribute(int first, int level) {
    if (!readQName(first)) return;
    skipWhitespace();
    int c = readChar();
    if (c != '=') {
        if (c >= 0) pushBack(c);
        return;
    }
    skipWhitespace();
    int quote = readChar();
    if (quote != '"' && quote != '\'') {
        if (quote >= 0) pushBack(quote);
        return;
    }
    bufLen_ = 0;
    for (;;) {
        // Characters that stand for themselves straight from the reader's buffer.
        if (direct()) {
            const Stops& stops = quote == '"' ? kDoubleQuotedStops : kSingleQuotedStops;
            const unsigned char* p = cur_;
            for (;;) {
                p = findStop(p, end_, stops);
                if (p == end_ || *p < 128 || !utf8_) break;
                int k = xml::utf8Sequence(p, end_);
                if (k == 0) break;
                p += k;
            }
            appendRun(&buf_, &bufLen_, &bufCap_, cur_, static_cast<int>(p - cur_));
        }
        c = readChar();
        if (c < 0 || c == quote) break;
        if (c == '&' || c == '<' || c == '>') {
            appendDecoded(decode(c));
        } else {
            append(&buf_, &bufLen_, &bufCap_, c);
        }
    }
    if (bufCap_ == 0) return;
    buf_[bufLen_] = '\0';
    XElem* e = elemStack_[level];
    if (!hasPrefix_) {
        if (std::strcmp(name_, "xmlns") == 0) declare(level, nullptr, buf_);
        e->addAttr(name_, buf_);
    } else if (std::strcmp(prefix_, "xmlns") == 0) {
        declare(level, name_, buf_);
        // Stored under its full name "xmlns:p", without a namespace.
        char inlineName[kScratch + 6];
        size_t size = static_cast<size_t>(nameLen_) + 7;
        char* full = size <= sizeof inlineName ? inlineName : static_cast<char*>(std::malloc(size));
        if (full == nullptr) return;
        std::memcpy(full, "xmlns:", 6);
        std::memcpy(full + 6, name_, size - 6);
        e->addAttr(nullptr, full, buf_);
        if (full != inlineName) std::free(full);
    } else {
        e->addAttr(lookup(prefix_), name_, buf_);
    }
}

// After "<" and the tag's first character. False when no name could be read.
bool XParser::readStartTag(int first) {
    // Deeper nesting than the stacks hold is outside what the parser supports; rather
    // than write past them, such a start tag is reported as malformed and its remainder
    // read as text.
    if (depth_ >= MAX_DEPTH) {
        pushBack(first);
        return false;
    }
    XElem*& slot = elemStack_[depth_];
    if (slot == nullptr) slot = new XElem();
    XElem* e = slot;
    int level = depth_++;
    e->clearAttr();
    if (!readQName(first)) {
        // Nothing opens for a tag without a name: an open level without an element in
        // the tree would make later end tags close the wrong elements.
        --depth_;
        return false;
    }
    e->storeNames(name_, static_cast<size_t>(nameLen_));  // the length is known here
    bool prefixed = hasPrefix_;
    // The prefix is kept aside: attribute names overwrite the scratch buffers.
    char prefixCopy[kScratch];
    char* elemPrefix = nullptr;
    if (prefixed) {
        size_t n = std::strlen(prefix_) + 1;
        elemPrefix = n <= sizeof prefixCopy ? prefixCopy : static_cast<char*>(std::malloc(n));
        if (elemPrefix != nullptr) std::memcpy(elemPrefix, prefix_, n);
    }
    for (;;) {
        bool spaced = skipWhitespace();
        int c = readChar();
        if (c < 0 || c == '>') break;
        if (c == '/') {
            int d = readChar();
            if (d == '>') {
                emptyPending_ = true;
            } else {
                finishChar(d);
            }
            break;
        }
        if (!spaced) {
            pushBack(c);
            break;
        }
        readAttribute(c, level);
    }
    if (prefixed) {
        e->setNs(elemPrefix != nullptr ? lookup(elemPrefix) : nullptr);
        if (elemPrefix != prefixCopy) std::free(elemPrefix);
    } else {
        e->setNs(defaultNs_);
    }
    return true;
}

// After "</". Kept lenient: the innermost element closes whatever the tag names; a tag
// naming it is read to its end, any other is left to be read as text.
void XParser::readEndTag() {
    int c = readChar();
    if (c < 0) return;
    bool named = readQName(c);
    const XNs* ns = hasPrefix_ ? (hasName_ ? lookup(prefix_) : nullptr) : defaultNs_;
    if (depth_ < 1) return;
    XElem* open = elemStack_[depth_ - 1];
    // The open element's local name ends its qualified name, whose length it keeps.
    const size_t openLen = open->qnameLength_ - static_cast<size_t>(open->name_ - open->qname_);
    if (!named || static_cast<size_t>(nameLen_) != openLen ||
        std::memcmp(name_, open->name_, openLen) != 0 || !XNs::equals(ns, open->getNs()))
        return;
    skipWhitespace();
    finishChar(readChar());
}

void XParser::pop() {
    if (depth_ < 1) return;  // an end tag with nothing open
    --depth_;
    NsDecl* d = nsStack_[depth_];
    if (d == nullptr) return;  // nothing declared here: the default namespace stands
    nsStack_[depth_] = nullptr;
    while (d != nullptr) {
        NsDecl* next = d->next;
        delete d->ns;
        delete d;
        d = next;
    }
    delete defaultNs_;
    defaultNs_ = nullptr;
    // The default namespace becomes the one in force before the closed element opened:
    // the innermost level that declares one decides, with its last declaration winning
    // as it did while its start tag was read (an empty URI meaning none).
    for (int level = depth_ - 1; level >= 0; --level) {
        const XNs* found = nullptr;
        for (NsDecl* n = nsStack_[level]; n != nullptr; n = n->next) {
            if (n->ns->isDefault()) found = n->ns;
        }
        if (found == nullptr) continue;
        const char* uri = found->getUri();
        if (uri != nullptr && uri[0] != '\0') defaultNs_ = found->newCopy();
        break;
    }
}

// --- events

int XParser::next() {
    checkWindow();
    if (popPending_) {
        popPending_ = false;
        pop();
    }
    if (emptyPending_) {
        emptyPending_ = false;
        popPending_ = true;
        return type_ = END;
    }
    int event = EOI;
    for (;;) {
        int c = readChar();
        if (c < 0) break;
        if (c != '<') {
            if (readText(c)) {
                event = TEXT;
                break;
            }
            continue;
        }
        c = readChar();
        if (c < 0) {
            event = MALFORMED;
            break;
        }
        if (c == '!') {
            c = readChar();
            if (c == '-') {
                c = readChar();
                if (c != '-') {
                    finishChar(c);
                    event = MALFORMED;
                    break;
                }
                skipComment();
                continue;
            }
            if (c == '[') {
                consume("CDATA[");
                readCData();
                event = TEXT;
                break;
            }
            if (c == 'D') {
                consume("OCTYPE");
                skipDoctype();
                continue;
            }
            finishChar(c);
            event = MALFORMED;
            break;
        }
        if (c == '?') {
            skipInstruction();
            continue;
        }
        if (c == '/') {
            readEndTag();
            popPending_ = true;
            event = END;
            break;
        }
        event = readStartTag(c) ? START : MALFORMED;
        break;
    }
    sync();
    return type_ = event;
}

XElem* XParser::elem() const {
    return depth_ >= 1 ? elemStack_[depth_ - 1] : nullptr;
}

XText* XParser::text() const {
    if (type_ != TEXT) return nullptr;
    if (textPending_) fillText();
    return text_;
}

void XParser::skip(int depth) {
    for (;;) {
        int event = next();
        if (event == EOI || (event == END && depth_ == depth)) return;
    }
}

XElem* XParser::parse(bool close) {
    if (next() != START) {
        if (close) this->close();
        return nullptr;
    }
    return parseCurrent(close);
}

XElem* XParser::parseCurrent(bool close) {
    XElem* open = elem();
    XElem* root = open != nullptr ? static_cast<XElem*>(open->newCopy()) : nullptr;
    XElem* current = root;
    int level = root != nullptr ? 1 : 0;
    while (level >= 1) {
        int event = next();
        if (event == EOI) {
            delete root;
            root = nullptr;
            break;
        }
        if (event == START) {
            // The parser's element for this level is not seen again before its next
            // start tag clears it, so the new node takes its attributes instead of
            // copying them.
            XElem* parsed = elem();
            auto* child = new XElem(parsed->getNs(), parsed->getName());
            child->takeAttrs(parsed);
            current->addContent(child);
            current = child;
            ++level;
        } else if (event == END) {
            if (--level >= 1) current = current->getParent();
        } else if (event == TEXT) {
            current->addContent(text()->newCopy());
        }
    }
    if (close) this->close();
    return root;
}

void XParser::close() {
    sync();
    cur_ = end_ = windowStart_ = nullptr;
    if (reader_ != nullptr) reader_->close();
}

void XParser::unload() {
    xml::releaseCharClasses();
    xml::releaseNodePool();
}

}  // namespace velmora
