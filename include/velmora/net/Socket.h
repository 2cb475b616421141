// One connected TCP stream socket with its single buffered input and output.
//
//   std::unique_ptr<velmora::Socket> s(velmora::Socket::make(log, "127.0.0.1", 8080));
//   if (s) {
//       s->getOutput()->writeLine("GET / HTTP/1.0");
//       s->getOutput()->writeLine("");
//       s->getOutput()->flush();
//       char* status = s->getInput()->readLine();
//       velmora::release(status);  // the library's own free, whatever runtime the caller has
//   }
#pragma once

#include <cstdint>

#include <velmora/Export.h>

namespace velmora {

class InetAddress;
class Log;
class SocketInput;
class SocketOutput;

class VELMORA_API Socket {
public:
    // Closes the connection and deletes the address, the input and the output.
    virtual ~Socket();
    // The socket's input and output, made on first call; null when the socket is closed
    // and none was made before. The socket keeps them.
    virtual SocketInput* getInput();
    virtual SocketOutput* getOutput();
    // Shuts the connection down both ways and closes it; a second call does nothing.
    virtual void close();
    // Same handle, and other is a plain socket (type 0).
    virtual bool equals(Socket* other);

    // Resolves host and connects; a new socket, or null after a report to the log.
    static Socket* make(Log* log, const char* host, int port);

    bool isClosed() const;
    uint64_t getSocketHandle() const { return handle_; }
    InetAddress* getInetAddress() const { return address_; }
    int getSocketType() const { return socketType_; }
    // The sticky error of the input or the output (an object not yet made has none).
    bool inError() const;

protected:
    // Takes over the connected handle and the peer's address.
    Socket(Log* log, uint64_t handle, InetAddress* address);
    friend class ServerSocket;

private:
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    uint64_t handle_;
    SocketInput* input_ = nullptr;
    SocketOutput* output_ = nullptr;
    InetAddress* address_;
    Log* log_;
    int socketType_ = 0;
};

}  // namespace velmora
