// The socket input's line and string readers on any bytes from a loopback peer: nothing
// returned is longer than what was sent, a string holds no terminator and keeps to its
// limit, and the lines end with the sticky error set once the peer has closed.
#include <velmora/net/ServerSocket.h>
#include <velmora/net/Socket.h>
#include <velmora/net/SocketInput.h>
#include <velmora/net/SocketOutput.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

int portOf(uint64_t handle, bool remote = false) {
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
    static const int port = portOf(server->getSocketHandle());
    if (size == 0 || size > 16384) return 0;  // stays within the loopback buffers
    std::unique_ptr<velmora::Socket> client(velmora::Socket::make(nullptr, "127.0.0.1", port));
    if (!client) return 0;
    // A connect cut short by a signal (the fuzzer's own timer) may still have reached the
    // listener; such leftovers are skipped, so that each input is read on its own connection.
    const int clientPort = portOf(client->getSocketHandle());
    std::unique_ptr<velmora::Socket> peer;
    for (int tries = 0; tries < 8 && !peer; ++tries) {
        peer.reset(server->accept());
        if (!peer) return 0;
        if (portOf(peer->getSocketHandle(), true) != clientPort) peer.reset();
    }
    if (!peer) return 0;
    // The first byte picks the reader; the rest is what the peer sends.
    const char mode = static_cast<char>(data[0]);
    client->getOutput()->write(reinterpret_cast<const char*>(data) + 1, static_cast<int>(size) - 1);
    client->getOutput()->flush();
    client->close();
    velmora::SocketInput* in = peer->getInput();
    const bool strings = (mode & 1) != 0;
    for (int guard = 0; guard <= static_cast<int>(size); ++guard) {
        char* text = strings ? in->readString(mode & 0x1f, 64, ';') : in->readLine();
        if (text == nullptr) break;
        const size_t length = std::strlen(text);
        if (length >= size) std::abort();
        if (strings && (length > 64 || std::strchr(text, ';') != nullptr)) std::abort();
        std::free(text);
    }
    if (!strings && !in->getSocketError()) std::abort();
    return 0;
}
