// The socket input's line and string readers on any bytes from a peer (fed from memory in
// blocks of the sizes receives could give): nothing
// returned is longer than what was sent, a string holds no terminator and keeps to its
// limit, and the lines end with the sticky error set once the peer has closed.
#include <velmora/net/SocketInput.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "support/MemoryInput.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0 || size > (1 << 20)) return 0;
    // The first byte picks the reader (low five bits) and the size of the receives (high
    // three); the rest is what the peer sends.
    const char mode = static_cast<char>(data[0]);
    velmora::fuzzing::MemoryInput input(reinterpret_cast<const char*>(data) + 1,
                                        static_cast<int>(size) - 1, 1 + (data[0] >> 5) * 300);
    velmora::SocketInput* in = &input;
    const bool strings = (mode & 1) != 0;
    for (int guard = 0; guard <= static_cast<int>(size); ++guard) {
        char* text = strings ? in->readString(mode & 0x1f, 64, ';') : in->readLine();
        if (text == nullptr) break;
        const size_t length = std::strlen(text);
        if (length >= size) std::abort();
        if (strings && (length > 64 || std::strchr(text, ';') != nullptr)) std::abort();
        velmora::release(text);
    }
    if (!strings && !in->getSocketError()) std::abort();
    return 0;
}
