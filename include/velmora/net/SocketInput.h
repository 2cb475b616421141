// The buffered byte input of a socket: one receive fills up to 2048 bytes, and reads are
// served from the buffer. Any failed read, wait or fill sets a sticky error.
//
//   velmora::SocketInput* in = socket->getInput();
//   in->setTimeout(5000);  // milliseconds per receive; -1 blocks without limit
//   char* line = in->readLine();  // up to CR LF; null at once on failure
//   velmora::release(line);       // every text read is given back to the library
#pragma once

#include <velmora/Export.h>
#include <velmora/text/Release.h>

namespace velmora {

class Socket;

class VELMORA_API SocketInput {
public:
    virtual ~SocketInput();
    SocketInput(const SocketInput& other);
    SocketInput& operator=(const SocketInput& other);

    void setTimeout(int milliseconds) { timeout_ = milliseconds; }
    Socket* getSocket() const { return socket_; }
    bool getSocketError() const { return socketError_; }
    bool isClosed() const;

    bool readByte(char* out);
    // Four bytes in network order (big-endian).
    bool readInt(int* out);
    // Reads until count bytes are stored or a read fails; returns how many were stored.
    int read(char* buffer, int count);
    int read(char* buffer, int offset, int count);
    // The bytes up to terminator (not stored), or null when the text would need more than
    // maxLength characters of room or a read fails. Give the result back with
    // velmora::release.
    char* readString(int initialLength, int maxLength, char terminator);
    // The bytes up to a CR LF pair (a lone LF or CR is data). At a failed read, what was
    // read so far, or null when nothing was. Give the result back with velmora::release.
    char* readLine();
    // Bytes that can be read without blocking, or -1 when the system cannot tell.
    int available();
    // Waits up to the timeout for input; false only when the connection is broken.
    bool wait();

protected:
    explicit SocketInput(Socket* socket);
    SocketInput(Socket* socket, int timeout);
    // Receives the next block into the buffer; false on time-out, failure or end.
    virtual bool fillBuffer();
    // For subclasses that wait by other means (a receive time-out set on the socket): the
    // receive of fillBuffer without the wait before it. > 0: bytes received into the
    // buffer; 0: the socket's receive time-out expired, which leaves no error; < 0: the
    // peer closed or the receive failed, and the error is set.
    int receiveNow();
    // For subclasses that bring their bytes by other means than a socket (the parsers'
    // fuzz targets and tests feed them from memory): takes the next block of at most 2048
    // bytes as one receive would and answers how many it took. An empty block ends the
    // input as a peer's close does (the error is set).
    int acceptBlock(const char* data, int length);
    // Bytes received into the buffer and not read yet.
    int buffered() const { return fillCount_ - readPosition_; }
    friend class Socket;

private:
    enum { kBufferSize = 2048 };
    Socket* socket_;
    bool socketError_ = false;
    char buffer_[kBufferSize];
    int readPosition_ = 0;
    int fillCount_ = 0;
    int timeout_;
};

}  // namespace velmora
