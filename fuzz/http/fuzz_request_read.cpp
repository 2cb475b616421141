// Raw bytes as an HTTP request arriving on a loopback connection: reading the request line
// and headers never fails in a way the sanitizers see, and a request that was read has a
// method, a decoded path no longer than the raw one, and a version.
#include <velmora/http/HttpRequest.h>
#include <velmora/net/Socket.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "support/LoopbackDelivery.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 16384) return 0;  // stays within the loopback buffers
    std::unique_ptr<velmora::Socket> peer =
        velmora::fuzzing::deliver(reinterpret_cast<const char*>(data), static_cast<int>(size));
    if (!peer) return 0;

    velmora::HttpRequest request(peer->getInput());
    if (request.read(peer->getInput())) {
        if (request.getMethod() == nullptr || request.getVersion() == nullptr) std::abort();
        if (std::strlen(request.getDecodedURI()) >
            std::strlen(request.getEncodedURI()) + std::strlen(request.getEncodedQuery()) + 1) {
            std::abort();
        }
    }
    return 0;
}
