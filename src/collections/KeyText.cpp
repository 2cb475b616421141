#include "collections/KeyText.h"

#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace velmora {
namespace keytext {

char* copy(const char* s) {
    size_t n = std::strlen(s) + 1;
    char* c = new char[n];
    std::memcpy(c, s, n);
    return c;
}

char* copyBlock(const char* s) {
    size_t n = std::strlen(s) + 1;
    char* c = static_cast<char*>(std::malloc(n));
    if (c != nullptr) std::memcpy(c, s, n);
    return c;
}

char* fill(char* buf, int size, const char* text) {
    if (buf == nullptr || size <= 0) return buf;
    std::memset(buf, 0, static_cast<size_t>(size));
    if (text == nullptr) return buf;
    // Deliberately unguarded: a text of `size` characters or more fills the buffer
    // without a terminator, as callers of the buffer getters expect.
    size_t n = std::strlen(text) + 1;
    std::memcpy(buf, text, n < static_cast<size_t>(size) ? n : static_cast<size_t>(size));
    return buf;
}

void formatInt(char (&buf)[32], int value) {
    std::snprintf(buf, sizeof buf, "%d", value);
}

void formatLong(char (&buf)[32], int64_t value) {
    std::snprintf(buf, sizeof buf, "%" PRId64, value);
}

int toInt(const char* value, int def) {
    if (value == nullptr || value[0] == '\0') return def;
    // A 32-bit long saturates on overflow; do the same on systems with a wider long so
    // that a huge number never wraps to 0 or to a different sign.
    long long n = std::strtoll(value, nullptr, 10);
    if (n > INT_MAX) n = INT_MAX;
    if (n < INT_MIN) n = INT_MIN;
    // 0 counts only when the text starts with "0": "-0", "+0", " 0" and "abc" give def.
    if (n != 0 || value[0] == '0') return static_cast<int>(n);
    return def;
}

int64_t toLong(const char* value, int64_t def) {
    if (value == nullptr || value[0] == '\0') return def;
    char* end = nullptr;
    errno = 0;
    long long n = std::strtoll(value, &end, 10);
    int64_t candidate = (end == value) ? def : static_cast<int64_t>(n);
    if (candidate != 0) return candidate;
    return value[0] == '0' ? 0 : def;
}

bool toBoolean(const char* value, bool def) {
    if (value == nullptr || value[0] == '\0') return def;
    return equal(value, "true");
}

}  // namespace keytext
}  // namespace velmora
