#include <velmora/xml/BufferedXWriter.h>

namespace velmora {

BufferedXWriter::BufferedXWriter() : buffer_(new StringWriter(1024)) {
    setCharWriter(buffer_);
}

BufferedXWriter::~BufferedXWriter() {
    // Detached first, so that the base destructor's close() leaves the buffer alone.
    setCharWriter(nullptr);
    buffer_->close();
    delete buffer_;
}

void BufferedXWriter::clear() {
    buffer_->clear();
}

}  // namespace velmora
