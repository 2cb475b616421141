// A listening TCP socket on one port (all addresses or one), turning each accepted
// connection into a Socket. Failures are reported to the log and give null.
//
//   std::unique_ptr<velmora::ServerSocket> server(
//       velmora::ServerSocket::make(log, 8080, "127.0.0.1"));
//   std::unique_ptr<velmora::Socket> client(server->accept());  // blocks
#pragma once

#include <cstdint>

#include <velmora/Export.h>

namespace velmora {

class InetAddress;
class Log;
class Socket;

class VELMORA_API ServerSocket {
public:
    virtual ~ServerSocket();
    // Waits for one connection on an IPv4 (accept) or IPv6 (accept6) listener; the new
    // socket belongs to the caller. The acceptance is traced to the log.
    virtual Socket* accept();
    virtual Socket* accept6();
    // Closes the listener and deletes its address; a second call does nothing.
    virtual void close();

    static ServerSocket* makeNull(Log* log, int port);               // IPv4, backlog 10
    static ServerSocket* makeNull(Log* log, int port, int backlog);  // IPv4
    static ServerSocket* makeNull6(Log* log, int port);              // backlog 10
    static ServerSocket* makeNull6(Log* log, int port, int backlog);
    static ServerSocket* makeNull(Log* log, int port, int backlog, bool ipv6);
    // Bound to one address, whose family decides the listener's.
    static ServerSocket* make(Log* log, int port, const char* address);  // backlog 10
    static ServerSocket* make(Log* log, int port, const char* address, int backlog);
    // Whether an IPv6 listener is to accept IPv4 connections too (Windows 6.x only).
    static bool isDualStackSupported();

    uint64_t getSocketHandle() const { return handle_; }
    InetAddress* getInetAddress() const { return address_; }

protected:
    // Copies share the handle and the address: only one of them may be closed.
    ServerSocket(const ServerSocket& other) = default;
    ServerSocket& operator=(const ServerSocket& other) = default;
    ServerSocket(Log* log, uint64_t handle);
    ServerSocket(Log* log, uint64_t handle, InetAddress* address);

private:
    Socket* acceptFamily(bool ipv6);

    uint64_t handle_;
    InetAddress* address_;
    Log* log_;
};

}  // namespace velmora
