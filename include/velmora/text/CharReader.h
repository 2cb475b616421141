// A source of byte characters: the XML parser, socket reader and zip reader all read
// through one.
//
//   for (int c = in.getChar(); c != -1; c = in.getChar()) consume(c);
#pragma once

#include <velmora/Export.h>
#include <velmora/text/Release.h>

namespace velmora {

class VELMORA_API CharReader {
public:
    virtual ~CharReader();
    // The next character, or -1 at the end of the stream.
    virtual int getChar() = 0;
    // Hands over a block of up to `size` characters and its length; the caller gives the
    // block back with velmora::release. See each reader for what it gives at the end.
    virtual void getBuf(int size, char** buf, int* len) = 0;
    virtual void close();
    virtual bool eof() = 0;
};

}  // namespace velmora
