#include "text/WideText.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace velmora {
namespace text {

namespace {

const uint32_t kReplacement = 0xFFFD;

// Decodes one well-formed UTF-8 sequence at p (ends at the terminator), or returns 0 bytes.
// Well-formed means the table of RFC 3629: the second byte's range depends on the first, so
// that overlong forms, surrogates and values above U+10FFFF are all refused.
int decodeOne(const unsigned char* p, uint32_t* value) {
    const unsigned char b = p[0];
    if (b < 0x80) {
        *value = b;
        return 1;
    }
    int length;
    unsigned char low = 0x80, high = 0xBF;
    if (b >= 0xC2 && b <= 0xDF) {
        length = 2;
        *value = b & 0x1F;
    } else if (b >= 0xE0 && b <= 0xEF) {
        length = 3;
        *value = b & 0x0F;
        if (b == 0xE0) low = 0xA0;   // below would be overlong
        if (b == 0xED) high = 0x9F;  // above would be a surrogate
    } else if (b >= 0xF0 && b <= 0xF4) {
        length = 4;
        *value = b & 0x07;
        if (b == 0xF0) low = 0x90;   // overlong
        if (b == 0xF4) high = 0x8F;  // above U+10FFFF
    } else {
        return 0;  // a continuation byte, C0, C1 or F5..FF
    }
    for (int i = 1; i < length; ++i) {
        const unsigned char c = p[i];  // the terminator fails the range test, so no overrun
        if (c < low || c > high) return 0;
        *value = *value << 6 | (c & 0x3F);
        low = 0x80;
        high = 0xBF;
    }
    return length;
}

// Wide code units for one value: two (a surrogate pair) only where wchar_t has 16 bits.
int putWide(uint32_t value, wchar_t* out) {
    if (sizeof(wchar_t) == 2 && value > 0xFFFF) {
        value -= 0x10000;
        if (out != nullptr) {
            out[0] = static_cast<wchar_t>(0xD800 + (value >> 10));
            out[1] = static_cast<wchar_t>(0xDC00 + (value & 0x3FF));
        }
        return 2;
    }
    if (out != nullptr) out[0] = static_cast<wchar_t>(value);
    return 1;
}

// Reads one character of wide text, combining a surrogate pair where wchar_t has 16 bits.
uint32_t takeWide(const wchar_t*& p) {
    uint32_t value = static_cast<uint32_t>(*p++);
    if (sizeof(wchar_t) == 2) {
        value &= 0xFFFF;
        if (value >= 0xD800 && value <= 0xDBFF) {
            const uint32_t next = static_cast<uint32_t>(*p) & 0xFFFF;
            if (next >= 0xDC00 && next <= 0xDFFF) {
                ++p;
                return 0x10000 + ((value - 0xD800) << 10) + (next - 0xDC00);
            }
        }
    }
    if ((value >= 0xD800 && value <= 0xDFFF) || value > 0x10FFFF) return kReplacement;
    return value;
}

int putUtf8(uint32_t v, char* out) {
    unsigned char bytes[4];
    int n;
    if (v < 0x80) {
        bytes[0] = static_cast<unsigned char>(v);
        n = 1;
    } else if (v < 0x800) {
        bytes[0] = static_cast<unsigned char>(0xC0 | v >> 6);
        bytes[1] = static_cast<unsigned char>(0x80 | (v & 0x3F));
        n = 2;
    } else if (v < 0x10000) {
        bytes[0] = static_cast<unsigned char>(0xE0 | v >> 12);
        bytes[1] = static_cast<unsigned char>(0x80 | (v >> 6 & 0x3F));
        bytes[2] = static_cast<unsigned char>(0x80 | (v & 0x3F));
        n = 3;
    } else {
        bytes[0] = static_cast<unsigned char>(0xF0 | v >> 18);
        bytes[1] = static_cast<unsigned char>(0x80 | (v >> 12 & 0x3F));
        bytes[2] = static_cast<unsigned char>(0x80 | (v >> 6 & 0x3F));
        bytes[3] = static_cast<unsigned char>(0x80 | (v & 0x3F));
        n = 4;
    }
    if (out != nullptr) std::memcpy(out, bytes, static_cast<size_t>(n));
    return n;
}

}  // namespace

WideStatus utf8ToWide(const char* s, wchar_t** out) {
    *out = nullptr;
    if (s == nullptr) return WideStatus::invalidParameter;
    // First pass checks and counts, second pass writes: the same decoder both times.
    size_t units = 0;
    const unsigned char* p = reinterpret_cast<const unsigned char*>(s);
    while (*p != 0) {
        uint32_t value;
        const int n = decodeOne(p, &value);
        if (n == 0) return WideStatus::noTranslation;
        units += static_cast<size_t>(putWide(value, nullptr));
        p += n;
    }
    wchar_t* wide = static_cast<wchar_t*>(std::calloc(units + 1, sizeof(wchar_t)));
    if (wide == nullptr) return WideStatus::other;
    wchar_t* w = wide;
    for (p = reinterpret_cast<const unsigned char*>(s); *p != 0;) {
        uint32_t value = 0;
        p += decodeOne(p, &value);
        w += putWide(value, w);
    }
    *out = wide;
    return WideStatus::ok;
}

char* wideToUtf8(const wchar_t* s) {
    if (s == nullptr) return nullptr;
    size_t bytes = 0;
    for (const wchar_t* p = s; *p != 0;)
        bytes += static_cast<size_t>(putUtf8(takeWide(p), nullptr));
    char* text = static_cast<char*>(std::calloc(bytes + 1, 1));
    if (text == nullptr) return nullptr;
    char* o = text;
    for (const wchar_t* p = s; *p != 0;)
        o += putUtf8(takeWide(p), o);
    return text;
}

}  // namespace text
}  // namespace velmora
