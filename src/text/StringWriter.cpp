#include <velmora/text/StringWriter.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace velmora {

namespace {

const uint32_t kDefaultIncrement = 1024;

}  // namespace

StringWriter::StringWriter() {
    init(kDefaultIncrement, kDefaultIncrement);
}

StringWriter::StringWriter(int increment) {
    uint32_t step = increment > 0 ? static_cast<uint32_t>(increment) : kDefaultIncrement;
    init(step, step);
}

StringWriter::StringWriter(const char* s) {
    init(kDefaultIncrement, kDefaultIncrement);
    writeString(s);
}

StringWriter::StringWriter(const char* s, int len) {
    uint32_t step = len > 0 ? static_cast<uint32_t>(len) : kDefaultIncrement;
    if (s == nullptr || len <= 0) {
        init(step, step);
        return;
    }
    // The write fills the first increment exactly, so it grows the capacity by one more.
    init(step, static_cast<size_t>(step) * 2);
    write(s, len);
}

void StringWriter::init(uint32_t increment, size_t allocate) {
    increment_ = increment;
    buffer_ = static_cast<char*>(std::calloc(allocate, 1));
    capacity_ = buffer_ != nullptr ? increment : 0;
    allocated_ = buffer_ != nullptr ? allocate : 0;
    PlatformUtil::createMutex(&mutex_);
}

StringWriter::~StringWriter() {
    PlatformUtil::lockMutex(&mutex_);
    closed_ = true;
    std::free(buffer_);
    buffer_ = nullptr;
    PlatformUtil::destroyMutex(&mutex_);
}

int StringWriter::write(const char* buf, int len) {
    if (buf == nullptr || len <= 0) return len;
    PlatformUtil::lockMutex(&mutex_);
    if (closed_) {
        PlatformUtil::unlockMutex(&mutex_);
        return len;
    }
    const uint32_t length = length_.load(std::memory_order_relaxed);
    uint64_t needed = static_cast<uint64_t>(length) + static_cast<uint32_t>(len);
    if (needed >= capacity_) {
        // One increment per call, and already when the text would exactly fill the buffer,
        // so a zero always follows it; a longer write takes as many increments as it needs.
        uint64_t grown = static_cast<uint64_t>(capacity_) + increment_;
        if (needed >= grown) grown += ((needed - grown) / increment_ + 1) * increment_;
        if (grown > UINT32_MAX || !reserve(static_cast<size_t>(grown))) {
            PlatformUtil::unlockMutex(&mutex_);
            return 0;
        }
        // Only the bytes the capacity now covers beyond this write are zeroed, here while
        // they are about to be written anyway; those the copy below fills need no zero.
        std::memset(buffer_ + needed, 0, static_cast<size_t>(grown - needed));
        capacity_ = static_cast<uint32_t>(grown);
    }
    if (len == 1) {
        buffer_[length] = *buf;
    } else {
        std::memcpy(buffer_ + length, buf, static_cast<size_t>(len));
    }
    length_.store(length + static_cast<uint32_t>(len), std::memory_order_release);
    PlatformUtil::unlockMutex(&mutex_);
    return len;
}

// Makes at least `size` bytes available. The memory grows by doubling (the capacity
// still follows the increments), so that a text written in many small pieces is not
// copied again for every increment. The new memory is left as it comes: write zeroes each
// increment when the capacity takes it in, so the zeroing touches a few cached bytes
// instead of sweeping megabytes that the text then writes over again.
bool StringWriter::reserve(size_t size) {
    if (size <= allocated_) return true;
    size_t bigger = allocated_ * 2 > size ? allocated_ * 2 : size;
    char* grown = static_cast<char*>(std::realloc(buffer_, bigger));
    if (grown == nullptr && bigger > size) {
        bigger = size;
        grown = static_cast<char*>(std::realloc(buffer_, bigger));
    }
    if (grown == nullptr) return false;
    buffer_ = grown;
    allocated_ = bigger;
    return true;
}

char* StringWriter::spare(size_t want, size_t* room) {
    PlatformUtil::lockMutex(&mutex_);
    const size_t length = length_.load(std::memory_order_relaxed);
    // The text stays below 4 GiB, its zero included.
    const size_t limit = UINT32_MAX - 1;
    char* at = nullptr;
    if (!closed_ && buffer_ != nullptr && length + want < limit && reserve(length + want + 1)) {
        at = buffer_ + length;
        const size_t free = allocated_ - length - 1;
        *room = free < limit - length ? free : limit - length;
    }
    PlatformUtil::unlockMutex(&mutex_);
    return at;
}

void StringWriter::takeSpare(size_t n) {
    PlatformUtil::lockMutex(&mutex_);
    size_t length = length_.load(std::memory_order_relaxed);
    size_t zeroTo = length + n + 32;
    if (!closed_) length += n;
    if (length >= capacity_) {
        // The capacity follows in whole increments, and what it takes in is zeroed.
        capacity_ += static_cast<uint32_t>(((length - capacity_) / increment_ + 1) * increment_);
        if (capacity_ > zeroTo) zeroTo = capacity_;
    }
    if (zeroTo > allocated_) zeroTo = allocated_;
    if (capacity_ > allocated_) capacity_ = static_cast<uint32_t>(allocated_);
    std::memset(buffer_ + length, 0, zeroTo - length);
    length_.store(static_cast<uint32_t>(length), std::memory_order_release);
    PlatformUtil::unlockMutex(&mutex_);
}

bool StringWriter::write(char c) {
    return write(&c, 1) == 1;
}

void StringWriter::close() {
    PlatformUtil::lockMutex(&mutex_);
    closed_ = true;
    PlatformUtil::unlockMutex(&mutex_);
}

void StringWriter::clear() {
    // Kept without the lock: callers clear between uses, not while others write. Only
    // the text needs zeroing: every byte after it is zero already.
    if (buffer_ != nullptr) std::memset(buffer_, 0, length_.load(std::memory_order_relaxed));
    length_.store(0, std::memory_order_release);
}

void StringWriter::lock() {
    PlatformUtil::lockMutex(&mutex_);
}

void StringWriter::unlock() {
    PlatformUtil::unlockMutex(&mutex_);
}

}  // namespace velmora
