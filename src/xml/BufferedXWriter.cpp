#include <velmora/xml/BufferedXWriter.h>

#include <cstdlib>

namespace velmora {

namespace {

const int kBlock = 16 * 1024;
// The room asked for after the text each time the block moves; the text's memory grows
// by doubling, so the block is mostly far larger.
const size_t kSpare = 16 * 1024;
// A block is counted in an int.
const size_t kMaxBlock = 1u << 30;

}  // namespace

BufferedXWriter::BufferedXWriter()
    : buffer_(new StringWriter(1024)), block_(static_cast<char*>(std::malloc(kBlock))) {
    setCharWriter(buffer_);
    // Without the memory of its own block every helper call writes through, as for any
    // XWriter; with it, the block goes into the text's memory where it can.
    if (block_ != nullptr) {
        setBlock(block_, kBlock);
        passBlock(false);
    }
}

BufferedXWriter::~BufferedXWriter() {
    // Detached first, so that the base destructor's close() leaves the buffer alone.
    setBlock(nullptr, 0);
    std::free(block_);
    setCharWriter(nullptr);
    buffer_->close();
    delete buffer_;
}

void BufferedXWriter::passBlock(bool lending) const {
    if (getBlock() == block_) {
        XWriter::passBlock(lending);
    } else {
        buffer_->takeSpare(static_cast<size_t>(getBlockLength()));
    }
    // Once others may write to the text, every helper call writes through, so that their
    // bytes and the helpers' stay in the order they were written.
    if (lending || lent_) {
        lent_ = true;
        moveBlock(nullptr, 0);
        return;
    }
    size_t room = 0;
    char* spare = buffer_->spare(kSpare, &room);
    if (spare != nullptr) {
        moveBlock(spare, static_cast<int>(room < kMaxBlock ? room : kMaxBlock));
    } else {
        moveBlock(block_, kBlock);  // closed, or no memory for the text to grow
    }
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
    // A block in the text's memory moves back to its new end.
    if (getBlock() != nullptr) passBlock(false);
}

}  // namespace velmora
