#include <velmora/text/FileReader.h>

#include <cstdlib>
#include <cstring>

#include "files/FileSystem.h"

namespace velmora {

namespace {

const int kAheadSize = 64 * 1024;

}  // namespace

FileReader::FileReader(int fd) : fd_(fd) {}

FileReader* FileReader::make(const char* path) {
    int fd = fs::openForReading(path);
    return fd >= 0 ? new FileReader(fd) : nullptr;
}

FileReader::~FileReader() {
    close();
    std::free(ahead_);
}

bool FileReader::fill() {
    if (ahead_ == nullptr) {
        ahead_ = static_cast<char*>(std::malloc(kAheadSize));
        if (ahead_ == nullptr) return false;
    }
    aheadPos_ = 0;
    aheadLen_ = fs::readBytes(fd_, ahead_, kAheadSize);
    if (aheadLen_ < 1) {
        aheadLen_ = 0;
        return false;
    }
    return true;
}

int FileReader::getChar() {
    if (fd_ < 0) return -1;
    if (aheadPos_ >= aheadLen_ && !fill()) {
        atEof_ = true;
        return -1;
    }
    // Kept: the byte as a signed character, so 0xFF reads as -1 without being the end.
    return static_cast<signed char>(ahead_[aheadPos_++]);
}

void FileReader::getBuf(int size, char** buf, int* len) {
    if (buf == nullptr || len == nullptr) return;
    *buf = nullptr;
    *len = 0;
    if (fd_ < 0 || size <= 0) return;
    char* block = static_cast<char*>(std::calloc(static_cast<size_t>(size), 1));
    if (block == nullptr) return;
    int n;
    if (aheadPos_ < aheadLen_) {
        // Bytes already read ahead come first; the file is not touched this time.
        n = aheadLen_ - aheadPos_ < size ? aheadLen_ - aheadPos_ : size;
        std::memcpy(block, ahead_ + aheadPos_, static_cast<size_t>(n));
        aheadPos_ += n;
    } else {
        n = fs::readBytes(fd_, block, size);
    }
    *len = n;
    if (n < 1) {
        atEof_ = true;
        std::free(block);
        return;
    }
    *buf = block;
}

const char* FileReader::peekBuffered(int* count) {
    if (count != nullptr) *count = 0;
    if (fd_ < 0) return nullptr;
    if (aheadPos_ >= aheadLen_ && !fill()) {
        atEof_ = true;
        return nullptr;
    }
    if (count != nullptr) *count = aheadLen_ - aheadPos_;
    return ahead_ + aheadPos_;
}

void FileReader::advance(int n) {
    if (n > 0) aheadPos_ = n < aheadLen_ - aheadPos_ ? aheadPos_ + n : aheadLen_;
}

void FileReader::close() {
    if (fd_ >= 0) {
        fs::closeDescriptor(fd_);
        fd_ = -1;
    }
}

}  // namespace velmora
