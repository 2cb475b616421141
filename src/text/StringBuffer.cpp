#include <velmora/text/StringBuffer.h>

#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace velmora {

namespace {

// Most formatted texts fit here; longer ones are formatted again into a buffer of their size.
const int kFormatBufferSize = 32768;

}  // namespace

StringBuffer::StringBuffer(int size) {
    if (size < 0) size = 0;
    growBy_ = size < INT_MAX ? size + 1 : INT_MAX;
    buffer_ = static_cast<char*>(std::calloc(static_cast<size_t>(growBy_), 1));
    capacity_ = buffer_ != nullptr ? growBy_ : 0;
}

StringBuffer::~StringBuffer() {
    std::free(buffer_);
    buffer_ = nullptr;
}

StringBuffer& StringBuffer::append(const char* s) {
    if (s == nullptr) return *this;
    const size_t len = std::strlen(s);
    return len <= INT_MAX ? append(s, static_cast<int>(len)) : *this;
}

StringBuffer& StringBuffer::append(const char* s, int len) {
    if (s == nullptr || len < 0) return *this;
    const int64_t needed = static_cast<int64_t>(length_) + len + 1;
    if (needed > INT_MAX) return *this;
    if (needed <= capacity_) {
        // memmove: `s` may be a part of this buffer's own text.
        std::memmove(buffer_ + length_, s, static_cast<size_t>(len));
    } else {
        const int64_t steps = (needed - capacity_ + growBy_ - 1) / growBy_;
        const int64_t grown = capacity_ + steps * growBy_;
        if (grown > INT_MAX) return *this;
        char* bigger = static_cast<char*>(std::calloc(static_cast<size_t>(grown), 1));
        if (bigger == nullptr) return *this;
        if (length_ > 0) std::memcpy(bigger, buffer_, static_cast<size_t>(length_));
        // Copied before the old buffer goes, in case `s` points into it.
        std::memcpy(bigger + length_, s, static_cast<size_t>(len));
        std::free(buffer_);
        buffer_ = bigger;
        capacity_ = static_cast<int>(grown);
    }
    length_ += len;
    buffer_[length_] = '\0';
    return *this;
}

StringBuffer& StringBuffer::appendf(const char* format, ...) {
    if (format == nullptr) return *this;
    char text[kFormatBufferSize];
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    const int n = std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    if (n >= 0 && n < kFormatBufferSize) {
        append(text, n);
    } else if (n >= kFormatBufferSize && n < INT_MAX) {
        char* longer = static_cast<char*>(std::malloc(static_cast<size_t>(n) + 1));
        if (longer != nullptr) {
            std::vsnprintf(longer, static_cast<size_t>(n) + 1, format, again);
            append(longer, n);
            std::free(longer);
        }
    }
    va_end(again);
    return *this;
}

void StringBuffer::clear() {
    length_ = 0;
    if (buffer_ != nullptr) std::memset(buffer_, 0, static_cast<size_t>(capacity_));
}

char* StringBuffer::getBuffer(int* len) {
    if (len != nullptr) *len = length_;
    return buffer_;
}

}  // namespace velmora
