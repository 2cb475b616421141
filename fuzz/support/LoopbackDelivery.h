// For fuzz targets that read from a socket: sends bytes over a fresh loopback connection
// and hands back the accepted end, with everything sent waiting in it and the sender gone.
#pragma once

#include <velmora/net/ServerSocket.h>
#include <velmora/net/Socket.h>
#include <velmora/net/SocketOutput.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <memory>

namespace velmora {
namespace fuzzing {

inline int portOf(uint64_t handle, bool remote) {
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    auto* raw = reinterpret_cast<sockaddr*>(&address);
    if (remote) {
        getpeername(static_cast<int>(handle), raw, &length);
    } else {
        getsockname(static_cast<int>(handle), raw, &length);
    }
    return ntohs(address.sin_port);
}

// Null when no connection could be made. Keep `size` within the loopback buffers (16 KiB).
inline std::unique_ptr<Socket> deliver(const char* data, int size) {
    static ServerSocket* server = ServerSocket::make(nullptr, 0, "127.0.0.1");
    static const int port = server != nullptr ? portOf(server->getSocketHandle(), false) : -1;
    if (port < 0) return nullptr;
    std::unique_ptr<Socket> client(Socket::make(nullptr, "127.0.0.1", port));
    if (!client) return nullptr;
    // A connect cut short by a signal (the fuzzer's own timer) may still have reached the
    // listener; such leftovers are skipped, so that each input is read on its own connection.
    const int clientPort = portOf(client->getSocketHandle(), false);
    std::unique_ptr<Socket> peer;
    for (int tries = 0; tries < 8 && !peer; ++tries) {
        peer.reset(server->accept());
        if (!peer) return nullptr;
        if (portOf(peer->getSocketHandle(), true) != clientPort) peer.reset();
    }
    if (!peer) return nullptr;
    client->getOutput()->write(data, size);
    client->getOutput()->flush();
    client->close();
    return peer;
}

}  // namespace fuzzing
}  // namespace velmora
