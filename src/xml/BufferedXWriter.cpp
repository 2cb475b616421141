#include <velmora/xml/BufferedXWriter.h>

#include <cstdlib>

namespace velmora {

namespace {

const int kBlock = 16 * 1024;

}  // namespace

BufferedXWriter::BufferedXWriter()
    : buffer_(new StringWriter(1024)), block_(static_cast<char*>(std::malloc(kBlock))) {
    setCharWriter(buffer_);
    // Without the memory every helper call writes through, as for any XWriter.
    setBlock(block_, kBlock);
}

BufferedXWriter::~BufferedXWriter() {
    // Detached first, so that the base destructor's close() leaves the buffer alone.
    setBlock(nullptr, 0);
    std::free(block_);
    setCharWriter(nullptr);
    buffer_->close();
    delete buffer_;
}

const char* BufferedXWriter::getString() const {
    flushBlock();
    return buffer_->getString();
}

uint32_t BufferedXWriter::getLength() const {
    flushBlock();
    return static_cast<uint32_t>(buffer_->getLength());
}

void BufferedXWriter::clear() {
    flushBlock();
    buffer_->clear();
}

}  // namespace velmora
