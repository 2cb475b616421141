// Well-formed UTF-8 as the XML code reads and writes it in its UTF-8 mode: the shortest
// form of a scalar value up to U+10FFFF (no overlong forms, no surrogates), other than
// U+FFFE and U+FFFF, which are no characters of XML.
#pragma once

namespace velmora {
namespace xml {

// The continuation bytes a lead byte calls for, 0 when `lead` begins no sequence; `*lo`
// and `*hi` bound the first continuation byte (the later ones are 0x80 to 0xBF).
inline int utf8Lead(unsigned char lead, unsigned char* lo, unsigned char* hi) {
    *lo = 0x80;
    *hi = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) return 1;
    if (lead >= 0xE0 && lead <= 0xEF) {
        if (lead == 0xE0) *lo = 0xA0;  // below: overlong
        if (lead == 0xED) *hi = 0x9F;  // above: surrogates
        return 2;
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        if (lead == 0xF0) *lo = 0x90;  // below: overlong
        if (lead == 0xF4) *hi = 0x8F;  // above: beyond U+10FFFF
        return 3;
    }
    return 0;
}

// The last byte of EF BF BE and EF BF BF (U+FFFE, U+FFFF).
inline bool utf8NonCharacter(unsigned char lead, unsigned char second, unsigned char third) {
    return lead == 0xEF && second == 0xBF && third >= 0xBE;
}

// The length of the well-formed sequence at `s` (a byte above 127), 0 when the bytes up
// to `end` hold none.
inline int utf8Sequence(const unsigned char* s, const unsigned char* end) {
    unsigned char lo;
    unsigned char hi;
    int more = utf8Lead(*s, &lo, &hi);
    if (more == 0 || end - s <= more) return 0;
    if (s[1] < lo || s[1] > hi) return 0;
    for (int i = 2; i <= more; ++i) {
        if (s[i] < 0x80 || s[i] > 0xBF) return 0;
    }
    if (more == 2 && utf8NonCharacter(s[0], s[1], s[2])) return 0;
    return more + 1;
}

// `cp` (up to U+10FFFF, no surrogate) as UTF-8 into `out` (4 bytes); returns the length.
inline int utf8Encode(unsigned cp, char* out) {
    if (cp < 0x80) {
        out[0] = static_cast<char>(cp);
        return 1;
    }
    if (cp < 0x800) {
        out[0] = static_cast<char>(0xC0 | (cp >> 6));
        out[1] = static_cast<char>(0x80 | (cp & 0x3F));
        return 2;
    }
    if (cp < 0x10000) {
        out[0] = static_cast<char>(0xE0 | (cp >> 12));
        out[1] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out[2] = static_cast<char>(0x80 | (cp & 0x3F));
        return 3;
    }
    out[0] = static_cast<char>(0xF0 | (cp >> 18));
    out[1] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out[2] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out[3] = static_cast<char>(0x80 | (cp & 0x3F));
    return 4;
}

}  // namespace xml
}  // namespace velmora
