// A sink of byte characters. Everything in the library that produces text (XML, logs,
// HTTP bodies, sockets) writes through one; no encoding or newline conversion is done.
//
//   void greet(velmora::CharWriter& out) { out.writeString("hello\n"); }
#pragma once

#include <velmora/Export.h>

namespace velmora {

class VELMORA_API CharWriter {
public:
    virtual ~CharWriter();
    // Writes `len` bytes; returns what the writer reports (usually `len`).
    virtual int write(const char* buf, int len) = 0;
    virtual bool write(char c) = 0;
    // Writes strlen(s) bytes through write(buf, len) and returns its result.
    virtual int writeString(const char* s);
    virtual void close();
};

}  // namespace velmora
