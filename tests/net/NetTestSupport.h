// Helpers for the networking tests: what the library does not tell about its sockets.
#pragma once

#include <cstdint>
#include <memory>

#include <velmora/net/ServerSocket.h>
#include <velmora/net/Socket.h>

namespace velmora {
namespace test {

// The local port that a listening or connected handle is bound to, or -1.
int localPort(uint64_t handle);
// The IPV6_V6ONLY option of a handle (0 or 1), and that of a fresh IPv6 socket.
int ipv6Only(uint64_t handle);
int defaultIpv6Only();
// Whether this process may open a raw ICMP socket (root or Administrator).
bool mayOpenRawIcmp();
// Open descriptors of this process, or -1 where the system cannot tell.
int openDescriptors();

// A listener on a free port of 127.0.0.1, a client connected to it and the accepted end.
struct Pair {
    std::unique_ptr<ServerSocket> server;
    std::unique_ptr<Socket> client;
    std::unique_ptr<Socket> accepted;
};
Pair connectPair();

}  // namespace test
}  // namespace velmora
