#include <velmora/text/CharUtil.h>

#include <velmora/vre/Vre.h>

#include <cstdint>
#include <cstring>

namespace velmora {

namespace {

constexpr char kBase64Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kHexDigits[] = "0123456789abcdef";
constexpr unsigned char kSkip = 0xFF;

// Character to its 6-bit value, or kSkip for every character outside the alphabet. The
// tables are built at compile time, so they are ready even for other static initialisers.
struct DecodeTable {
    unsigned char value[256];
    constexpr DecodeTable() : value{} {
        for (int i = 0; i < 256; ++i)
            value[i] = kSkip;
        for (int i = 0; i < 64; ++i)
            value[static_cast<unsigned char>(kBase64Alphabet[i])] = static_cast<unsigned char>(i);
    }
};
constexpr DecodeTable kDecode;

// Pairs of hexadecimal digits for every byte value, so that encoding takes one lookup a byte.
struct HexTable {
    char pair[256][2];
    constexpr HexTable() : pair{} {
        for (int i = 0; i < 256; ++i) {
            pair[i][0] = kHexDigits[i >> 4];
            pair[i][1] = kHexDigits[i & 15];
        }
    }
};
constexpr HexTable kHex;

inline void encodeGroup(uint32_t bits, char* out) {
    out[0] = kBase64Alphabet[(bits >> 18) & 63];
    out[1] = kBase64Alphabet[(bits >> 12) & 63];
    out[2] = kBase64Alphabet[(bits >> 6) & 63];
    out[3] = kBase64Alphabet[bits & 63];
}

}  // namespace

int CharUtil::base64EncodeSize(int n) {
    if (n < 0) return 0;
    const int64_t size = static_cast<int64_t>(n) / 3 * 4 + (n % 3 == 0 ? 1 : 5);
    return size <= INT32_MAX ? static_cast<int>(size) : 0;
}

int CharUtil::base64Encode(const unsigned char* in, int n, char* out) {
    const int size = base64EncodeSize(n);
    if (size == 0 || out == nullptr) return 0;
    if (in == nullptr) n = 0;
    // Every byte of base64EncodeSize(n) is written below: the characters, then the
    // terminator as the last byte.
    char* o = out;
    int i = 0;
    for (; i + 3 <= n; i += 3, o += 4)
        encodeGroup(
            static_cast<uint32_t>(in[i]) << 16 | static_cast<uint32_t>(in[i + 1]) << 8 | in[i + 2],
            o);
    if (n - i == 1) {
        encodeGroup(static_cast<uint32_t>(in[i]) << 16, o);
        o[2] = o[3] = '=';
        o += 4;
    } else if (n - i == 2) {
        encodeGroup(static_cast<uint32_t>(in[i]) << 16 | static_cast<uint32_t>(in[i + 1]) << 8, o);
        o[3] = '=';
        o += 4;
    }
    *o = '\0';
    return static_cast<int>(o - out);
}

int CharUtil::base64DecodeSize(int n) {
    if (n < 0) return 0;
    return static_cast<int>(static_cast<int64_t>(n) * 3 / 4 + 1);
}

int CharUtil::base64Decode(const char* in, int n, unsigned char* out) {
    if (in == nullptr || out == nullptr || n <= 0) return 0;
    const unsigned char* p = reinterpret_cast<const unsigned char*>(in);
    const unsigned char* const end = p + n;
    unsigned char* o = out;
    uint32_t bits = 0;
    int held = 0;  // values gathered for the current group
    while (p < end) {
        // Whole groups of four alphabet characters, the common case, without per-value checks.
        if (held == 0) {
            while (end - p >= 4) {
                const uint32_t a = kDecode.value[p[0]], b = kDecode.value[p[1]],
                               c = kDecode.value[p[2]], d = kDecode.value[p[3]];
                if ((a | b | c | d) & 0x80) break;
                const uint32_t group = a << 18 | b << 12 | c << 6 | d;
                o[0] = static_cast<unsigned char>(group >> 16);
                o[1] = static_cast<unsigned char>(group >> 8);
                o[2] = static_cast<unsigned char>(group);
                o += 3;
                p += 4;
            }
            if (p == end) break;
        }
        const unsigned char v = kDecode.value[*p++];
        if (v == kSkip) continue;
        bits = bits << 6 | v;
        if (++held == 4) {
            o[0] = static_cast<unsigned char>(bits >> 16);
            o[1] = static_cast<unsigned char>(bits >> 8);
            o[2] = static_cast<unsigned char>(bits);
            o += 3;
            bits = 0;
            held = 0;
        }
    }
    // A cut final group gives the whole bytes its values cover: 2 values one, 3 values two.
    if (held == 2) {
        *o++ = static_cast<unsigned char>(bits >> 4);
    } else if (held == 3) {
        *o++ = static_cast<unsigned char>(bits >> 10);
        *o++ = static_cast<unsigned char>(bits >> 2);
    }
    return static_cast<int>(o - out);
}

int CharUtil::hexEncodeSize(int n) {
    if (n < 0) return 0;
    const int64_t size = static_cast<int64_t>(n) * 2 + 1;
    return size <= INT32_MAX ? static_cast<int>(size) : 0;
}

void CharUtil::hexEncode(const unsigned char* in, int n, char* out) {
    if (hexEncodeSize(n) == 0 || out == nullptr) return;
    if (in == nullptr) n = 0;
    for (int i = 0; i < n; ++i) {
        out[2 * i] = kHex.pair[in[i]][0];
        out[2 * i + 1] = kHex.pair[in[i]][1];
    }
    out[2 * static_cast<int64_t>(n)] = '\0';
}

bool CharUtil::hexMD5(const unsigned char* in, int n, char out[]) {
    if (out == nullptr) return false;
    unsigned char digest[16];
    if (!Vre::getInstance()->digestMD5(in, n, digest)) return false;
    char text[33];
    hexEncode(digest, 16, text);
    // Deliberately 32 characters and no terminator: callers terminate the text themselves.
    std::memcpy(out, text, 32);
    return true;
}

}  // namespace velmora
