#include "Daemon.h"

#include <velmora/net/InetAddress.h>
#include <velmora/net/Socket.h>
#include <velmora/net/SocketInput.h>
#include <velmora/net/SocketOutput.h>
#include <velmora/platform/PlatformUtil.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>

#include "Exchange.h"
#include "HostServices.h"

namespace velmorad {

namespace {

using Clock = std::chrono::steady_clock;

// The socket input of one connection with two limits: the read time-out for silence, and a
// deadline for the whole head of a request, so that a client sending a byte now and then
// cannot hold its thread.
class DeadlineInput : public velmora::SocketInput {
public:
    DeadlineInput(velmora::Socket* socket, int timeoutMs)
        : velmora::SocketInput(socket, timeoutMs), timeoutMs_(timeoutMs) {}

    void startRequest(int deadlineMs) {
        deadline_ = Clock::now() + std::chrono::milliseconds(deadlineMs);
        received_ = false;
    }
    void endHead() { deadline_ = Clock::now() + std::chrono::milliseconds(timeoutMs_); }
    // Whether any byte of the current request arrived.
    bool received() const { return received_; }

protected:
    bool fillBuffer() override {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline_ - Clock::now());
        if (left.count() <= 0) return false;
        setTimeout(left.count() < timeoutMs_ ? static_cast<int>(left.count()) : timeoutMs_);
        bool filled = velmora::SocketInput::fillBuffer();
        received_ = received_ || filled;
        return filled;
    }

private:
    int timeoutMs_;
    Clock::time_point deadline_ = Clock::now();
    bool received_ = false;
};

struct Connection {
    Daemon* daemon;
    velmora::Socket* socket;
};

bool equalsIgnoreCase(const char* a, const char* b) {
    if (a == nullptr || b == nullptr) return false;
    for (; *a != '\0' && *b != '\0'; ++a, ++b) {
        if ((*a | 0x20) != (*b | 0x20)) return false;
    }
    return *a == *b;
}

// Reads a request body into `body` so that a route can use it and the next request
// starts where it should; false when the body is too large or does not arrive. A client
// that waits for leave to send it (Expect: 100-continue, as curl does) is given leave.
bool readBody(velmora::HttpRequest& request, velmora::SocketInput* in, velmora::Socket* socket,
              std::string* body) {
    int length = request.getFieldInt("Content-Length", 0);
    if (length < 0 || length > 1024 * 1024) return false;
    if (length > 0 && equalsIgnoreCase(request.getField("Expect"), "100-continue") &&
        socket->getOutput() != nullptr) {
        socket->getOutput()->writeString("HTTP/1.1 100 Continue\r\n\r\n");
        socket->getOutput()->flush();
    }
    char chunk[4096];
    while (length > 0) {
        int n = in->read(chunk, length < static_cast<int>(sizeof chunk) ? length : sizeof chunk);
        if (n <= 0) return false;
        body->append(chunk, static_cast<size_t>(n));
        length -= n;
    }
    return true;
}

}  // namespace

Daemon::Daemon(const Settings& settings, velmora::Log* log, velmora::FilteredLogBundle* levels)
    : settings_(settings),
      log_(log),
      levels_(levels),
      access_(levels->get("access")),
      started_(std::time(nullptr)) {}

Daemon::~Daemon() {
    if (server_) server_->close();
}

bool Daemon::listen() {
    server_.reset(velmora::ServerSocket::make(log_, settings_.port, settings_.bind.c_str(), 64));
    if (!server_) return false;
    listenHandle_ = server_->getSocketHandle();
    port_ = localPort(listenHandle_);
    return true;
}

void Daemon::stop() {
    if (stopping_.exchange(true)) return;
    interruptListener(listenHandle_);
}

void Daemon::run() {
    bool ipv6 = server_->getInetAddress() != nullptr && server_->getInetAddress()->getIsIpv6();
    while (!stopping_.load()) {
        velmora::Socket* socket = ipv6 ? server_->accept6() : server_->accept();
        if (socket == nullptr) {
            if (!stopping_.load()) velmora::PlatformUtil::sleep(10);
            continue;
        }
        setNoDelay(socket->getSocketHandle());
        if (open_.load() >= settings_.maxConnections) {
            Exchange busy{this, socket, nullptr, false, false};
            busy.replyError(503, "too many connections, try again later");
            delete socket;
            continue;
        }
        ++open_;
        Connection* c = new Connection{this, socket};
        velmora::PlatformThread t =
            velmora::PlatformUtil::createThread(connectionThread, c, "conn");
        if (t == nullptr) {
            --open_;
            delete socket;
            delete c;
            continue;
        }
        velmora::PlatformUtil::releaseThread(t);
    }
    // Connections finish their current request; the wait is bounded by their time-outs.
    for (int waited = 0; open_.load() > 0 && waited < settings_.readTimeoutMs + 1000;
         waited += 10) {
        velmora::PlatformUtil::sleep(10);
    }
    server_->close();
}

uint32_t Daemon::connectionThread(void* arg) {
    Connection* c = static_cast<Connection*>(arg);
    c->daemon->serve(c->socket);
    delete c->socket;
    --c->daemon->open_;
    delete c;
    return 0;
}

void Daemon::serve(velmora::Socket* socket) {
    DeadlineInput in(socket, settings_.readTimeoutMs);
    for (int n = 0; n < settings_.keepAliveRequests && !stopping_.load(); ++n) {
        in.startRequest(settings_.requestDeadlineMs);
        velmora::HttpRequest request(&in);
        if (!request.read(&in)) {
            // A silent or closed connection just ends; a broken or over-long request, or
            // one that did not arrive in time, is told so.
            if (in.received() && !in.getSocketError()) {
                Exchange x{this, socket, nullptr, false, false};
                x.replyError(400, "malformed, incomplete or over-long request head");
                countRequest();
                access_->message("- - 400");
            }
            return;
        }
        in.endHead();
        const char* version = request.getVersion();
        const char* connection = request.getField("Connection");
        bool http11 = std::strcmp(version, "HTTP/1.1") == 0;
        Exchange x{this, socket, &request, std::strcmp(request.getMethod(), "HEAD") == 0,
                   http11 ? !equalsIgnoreCase(connection, "close")
                          : equalsIgnoreCase(connection, "keep-alive")};
        if (n + 1 >= settings_.keepAliveRequests || stopping_.load()) x.keepAlive = false;
        if (std::strncmp(version, "HTTP/1.", 7) != 0) {
            x.replyError(505, "only HTTP/1.x is served");
        } else if (request.getField("Transfer-Encoding") != nullptr) {
            x.replyError(501, "request bodies must come with a Content-Length");
        } else if (!readBody(request, &in, socket, &x.requestBody)) {
            x.replyError(413, "request body too large or incomplete");
        } else {
            route(x);
        }
        countRequest();
        char line[512];
        std::snprintf(line, sizeof line, "%s %.300s %d %ld", request.getMethod(),
                      request.getEncodedURI(), x.status, x.bytes);
        access_->message(line);
        if (!x.keepAlive || socket->getOutput() == nullptr ||
            socket->getOutput()->getSocketError()) {
            return;
        }
    }
}

}  // namespace velmorad
