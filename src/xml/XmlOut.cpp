#include "xml/XmlOut.h"

#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
#include <immintrin.h>
#include <tmmintrin.h>
#endif
#endif

#include "xml/XmlUtf8.h"

namespace velmora {
namespace xml {

namespace {

// Bytes the escaping writes as themselves: printable ASCII except the quotes and < > &.
struct PlainTable {
    bool plain[256];
    constexpr PlainTable() : plain() {
        for (int c = 32; c <= 126; ++c)
            plain[c] = c != '"' && c != '\'' && c != '<' && c != '>' && c != '&';
    }
};

constexpr PlainTable kTable;

}  // namespace

void XmlOut::flush() {
    flushed_ += static_cast<size_t>(n_);
    if (borrowed_) {
        // The writer's own block goes to its target, which may move the block.
        out_->blockLen_ = n_;
        out_->passBlock(false);
        buf_ = out_->block_;
        cap_ = out_->blockCap_;
    } else if (n_ > 0) {
        // A run's block goes to the writer, so that a writer that overrides write() sees
        // everything written.
        out_->write(buf_, n_);
    }
    n_ = 0;
}

void XmlOut::putLong(const char* s, size_t n) {
    flush();
    if (n >= static_cast<size_t>(cap_)) {
        // Too long for the block: straight through, in pieces an int can count.
        while (n > 0) {
            int piece = n > 0x40000000 ? 0x40000000 : static_cast<int>(n);
            if (borrowed_) {
                out_->forward(s, piece);
            } else {
                out_->write(s, piece);
            }
            s += piece;
            n -= static_cast<size_t>(piece);
        }
        // The target grew behind the writer's block: the block moves past the new text.
        if (borrowed_) flush();
        return;
    }
    std::memcpy(buf_, s, n);
    n_ = static_cast<int>(n);
}

void XmlOut::manySpaces(int n) {
    while (n > 0) {
        if (n_ == cap_) flush();
        int room = cap_ - n_;
        int k = n < room ? n : room;
        std::memset(buf_ + n_, ' ', static_cast<size_t>(k));
        n_ += k;
        n -= k;
    }
}

namespace {

// What each byte that does not stand for itself is written as: its named entity, or
// "&#x%x;" (lower-case hexadecimal without leading zeros); at most six bytes, kept in
// eight so that one fixed-size move writes any of them.
struct EscapeTable {
    char text[256][8];
    unsigned char length[256];
    constexpr EscapeTable() : text(), length() {
        const char hex[] = "0123456789abcdef";
        for (int c = 0; c < 256; ++c) {
            int n = 0;
            text[c][n++] = '&';
            text[c][n++] = '#';
            text[c][n++] = 'x';
            if (c >= 16) text[c][n++] = hex[c >> 4];
            text[c][n++] = hex[c & 15];
            text[c][n++] = ';';
            length[c] = static_cast<unsigned char>(n);
        }
        const char* named[3][2] = {{"<", "&lt;"}, {">", "&gt;"}, {"&", "&amp;"}};
        for (const auto& e : named) {
            auto c = static_cast<unsigned char>(e[0][0]);
            int n = 0;
            for (const char* p = e[1]; *p != '\0'; ++p)
                text[c][n++] = *p;
            for (int i = n; i < 8; ++i)
                text[c][i] = '\0';
            length[c] = static_cast<unsigned char>(n);
        }
    }
};

constexpr EscapeTable kEscapes;

}  // namespace

void XmlOut::escape(unsigned char c) {
    if (cap_ - n_ < 8) flush();
    std::memcpy(buf_ + n_, kEscapes.text[c], 8);
    n_ += kEscapes.length[c];
}

namespace {

// For each lead byte: the length of its sequence (0: no lead byte) and the bounds of the
// byte after it, from utf8Lead, in tables so that the check takes no branch per kind.
struct LeadTable {
    unsigned char length[256];
    unsigned char lo[256];
    unsigned char hi[256];
    constexpr LeadTable() : length(), lo(), hi() {
        for (int b = 0x80; b < 256; ++b) {
            unsigned char l = 0x80;
            unsigned char h = 0xBF;
            int more = 0;
            if (b >= 0xC2 && b <= 0xDF) more = 1;
            if (b >= 0xE0 && b <= 0xEF) more = 2;
            if (b >= 0xF0 && b <= 0xF4) more = 3;
            if (b == 0xE0) l = 0xA0;
            if (b == 0xED) h = 0x9F;
            if (b == 0xF0) l = 0x90;
            if (b == 0xF4) h = 0x8F;
            length[b] = static_cast<unsigned char>(more > 0 ? more + 1 : 0);
            lo[b] = l;
            hi[b] = h;
        }
    }
};

constexpr LeadTable kLeads;

// The length of the well-formed UTF-8 sequence at `s` (a byte above 127) that may go
// out as it is, else 0. U+FFFE and U+FFFF are no XML characters: their bytes become
// references. With four bytes at hand it checks without a branch per byte or per kind.
#if defined(_MSC_VER)
__forceinline
#else
inline
    __attribute__((always_inline))
#endif
    int
    passThrough(const unsigned char* s, const unsigned char* end) {
    int k;
    if (end - s >= 4) {
        static const uint32_t kContMask[5] = {0, 0, 0x0000C000u, 0x00C0C000u, 0xC0C0C000u};
        static const uint32_t kContWant[5] = {1, 0, 0x00008000u, 0x00808000u, 0x80808000u};
        k = kLeads.length[s[0]];
        uint32_t w = static_cast<uint32_t>(s[0]) | static_cast<uint32_t>(s[1]) << 8 |
                     static_cast<uint32_t>(s[2]) << 16 | static_cast<uint32_t>(s[3]) << 24;
        // Length 0 never matches (want 1 under mask 0).
        bool ok = ((w & kContMask[k]) == kContWant[k]) & (s[1] >= kLeads.lo[s[0]]) &
                  (s[1] <= kLeads.hi[s[0]]);
        // Bitwise, not short-circuit: one branch that is almost never taken.
        ok &= !((k == 3) & (s[0] == 0xEF) & (s[1] == 0xBF) & (s[2] >= 0xBE));
        return ok ? k : 0;
    }
    return utf8Sequence(s, end);
}

#if defined(__SSE2__)
// The bits of the bytes of the 32 at `s` that satisfy `test`, as one mask.
template <typename Test>
inline uint32_t mask32(__m128i a, __m128i b, Test test) {
    return static_cast<uint32_t>(_mm_movemask_epi8(test(a))) |
           static_cast<uint32_t>(_mm_movemask_epi8(test(b))) << 16;
}

// Whether every byte above 127 among the 16 at `s` (the start of a character) belongs to
// a sequence that goes out as it is, checked on whole masks instead of sequence by
// sequence; 32 bytes must be readable. `*overhang` receives how far the last sequence
// reaches past the 16. False sends the caller to the exact check of each sequence.
inline bool utf8Chunk(const unsigned char* s, int* overhang) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 16));
    auto below = [](int k) {
        return [k](__m128i v) { return _mm_cmplt_epi8(v, _mm_set1_epi8(static_cast<char>(k))); };
    };
    auto above = [](int k) {
        return [k](__m128i v) { return _mm_cmpgt_epi8(v, _mm_set1_epi8(static_cast<char>(k))); };
    };
    auto is = [](int k) {
        return [k](__m128i v) { return _mm_cmpeq_epi8(v, _mm_set1_epi8(static_cast<char>(k))); };
    };
    // As signed bytes: 80-BF continuation, C2-DF, E0-EF and F0-F4 lead two, three and
    // four bytes, C0, C1 and F5-FF lead nothing.
    const uint32_t high = mask32(a, b, [](__m128i v) { return v; });
    const uint32_t cont = mask32(a, b, below(0xC0));
    const uint32_t from2 = mask32(a, b, above(0xC1)) & high;
    const uint32_t from3 = mask32(a, b, above(0xDF)) & high;
    const uint32_t from4 = mask32(a, b, above(0xEF)) & high;
    const uint32_t beyond = mask32(a, b, above(0xF4)) & high;
    const uint32_t first = 0xFFFF;  // the leads that count are those among the 16
    const uint32_t lead2 = from2 & ~from3 & first;
    const uint32_t lead3 = from3 & ~from4 & first;
    const uint32_t lead4 = from4 & ~beyond & first;
    const uint32_t need = (lead2 | lead3 | lead4) << 1 | (lead3 | lead4) << 2 | lead4 << 3;
    // Each needed byte a continuation byte, and no other continuation byte up to the end
    // of the last sequence; no byte above 127 that leads nothing.
    const uint32_t reach = need | first;
    if ((need & ~cont) != 0 || (cont & reach & ~need) != 0) return false;
    if ((high & first & ~cont & ~(lead2 | lead3 | lead4)) != 0) return false;
    // The second bytes that E0, ED, F0 and F4 narrow down, and U+FFFE and U+FFFF.
    const uint32_t belowA0 = mask32(a, b, below(0xA0)) & cont;
    const uint32_t below90 = mask32(a, b, below(0x90)) & cont;
    uint32_t wrong = (mask32(a, b, is(0xE0)) & first) << 1 & belowA0;
    wrong |= (mask32(a, b, is(0xED)) & first) << 1 & cont & ~belowA0;
    wrong |= (mask32(a, b, is(0xF0)) & first) << 1 & below90;
    wrong |= (mask32(a, b, is(0xF4)) & first) << 1 & cont & ~below90;
    const uint32_t ef = mask32(a, b, is(0xEF)) & first;
    const uint32_t bf = mask32(a, b, is(0xBF));
    const uint32_t beOrBf = mask32(a, b, above(0xBD)) & cont;
    wrong |= ef << 2 & bf << 1 & beOrBf;
    if (wrong != 0) return false;
    const uint32_t past = need >> 16;
    *overhang = past == 0 ? 0 : 32 - __builtin_clz(past);
    return true;
}

#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
#define VELMORA_XML_SHUFFLES 1
// The same check with byte shuffles (SSSE3, asked of the processor at run time): each
// byte pair is classified by three 16-entry tables, the usual table method for checking
// UTF-8, in a dozen instructions per 16 bytes. Bits of the tables: what a lead byte (the
// earlier byte) and the byte after it together rule out.
const bool kShuffles = __builtin_cpu_supports("ssse3");

// The three tables: bits of the first byte's high and low half, and of the second
// byte's high half.
struct Utf8Tables {
    __m128i byte1High, byte1Low, byte2High;
};

inline Utf8Tables utf8Tables() {
    const uint8_t kTooShort = 1 << 0, kTooLong = 1 << 1, kOverlong3 = 1 << 2, kTooLarge = 1 << 3,
                  kSurrogate = 1 << 4, kOverlong2 = 1 << 5, kTooLarge1000 = 1 << 6,
                  kOverlong4 = 1 << 6, kTwoConts = 1 << 7;
    const uint8_t kCarry = kTooShort | kTooLong | kTwoConts;
    const __m128i byte1High = _mm_setr_epi8(
        kTooLong, kTooLong, kTooLong, kTooLong, kTooLong, kTooLong, kTooLong, kTooLong,
        static_cast<char>(kTwoConts), static_cast<char>(kTwoConts), static_cast<char>(kTwoConts),
        static_cast<char>(kTwoConts), kTooShort | kOverlong2, kTooShort,
        kTooShort | kOverlong3 | kSurrogate, kTooShort | kTooLarge | kTooLarge1000 | kOverlong4);
    const __m128i byte1Low =
        _mm_setr_epi8(static_cast<char>(kCarry | kOverlong3 | kOverlong2 | kOverlong4),
                      static_cast<char>(kCarry | kOverlong2), static_cast<char>(kCarry),
                      static_cast<char>(kCarry), static_cast<char>(kCarry | kTooLarge),
                      static_cast<char>(kCarry | kTooLarge | kTooLarge1000),
                      static_cast<char>(kCarry | kTooLarge | kTooLarge1000),
                      static_cast<char>(kCarry | kTooLarge | kTooLarge1000),
                      static_cast<char>(kCarry | kTooLarge | kTooLarge1000),
                      static_cast<char>(kCarry | kTooLarge | kTooLarge1000),
                      static_cast<char>(kCarry | kTooLarge | kTooLarge1000),
                      static_cast<char>(kCarry | kTooLarge | kTooLarge1000),
                      static_cast<char>(kCarry | kTooLarge | kTooLarge1000),
                      static_cast<char>(kCarry | kTooLarge | kTooLarge1000 | kSurrogate),
                      static_cast<char>(kCarry | kTooLarge | kTooLarge1000),
                      static_cast<char>(kCarry | kTooLarge | kTooLarge1000));
    const __m128i byte2High = _mm_setr_epi8(
        kTooShort, kTooShort, kTooShort, kTooShort, kTooShort, kTooShort, kTooShort, kTooShort,
        static_cast<char>(kTooLong | kOverlong2 | kTwoConts | kOverlong3 | kTooLarge1000 |
                          kOverlong4),
        static_cast<char>(kTooLong | kOverlong2 | kTwoConts | kOverlong3 | kTooLarge),
        static_cast<char>(kTooLong | kOverlong2 | kTwoConts | kSurrogate | kTooLarge),
        static_cast<char>(kTooLong | kOverlong2 | kTwoConts | kSurrogate | kTooLarge), kTooShort,
        kTooShort, kTooShort, kTooShort);
    return Utf8Tables{byte1High, byte1Low, byte2High};
}

__attribute__((target("ssse3"))) __m128i utf8Errors(__m128i input, __m128i prev) {
    const Utf8Tables t = utf8Tables();
    const __m128i byte1High = t.byte1High, byte1Low = t.byte1Low, byte2High = t.byte2High;
    const __m128i low = _mm_set1_epi8(0x0F);
    const __m128i prev1 = _mm_alignr_epi8(input, prev, 15);
    __m128i special =
        _mm_and_si128(_mm_shuffle_epi8(byte1High, _mm_and_si128(_mm_srli_epi16(prev1, 4), low)),
                      _mm_shuffle_epi8(byte1Low, _mm_and_si128(prev1, low)));
    special = _mm_and_si128(
        special, _mm_shuffle_epi8(byte2High, _mm_and_si128(_mm_srli_epi16(input, 4), low)));
    // The third and fourth bytes of three- and four-byte sequences must be continuations.
    const __m128i prev2 = _mm_alignr_epi8(input, prev, 14);
    const __m128i prev3 = _mm_alignr_epi8(input, prev, 13);
    const __m128i third = _mm_subs_epu8(prev2, _mm_set1_epi8(static_cast<char>(0xE0 - 0x80)));
    const __m128i fourth = _mm_subs_epu8(prev3, _mm_set1_epi8(static_cast<char>(0xF0 - 0x80)));
    const __m128i must =
        _mm_and_si128(_mm_or_si128(third, fourth), _mm_set1_epi8(static_cast<char>(0x80)));
    return _mm_xor_si128(must, special);
}

// As utf8Chunk, with the table method: no error may show up to the 19th byte, where the
// last sequence that starts among the 16 ends at the latest.
bool utf8ChunkShuffled(const unsigned char* s, int* overhang) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 16));
    const __m128i zero = _mm_setzero_si128();
    uint32_t errors =
        static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(utf8Errors(a, zero), zero)) ^
                              0xFFFF) |
        static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(utf8Errors(b, a), zero)) ^ 0xFFFF)
            << 16;
    if ((errors & 0x7FFFF) != 0) return false;
    // U+FFFE and U+FFFF, no characters of XML.
    const uint32_t first = 0xFFFF;
    const uint32_t ef = mask32(a, b,
                               [](__m128i v) {
                                   return _mm_cmpeq_epi8(v, _mm_set1_epi8(static_cast<char>(0xEF)));
                               }) &
                        first;
    if (ef != 0) {
        const uint32_t bf = mask32(a, b, [](__m128i v) {
            return _mm_cmpeq_epi8(v, _mm_set1_epi8(static_cast<char>(0xBF)));
        });
        const uint32_t beOrBf = mask32(a, b, [](__m128i v) {
            return _mm_cmpeq_epi8(_mm_max_epu8(v, _mm_set1_epi8(static_cast<char>(0xBE))), v);
        });
        if ((ef << 2 & bf << 1 & beOrBf) != 0) return false;
    }
    // How far the last lead byte among the 16 reaches past them.
    *overhang = 0;
    for (int p = 15; p >= 13; --p) {
        if (s[p] < 0xC0) continue;
        int length = s[p] >= 0xF0 ? 4 : s[p] >= 0xE0 ? 3 : 2;
        *overhang = p + length > 16 ? p + length - 16 : 0;
        break;
    }
    return true;
}

// With AVX2 (asked at run time) the escaping takes 32 bytes a step, checking their UTF-8
// by the same table method in the same pass. Not on Windows: its compilers do not keep
// the stack aligned for spilling 32-byte registers, so the 16-byte steps stay there.
#if defined(_WIN32)
const bool kWide = false;
#else
const bool kWide = __builtin_cpu_supports("avx2");
#endif

// The UTF-8 errors among 32 bytes that begin at a character (as if an ASCII byte came
// before them). A sequence cut off by the end of the 32 shows no error here.
__attribute__((target("avx2"))) inline __m256i utf8Errors32(__m256i input) {
    const Utf8Tables t = utf8Tables();
    const __m256i byte1High = _mm256_broadcastsi128_si256(t.byte1High);
    const __m256i byte1Low = _mm256_broadcastsi128_si256(t.byte1Low);
    const __m256i byte2High = _mm256_broadcastsi128_si256(t.byte2High);
    const __m256i low = _mm256_set1_epi8(0x0F);
    // The bytes before each: the low half's come from zeroes, the high half's from the
    // low half.
    const __m256i before = _mm256_permute2x128_si256(input, input, 0x08);
    const __m256i prev1 = _mm256_alignr_epi8(input, before, 15);
    const __m256i prev2 = _mm256_alignr_epi8(input, before, 14);
    const __m256i prev3 = _mm256_alignr_epi8(input, before, 13);
    __m256i special = _mm256_and_si256(
        _mm256_shuffle_epi8(byte1High, _mm256_and_si256(_mm256_srli_epi16(prev1, 4), low)),
        _mm256_shuffle_epi8(byte1Low, _mm256_and_si256(prev1, low)));
    special = _mm256_and_si256(
        special,
        _mm256_shuffle_epi8(byte2High, _mm256_and_si256(_mm256_srli_epi16(input, 4), low)));
    const __m256i third = _mm256_subs_epu8(prev2, _mm256_set1_epi8(static_cast<char>(0xE0 - 0x80)));
    const __m256i fourth =
        _mm256_subs_epu8(prev3, _mm256_set1_epi8(static_cast<char>(0xF0 - 0x80)));
    const __m256i must =
        _mm256_and_si256(_mm256_or_si256(third, fourth), _mm256_set1_epi8(static_cast<char>(0x80)));
    return _mm256_xor_si256(must, special);
}
#else
const bool kShuffles = false;
const bool kWide = false;
inline bool utf8ChunkShuffled(const unsigned char*, int*) {
    return false;
}
#endif
#endif

// One step of the escaping, byte by byte: a byte that stands for itself or a sequence
// that goes out as it is joins the run, any other byte ends it and is written as its
// reference. Returns the next byte.
inline const unsigned char* escapeStep(const unsigned char* s, const unsigned char* end, bool utf8,
                                       bool escapeWhitespace, bool* plain) {
    unsigned char c = *s;
    *plain = true;
    if (kTable.plain[c]) return s + 1;
    if (c >= 0x80) {
        if (utf8) {
            int k = passThrough(s, end);
            if (k > 0) return s + k;
        }
    } else if (!escapeWhitespace && (c == '\n' || c == '\r' || c == '\t')) {
        return s + 1;
    }
    *plain = false;
    return s + 1;
}

}  // namespace

#if defined(VELMORA_XML_SHUFFLES)
struct XmlOutWide {
    // Escapes from `s` (a character start) in steps of 32 bytes while 32 remain, written
    // straight into the run; returns where it stopped, again at a character start, with
    // everything before it written.
    __attribute__((target("avx2"))) static const unsigned char* escaped(XmlOut& out,
                                                                        const unsigned char* s,
                                                                        const unsigned char* end,
                                                                        bool escapeWhitespace) {
        // Which bytes need a reference, found by two table look-ups per 32 bytes: the
        // high half of a byte picks a group of bytes (control bytes, 0x20-0x2F, 0x30-0x3F,
        // 0x70-0x7F), the low half the groups it escapes in, and a byte needs one when
        // both agree. Bytes above 127 pick no group; the UTF-8 check deals with them.
        const __m256i byHigh = _mm256_setr_epi8(1, 2, 4, 8, 0, 0, 0, 16, 0, 0, 0, 0, 0, 0, 0, 0, 1,
                                                2, 4, 8, 0, 0, 0, 16, 0, 0, 0, 0, 0, 0, 0, 0);
        // Low halves: every control byte (bits 1 and 2: 0x00-0x1F), " & ' (bit 4: 0x22,
        // 0x26, 0x27), < > (bit 8: 0x3C, 0x3E) and 127 (bit 16: 0x7F); tab, line feed and
        // carriage return (0x09, 0x0A, 0x0D) lose bit 1 where white space is kept.
        const char t = escapeWhitespace ? 1 : 0;
        const __m256i byLow =
            _mm256_setr_epi8(3, 3, 7, 3, 3, 3, 7, 7, 3, 2 | t, 2 | t, 3, 11, 2 | t, 11, 19, 3, 3, 7,
                             3, 3, 3, 7, 7, 3, 2 | t, 2 | t, 3, 11, 2 | t, 11, 19);
        const __m256i lowHalf = _mm256_set1_epi8(0x0F);
        const __m256i zero = _mm256_setzero_si256();
        const __m256i ef = _mm256_set1_epi8(static_cast<char>(0xEF));
        const __m256i bf = _mm256_set1_epi8(static_cast<char>(0xBF));
        const __m256i be = _mm256_set1_epi8(static_cast<char>(0xBE));
        const bool utf8 = out.utf8_;
        // The output cursor and the end of the run's room, kept in registers: after a
        // store through a char pointer the compiler would otherwise load the run's fields
        // again. The run's count is brought up to date before every call into it, and the
        // cursor taken from it after.
        char* d = out.buf_ + out.n_;
        char* room = out.buf_ + out.cap_;
        while (end - s >= 32) {
            // The text is mostly read once, from memory: asked for a few lines ahead.
            _mm_prefetch(reinterpret_cast<const char*>(s) + XmlOut::kReadAhead, _MM_HINT_T0);
            const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s));
            const uint32_t high = static_cast<uint32_t>(_mm256_movemask_epi8(v));
            const __m256i groups = _mm256_and_si256(
                _mm256_shuffle_epi8(byHigh, _mm256_and_si256(_mm256_srli_epi16(v, 4), lowHalf)),
                _mm256_shuffle_epi8(byLow, _mm256_and_si256(v, lowHalf)));
            uint32_t escape =
                ~static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(groups, zero)));
            int step = 32;
            if (high != 0) {
                if (!utf8) {
                    escape |= high;
                } else {
                    const __m256i errors = utf8Errors32(v);
                    bool good = _mm256_testz_si256(errors, errors) != 0;
                    // U+FFFE and U+FFFF (EF BF BE, EF BF BF) are well-formed but no
                    // characters of XML.
                    const uint32_t lead =
                        static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(v, ef)));
                    if (good && lead != 0) {
                        const uint32_t second =
                            static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(v, bf)));
                        const uint32_t third = static_cast<uint32_t>(
                            _mm256_movemask_epi8(_mm256_cmpeq_epi8(_mm256_max_epu8(v, be), v)));
                        good = (lead << 2 & second << 1 & third) == 0;
                    }
                    if (!good) {
                        // The exact check of each sequence for these 32 bytes.
                        out.n_ = static_cast<int>(d - out.buf_);
                        const unsigned char* limit = s + 32;
                        const unsigned char* run = s;
                        while (s < limit) {
                            bool plain;
                            const unsigned char* next =
                                escapeStep(s, end, true, escapeWhitespace, &plain);
                            if (!plain) {
                                if (s > run)
                                    out.put(reinterpret_cast<const char*>(run),
                                            static_cast<size_t>(s - run));
                                out.escape(*s);
                                run = next;
                            }
                            s = next;
                        }
                        if (s > run)
                            out.put(reinterpret_cast<const char*>(run),
                                    static_cast<size_t>(s - run));
                        d = out.buf_ + out.n_;
                        room = out.buf_ + out.cap_;
                        continue;
                    }
                    // A sequence that the end of the 32 cuts off is left to the next step.
                    if (s[31] >= 0xC0) {
                        step = 31;
                    } else if (s[30] >= 0xE0) {
                        step = 30;
                    } else if (s[29] >= 0xF0) {
                        step = 29;
                    }
                }
            }
            if (escape == 0 && room - d >= 32) {
                // Stored whole; what lies past `step` is overwritten next.
                _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), v);
                d += step;
                s += step;
                continue;
            }
            const unsigned char* run = s;
            if (end - s >= 64 && room - d >= 32 * 9) {
                // Each piece before a reference is moved with one 32-byte load and store
                // (the text holds 64 bytes from `s`, and every reference and piece fits
                // in the room), the reference with one 8-byte move from the table.
                while (escape != 0) {
                    const unsigned char* p = s + __builtin_ctz(escape);
                    _mm256_storeu_si256(reinterpret_cast<__m256i*>(d),
                                        _mm256_loadu_si256(reinterpret_cast<const __m256i*>(run)));
                    d += p - run;
                    std::memcpy(d, kEscapes.text[*p], 8);
                    d += kEscapes.length[*p];
                    run = p + 1;
                    escape &= escape - 1;
                }
                s += step;
                _mm256_storeu_si256(reinterpret_cast<__m256i*>(d),
                                    _mm256_loadu_si256(reinterpret_cast<const __m256i*>(run)));
                d += s - run;
                continue;
            }
            out.n_ = static_cast<int>(d - out.buf_);
            while (escape != 0) {
                const unsigned char* p = s + __builtin_ctz(escape);
                if (p > run)
                    out.put(reinterpret_cast<const char*>(run), static_cast<size_t>(p - run));
                out.escape(*p);
                run = p + 1;
                escape &= escape - 1;
            }
            s += step;
            if (s > run) out.put(reinterpret_cast<const char*>(run), static_cast<size_t>(s - run));
            d = out.buf_ + out.n_;
            room = out.buf_ + out.cap_;
        }
        out.n_ = static_cast<int>(d - out.buf_);
        return s;
    }
};
#endif

void XmlOut::escaped(const char* text, size_t n, bool escapeWhitespace) {
    const auto* s = reinterpret_cast<const unsigned char*>(text);
    const unsigned char* end = s + n;
    // Everything that goes out as it is, kept white space and UTF-8 sequences included,
    // is copied in one piece up to the next byte that needs a reference.
#if defined(VELMORA_XML_SHUFFLES)
    if (kWide && end - s >= 32) s = XmlOutWide::escaped(*this, s, end, escapeWhitespace);
#endif
    const unsigned char* run = s;
#if defined(__SSE2__)
    // Sixteen bytes at a time: a mask of the bytes that need a reference (control bytes
    // but the kept white space, 127, " ' < > &, and in the ASCII mode every byte above
    // 127) and one of the bytes above 127, whose UTF-8 is checked sequence by sequence.
    const __m128i space = _mm_set1_epi8(' ');
    const __m128i del = _mm_set1_epi8(0x7f);
    const __m128i quot = _mm_set1_epi8('"');
    const __m128i apos = _mm_set1_epi8('\'');
    const __m128i lt = _mm_set1_epi8('<');
    const __m128i gt = _mm_set1_epi8('>');
    const __m128i amp = _mm_set1_epi8('&');
    const __m128i tab = _mm_set1_epi8('\t');
    const __m128i lf = _mm_set1_epi8('\n');
    const __m128i cr = _mm_set1_epi8('\r');
    while (end - s >= 16) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
        // Signed: the bytes above 127 count as below 32 here and are taken out below.
        int high = _mm_movemask_epi8(v);
        int control = _mm_movemask_epi8(_mm_cmplt_epi8(v, space)) & ~high;
        if (!escapeWhitespace) {
            __m128i ws = _mm_or_si128(_mm_cmpeq_epi8(v, tab),
                                      _mm_or_si128(_mm_cmpeq_epi8(v, lf), _mm_cmpeq_epi8(v, cr)));
            control &= ~_mm_movemask_epi8(ws);
        }
        __m128i special = _mm_or_si128(_mm_cmpeq_epi8(v, del), _mm_cmpeq_epi8(v, amp));
        special =
            _mm_or_si128(special, _mm_or_si128(_mm_cmpeq_epi8(v, quot), _mm_cmpeq_epi8(v, apos)));
        special = _mm_or_si128(special, _mm_or_si128(_mm_cmpeq_epi8(v, lt), _mm_cmpeq_epi8(v, gt)));
        int escape = control | _mm_movemask_epi8(special);
        if (!utf8_) {
            escape |= high;
            high = 0;
        }
        const unsigned char* next = s + 16;
        int overhang = 0;
        if (high != 0 && end - s >= 32 &&
            (kShuffles ? utf8ChunkShuffled(s, &overhang) : utf8Chunk(s, &overhang))) {
            // Every byte above 127 among the sixteen is part of a good sequence.
            high = 0;
            next += overhang;
        }
        uint64_t any = static_cast<unsigned>(escape | high);
        // Each marked byte of the sixteen in turn, from the same masks: a sequence that
        // goes out as it is clears its own bytes, a byte that needs a reference is written.
        while (any != 0) {
            int at = __builtin_ctzll(any);
            const unsigned char* p = s + at;
            if ((high >> at) & 1) {
                int k = passThrough(p, end);
                if (k > 0) {
                    next = p + k > next ? p + k : next;
                    any &= ~((uint64_t{2} << (at + k - 1)) - 1);
                    continue;
                }
            }
            if (p > run) put(reinterpret_cast<const char*>(run), static_cast<size_t>(p - run));
            this->escape(*p);
            run = p + 1;
            any &= any - 1;
        }
        s = next;
    }
#endif
    // The rest (all of it without the instructions) byte by byte, by the same rules.
    while (s < end) {
        unsigned char c = *s;
        if (kTable.plain[c]) {
            ++s;
            continue;
        }
        if (c >= 0x80) {
            if (utf8_) {
                int k = passThrough(s, end);
                if (k > 0) {
                    s += k;
                    continue;
                }
            }
        } else if (!escapeWhitespace && (c == '\n' || c == '\r' || c == '\t')) {
            ++s;
            continue;
        }
        if (s > run) put(reinterpret_cast<const char*>(run), static_cast<size_t>(s - run));
        escape(c);
        run = ++s;
    }
    if (s > run) put(reinterpret_cast<const char*>(run), static_cast<size_t>(s - run));
}

// Short values (numbers, names, flags) in one pass that finds their end and that they
// need nothing; any other text is measured and escaped as above.
void XmlOut::escaped(const char* text) {
    if (text == nullptr) return;
    const auto* s = reinterpret_cast<const unsigned char*>(text);
    for (int i = 0; i < 16; ++i) {
        if (kTable.plain[s[i]]) continue;
        if (s[i] == 0) {
            put(text, static_cast<size_t>(i));
            return;
        }
        break;
    }
    escaped(text, std::strlen(text), true);
}

}  // namespace xml
}  // namespace velmora
