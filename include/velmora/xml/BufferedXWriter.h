// An XWriter into its own growing text, for building documents in memory. The helpers
// write straight into the text's memory after its end, and the text takes those bytes
// over when it is read, so a document written piece by piece costs no call into the text
// (and no take of its lock) per piece, nor a copy; like the text itself, the writer is
// for one thread at a time. Once getCharWriter() has handed the text out, every helper
// call writes through to it, in order with what others write there.
//
//   velmora::BufferedXWriter out;
//   elem.write(&out, 0);
//   send(out.getString(), out.getLength());
#pragma once

#include <cstdint>

#include <velmora/text/StringWriter.h>
#include <velmora/xml/XWriter.h>

namespace velmora {

class VELMORA_API BufferedXWriter : public XWriter {
public:
    BufferedXWriter();  // capacity 1024
    ~BufferedXWriter() override;

    void clear();  // empties the text
    // The text written so far (what the helpers gathered included).
    const char* getString() const;
    uint32_t getLength() const;

protected:
    void passBlock(bool lending) const override;

private:
    StringWriter* buffer_;
    char* block_;  // the writer's own block, for when the text's memory cannot be used
    mutable bool lent_ = false;  // getCharWriter() handed the text out
};

}  // namespace velmora
