#include <velmora/xml/XWriter.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "xml/NodePool.h"
#include "xml/XmlOut.h"
#include "xml/XmlTables.h"

namespace velmora {

XWriter::XWriter() = default;

XWriter::XWriter(CharWriter* out) : out_(out) {}

XWriter::~XWriter() {
    close();
}

int XWriter::write(const char* buf, int n) {
    if (block_ == nullptr || out_ == nullptr) return forward(buf, n);
    if (buf == nullptr || n <= 0) return n;
    xml::XmlOut run(this, nullptr, 0);
    run.put(buf, static_cast<size_t>(n));
    return n;
}

bool XWriter::write(char c) {
    if (out_ == nullptr) return false;
    if (block_ == nullptr) return out_->write(c);
    if (blockLen_ == blockCap_) flushBlock();
    block_[blockLen_++] = c;
    return true;
}

void XWriter::setBlock(char* block, int cap) {
    flushBlock();
    block_ = block;
    blockCap_ = block != nullptr ? cap : 0;
}

void XWriter::flushBlock() const {
    if (blockLen_ > 0) passBlock(false);
}

void XWriter::passBlock(bool) const {
    if (blockLen_ > 0) forward(block_, blockLen_);
    blockLen_ = 0;
}

CharWriter* XWriter::getCharWriter() const {
    if (block_ != nullptr) passBlock(true);
    return out_;
}

void XWriter::close() {
    flushBlock();
    if (out_ != nullptr) {
        CharWriter* out = out_;
        out_ = nullptr;
        out->close();
    }
}

XWriter* XWriter::w(int n) {
    // "%d" by hand: digits from the end of a small buffer.
    char buf[16];
    char* end = buf + sizeof buf;
    char* p = end;
    unsigned int v = n < 0 ? 0u - static_cast<unsigned int>(n) : static_cast<unsigned int>(n);
    do {
        *--p = static_cast<char>('0' + v % 10);
        v /= 10;
    } while (v != 0);
    if (n < 0) *--p = '-';
    write(p, static_cast<int>(end - p));
    return this;
}

XWriter* XWriter::putChar(char c) {
    write(c);
    return this;
}

XWriter* XWriter::putText(const char* s, size_t n) {
    // Longer than an int counts only in a document of gigabytes: written in pieces.
    while (n > 0) {
        int piece = n > 0x40000000 ? 0x40000000 : static_cast<int>(n);
        write(s, piece);
        s += piece;
        n -= static_cast<size_t>(piece);
    }
    return this;
}

XWriter* XWriter::putSpaces(int n) {
    if (n <= 0) return this;
    if (block_ != nullptr) {
        xml::XmlOut run(this, nullptr, 0);
        run.spaces(n);
        return this;
    }
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
    xml::withRun(this, [name, value](xml::XmlOut& run) {
        run.put(name);
        run.put("=\"", 2);
        run.escaped(value);
        run.put('"');
    });
    return this;
}

XWriter* XWriter::attrf(const char* name, const char* format, int size, ...) {
    if (size <= 0 || format == nullptr) return attr(name, "");
    // Small sizes (the usual numbers and short labels) are formatted on the stack.
    char local[256];
    char* buf = size <= static_cast<int>(sizeof local)
                    ? local
                    : static_cast<char*>(std::malloc(static_cast<size_t>(size)));
    if (buf == nullptr) return attr(name, "");
    va_list args;
    va_start(args, size);
    if (std::vsnprintf(buf, static_cast<size_t>(size), format, args) < 0) buf[0] = '\0';
    va_end(args);
    attr(name, buf);
    if (buf != local) std::free(buf);
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
    if (s == nullptr || n <= 0) return this;
    // Runs of bytes that stand for themselves and the references between them go out
    // together, one write per block.
    xml::withRun(this, [s, n, escapeWhitespace](xml::XmlOut& run) {
        run.escaped(s, static_cast<size_t>(n), escapeWhitespace);
    });
    return this;
}

XWriter* XWriter::safe(char c, bool escapeWhitespace) {
    xml::withRun(this,
                 [c, escapeWhitespace](xml::XmlOut& run) { run.escaped(&c, 1, escapeWhitespace); });
    return this;
}

XWriter* XWriter::safe(XWriter* out, const char* s, bool escapeWhitespace) {
    return out != nullptr ? out->safe(s, escapeWhitespace) : out;
}

XWriter* XWriter::safe(XWriter* out, char c, bool escapeWhitespace) {
    return out != nullptr ? out->safe(c, escapeWhitespace) : out;
}

void XWriter::unload() {
    xml::releaseIndentSpaces();
    xml::releaseNodePool();
}

}  // namespace velmora
