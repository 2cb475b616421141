#include <velmora/net/Socket.h>

#include <velmora/net/InetAddress.h>
#include <velmora/net/SocketInput.h>
#include <velmora/net/SocketOutput.h>

#include <cerrno>
#include <cstdio>
#include <new>

#include "net/NetReport.h"
#include "net/NetSystem.h"

namespace velmora {

Socket::Socket(Log* log, uint64_t handle, InetAddress* address)
    : handle_(handle), address_(address), log_(log) {}

Socket::~Socket() {
    close();
    delete address_;
    delete input_;
    delete output_;
}

SocketInput* Socket::getInput() {
    if (input_ == nullptr && !isClosed()) input_ = new (std::nothrow) SocketInput(this);
    return input_;
}

SocketOutput* Socket::getOutput() {
    if (output_ == nullptr && !isClosed()) output_ = new (std::nothrow) SocketOutput(this);
    return output_;
}

void Socket::close() {
    if (handle_ == netsys::kInvalidHandle) return;
    netsys::shutdownBoth(handle_);
    netsys::closeHandle(handle_);
    handle_ = netsys::kInvalidHandle;
}

bool Socket::equals(Socket* other) {
    if (other == nullptr || other->getSocketType() != 0) return false;
    return handle_ == other->handle_;
}

bool Socket::isClosed() const {
    return handle_ == netsys::kInvalidHandle;
}

bool Socket::inError() const {
    return (input_ != nullptr && input_->getSocketError()) ||
           (output_ != nullptr && output_->getSocketError());
}

Socket* Socket::make(Log* log, const char* host, int port) {
    using netreport::Report;
    char text[512];
    if (host == nullptr) {
        netreport::error(log, Report("socket.invalidAddress", "socket: Null address!\n"));
        return nullptr;
    }
    InetAddress* address = InetAddress::getByName(host);
    if (address == nullptr) {
        std::snprintf(text, sizeof text, "socket: Unable to validate host address %s\n", host);
        netreport::error(log, Report("socket.invalidAddress", text).arg(host));
        return nullptr;
    }
    const int size = address->getStructureSize();
    if (size != 4 && size != 16) {
        delete address;
        netreport::error(
            log,
            Report("socket.invalidAddress", "socket: Unrecognizable address width\n").arg(host));
        return nullptr;
    }
    const bool ipv6 = size == 16;
    const netsys::Handle handle = netsys::openStream(ipv6);
    if (handle == netsys::kInvalidHandle) {
        // Kept: the number shown is the runtime's error number, not the socket library's.
        const int number = errno;
        delete address;
        std::snprintf(text, sizeof text, "socket: Unable to create socket -> %d\n", number);
        netreport::error(log, Report("socket.invalidSocket", text).arg(number));
        return nullptr;
    }
    // Kept: an IPv6 connect hands the system a zeroed IPv4 record and so never succeeds;
    // clients have always reached IPv6 peers through their IPv4 addresses.
    const bool connected = ipv6 ? netsys::connectIpv6AsKept(handle)
                                : netsys::connectIpv4(handle, address->getAddress(), port);
    if (!connected) {
        netsys::closeHandle(handle);
        const int number = errno;
        delete address;
        std::snprintf(text, sizeof text, "socket: Unable to connect to host %s -> %d\n", host,
                      number);
        netreport::error(log, Report("socket.unableToConnect", text).arg(host).arg(number));
        return nullptr;
    }
    Socket* socket = new (std::nothrow) Socket(log, handle, address);
    if (socket == nullptr) {
        netsys::closeHandle(handle);
        delete address;
    }
    return socket;
}

}  // namespace velmora
