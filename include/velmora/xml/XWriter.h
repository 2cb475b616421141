// A character writer for XML: forwards to another CharWriter and adds escaping,
// attributes, indentation and the prolog. Every helper returns the writer, so calls chain.
// Output is pure ASCII: quotes, control bytes and bytes above 126 become numeric
// references ("&#x22;", "&#xe9;").
//
//   velmora::XWriter out(&fileWriter);  // closes fileWriter when it goes
//   out.prolog();
//   out.w("<port ")->attr("number", "8080")->w("/>")->nl();
#pragma once

#include <velmora/text/CharWriter.h>

namespace velmora {

class VELMORA_API XWriter : public CharWriter {
public:
    explicit XWriter(CharWriter* out);  // not owned, but close() closes it
    ~XWriter() override;                // calls close()

    int write(const char* buf, int n) override;  // 0 without a target
    bool write(char c) override;                 // false without a target
    void close() override;                       // closes the target and forgets it

    XWriter* w(int n);  // "%d"
    XWriter* w(char c);
    XWriter* w(const char* s);  // as is; null writes nothing
    XWriter* nl();
    XWriter* indent(int n);  // n spaces
    XWriter* prolog();       // the XML declaration and a line feed
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

    CharWriter* getCharWriter() const { return out_; }
    // Releases the process-wide indentation string (rebuilt on next use).
    static void unload();

protected:
    XWriter();
    void setCharWriter(CharWriter* out) { out_ = out; }

private:
    XWriter(const XWriter&) = delete;
    XWriter& operator=(const XWriter&) = delete;

    CharWriter* out_ = nullptr;
};

}  // namespace velmora
