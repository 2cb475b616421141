#include <velmora/text/StringReader.h>

#include <cstdlib>
#include <cstring>

namespace velmora {

StringReader::StringReader(const char* s) {
    size_t n = s != nullptr ? std::strlen(s) : 0;
    buffer_ = static_cast<char*>(std::malloc(n + 1));
    if (buffer_ != nullptr) {
        if (n > 0) std::memcpy(buffer_, s, n);
        buffer_[n] = '\0';
        // Kept: the length is that of the text from its second character on, so the last
        // character is never delivered; an empty text gives an empty reader.
        length_ = n > 0 ? static_cast<int>(n - 1) : 0;
    }
    PlatformUtil::createMutex(&mutex_);
}

StringReader::StringReader(const char* s, int len) {
    int n = (s != nullptr && len > 0) ? len : 0;
    buffer_ = static_cast<char*>(std::malloc(n > 0 ? static_cast<size_t>(n) : 1));
    if (buffer_ != nullptr) {
        if (n > 0) std::memcpy(buffer_, s, static_cast<size_t>(n));
        length_ = n;
    }
    PlatformUtil::createMutex(&mutex_);
}

StringReader::~StringReader() {
    PlatformUtil::lockMutex(&mutex_);
    std::free(buffer_);
    buffer_ = nullptr;
    PlatformUtil::destroyMutex(&mutex_);
}

int StringReader::getChar() {
    PlatformUtil::lockMutex(&mutex_);
    int c = position_ < length_ ? static_cast<unsigned char>(buffer_[position_++]) : -1;
    PlatformUtil::unlockMutex(&mutex_);
    return c;
}

void StringReader::getBuf(int size, char** buf, int* len) {
    if (buf == nullptr || len == nullptr) return;
    *buf = nullptr;
    *len = 0;
    if (size <= 0) return;
    PlatformUtil::lockMutex(&mutex_);
    int left = length_ - position_;
    int n = size < left ? size : left;
    if (n > 0) {
        *buf = static_cast<char*>(std::malloc(static_cast<size_t>(n)));
        if (*buf != nullptr) {
            std::memcpy(*buf, buffer_ + position_, static_cast<size_t>(n));
            position_ += n;
            *len = n;
        }
    }
    PlatformUtil::unlockMutex(&mutex_);
}

bool StringReader::eof() {
    return position_ >= length_;
}

const char* StringReader::peekRemaining(int* count) const {
    if (count != nullptr) *count = length_ - position_;
    return buffer_ + position_;
}

void StringReader::advance(int n) {
    if (n > 0) position_ = n < length_ - position_ ? position_ + n : length_;
}

}  // namespace velmora
