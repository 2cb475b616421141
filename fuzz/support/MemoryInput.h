// For fuzz targets of the socket readers: a SocketInput that takes its bytes from memory
// instead of a connection, in blocks of the sizes a peer's sends could arrive in, and ends
// like a closed connection when they run out. Much faster than a loopback socket, and the
// same readers run on the same buffer.
#pragma once

#include <velmora/net/SocketInput.h>

#include <algorithm>

namespace velmora {
namespace fuzzing {

class MemoryInput : public SocketInput {
public:
    // `block` bounds each receive (1 to 2048), so that reads that span blocks are reached.
    MemoryInput(const char* data, int size, int block)
        : SocketInput(nullptr), data_(data), left_(size), block_(block < 1 ? 1 : block) {}

protected:
    bool fillBuffer() override {
        const int taken = acceptBlock(data_, std::min(left_, block_));
        data_ += taken;
        left_ -= taken;
        return taken > 0;
    }

private:
    const char* data_;
    int left_;
    int block_;
};

}  // namespace fuzzing
}  // namespace velmora
