// The buffered byte output of a socket: bytes collect in a 2048-byte buffer that is sent
// when it is full or on flush. Every write holds the output's recursive lock, so one
// write or writeLine reaches the peer as a unit among several writer threads.
//
//   velmora::SocketOutput* out = socket->getOutput();
//   out->writef("HTTP/1.1 %d %s\r\n", 200, "OK");
//   if (!out->flush()) socket->close();
#pragma once

#include <velmora/Export.h>
#include <velmora/platform/PlatformUtil.h>

namespace velmora {

class Socket;

class VELMORA_API SocketOutput {
public:
    virtual ~SocketOutput();
    // Sends the buffered bytes, waiting up to a second at a time for the socket to take
    // them, for at most the flush retries in all. With retries <= 0 the bytes are dropped.
    virtual bool flush();

    void setFlushRetries(int retries);
    Socket* getSocket() const { return socket_; }
    bool getSocketError() const { return socketError_; }

    bool writeByte(char c);
    bool writeInt(int value);  // network order (big-endian)
    bool writeString(const char* text);
    bool writeLine(const char* text);  // the text, then CR LF
    bool write(const char* data, int count);
    bool write(const char* data, int offset, int count);
    // printf-style; the formatted text is cut at 32767 characters.
    bool writef(const char* format, ...)
#if defined(__GNUC__)
        __attribute__((format(printf, 2, 3)))
#endif
        ;

protected:
    explicit SocketOutput(Socket* socket);
    // Hands the buffered bytes on; called by flush with the output's lock held. This one
    // sends them to the socket, waiting up to a second at a time while it takes none, for
    // at most the flush retries in all. A subclass may deliver them elsewhere (to memory
    // that an event loop sends from). False sets the sticky error.
    virtual bool deliver(const char* data, int count);
    friend class Socket;

private:
    SocketOutput(const SocketOutput&) = delete;
    SocketOutput& operator=(const SocketOutput&) = delete;
    bool writeLocked(const char* data, int count);

    enum { kBufferSize = 2048 };
    bool socketError_ = false;
    Socket* socket_;
    char buffer_[kBufferSize];
    int count_ = 0;
    PlatformMutex mutex_ = nullptr;
    int flushRetries_ = 100;
};

}  // namespace velmora
