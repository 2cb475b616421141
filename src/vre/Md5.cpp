#include "vre/Md5.h"

#include <cstring>

namespace velmora {
namespace vre {

namespace {

// Words are read little-endian byte by byte: portable, and compilers turn it into one load.
inline uint32_t load32(const unsigned char* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

inline void store32(unsigned char* p, uint32_t v) {
    p[0] = static_cast<unsigned char>(v);
    p[1] = static_cast<unsigned char>(v >> 8);
    p[2] = static_cast<unsigned char>(v >> 16);
    p[3] = static_cast<unsigned char>(v >> 24);
}

inline uint32_t rotl(uint32_t v, int s) {
    return (v << s) | (v >> (32 - s));
}

// The four round functions, in the forms that need the fewest operations.
#define VELMORA_MD5_F(x, y, z) ((z) ^ ((x) & ((y) ^ (z))))
#define VELMORA_MD5_G(x, y, z) ((y) ^ ((z) & ((x) ^ (y))))
#define VELMORA_MD5_H(x, y, z) ((x) ^ (y) ^ (z))
#define VELMORA_MD5_I(x, y, z) ((y) ^ ((x) | ~(z)))
#define VELMORA_MD5_STEP(f, a, b, c, d, x, t, s) \
    a += f(b, c, d) + (x) + (t);                 \
    a = rotl(a, s) + (b)

// Processes `blocks` 64-byte blocks into the state.
void transform(uint32_t state[4], const unsigned char* p, size_t blocks) {
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
    for (; blocks > 0; --blocks, p += 64) {
        uint32_t x[16];
        for (int i = 0; i < 16; ++i)
            x[i] = load32(p + 4 * i);
        const uint32_t aa = a, bb = b, cc = c, dd = d;

        VELMORA_MD5_STEP(VELMORA_MD5_F, a, b, c, d, x[0], 0xd76aa478, 7);
        VELMORA_MD5_STEP(VELMORA_MD5_F, d, a, b, c, x[1], 0xe8c7b756, 12);
        VELMORA_MD5_STEP(VELMORA_MD5_F, c, d, a, b, x[2], 0x242070db, 17);
        VELMORA_MD5_STEP(VELMORA_MD5_F, b, c, d, a, x[3], 0xc1bdceee, 22);
        VELMORA_MD5_STEP(VELMORA_MD5_F, a, b, c, d, x[4], 0xf57c0faf, 7);
        VELMORA_MD5_STEP(VELMORA_MD5_F, d, a, b, c, x[5], 0x4787c62a, 12);
        VELMORA_MD5_STEP(VELMORA_MD5_F, c, d, a, b, x[6], 0xa8304613, 17);
        VELMORA_MD5_STEP(VELMORA_MD5_F, b, c, d, a, x[7], 0xfd469501, 22);
        VELMORA_MD5_STEP(VELMORA_MD5_F, a, b, c, d, x[8], 0x698098d8, 7);
        VELMORA_MD5_STEP(VELMORA_MD5_F, d, a, b, c, x[9], 0x8b44f7af, 12);
        VELMORA_MD5_STEP(VELMORA_MD5_F, c, d, a, b, x[10], 0xffff5bb1, 17);
        VELMORA_MD5_STEP(VELMORA_MD5_F, b, c, d, a, x[11], 0x895cd7be, 22);
        VELMORA_MD5_STEP(VELMORA_MD5_F, a, b, c, d, x[12], 0x6b901122, 7);
        VELMORA_MD5_STEP(VELMORA_MD5_F, d, a, b, c, x[13], 0xfd987193, 12);
        VELMORA_MD5_STEP(VELMORA_MD5_F, c, d, a, b, x[14], 0xa679438e, 17);
        VELMORA_MD5_STEP(VELMORA_MD5_F, b, c, d, a, x[15], 0x49b40821, 22);

        VELMORA_MD5_STEP(VELMORA_MD5_G, a, b, c, d, x[1], 0xf61e2562, 5);
        VELMORA_MD5_STEP(VELMORA_MD5_G, d, a, b, c, x[6], 0xc040b340, 9);
        VELMORA_MD5_STEP(VELMORA_MD5_G, c, d, a, b, x[11], 0x265e5a51, 14);
        VELMORA_MD5_STEP(VELMORA_MD5_G, b, c, d, a, x[0], 0xe9b6c7aa, 20);
        VELMORA_MD5_STEP(VELMORA_MD5_G, a, b, c, d, x[5], 0xd62f105d, 5);
        VELMORA_MD5_STEP(VELMORA_MD5_G, d, a, b, c, x[10], 0x02441453, 9);
        VELMORA_MD5_STEP(VELMORA_MD5_G, c, d, a, b, x[15], 0xd8a1e681, 14);
        VELMORA_MD5_STEP(VELMORA_MD5_G, b, c, d, a, x[4], 0xe7d3fbc8, 20);
        VELMORA_MD5_STEP(VELMORA_MD5_G, a, b, c, d, x[9], 0x21e1cde6, 5);
        VELMORA_MD5_STEP(VELMORA_MD5_G, d, a, b, c, x[14], 0xc33707d6, 9);
        VELMORA_MD5_STEP(VELMORA_MD5_G, c, d, a, b, x[3], 0xf4d50d87, 14);
        VELMORA_MD5_STEP(VELMORA_MD5_G, b, c, d, a, x[8], 0x455a14ed, 20);
        VELMORA_MD5_STEP(VELMORA_MD5_G, a, b, c, d, x[13], 0xa9e3e905, 5);
        VELMORA_MD5_STEP(VELMORA_MD5_G, d, a, b, c, x[2], 0xfcefa3f8, 9);
        VELMORA_MD5_STEP(VELMORA_MD5_G, c, d, a, b, x[7], 0x676f02d9, 14);
        VELMORA_MD5_STEP(VELMORA_MD5_G, b, c, d, a, x[12], 0x8d2a4c8a, 20);

        VELMORA_MD5_STEP(VELMORA_MD5_H, a, b, c, d, x[5], 0xfffa3942, 4);
        VELMORA_MD5_STEP(VELMORA_MD5_H, d, a, b, c, x[8], 0x8771f681, 11);
        VELMORA_MD5_STEP(VELMORA_MD5_H, c, d, a, b, x[11], 0x6d9d6122, 16);
        VELMORA_MD5_STEP(VELMORA_MD5_H, b, c, d, a, x[14], 0xfde5380c, 23);
        VELMORA_MD5_STEP(VELMORA_MD5_H, a, b, c, d, x[1], 0xa4beea44, 4);
        VELMORA_MD5_STEP(VELMORA_MD5_H, d, a, b, c, x[4], 0x4bdecfa9, 11);
        VELMORA_MD5_STEP(VELMORA_MD5_H, c, d, a, b, x[7], 0xf6bb4b60, 16);
        VELMORA_MD5_STEP(VELMORA_MD5_H, b, c, d, a, x[10], 0xbebfbc70, 23);
        VELMORA_MD5_STEP(VELMORA_MD5_H, a, b, c, d, x[13], 0x289b7ec6, 4);
        VELMORA_MD5_STEP(VELMORA_MD5_H, d, a, b, c, x[0], 0xeaa127fa, 11);
        VELMORA_MD5_STEP(VELMORA_MD5_H, c, d, a, b, x[3], 0xd4ef3085, 16);
        VELMORA_MD5_STEP(VELMORA_MD5_H, b, c, d, a, x[6], 0x04881d05, 23);
        VELMORA_MD5_STEP(VELMORA_MD5_H, a, b, c, d, x[9], 0xd9d4d039, 4);
        VELMORA_MD5_STEP(VELMORA_MD5_H, d, a, b, c, x[12], 0xe6db99e5, 11);
        VELMORA_MD5_STEP(VELMORA_MD5_H, c, d, a, b, x[15], 0x1fa27cf8, 16);
        VELMORA_MD5_STEP(VELMORA_MD5_H, b, c, d, a, x[2], 0xc4ac5665, 23);

        VELMORA_MD5_STEP(VELMORA_MD5_I, a, b, c, d, x[0], 0xf4292244, 6);
        VELMORA_MD5_STEP(VELMORA_MD5_I, d, a, b, c, x[7], 0x432aff97, 10);
        VELMORA_MD5_STEP(VELMORA_MD5_I, c, d, a, b, x[14], 0xab9423a7, 15);
        VELMORA_MD5_STEP(VELMORA_MD5_I, b, c, d, a, x[5], 0xfc93a039, 21);
        VELMORA_MD5_STEP(VELMORA_MD5_I, a, b, c, d, x[12], 0x655b59c3, 6);
        VELMORA_MD5_STEP(VELMORA_MD5_I, d, a, b, c, x[3], 0x8f0ccc92, 10);
        VELMORA_MD5_STEP(VELMORA_MD5_I, c, d, a, b, x[10], 0xffeff47d, 15);
        VELMORA_MD5_STEP(VELMORA_MD5_I, b, c, d, a, x[1], 0x85845dd1, 21);
        VELMORA_MD5_STEP(VELMORA_MD5_I, a, b, c, d, x[8], 0x6fa87e4f, 6);
        VELMORA_MD5_STEP(VELMORA_MD5_I, d, a, b, c, x[15], 0xfe2ce6e0, 10);
        VELMORA_MD5_STEP(VELMORA_MD5_I, c, d, a, b, x[6], 0xa3014314, 15);
        VELMORA_MD5_STEP(VELMORA_MD5_I, b, c, d, a, x[13], 0x4e0811a1, 21);
        VELMORA_MD5_STEP(VELMORA_MD5_I, a, b, c, d, x[4], 0xf7537e82, 6);
        VELMORA_MD5_STEP(VELMORA_MD5_I, d, a, b, c, x[11], 0xbd3af235, 10);
        VELMORA_MD5_STEP(VELMORA_MD5_I, c, d, a, b, x[2], 0x2ad7d2bb, 15);
        VELMORA_MD5_STEP(VELMORA_MD5_I, b, c, d, a, x[9], 0xeb86d391, 21);

        a += aa;
        b += bb;
        c += cc;
        d += dd;
    }
    state[0] = a;
    state[1] = b;
    state[2] = c;
    state[3] = d;
}

#undef VELMORA_MD5_F
#undef VELMORA_MD5_G
#undef VELMORA_MD5_H
#undef VELMORA_MD5_I
#undef VELMORA_MD5_STEP

}  // namespace

void md5(const unsigned char* data, size_t length, unsigned char digest[16]) {
    uint32_t state[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    const size_t whole = length / 64;
    if (whole > 0) transform(state, data, whole);

    // The tail, the 0x80 marker, zero padding and the bit length fill one or two blocks.
    unsigned char last[128] = {};
    const size_t rest = length % 64;
    if (rest > 0) std::memcpy(last, data + whole * 64, rest);
    last[rest] = 0x80;
    const size_t lastSize = rest < 56 ? 64 : 128;
    const uint64_t bits = static_cast<uint64_t>(length) * 8;
    for (int i = 0; i < 8; ++i)
        last[lastSize - 8 + i] = static_cast<unsigned char>(bits >> (8 * i));
    transform(state, last, lastSize / 64);

    for (int i = 0; i < 4; ++i)
        store32(digest + 4 * i, state[i]);
}

}  // namespace vre
}  // namespace velmora
