// An XWriter into its own growing text, for building documents in memory. The helpers
// gather their bytes in a block of the writer's own and hand the text one write per block,
// so a document written piece by piece costs no call into the text (and no take of its
// lock) per piece; like the text itself, the writer is for one thread at a time.
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

private:
    StringWriter* buffer_;
    char* block_;
};

}  // namespace velmora
