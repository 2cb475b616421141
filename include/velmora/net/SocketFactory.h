// The process's maker of client and server sockets. Every operation is virtual, so that a
// subclass can hand out other sockets; the default one forwards to ServerSocket and Socket.
//
//   velmora::ServerSocket* server =
//       velmora::SocketFactory::getInstance()->makeServerSocket(log, 8080, "127.0.0.1");
#pragma once

#include <velmora/Export.h>

namespace velmora {

class Log;
class ServerSocket;
class Socket;

class VELMORA_API SocketFactory {
public:
    // Made on first call (without a lock) and kept until the process ends.
    static SocketFactory* getInstance();

    virtual ServerSocket* makeServerSocket(Log* log, int port, const char* address, int backlog);
    virtual ServerSocket* makeServerSocket(Log* log, int port, const char* address);
    virtual ServerSocket* makeServerSocket(Log* log, int port, int backlog);
    virtual ServerSocket* makeServerSocket(Log* log, int port);
    virtual ServerSocket* makeServerSocket6(Log* log, int port, int backlog);
    virtual ServerSocket* makeServerSocket6(Log* log, int port);
    virtual Socket* makeSocket(Log* log, const char* host, int port);
    virtual ~SocketFactory();
};

}  // namespace velmora
