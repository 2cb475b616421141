#include <velmora/net/ServerSocket.h>

#include <velmora/net/InetAddress.h>
#include <velmora/net/Socket.h>

#include <cerrno>
#include <cstdio>
#include <new>

#include "net/NetReport.h"
#include "net/NetSystem.h"
#include "net/OsVersionSource.h"

namespace velmora {

using netreport::Report;

namespace {

const int kDefaultBacklog = 10;

// Reports "<what> -> <number>" with the number as the lexicon argument.
void reportNumbered(Log* log, const char* key, const char* what, int number) {
    char text[256];
    std::snprintf(text, sizeof text, "%s -> %d\n", what, number);
    netreport::error(log, Report(key, text).arg(number));
}

void reportReuseFailure(Log* log, netsys::Handle handle) {
    const int number = netsys::lastSocketError();
    netsys::closeHandle(handle);
    reportNumbered(log, "socket.invalidSocket", "socket: Unable to setsockopt SO_REUSEADDR",
                   number);
}

bool turnDualStackOn(Log* log, netsys::Handle handle) {
    if (!ServerSocket::isDualStackSupported() || netsys::setIpv6OnlyOff(handle)) return true;
    const int number = netsys::lastSocketError();
    netsys::closeHandle(handle);
    reportNumbered(log, "socket.invalidSocket", "socket: Unable to setsockopt IPV6_V6ONLY", number);
    return false;
}

// Kept: the test is made on the runtime's error number, not the socket library's, so the
// address-in-use report appears only where the socket library also stores into errno.
void reportBindFailure(Log* log, netsys::Handle handle) {
    const int number = errno;
    netsys::closeHandle(handle);
    if (number == netsys::addressInUseCode()) {
        netreport::error(log, Report("socket.addressInUse", "socket: Address already in use\n"));
    } else {
        netreport::error(log, Report("socket.cannotBind", "socket: Cannot bind to server port\n"));
    }
}

bool listenOrReport(Log* log, netsys::Handle handle, int backlog) {
    if (netsys::listenOn(handle, backlog)) return true;
    const int number = netsys::lastSocketError();
    const int runtimeNumber = errno;
    netsys::closeHandle(handle);
    char text[256];
    std::snprintf(text, sizeof text, "socket: Unable to call listen on socket -> %d\n", number);
    netreport::error(log, Report("socket.unableToListen", text).arg(number).arg(runtimeNumber));
    return false;
}

}  // namespace

ServerSocket::ServerSocket(Log* log, uint64_t handle) : ServerSocket(log, handle, nullptr) {}

ServerSocket::ServerSocket(Log* log, uint64_t handle, InetAddress* address)
    : handle_(handle), address_(address), log_(log) {}

ServerSocket::~ServerSocket() {
    close();
}

void ServerSocket::close() {
    if (handle_ == netsys::kInvalidHandle) return;
    netsys::shutdownBoth(handle_);
    netsys::closeHandle(handle_);
    delete address_;
    // Kept: the pointer stays as it was; getInetAddress must not be used after close.
    handle_ = netsys::kInvalidHandle;
}

ServerSocket* ServerSocket::makeNull(Log* log, int port) {
    return makeNull(log, port, kDefaultBacklog, false);
}

ServerSocket* ServerSocket::makeNull(Log* log, int port, int backlog) {
    return makeNull(log, port, backlog, false);
}

ServerSocket* ServerSocket::makeNull6(Log* log, int port) {
    return makeNull(log, port, kDefaultBacklog, true);
}

ServerSocket* ServerSocket::makeNull6(Log* log, int port, int backlog) {
    return makeNull(log, port, backlog, true);
}

ServerSocket* ServerSocket::makeNull(Log* log, int port, int backlog, bool ipv6) {
    const netsys::Handle handle = netsys::openStream(ipv6);
    if (handle == netsys::kInvalidHandle) {
        reportNumbered(log, "socket.invalidSocket", "socket: Unable to create a socket",
                       netsys::lastSocketError());
        return nullptr;
    }
    if (!netsys::setReuseAddress(handle)) {
        reportReuseFailure(log, handle);
        return nullptr;
    }
    if (ipv6 && !turnDualStackOn(log, handle)) return nullptr;
    const bool bound =
        ipv6 ? netsys::bindIpv6(handle, nullptr, port) : netsys::bindIpv4(handle, nullptr, port);
    if (!bound) {
        reportBindFailure(log, handle);
        return nullptr;
    }
    if (!listenOrReport(log, handle, backlog)) return nullptr;
    ServerSocket* server = new (std::nothrow) ServerSocket(log, handle);
    if (server == nullptr) netsys::closeHandle(handle);
    return server;
}

ServerSocket* ServerSocket::make(Log* log, int port, const char* address) {
    return make(log, port, address, kDefaultBacklog);
}

ServerSocket* ServerSocket::make(Log* log, int port, const char* address, int backlog) {
    if (address == nullptr) {
        netreport::error(
            log, Report("socket.invalidAddress", "socket: Null address, use makeNull instead.\n"));
        return nullptr;
    }
    InetAddress* bindAddress = InetAddress::getByName(address);
    if (bindAddress == nullptr) {
        char text[512];
        std::snprintf(text, sizeof text, "socket: Unable to validate bind address %s\n", address);
        netreport::error(log, Report("socket.invalidAddress", text).arg(address));
        return nullptr;
    }
    const int size = bindAddress->getStructureSize();
    if (size != 4 && size != 16) {
        delete bindAddress;
        netreport::error(
            log,
            Report("socket.invalidAddress", "socket: Unrecognizable address width\n").arg(address));
        return nullptr;
    }
    const bool ipv6 = size == 16;
    const netsys::Handle handle = netsys::openStream(ipv6);
    if (handle == netsys::kInvalidHandle) {
        const int number = errno;
        delete bindAddress;
        reportNumbered(log, "socket.invalidSocket", "socket: Unable to create a server socket",
                       number);
        return nullptr;
    }
    bool ok = netsys::setReuseAddress(handle);
    if (!ok) reportReuseFailure(log, handle);
    ok = ok && (!ipv6 || turnDualStackOn(log, handle));
    if (ok) {
        const bool bound = ipv6 ? netsys::bindIpv6(handle, bindAddress->getAddress(), port)
                                : netsys::bindIpv4(handle, bindAddress->getAddress(), port);
        if (!bound) reportBindFailure(log, handle);
        ok = bound && listenOrReport(log, handle, backlog);
    }
    ServerSocket* server = ok ? new (std::nothrow) ServerSocket(log, handle, bindAddress) : nullptr;
    if (server == nullptr) {
        if (ok) netsys::closeHandle(handle);
        delete bindAddress;
    }
    return server;
}

bool ServerSocket::isDualStackSupported() {
    int platform = 0;
    int major = 0;
    OsVersionSource::get(&platform, &major);
    // Kept: only the 6.x line (Vista to 8.1) is taken to accept both families on one
    // listener; 5.x and below cannot, and later versions are deliberately left out too.
    return platform == 2 && major == 6;
}

Socket* ServerSocket::accept() {
    return acceptFamily(false);
}

Socket* ServerSocket::accept6() {
    return acceptFamily(true);
}

Socket* ServerSocket::acceptFamily(bool ipv6) {
    unsigned char peer[16] = {};
    const netsys::Handle accepted =
        ipv6 ? netsys::acceptIpv6(handle_, peer) : netsys::acceptIpv4(handle_, peer);
    if (accepted == netsys::kInvalidHandle) {
        const int number = netsys::lastSocketError();
        const int runtimeNumber = errno;
        char text[256];
        std::snprintf(text, sizeof text, "socket: Unable to accept connection -> %d\n", number);
        netreport::error(log_,
                         Report("socket.unableToAccept", text).arg(number).arg(runtimeNumber));
        return nullptr;
    }
    char numeric[65] = {};
    if (ipv6) {
        InetAddress::inet_ntop(InetAddress::getIpv6Family(), peer, numeric, 65);
    } else {
        InetAddress::inet_ntop(InetAddress::getIpv4Family(), peer, numeric, 22);
    }
    Socket* socket = new (std::nothrow) Socket(log_, accepted, InetAddress::getByName(numeric));
    if (socket == nullptr) {
        netsys::closeHandle(accepted);
        return nullptr;
    }
    char text[128];
    std::snprintf(text, sizeof text, "socket: Accepted connection from client -> %s", numeric);
    netreport::trace(log_, Report("socket.acceptedClient", text).arg(numeric));
    return socket;
}

}  // namespace velmora
