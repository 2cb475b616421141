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
#include <system_error>

#include "Exchange.h"
#include "HostServices.h"
#include "LogSafe.h"
#include "NetworkRoutes.h"

namespace velmorad {

using Clock = std::chrono::steady_clock;

// Waits for input are cut into slices this long, so that a stop ends an idle wait at once.
const int kSliceMs = 250;

// The socket input of one connection with two limits: the read time-out for silence, and a
// deadline for the whole head of a request, so that a client sending a byte now and then
// cannot hold its thread. Waits are cut into short slices so that a stop request ends an
// idle keep-alive connection at once instead of after its time-out.
class DeadlineInput : public velmora::SocketInput {
public:
    DeadlineInput(velmora::Socket* socket, int timeoutMs, const std::atomic<bool>* stopping)
        : velmora::SocketInput(socket, timeoutMs), timeoutMs_(timeoutMs), stopping_(stopping) {}

    void startRequest(int deadlineMs) {
        deadline_ = Clock::now() + std::chrono::milliseconds(deadlineMs);
        received_ = false;
        starved_ = false;
    }
    void endHead() { deadline_ = Clock::now() + std::chrono::milliseconds(timeoutMs_); }
    // The socket's receive time-out is `ms`: a wait of at least that long receives at
    // once, blocking, instead of waiting for input first and then receiving.
    void receiveSlicesOf(int ms) { receiveSliceMs_ = ms; }
    // From now on reads end after `ms` milliseconds in all, whatever the stop flag says.
    void drainFor(int ms) {
        deadline_ = Clock::now() + std::chrono::milliseconds(ms);
        stopping_ = nullptr;
    }
    // Whether any byte of the current request arrived.
    bool received() const { return received_; }
    // Whether a read of the current request ended for want of input (silence, deadline,
    // stop) rather than because the parser refused what it had.
    bool starved() const { return starved_; }

protected:
    bool fillBuffer() override {
        int silent = 0;
        for (;;) {
            auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline_ - Clock::now());
            int wait = static_cast<int>(left.count());
            if (wait > timeoutMs_ - silent) wait = timeoutMs_ - silent;
            if (wait <= 0 || (stopping_ != nullptr && stopping_->load())) break;
            if (stopping_ != nullptr && wait > kSliceMs) wait = kSliceMs;
            if (receiveSliceMs_ > 0 && wait >= receiveSliceMs_) {
                int n = receiveNow();
                if (n > 0) {
                    received_ = true;
                    return true;
                }
                if (n < 0) break;
                silent += receiveSliceMs_;
                continue;
            }
            setTimeout(wait);
            if (velmora::SocketInput::fillBuffer()) {
                received_ = true;
                return true;
            }
            if (getSocketError()) break;
            silent += wait;
        }
        starved_ = true;
        return false;
    }

private:
    int timeoutMs_;
    const std::atomic<bool>* stopping_;
    Clock::time_point deadline_ = Clock::now();
    bool received_ = false;
    bool starved_ = false;
    int receiveSliceMs_ = 0;
};

namespace {

bool equalsIgnoreCase(const char* a, const char* b) {
    if (a == nullptr || b == nullptr) return false;
    for (; *a != '\0' && *b != '\0'; ++a, ++b) {
        if ((*a | 0x20) != (*b | 0x20)) return false;
    }
    return *a == *b;
}

// Reads a request body into `body` so that a route can use it and the next request
// starts where it should; false when the body does not arrive. A client that waits for
// leave to send it (Expect: 100-continue, as curl does) is given leave.
bool readBody(velmora::HttpRequest& request, int64_t length, velmora::SocketInput* in,
              velmora::Socket* socket, std::string* body) {
    if (length > 0 && equalsIgnoreCase(request.getField("Expect"), "100-continue") &&
        socket->getOutput() != nullptr) {
        socket->getOutput()->writeString("HTTP/1.1 100 Continue\r\n\r\n");
        socket->getOutput()->flush();
    }
    char chunk[4096];
    while (length > 0) {
        int n = in->read(chunk, length < static_cast<int64_t>(sizeof chunk)
                                    ? static_cast<int>(length)
                                    : static_cast<int>(sizeof chunk));
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
    server_.reset(velmora::ServerSocket::make(log_, settings_.port, settings_.bind.c_str(), 128));
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
    resumeNetworkChanges(this);
    bool ipv6 = server_->getInetAddress() != nullptr && server_->getInetAddress()->getIsIpv6();
    while (!stopping_.load()) {
        velmora::Socket* socket = ipv6 ? server_->accept6() : server_->accept();
        if (socket == nullptr) {
            if (!stopping_.load()) velmora::PlatformUtil::sleep(10);
            continue;
        }
        setNoDelay(socket->getSocketHandle());
        if (!placeFree()) {
            refuse(socket);
            continue;
        }
        ++open_;
        hand(socket);
    }
    // Connection threads finish their current request (a stop ends idle waits at once)
    // and the queued connections, then leave.
    std::vector<std::thread> workers;
    {
        std::lock_guard<std::mutex> lock(poolMutex_);
        draining_ = true;
        workers.swap(workers_);
    }
    poolWake_.notify_all();
    for (std::thread& t : workers)
        t.join();
    endNetworkChanges();
    server_->close();
}

// At the cap, a place that frees within a moment is waited for: a client that closes one
// connection and opens the next at once would otherwise be refused while its old
// connection's thread has yet to notice the close.
bool Daemon::placeFree() {
    const auto kGrace = std::chrono::milliseconds(50);
    if (open_.load() < settings_.maxConnections) return true;
    std::unique_lock<std::mutex> lock(poolMutex_);
    listenerWaiting_ = true;
    bool free = placeFreed_.wait_for(lock, kGrace, [this] {
        return open_.load() < settings_.maxConnections || stopping_.load();
    });
    listenerWaiting_ = false;
    return free && !stopping_.load();
}

void Daemon::hand(velmora::Socket* socket) {
    std::unique_lock<std::mutex> lock(poolMutex_);
    queue_.push_back(socket);
    // Every queued connection has a thread of its own coming: an idle one, or a new one.
    // The count stays within the cap because open_ does.
    if (queue_.size() > idle_ + returning_) {
        try {
            workers_.emplace_back([this] { work(); });
        } catch (const std::system_error&) {
            queue_.pop_back();
            lock.unlock();
            --open_;
            delete socket;
            log_->warning("velmorad: no thread for a new connection; it was closed");
            return;
        }
    }
    lock.unlock();
    poolWake_.notify_one();
}

void Daemon::work() {
    std::unique_lock<std::mutex> lock(poolMutex_);
    for (;;) {
        if (queue_.empty()) {
            if (draining_) return;
            ++idle_;
            poolWake_.wait(lock, [this] { return !queue_.empty() || draining_; });
            --idle_;
            continue;
        }
        velmora::Socket* socket = queue_.front();
        queue_.pop_front();
        lock.unlock();
        serve(socket);
        // Counted down before the socket closes, so that a client that reconnects at once
        // finds its place free; and under the lock, with this thread counted as on its way
        // back, so that hand() never starts a thread beyond the cap for it.
        lock.lock();
        --open_;
        ++returning_;
        if (listenerWaiting_) placeFreed_.notify_one();
        lock.unlock();
        delete socket;
        lock.lock();
        --returning_;
    }
}

// Over the cap: the answer goes out at once, without reading the request or holding the
// listener; what the client had sent already is read away so that it sees the answer
// rather than a reset.
void Daemon::refuse(velmora::Socket* socket) {
    Exchange busy{this, socket, nullptr, false, false};
    busy.replyError(503, "too many connections, try again later");
    shutdownSend(socket->getSocketHandle());
    velmora::SocketInput* in = socket->getInput();
    if (in != nullptr) {
        in->setTimeout(0);
        char scratch[2048];
        for (int i = 0; i < 32 && in->available() > 0; ++i) {
            if (in->read(scratch, sizeof scratch) <= 0) break;
        }
    }
    delete socket;
}

// After an error answer to a request that was not read to its end: stop reading, answer,
// shut the sending side so that the client sees the end of the answer, then read away what
// the client still sends for a short while. Closing at once with unread input would make
// the system reset the connection, and the client could lose the answer with it.
void Daemon::lingeringClose(velmora::Socket* socket, DeadlineInput& in) {
    shutdownSend(socket->getSocketHandle());
    const int kDrainMs = 2000;
    in.drainFor(settings_.readTimeoutMs < kDrainMs ? settings_.readTimeoutMs : kDrainMs);
    char scratch[4096];
    while (in.read(scratch, sizeof scratch) > 0) {
    }
}

void Daemon::serve(velmora::Socket* socket) {
    DeadlineInput in(socket, settings_.readTimeoutMs, &stopping_);
    if (setReceiveTimeout(socket->getSocketHandle(), kSliceMs)) in.receiveSlicesOf(kSliceMs);
    for (int n = 0; n < settings_.keepAliveRequests && !stopping_.load(); ++n) {
        in.startRequest(settings_.requestDeadlineMs);
        velmora::HttpRequest request(&in);
        if (!request.read(&in)) {
            // A silent or closed connection just ends; a broken or over-long request, or
            // one that did not arrive in time, is told so.
            bool stopped = in.starved() && stopping_.load();
            if (in.received() && !in.getSocketError() && !stopped) {
                Exchange x{this, socket, nullptr, false, false};
                // The method was read but the target was not, and not for want of input:
                // the request line is longer than a request target may be.
                bool longTarget = request.getMethod() != nullptr &&
                                  request.getEncodedURI() == nullptr && !in.starved();
                if (longTarget) {
                    x.replyError(414, "the request line is too long");
                } else {
                    x.replyError(400, "malformed, incomplete or over-long request head");
                }
                countRequest();
                access_->message(longTarget ? "- - 414" : "- - 400");
                lingeringClose(socket, in);
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
        if (socket->getInetAddress() != nullptr)
            x.peer = socket->getInetAddress()->getHostAddress();
        bool unread = false;
        int64_t length = 0;
        velmora::HttpMessage::BodyLength framing = request.getBodyLength(1024 * 1024, &length);
        if (std::strncmp(version, "HTTP/1.", 7) != 0) {
            x.replyError(505, "only HTTP/1.x is served");
            unread = true;
        } else if (framing == velmora::HttpMessage::kBadLength) {
            x.replyError(400,
                         "Content-Length is not one decimal length, or comes with "
                         "Transfer-Encoding");
            unread = true;
        } else if (framing == velmora::HttpMessage::kTransferCoded) {
            x.replyError(501, "request bodies must come with a Content-Length");
            unread = true;
        } else if (framing == velmora::HttpMessage::kTooLarge) {
            x.replyError(413, "request body too large");
            unread = true;
        } else if (!readBody(request, length, &in, socket, &x.requestBody)) {
            x.replyError(400, "request body incomplete");
            unread = true;
        } else {
            route(x);
        }
        countRequest();
        char line[512];
        std::snprintf(line, sizeof line, "%s %.300s %d %ld", logSafe(request.getMethod()).c_str(),
                      logSafe(request.getEncodedURI()).c_str(), x.status, x.bytes);
        access_->message(line);
        if (unread && !in.getSocketError()) lingeringClose(socket, in);
        if (!x.keepAlive || socket->getOutput() == nullptr ||
            socket->getOutput()->getSocketError()) {
            return;
        }
    }
}

}  // namespace velmorad
