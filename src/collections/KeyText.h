// Internal: key comparison and the text conversions shared by the maps and keyed lists.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velmora {
namespace keytext {

// Only A-Z fold to a-z, whatever the locale: keys are configuration names, and a
// locale-dependent fold would make the same file read differently on different hosts.
inline char fold(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + ('a' - 'A')) : c;
}

inline bool equal(const char* a, const char* b) {
    for (;; ++a, ++b) {
        if (fold(*a) != fold(*b)) return false;
        if (*a == '\0') return true;
    }
}

inline size_t hash(const char* s) {
    uint64_t h = 14695981039346656037ULL;  // FNV-1a over the folded bytes
    for (; *s != '\0'; ++s) {
        h ^= static_cast<unsigned char>(fold(*s));
        h *= 1099511628211ULL;
    }
    return static_cast<size_t>(h);
}

char* copy(const char* s);       // new[] copy, freed with delete[]
char* copyBlock(const char* s);  // malloc copy, given back with velmora::release
// Zeroes all `size` bytes, then copies at most `size` bytes of `text` (null: nothing).
char* fill(char* buf, int size, const char* text);

// "%ld" of an int, "%I64d" of a 64-bit value, written portably.
void formatInt(char (&buf)[32], int value);
void formatLong(char (&buf)[32], int64_t value);

int toInt(const char* value, int def);
int64_t toLong(const char* value, int64_t def);
bool toBoolean(const char* value, bool def);

}  // namespace keytext
}  // namespace velmora
