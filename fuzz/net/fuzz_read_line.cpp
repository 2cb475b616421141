// The socket input's line and string readers on any bytes from a loopback peer: nothing
// returned is longer than what was sent, a string holds no terminator and keeps to its
// limit, and the lines end with the sticky error set once the peer has closed.
#include <velmora/net/SocketInput.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "support/LoopbackDelivery.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0 || size > 16384) return 0;  // stays within the loopback buffers
    // The first byte picks the reader; the rest is what the peer sends.
    const char mode = static_cast<char>(data[0]);
    std::unique_ptr<velmora::Socket> peer = velmora::fuzzing::deliver(
        reinterpret_cast<const char*>(data) + 1, static_cast<int>(size) - 1);
    if (!peer) return 0;
    velmora::SocketInput* in = peer->getInput();
    const bool strings = (mode & 1) != 0;
    for (int guard = 0; guard <= static_cast<int>(size); ++guard) {
        char* text = strings ? in->readString(mode & 0x1f, 64, ';') : in->readLine();
        if (text == nullptr) break;
        const size_t length = std::strlen(text);
        if (length >= size) std::abort();
        if (strings && (length > 64 || std::strchr(text, ';') != nullptr)) std::abort();
        std::free(text);
    }
    if (!strings && !in->getSocketError()) std::abort();
    return 0;
}
