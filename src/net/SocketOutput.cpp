#include <velmora/net/SocketOutput.h>

#include <velmora/net/Socket.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "net/NetSystem.h"

namespace velmora {

namespace {

// Holds the output's lock for one whole write, so that concurrent writes do not mix.
class Hold {
public:
    explicit Hold(PlatformMutex* mutex) : mutex_(mutex) { PlatformUtil::lockMutex(mutex_); }
    ~Hold() { PlatformUtil::unlockMutex(mutex_); }

private:
    PlatformMutex* mutex_;
};

}  // namespace

SocketOutput::SocketOutput(Socket* socket) : socket_(socket) {
    PlatformUtil::createMutex(&mutex_);
}

SocketOutput::~SocketOutput() {
    PlatformUtil::destroyMutex(&mutex_);
}

void SocketOutput::setFlushRetries(int retries) {
    Hold hold(&mutex_);
    flushRetries_ = retries;
}

bool SocketOutput::flush() {
    Hold hold(&mutex_);
    // Kept: without retries the buffered bytes are dropped and the flush counts as done.
    if (flushRetries_ > 0 && count_ > 0 && !deliver(buffer_, count_)) {
        socketError_ = true;
        return false;
    }
    count_ = 0;
    return true;
}

bool SocketOutput::deliver(const char* data, int total) {
    const netsys::Handle handle = socket_->getSocketHandle();
    int sent = 0;
    // The socket usually takes the bytes at once: a wait is made only when it does not.
    const int now = netsys::sendNow(handle, data, total);
    if (now == -1) return false;
    if (now > 0) sent = now;
    int retries = flushRetries_;  // one budget for the whole flush, never refilled
    while (sent < total && retries > 0) {
        const int ready = netsys::waitWritable(handle, 1000);
        if (ready < 0) return false;
        if (ready == 0) {
            if (--retries == 0) return false;
            continue;
        }
        const int result = netsys::sendBytes(handle, data + sent, total - sent);
        if (result < 0) return false;
        sent += result;
    }
    return true;
}

bool SocketOutput::writeByte(char c) {
    Hold hold(&mutex_);
    if (count_ == kBufferSize && !flush()) return false;
    buffer_[count_++] = c;
    return true;
}

// What writeByte would do for each byte in turn, copying whole runs into the buffer.
bool SocketOutput::writeLocked(const char* data, int count) {
    if (count <= 0) return false;  // nothing written counts as a failed write
    int written = 0;
    while (written < count) {
        if (count_ == kBufferSize && !flush()) return false;
        int run = kBufferSize - count_;
        if (run > count - written) run = count - written;
        std::memcpy(buffer_ + count_, data + written, run);
        count_ += run;
        written += run;
    }
    return true;
}

bool SocketOutput::writeInt(int value) {
    const uint32_t v = static_cast<uint32_t>(value);
    const char bytes[4] = {static_cast<char>(v >> 24), static_cast<char>(v >> 16),
                           static_cast<char>(v >> 8), static_cast<char>(v)};
    Hold hold(&mutex_);
    return writeLocked(bytes, 4);
}

bool SocketOutput::writeString(const char* text) {
    if (text == nullptr) return false;
    Hold hold(&mutex_);
    return writeLocked(text, static_cast<int>(std::strlen(text)));
}

bool SocketOutput::writeLine(const char* text) {
    Hold hold(&mutex_);
    const int length = text != nullptr ? static_cast<int>(std::strlen(text)) : 0;
    if (length > 0 && !writeLocked(text, length)) return false;
    return writeLocked("\r\n", 2);
}

bool SocketOutput::write(const char* data, int count) {
    return write(data, 0, count);
}

bool SocketOutput::write(const char* data, int offset, int count) {
    if (data == nullptr) return false;
    Hold hold(&mutex_);
    return writeLocked(data + offset, count);
}

bool SocketOutput::writef(const char* format, ...) {
    if (format == nullptr) return false;
    // Formatting is cut at the area's size instead of running past it. The area is not
    // cleared first: vsnprintf ends the text itself, and clearing 32 KB for every status
    // line cost more than formatting it.
    char text[32768];
    text[0] = '\0';
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    Hold hold(&mutex_);
    return writeLocked(text, static_cast<int>(std::strlen(text)));
}

}  // namespace velmora
