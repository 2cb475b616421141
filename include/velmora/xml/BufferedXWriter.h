// An XWriter into its own growing text, for building small documents in memory.
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
    const char* getString() const { return buffer_->getString(); }
    uint32_t getLength() const { return static_cast<uint32_t>(buffer_->getLength()); }

private:
    StringWriter* buffer_;
};

}  // namespace velmora
