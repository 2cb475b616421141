// Any bytes as a request head gathered in memory (as the daemon's event loop gathers it):
// the parse stays in bounds; a head it takes is taken the same from exactly its own bytes,
// and one byte short of them it is merely incomplete, never refused.
#include <velmora/http/HttpRequest.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 65536) return 0;
    // A copy of exactly the input's size, so that a read past its end is caught.
    std::vector<char> bytes(data, data + size);
    const int length = static_cast<int>(size);
    velmora::HttpRequest request(nullptr);
    const int taken = request.parse(bytes.data(), length);
    if (taken > length || taken < -1) std::abort();
    if (taken > 0) {
        if (request.getMethod() == nullptr || request.getDecodedURI() == nullptr) std::abort();
        velmora::HttpRequest exact(nullptr);
        if (exact.parse(bytes.data(), taken) != taken) std::abort();
        velmora::HttpRequest shorter(nullptr);
        if (shorter.parse(bytes.data(), taken - 1) != 0) std::abort();
    }
    return 0;
}
