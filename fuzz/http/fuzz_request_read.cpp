// Raw bytes as an HTTP request arriving on a loopback connection: reading the request line
// and headers never fails in a way the sanitizers see, and a request that was read has a
// method, a decoded path no longer than the raw one, and a version. Its body length agrees
// between a small and an unlimited reader: never wrapped, refused alike.
#include <velmora/http/HttpRequest.h>
#include <velmora/net/Socket.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
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
        const int64_t kSmall = 1000;
        int64_t small = -1, any = -1;
        velmora::HttpMessage::BodyLength limited = request.getBodyLength(kSmall, &small);
        velmora::HttpMessage::BodyLength unlimited =
            request.getBodyLength(std::numeric_limits<int64_t>::max(), &any);
        if (limited == velmora::HttpMessage::kLength && (small < 0 || small > kSmall)) std::abort();
        if (limited != velmora::HttpMessage::kLength && small != 0) std::abort();
        if (unlimited == velmora::HttpMessage::kLength) {
            bool fits = any <= kSmall;
            if (limited != (fits ? velmora::HttpMessage::kLength : velmora::HttpMessage::kTooLarge))
                std::abort();
            if (fits && small != any) std::abort();
        } else if (limited != unlimited) {
            std::abort();
        }
    }
    return 0;
}
