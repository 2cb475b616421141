// Raw bytes as an HTTP request arriving on a loopback connection: reading the request line
// and headers never fails in a way the sanitizers see, and a request that was read has a
// method, a decoded path no longer than the raw one, and a version.
#include <velmora/http/HttpRequest.h>
#include <velmora/net/ServerSocket.h>
#include <velmora/net/Socket.h>
#include <velmora/net/SocketOutput.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

int portOf(uint64_t handle, bool remote) {
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static velmora::ServerSocket* server = velmora::ServerSocket::make(nullptr, 0, "127.0.0.1");
    static const int port = portOf(server->getSocketHandle(), false);
    if (size > 16384) return 0;  // stays within the loopback buffers
    std::unique_ptr<velmora::Socket> client(velmora::Socket::make(nullptr, "127.0.0.1", port));
    if (!client) return 0;
    const int clientPort = portOf(client->getSocketHandle(), false);
    std::unique_ptr<velmora::Socket> peer;
    // Connections left by an earlier input cut short are skipped.
    for (int tries = 0; tries < 8 && !peer; ++tries) {
        peer.reset(server->accept());
        if (!peer) return 0;
        if (portOf(peer->getSocketHandle(), true) != clientPort) peer.reset();
    }
    if (!peer) return 0;
    client->getOutput()->write(reinterpret_cast<const char*>(data), static_cast<int>(size));
    client->getOutput()->flush();
    client->close();

    velmora::HttpRequest request(peer->getInput());
    if (request.read(peer->getInput())) {
        if (request.getMethod() == nullptr || request.getVersion() == nullptr) std::abort();
        if (std::strlen(request.getDecodedURI()) >
            std::strlen(request.getEncodedURI()) + std::strlen(request.getEncodedQuery()) + 1) {
            std::abort();
        }
    }
    return 0;
}
