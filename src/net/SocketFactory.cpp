#include <velmora/net/SocketFactory.h>

#include <velmora/net/ServerSocket.h>
#include <velmora/net/Socket.h>

namespace velmora {

SocketFactory* SocketFactory::getInstance() {
    static SocketFactory* instance = new SocketFactory();
    return instance;
}

SocketFactory::~SocketFactory() = default;

ServerSocket* SocketFactory::makeServerSocket(Log* log, int port, const char* address,
                                              int backlog) {
    return ServerSocket::make(log, port, address, backlog);
}

ServerSocket* SocketFactory::makeServerSocket(Log* log, int port, const char* address) {
    return ServerSocket::make(log, port, address);
}

ServerSocket* SocketFactory::makeServerSocket(Log* log, int port, int backlog) {
    return ServerSocket::makeNull(log, port, backlog);
}

ServerSocket* SocketFactory::makeServerSocket(Log* log, int port) {
    return ServerSocket::makeNull(log, port);
}

ServerSocket* SocketFactory::makeServerSocket6(Log* log, int port, int backlog) {
    return ServerSocket::makeNull6(log, port, backlog);
}

ServerSocket* SocketFactory::makeServerSocket6(Log* log, int port) {
    return ServerSocket::makeNull6(log, port);
}

Socket* SocketFactory::makeSocket(Log* log, const char* host, int port) {
    return Socket::make(log, host, port);
}

}  // namespace velmora
