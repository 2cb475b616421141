#include <velmora/xml/XWriter.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "xml/XmlTables.h"

namespace velmora {

namespace {

// Whether byte `c` needs more than itself: a reference (quotes, control bytes, bytes above
// 126) or a named entity (< > &).
inline bool needsEscape(unsigned char c) {
    return c < 32 || c > 126 || c == '"' || c == '\'' || c == '<' || c == '>' || c == '&';
}

}  // namespace

XWriter::XWriter() = default;

XWriter::XWriter(CharWriter* out) : out_(out) {}

XWriter::~XWriter() {
    close();
}

int XWriter::write(const char* buf, int n) {
    return out_ != nullptr ? out_->write(buf, n) : 0;
}

bool XWriter::write(char c) {
    return out_ != nullptr && out_->write(c);
}

void XWriter::close() {
    if (out_ != nullptr) {
        CharWriter* out = out_;
        out_ = nullptr;
        out->close();
    }
}

XWriter* XWriter::w(int n) {
    char buf[16];
    int len = std::snprintf(buf, sizeof buf, "%d", n);
    if (len > 0) write(buf, len);
    return this;
}

XWriter* XWriter::w(char c) {
    write(c);
    return this;
}

XWriter* XWriter::w(const char* s) {
    if (s != nullptr && *s != '\0') write(s, static_cast<int>(std::strlen(s)));
    return this;
}

XWriter* XWriter::nl() {
    write('\n');
    return this;
}

XWriter* XWriter::indent(int n) {
    if (n <= 0) return this;
    if (n <= xml::kIndentSpaces) {
        write(xml::indentSpaces(), n);
        return this;
    }
    char* spaces = static_cast<char*>(std::malloc(static_cast<size_t>(n)));
    if (spaces == nullptr) {
        // Without the memory the spaces still go out, in pieces of the shared string.
        for (; n > 0; n -= xml::kIndentSpaces)
            write(xml::indentSpaces(), n < xml::kIndentSpaces ? n : xml::kIndentSpaces);
        return this;
    }
    std::memset(spaces, ' ', static_cast<size_t>(n));
    write(spaces, n);
    std::free(spaces);
    return this;
}

XWriter* XWriter::prolog() {
    return w("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
}

XWriter* XWriter::attr(const char* name, const char* value) {
    return w(name)->w("=\"")->safe(value, true)->w('"');
}

XWriter* XWriter::attrf(const char* name, const char* format, int size, ...) {
    if (size <= 0 || format == nullptr) return attr(name, "");
    char* buf = static_cast<char*>(std::malloc(static_cast<size_t>(size)));
    if (buf == nullptr) return attr(name, "");
    va_list args;
    va_start(args, size);
    if (std::vsnprintf(buf, static_cast<size_t>(size), format, args) < 0) buf[0] = '\0';
    va_end(args);
    attr(name, buf);
    std::free(buf);
    return this;
}

XWriter* XWriter::safe(const char* s) {
    return safe(s, true);
}

XWriter* XWriter::safe(const char* s, bool escapeWhitespace) {
    if (s == nullptr) return this;
    return safe(s, static_cast<int>(std::strlen(s)), escapeWhitespace);
}

XWriter* XWriter::safe(const char* s, int n, bool escapeWhitespace) {
    if (s == nullptr) return this;
    // Runs of bytes that stand for themselves go out in one write.
    int start = 0;
    for (int i = 0; i < n; ++i) {
        if (!needsEscape(static_cast<unsigned char>(s[i]))) continue;
        if (i > start) write(s + start, i - start);
        safe(s[i], escapeWhitespace);
        start = i + 1;
    }
    if (n > start) write(s + start, n - start);
    return this;
}

XWriter* XWriter::safe(char c, bool escapeWhitespace) {
    signed char sc = static_cast<signed char>(c);
    if (sc < 32 || sc > 126 || c == '"' || c == '\'') {
        if (!escapeWhitespace && (c == '\n' || c == '\r' || c == '\t')) return w(c);
        char buf[16];
        int len = std::snprintf(buf, sizeof buf, "&#x%x;",
                                static_cast<unsigned>(static_cast<unsigned char>(c)));
        write(buf, len);
        return this;
    }
    switch (c) {
        case '<':
            return w("&lt;");
        case '>':
            return w("&gt;");
        case '&':
            return w("&amp;");
        default:
            return w(c);
    }
}

XWriter* XWriter::safe(XWriter* out, const char* s, bool escapeWhitespace) {
    return out != nullptr ? out->safe(s, escapeWhitespace) : out;
}

XWriter* XWriter::safe(XWriter* out, char c, bool escapeWhitespace) {
    return out != nullptr ? out->safe(c, escapeWhitespace) : out;
}

void XWriter::unload() {
    xml::releaseIndentSpaces();
}

}  // namespace velmora
