// A character writer for XML: forwards to another CharWriter and adds escaping,
// attributes, indentation and the prolog. Every helper returns the writer, so calls chain.
// Output is pure ASCII: quotes, control bytes and bytes above 126 become numeric
// references ("&#x22;", "&#xe9;"), unless the UTF-8 mode is on (setUtf8).
//
//   velmora::XWriter out(&fileWriter);  // closes fileWriter when it goes
//   out.prolog();
//   out.w("<port ")->attr("number", "8080")->w("/>")->nl();
#pragma once

#include <velmora/text/CharWriter.h>

#include <cstddef>
#include <cstring>

namespace velmora {

namespace xml {
class XmlOut;
}

class VELMORA_API XWriter : public CharWriter {
public:
    explicit XWriter(CharWriter* out);  // not owned, but close() closes it
    ~XWriter() override;                // calls close()

    int write(const char* buf, int n) override;  // 0 without a target
    bool write(char c) override;                 // false without a target
    void close() override;                       // closes the target and forgets it

    XWriter* w(int n);  // "%d"
    // The small helpers gather straight into the writer's block when it has one (and the
    // room), without a call.
    XWriter* w(char c) {
        if (blockLen_ < blockCap_) {
            block_[blockLen_++] = c;
            return this;
        }
        return putChar(c);
    }
    XWriter* w(const char* s) {  // as is; null writes nothing
        if (s == nullptr) return this;
        // Names and markup are short: copied a byte at a time while they fit, without a
        // call; a longer text is measured and copied in one piece.
        char* d = block_ + blockLen_;
        const int room = blockCap_ - blockLen_;
        for (int i = 0; i < 16 && i < room; ++i) {
            if (s[i] == '\0') {
                blockLen_ += i;
                return this;
            }
            d[i] = s[i];
        }
        size_t n = std::strlen(s);
        if (n == 0) return this;
        if (n <= static_cast<size_t>(blockCap_ - blockLen_)) {
            std::memcpy(block_ + blockLen_, s, n);
            blockLen_ += static_cast<int>(n);
            return this;
        }
        return putText(s, n);
    }
    XWriter* nl() { return w('\n'); }
    XWriter* indent(int n) {  // n spaces
        if (n > 0 && n <= 16 && blockCap_ - blockLen_ >= 16) {
            // Sixteen spaces in one move; those past n are overwritten next.
            std::memcpy(block_ + blockLen_, "                ", 16);
            blockLen_ += n;
            return this;
        }
        if (n > 0 && n <= blockCap_ - blockLen_) {
            std::memset(block_ + blockLen_, ' ', static_cast<size_t>(n));
            blockLen_ += n;
            return this;
        }
        return putSpaces(n);
    }
    XWriter* prolog();  // the XML declaration and a line feed
    // name="value" with the value escaped; no space is written before the name.
    XWriter* attr(const char* name, const char* value);
    // As attr() with the value formatted into a buffer of `size` bytes.
    XWriter* attrf(const char* name, const char* format, int size, ...);
    XWriter* safe(const char* s);  // escaped, whitespace included
    XWriter* safe(const char* s, bool escapeWhitespace);
    // `n` bytes, zeros included.
    XWriter* safe(const char* s, int n, bool escapeWhitespace);
    XWriter* safe(char c, bool escapeWhitespace);
    static XWriter* safe(XWriter* out, const char* s, bool escapeWhitespace);
    static XWriter* safe(XWriter* out, char c, bool escapeWhitespace);

    // UTF-8 mode: well-formed UTF-8 sequences go out as they are and only what XML needs
    // is escaped; a byte above 127 that is no part of one (nor of U+FFFE or U+FFFF, no
    // characters of XML) is still a reference. Off by default: the writer then writes
    // pure ASCII as described above.
    void setUtf8(bool on) { utf8_ = on; }
    bool isUtf8() const { return utf8_; }

    // The target, with everything the helpers gathered handed to it first.
    CharWriter* getCharWriter() const;
    // Releases the process-wide indentation string (rebuilt on next use).
    static void unload();

protected:
    XWriter();
    void setCharWriter(CharWriter* out) { out_ = out; }
    // Gives the writer a block of `cap` bytes (at least 64, owned by the caller) in which
    // the helpers gather their bytes before they go to the target in one write per
    // block; null: every helper call writes through. Only for a target that nothing else
    // writes to, read after flushBlock().
    void setBlock(char* block, int cap);
    void flushBlock() const;  // hands the gathered bytes to the target (through passBlock)
    // Hands the gathered bytes to the target in one write and empties the block. A writer
    // whose block lies in its target's own memory takes them over in place instead and
    // moves the block past them; `lending`: the target is about to be handed out
    // (getCharWriter), so that others may write to it from now on.
    virtual void passBlock(bool lending) const;
    // Puts the block elsewhere, empty, without handing anything over (for passBlock).
    void moveBlock(char* block, int cap) const {
        block_ = block;
        blockCap_ = block != nullptr ? cap : 0;
        blockLen_ = 0;
    }
    char* getBlock() const { return block_; }
    int getBlockLength() const { return blockLen_; }

private:
    friend class xml::XmlOut;
    int forward(const char* buf, int n) const { return out_ != nullptr ? out_->write(buf, n) : 0; }
    XWriter* putChar(char c);
    XWriter* putText(const char* s, size_t n);
    XWriter* putSpaces(int n);

    XWriter(const XWriter&) = delete;
    XWriter& operator=(const XWriter&) = delete;

    CharWriter* out_ = nullptr;
    bool utf8_ = false;
    // Kept apart from blockCap_: the helpers store the length as four bytes, and a read
    // of both fields as one eight-byte word would wait for that store to retire.
    mutable int blockLen_ = 0;
    mutable char* block_ = nullptr;
    mutable int blockCap_ = 0;
};

}  // namespace velmora
