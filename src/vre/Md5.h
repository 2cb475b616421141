// The MD5 message digest (RFC 1321) computed in portable code, used by the default core.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velmora {
namespace vre {

// Digest of `length` bytes at `data` into the 16 bytes at `digest`.
void md5(const unsigned char* data, size_t length, unsigned char digest[16]);

}  // namespace vre
}  // namespace velmora
