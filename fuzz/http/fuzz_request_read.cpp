// Raw bytes as an HTTP request arriving on a connection (fed from memory in the blocks a
// receive gives): reading the request line and headers never fails in a way the sanitizers
// see, and a request that was read has a method, a decoded path no longer than the raw one,
// and a version. Its body length agrees between a small and an unlimited reader: never
// wrapped, refused alike.
#include <velmora/http/HttpRequest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

#include "support/MemoryInput.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > (1 << 20)) return 0;
    velmora::fuzzing::MemoryInput in(reinterpret_cast<const char*>(data), static_cast<int>(size),
                                     2048);
    velmora::HttpRequest request(&in);
    if (request.read(&in)) {
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
