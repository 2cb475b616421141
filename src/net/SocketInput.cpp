#include <velmora/net/SocketInput.h>

#include <velmora/net/Socket.h>

#include <climits>
#include <cstdlib>
#include <cstring>

#include "net/NetSystem.h"

namespace velmora {

namespace {

// Doubles the array's room, keeping its bytes; null when it cannot grow.
char* grow(char* text, int* capacity) {
    if (*capacity > INT_MAX / 2) return nullptr;
    char* bigger = static_cast<char*>(std::realloc(text, static_cast<size_t>(*capacity) * 2));
    if (bigger == nullptr) return nullptr;
    *capacity *= 2;
    return bigger;
}

}  // namespace

SocketInput::SocketInput(Socket* socket) : SocketInput(socket, -1) {}

SocketInput::SocketInput(Socket* socket, int timeout) : socket_(socket), timeout_(timeout) {}

SocketInput::~SocketInput() = default;

SocketInput::SocketInput(const SocketInput& other)
    : socket_(other.socket_),
      socketError_(other.socketError_),
      readPosition_(other.readPosition_),
      fillCount_(other.fillCount_),
      timeout_(other.timeout_) {
    std::memcpy(buffer_, other.buffer_, sizeof buffer_);
}

SocketInput& SocketInput::operator=(const SocketInput& other) {
    if (this != &other) {
        socket_ = other.socket_;
        socketError_ = other.socketError_;
        std::memcpy(buffer_, other.buffer_, sizeof buffer_);
        readPosition_ = other.readPosition_;
        fillCount_ = other.fillCount_;
        timeout_ = other.timeout_;
    }
    return *this;
}

bool SocketInput::isClosed() const {
    return socket_ == nullptr || socket_->isClosed();
}

bool SocketInput::fillBuffer() {
    const netsys::Handle handle = socket_->getSocketHandle();
    if (timeout_ >= 0) {
        const int ready = netsys::waitReadable(handle, timeout_);
        if (ready == 0) return false;  // timed out: the connection may still be fine
        if (ready < 0) {
            socketError_ = true;
            return false;
        }
    }
    readPosition_ = 0;
    fillCount_ = netsys::receive(handle, buffer_, kBufferSize);
    if (fillCount_ > 0) return true;
    // The buffer holds nothing valid now, whatever the receive returned.
    fillCount_ = 0;
    socketError_ = true;
    return false;
}

int SocketInput::receiveNow() {
    readPosition_ = 0;
    fillCount_ = netsys::receive(socket_->getSocketHandle(), buffer_, kBufferSize);
    if (fillCount_ > 0) return fillCount_;
    bool timedOut = fillCount_ < 0 && netsys::lastSocketError() == netsys::timedOutCode();
    fillCount_ = 0;
    if (timedOut) return 0;
    socketError_ = true;
    return -1;
}

int SocketInput::acceptBlock(const char* data, int length) {
    readPosition_ = 0;
    fillCount_ = length < kBufferSize ? (length > 0 ? length : 0) : kBufferSize;
    if (fillCount_ == 0) {
        socketError_ = true;
        return 0;
    }
    std::memcpy(buffer_, data, static_cast<size_t>(fillCount_));
    return fillCount_;
}

bool SocketInput::readByte(char* out) {
    if (readPosition_ >= fillCount_ && !fillBuffer()) return false;
    *out = buffer_[readPosition_++];
    return true;
}

bool SocketInput::readInt(int* out) {
    unsigned char bytes[4];
    for (unsigned char& b : bytes) {
        char c;
        if (!readByte(&c)) {
            socketError_ = true;
            return false;
        }
        b = static_cast<unsigned char>(c);
    }
    const uint32_t value = (static_cast<uint32_t>(bytes[0]) << 24) |
                           (static_cast<uint32_t>(bytes[1]) << 16) |
                           (static_cast<uint32_t>(bytes[2]) << 8) | bytes[3];
    *out = static_cast<int>(value);
    return true;
}

int SocketInput::read(char* buffer, int count) {
    return read(buffer, 0, count);
}

int SocketInput::read(char* buffer, int offset, int count) {
    // Byte by byte in effect, but whole runs of the buffer are copied at once.
    int stored = 0;
    while (stored < count) {
        if (readPosition_ >= fillCount_ && !fillBuffer()) break;
        int run = fillCount_ - readPosition_;
        if (run > count - stored) run = count - stored;
        std::memcpy(buffer + offset + stored, buffer_ + readPosition_, run);
        readPosition_ += run;
        stored += run;
    }
    return stored;
}

char* SocketInput::readString(int initialLength, int maxLength, char terminator) {
    if (initialLength < 0 || initialLength == INT_MAX) return nullptr;
    int capacity = initialLength + 1;
    char* text = static_cast<char*>(std::malloc(capacity));
    if (text == nullptr) return nullptr;
    int length = 0;
    for (;;) {
        char c;
        if (!readByte(&c)) {
            std::free(text);
            return nullptr;
        }
        if (c == terminator) break;
        if (length == capacity - 1) {
            // Over the limit once doubled: give up rather than hold an endless text.
            if (2LL * capacity > static_cast<long long>(maxLength) + 1) {
                std::free(text);
                return nullptr;
            }
            char* bigger = grow(text, &capacity);
            if (bigger == nullptr) {
                std::free(text);
                return nullptr;
            }
            text = bigger;
        }
        text[length++] = c;
    }
    text[length] = '\0';
    return text;
}

char* SocketInput::readLine() {
    char* text = nullptr;
    int capacity = 0;
    int length = 0;
    bool heldCr = false;
    // Appends one byte, making or doubling the array as needed; false when out of memory.
    auto store = [&](char c) {
        if (text == nullptr) {
            capacity = 65;
            text = static_cast<char*>(std::malloc(capacity));
            if (text == nullptr) return false;
        } else if (length >= capacity - 1) {
            char* bigger = grow(text, &capacity);
            if (bigger == nullptr) return false;
            text = bigger;
        }
        text[length++] = c;
        return true;
    };
    for (;;) {
        char c;
        if (!readByte(&c)) break;  // the line ends with the stream; a held CR is dropped
        bool ok;
        if (heldCr) {
            if (c == '\n') {
                if (text == nullptr) return static_cast<char*>(std::calloc(1, 1));
                break;
            }
            heldCr = false;
            ok = store('\r') && store(c);
        } else if (c == '\r') {
            heldCr = true;
            ok = true;
        } else {
            ok = store(c);
        }
        if (!ok) {
            std::free(text);
            return nullptr;
        }
    }
    if (text != nullptr) text[length] = '\0';
    return text;
}

int SocketInput::available() {
    const int buffered = fillCount_ - readPosition_;
    int pending = 0;
    if (!netsys::pendingBytes(socket_->getSocketHandle(), &pending)) {
        return buffered > 0 ? buffered : -1;
    }
    return buffered + pending;
}

bool SocketInput::wait() {
    if (timeout_ < 1) return true;
    const netsys::Handle handle = socket_->getSocketHandle();
    const int ready = netsys::waitReadable(handle, timeout_);
    // Kept: a time-out is no failure here; only a broken connection answers false.
    if (ready == 0) return true;
    if (ready > 0 && netsys::peekByte(handle) > 0) return true;
    socketError_ = true;
    return false;
}

}  // namespace velmora
