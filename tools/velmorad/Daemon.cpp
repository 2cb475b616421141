#include "Daemon.h"

#include <velmora/net/InetAddress.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "Connection.h"
#include "Exchange.h"
#include "HostServices.h"
#include "NetworkRoutes.h"

namespace velmorad {

namespace {

const int kReadChunk = 16384;
const long kMaxBody = 1024 * 1024;
const int kWorkers = 8;
const int kSweepMs = 100;
const int kLingerMs = 2000;
// A client that takes none of its answer for this long is dropped (the library's socket
// output waits as long).
const std::chrono::seconds kWriteStall(100);
// A kept-alive connection silent this long gives its buffers back until its next request.
const std::chrono::milliseconds kIdleShed(500);
// A request line longer than this cannot be parsed (method, target and version at their
// longest): once this much arrived without a line end the head is refused without waiting.
const size_t kRequestLineRoom = 2200;
// Descriptors kept beyond the connections: listener, poller, logs, worker files.
const long kSpareDescriptors = 64;

bool equalsIgnoreCase(const char* a, const char* b) {
    if (a == nullptr || b == nullptr) return false;
    for (; *a != '\0' && *b != '\0'; ++a, ++b) {
        if ((*a | 0x20) != (*b | 0x20)) return false;
    }
    return *a == *b;
}

// The first line of `text` (up to CR or LF), at most `room` bytes.
std::string firstLine(const std::string& text, size_t room) {
    size_t end = text.find_first_of("\r\n");
    if (end == std::string::npos) end = text.size();
    return text.substr(0, std::min(end, room));
}

// The whole value of the header line `name` in the raw head (the parsed field keeps only
// its first word), for the access log; empty when absent.
std::string rawField(const std::string& head, size_t length, const char* name) {
    const size_t nameLength = std::strlen(name);
    size_t at = head.find('\n');
    while (at != std::string::npos && at + 1 < length) {
        size_t start = at + 1;
        size_t end = head.find('\n', start);
        if (end == std::string::npos || end > length) end = length;
        if (end - start > nameLength && head[start + nameLength] == ':' &&
            equalsIgnoreCase(head.substr(start, nameLength).c_str(), name)) {
            size_t v = start + nameLength + 1;
            while (v < end && (head[v] == ' ' || head[v] == '\t'))
                ++v;
            size_t e = end;
            while (e > v && (head[e - 1] == '\r' || head[e - 1] == ' '))
                --e;
            return head.substr(v, std::min<size_t>(e - v, 1024));
        }
        at = end < length ? end : std::string::npos;
    }
    return std::string();
}

}  // namespace

Daemon::Daemon(const Settings& settings, velmora::Log* log, velmora::FilteredLogBundle* levels)
    : settings_(settings),
      log_(log),
      levels_(levels),
      access_(settings.accessLogFile(), settings.logBackups, settings.logMaxBytes),
      spin_(settings.pollSpinMicros),
      started_(std::time(nullptr)) {}

Daemon::~Daemon() {
    for (Connection* c : connections_) {
        if (c->handle != kNoHandle) closeHandle(c->handle);
        delete c;
    }
    if (server_) server_->close();
}

bool Daemon::listen() {
    poller_.reset(Poller::make());
    if (!poller_) {
        log_->error("velmorad: the event loop's poller could not be made");
        return false;
    }
    if (!access_.open()) {
        log_->error(("velmorad: cannot open " + settings_.accessLogFile()).c_str());
        return false;
    }
    long limit = raiseDescriptorLimit(settings_.maxConnections + kSpareDescriptors);
    if (limit >= 0 && limit < settings_.maxConnections + kSpareDescriptors) {
        char text[160];
        std::snprintf(text, sizeof text,
                      "velmorad: the descriptor limit %ld keeps connections below "
                      "maxConnections=%d",
                      limit, settings_.maxConnections);
        log_->warning(text);
    }
    server_.reset(velmora::ServerSocket::make(log_, settings_.port, settings_.bind.c_str(), 1024));
    if (!server_) return false;
    listenHandle_ = server_->getSocketHandle();
    port_ = localPort(listenHandle_);
    setNonBlocking(listenHandle_);
    // A client silent for a second is handed over all the same, to the head deadline.
    dataFirst_ = acceptWhenData(listenHandle_, 1);
    return poller_->add(listenHandle_, Poller::kRead, nullptr);
}

void Daemon::stop() {
    if (stopping_.exchange(true)) return;
    if (poller_) poller_->wake();
}

void Daemon::post(Connection* c) {
    {
        std::lock_guard<std::mutex> lock(postMutex_);
        if (c->posted) return;
        c->posted = true;
        posted_.push_back(c);
    }
    poller_->wake();
}

// The worker's last touch of the connection. Done and posted under the posting lock: the
// loop may see the worker done at once and delete the connection, and destroy() takes the
// same lock, so the connection outlives this and never stays in the posted list.
void Daemon::workerDone(Connection* c) {
    {
        std::lock_guard<std::mutex> lock(postMutex_);
        {
            std::lock_guard<std::mutex> mailbox(c->mailboxMutex);
            c->workerDone = true;
        }
        if (!c->posted) {
            c->posted = true;
            posted_.push_back(c);
        }
    }
    poller_->wake();
}

void Daemon::run() {
    resumeNetworkChanges(this);
    workers_.reset(new WorkerPool(kWorkers));
    Poller::Event events[256];
    Clock::time_point nextSweep = Clock::now();
    for (;;) {
        const int spin = spin_.micros();
        int n = spin > 0 ? lookBriefly(events, 256, spin) : 0;
        if (n == 0) n = poller_->wait(events, 256, waiting_.empty() ? kSweepMs : 10);
        for (int i = 0; i < n; ++i) {
            if (events[i].tag == nullptr) {
                if (!stopBegun_) acceptAll();
            } else {
                onEvent(static_cast<Connection*>(events[i].tag), events[i].ready, events[i].hangup);
            }
        }
        takePosted();
        Clock::time_point now = Clock::now();
        if (!waiting_.empty()) admitWaiting(now);
        if (stopping_.load() && !stopBegun_) beginStop();
        if (now >= nextSweep) {
            sweep(now);
            spin_.sample();
            nextSweep = now + std::chrono::milliseconds(kSweepMs);
        }
        // Closed connections are deleted here, after every event that could name them;
        // one whose worker still runs waits for the worker.
        for (size_t i = 0; i < closed_.size();) {
            Connection* c = closed_[i];
            if (!c->onWorker) {
                closed_[i] = closed_.back();
                closed_.pop_back();
                destroy(c);
            } else {
                ++i;
            }
        }
        access_.flushIfDue(now);
        if (stopBegun_) {
            if (connections_.empty()) break;
            if (now >= stopDeadline_) {
                for (Connection* c : connections_) {
                    if (c->handle != kNoHandle) {
                        ++cut_;
                        close(c);
                    }
                }
                break;
            }
        }
    }
    // Workers finish their request (a cut connection fails their writes at once), then
    // every connection left is deleted; only then may the daemon and its logs go.
    workers_->stop();
    endNetworkChanges();
    for (Connection* c : connections_) {
        // A request cut in flight still gets its line: the status its answer began with,
        // or 503 when none had begun.
        if (c->exchange) {
            Exchange& x = *c->exchange;
            long bytes = x.streamStart >= 0 ? c->output->delivered() - x.streamStart : x.bytes;
            logRequest(c, x.status != 0 ? x.status : 503, bytes);
        }
    }
    for (Connection* c : connections_) {
        if (c->counted) --open_;
        delete c;
    }
    connections_.clear();
    closed_.clear();
    waiting_.clear();
    access_.flush();
}

// Looks for events without sleeping for up to `micros` (see LoopSpin); 0 when none came.
int Daemon::lookBriefly(Poller::Event* events, int max, int micros) {
    const Clock::time_point until = Clock::now() + std::chrono::microseconds(micros);
    int n = 0;
    do {
        n = poller_->wait(events, max, 0);
    } while (n == 0 && Clock::now() < until);
    return n;
}

void Daemon::beginStop() {
    stopBegun_ = true;
    stopDeadline_ = Clock::now() + std::chrono::milliseconds(settings_.stopGraceMs);
    poller_->remove(listenHandle_);
    server_->close();
    for (Connection* c : connections_) {
        if (c->state == Connection::kHead && !c->received) close(c);
    }
}

void Daemon::acceptAll() {
    char peer[64];
    for (int i = 0; i < 64; ++i) {
        uint64_t handle = acceptNow(listenHandle_, peer, sizeof peer);
        if (handle == kNoHandle) return;
        Connection* c = new Connection(this, handle, peer);
        c->index = connections_.size();
        connections_.push_back(c);
        if (open_.load() < settings_.maxConnections) {
            ++open_;
            if (dataFirst_) {
                // Its request is most likely here already: read it now, and watch the
                // connection only if it stays open (for more of the head, or the next one).
                receive(c);
                if (c->handle != kNoHandle && c->interest < 0) watch(c, Poller::kRead);
            } else {
                watch(c, Poller::kRead);
            }
        } else {
            c->counted = false;
            waiting_.push_back(c);
        }
    }
}

// At the cap, a place that frees within a moment is waited for: a client that closes one
// connection and opens the next at once would otherwise be refused while the loop has yet
// to see the close. The refused ones do not count against the cap while they linger, so
// that refusals cannot keep it full.
void Daemon::admitWaiting(Clock::time_point now) {
    const auto kPlaceGrace = std::chrono::milliseconds(50);
    while (!waiting_.empty()) {
        Connection* c = waiting_.front();
        if (open_.load() < settings_.maxConnections) {
            waiting_.pop_front();
            c->counted = true;
            ++open_;
            c->requestStart = c->lastInput = now;
            watch(c, Poller::kRead);
        } else if (now - c->requestStart >= kPlaceGrace || stopBegun_) {
            waiting_.pop_front();
            watch(c, Poller::kRead);
            answerRefused(c, 503, "too many connections, try again later");
        } else {
            break;
        }
    }
}

void Daemon::watch(Connection* c, int interest) {
    if (c->handle == kNoHandle || c->interest == interest) return;
    if (c->interest < 0) {
        poller_->add(c->handle, interest, c);
    } else {
        poller_->modify(c->handle, interest, c);
    }
    c->interest = interest;
}

// Closes the socket at once; the object goes at the end of the loop's round, or when its
// worker is done.
void Daemon::close(Connection* c) {
    if (c->handle == kNoHandle) return;
    poller_->remove(c->handle);
    closeHandle(c->handle);
    c->handle = kNoHandle;
    closed_.push_back(c);
    if (c->onWorker) {
        std::lock_guard<std::mutex> lock(c->mailboxMutex);
        c->cut = true;
        c->mailboxDrained.notify_all();
    }
}

void Daemon::destroy(Connection* c) {
    if (!c->counted) {
        auto at = std::find(waiting_.begin(), waiting_.end(), c);
        if (at != waiting_.end()) waiting_.erase(at);
    } else {
        --open_;
    }
    {
        std::lock_guard<std::mutex> lock(postMutex_);
        if (c->posted) posted_.erase(std::find(posted_.begin(), posted_.end(), c));
    }
    Connection* last = connections_.back();
    connections_[c->index] = last;
    last->index = c->index;
    connections_.pop_back();
    delete c;
}

void Daemon::onEvent(Connection* c, int ready, bool hangup) {
    if (c->handle == kNoHandle) return;
    if (c->state == Connection::kWorking) {
        if (hangup) {
            close(c);
        } else if ((ready & Poller::kWrite) != 0) {
            pullMailbox(c);
        }
    } else if (hangup && (ready & Poller::kRead) == 0) {
        close(c);
        return;
    } else {
        if ((ready & Poller::kWrite) != 0) send(c);
        if ((ready & Poller::kRead) != 0 && c->handle != kNoHandle &&
            c->state != Connection::kWriting) {
            receive(c);
        }
    }
    if (c->handle != kNoHandle && c->state == Connection::kHead &&
        (!c->in.empty() || c->peerClosed)) {
        advance(c);
    }
}

void Daemon::receive(Connection* c) {
    char chunk[kReadChunk];
    for (;;) {
        int n = receiveSome(c->handle, chunk, sizeof chunk);
        if (n == kWouldBlock) break;
        if (n <= 0) {
            c->peerClosed = true;
            break;
        }
        c->lastInput = Clock::now();
        if (c->state == Connection::kLinger) continue;  // read away, unused
        c->in.append(chunk, static_cast<size_t>(n));
        // Enough to decide on: the rest waits in the socket.
        if (n < kReadChunk || c->in.size() > static_cast<size_t>(settings_.maxHeadBytes) +
                                                 static_cast<size_t>(kMaxBody)) {
            break;
        }
    }
    if (c->state == Connection::kLinger) {
        if (c->peerClosed) close(c);
        return;
    }
    advance(c);
}

// Uses what was received: heads become requests, bodies are completed, as long as the
// connection is ready for them.
void Daemon::advance(Connection* c) {
    while (c->handle != kNoHandle) {
        if (c->state == Connection::kHead) {
            if (!readHead(c)) return;
        } else if (c->state == Connection::kBody) {
            if (c->in.size() < static_cast<size_t>(c->bodyLength)) {
                if (c->peerClosed) close(c);
                return;
            }
            c->exchange->requestBody.assign(c->in, 0, static_cast<size_t>(c->bodyLength));
            c->in.erase(0, static_cast<size_t>(c->bodyLength));
            dispatch(c);
        } else {
            return;
        }
    }
}

// True when the head was complete or refused (the connection moved on), false when more
// of it is needed.
bool Daemon::readHead(Connection* c) {
    if (c->in.empty()) {
        if (c->peerClosed) close(c);
        return false;
    }
    c->received = true;
    bool newLine = false;
    for (size_t at = c->in.find('\n', c->scanned); at != std::string::npos;
         at = c->in.find('\n', at + 1)) {
        ++c->lineEnds;
        newLine = true;
    }
    c->scanned = c->in.size();
    const size_t maxHead = static_cast<size_t>(settings_.maxHeadBytes);
    // A head is parsed when a line of it ended, or when its first line is already too
    // long for the parser or the head for the limit.
    if (!newLine && !(c->lineEnds == 0 && c->in.size() > kRequestLineRoom) &&
        c->in.size() < maxHead) {
        if (c->peerClosed) close(c);
        return false;
    }
    if (!c->request) c->request.reset(new velmora::HttpRequest(nullptr));
    const int length = static_cast<int>(std::min(c->in.size(), maxHead));
    const int taken = c->request->parse(c->in.data(), length);
    if (taken < 0) {
        // The method was read but the target was not: the target is longer than the
        // parser takes.
        bool longTarget =
            c->request->getMethod() != nullptr && c->request->getEncodedURI() == nullptr;
        if (longTarget) {
            answerRefused(c, 414, "the request line is too long");
        } else {
            answerRefused(c, 400, "malformed, incomplete or over-long request head");
        }
        return true;
    }
    // Header lines: every line end but those of the request line and the empty line.
    int headerLines = c->lineEnds - 2;
    if (taken > 0) {
        headerLines = static_cast<int>(std::count(c->in.begin(), c->in.begin() + taken, '\n')) - 2;
    }
    if (headerLines > settings_.maxHeaderLines || (taken == 0 && c->in.size() >= maxHead)) {
        answerRefused(c, 431, "the request head has too many or too long header lines");
        return true;
    }
    if (taken == 0) {
        if (c->peerClosed) close(c);
        return false;
    }
    startRequest(c, taken);
    return true;
}

void Daemon::startRequest(Connection* c, int headLength) {
    velmora::HttpRequest& request = *c->request;
    const size_t head = static_cast<size_t>(headLength);
    c->requestLine = firstLine(c->in, head);
    c->referer = rawField(c->in, head, "Referer");
    c->userAgent = rawField(c->in, head, "User-Agent");
    c->in.erase(0, head);
    c->scanned = 0;
    c->lineEnds = 0;
    if (!c->output) c->output.reset(new ReplyOutput(c));
    const char* version = request.getVersion();
    bool http11 = std::strcmp(version, "HTTP/1.1") == 0;
    const char* connection = request.getField("Connection");
    c->exchange.reset(new Exchange{this, c->output.get(), c->request.get(),
                                   std::strcmp(request.getMethod(), "HEAD") == 0,
                                   http11 ? !equalsIgnoreCase(connection, "close")
                                          : equalsIgnoreCase(connection, "keep-alive")});
    c->exchange->peer = c->peer;
    c->exchange->handle = c->handle;
    if (std::strncmp(version, "HTTP/1.", 7) != 0) {
        answerRefused(c, 505, "only HTTP/1.x is served");
        return;
    }
    int64_t length = 0;
    switch (request.getBodyLength(kMaxBody, &length)) {
        case velmora::HttpMessage::kBadLength:
            answerRefused(c, 400,
                          "Content-Length is not one decimal length, or comes with "
                          "Transfer-Encoding");
            return;
        case velmora::HttpMessage::kTransferCoded:
            answerRefused(c, 501, "request bodies must come with a Content-Length");
            return;
        case velmora::HttpMessage::kTooLarge:
            answerRefused(c, 413, "request body too large");
            return;
        default:
            break;
    }
    c->bodyLength = static_cast<long>(length);
    c->state = Connection::kBody;
    c->lastInput = Clock::now();
    // A client that waits for leave to send its body (Expect: 100-continue, as curl does)
    // is given leave.
    if (c->in.size() < static_cast<size_t>(length) &&
        equalsIgnoreCase(request.getField("Expect"), "100-continue")) {
        c->out.append("HTTP/1.1 100 Continue\r\n\r\n");
        send(c);
    }
}

void Daemon::dispatch(Connection* c) {
    Exchange& x = *c->exchange;
    ++c->served;
    if (c->served >= settings_.keepAliveRequests || stopping_.load()) x.keepAlive = false;
    if (routeBlocks(x)) {
        c->state = Connection::kWorking;
        c->onWorker = true;
        c->workerDone = false;
        watch(c, 0);
        bool queued = workers_->submit([this, c] {
            route(*c->exchange);
            c->output->flush();
            workerDone(c);
        });
        if (queued) return;
        c->onWorker = false;
        x.replyError(503, "the daemon is stopping");
    } else {
        route(x);
    }
    finish(c);
}

// The exchange is over: its answer is in the send buffer. Sent first, so that the client
// does not wait for the bookkeeping, then counted and logged. Sending may close the
// connection, but the object stays until the end of the loop's round, and nothing in
// send() starts the next request.
void Daemon::finish(Connection* c) {
    Exchange& x = *c->exchange;
    c->output->flush();
    c->closeAfter = !x.keepAlive || c->output->getSocketError();
    c->lingerAfter = false;
    c->state = Connection::kWriting;
    send(c);
    countRequest();
    long bytes = x.streamStart >= 0 ? c->output->delivered() - x.streamStart : x.bytes;
    logRequest(c, x.status, bytes);
    c->exchange.reset();
    c->request.reset();
}

// A request refused before its route ran (malformed, too large, over the cap): the
// answer, then a lingering close, since the rest of the request was not read.
void Daemon::answerRefused(Connection* c, int status, const char* message) {
    if (!c->output) c->output.reset(new ReplyOutput(c));
    if (c->requestLine.empty() || !c->exchange) c->requestLine = firstLine(c->in, 4096);
    Exchange x{this, c->output.get(), c->exchange ? c->request.get() : nullptr, false, false};
    x.replyError(status, message);
    c->output->flush();
    countRequest();
    logRequest(c, status, x.bytes);
    c->exchange.reset();
    c->request.reset();
    std::string().swap(c->in);  // the memory of a refused head goes with it
    c->closeAfter = true;
    c->lingerAfter = true;
    c->state = Connection::kWriting;
    send(c);
}

void Daemon::logRequest(Connection* c, int status, long bytes) {
    // The guard names the client a trusted proxy forwarded for; otherwise the peer.
    const std::string& who =
        c->exchange && !c->exchange->client.empty() ? c->exchange->client : c->peer;
    AccessLog::Entry e{who.c_str(), c->requestLine, status, bytes, c->referer, c->userAgent};
    access_.add(e);
    c->requestLine.clear();
    c->referer.clear();
    c->userAgent.clear();
}

// Sends what the send buffer holds; when all of it went, the answer is done (sent()).
void Daemon::send(Connection* c) {
    while (c->unsent() > 0) {
        int n = sendSome(c->handle, c->out.data() + c->sent, static_cast<int>(c->unsent()));
        if (n > 0) {
            c->sent += static_cast<size_t>(n);
            c->lastOutput = Clock::now();
            continue;
        }
        if (n == kWouldBlock) {
            watch(c, Poller::kWrite);
            return;
        }
        close(c);
        return;
    }
    c->out.clear();
    c->sent = 0;
    if (c->state == Connection::kWriting) {
        sent(c);
    } else if (c->state == Connection::kWorking) {
        watch(c, 0);
    } else {
        watch(c, Poller::kRead);
    }
}

void Daemon::sent(Connection* c) {
    if (c->closeAfter) {
        if (!c->lingerAfter) {
            close(c);
            return;
        }
        // Closing with unread input would make the system reset the connection, and the
        // client could lose the answer: shut the sending side, read away for a while.
        shutdownSend(c->handle);
        c->state = Connection::kLinger;
        c->lingerUntil =
            Clock::now() + std::chrono::milliseconds(std::min(settings_.readTimeoutMs, kLingerMs));
        watch(c, Poller::kRead);
        return;
    }
    c->state = Connection::kHead;
    c->received = false;
    c->requestStart = c->lastInput = Clock::now();
    if (c->in.empty() && c->in.capacity() > 4096) std::string().swap(c->in);
    watch(c, Poller::kRead);
}

// A worker's answer: moved from the mailbox to the send buffer as the client takes it;
// when the worker is done, the exchange finishes on the loop.
void Daemon::pullMailbox(Connection* c) {
    for (;;) {
        bool done;
        {
            std::lock_guard<std::mutex> lock(c->mailboxMutex);
            if (!c->mailbox.empty() && c->unsent() < Connection::kMailboxLimit) {
                c->out.erase(0, c->sent);
                c->sent = 0;
                c->out.append(c->mailbox);
                std::string().swap(c->mailbox);
                c->mailboxDrained.notify_all();
            }
            done = c->workerDone && c->mailbox.empty();
        }
        if (c->handle == kNoHandle) {
            if (done) c->onWorker = false;  // deleted at the end of the round
            return;
        }
        if (done) {
            c->onWorker = false;
            finish(c);
            return;
        }
        if (c->unsent() == 0) {
            watch(c, 0);
            return;
        }
        send(c);
        if (c->handle == kNoHandle || c->unsent() > 0) return;
    }
}

void Daemon::takePosted() {
    std::vector<Connection*> news;
    {
        std::lock_guard<std::mutex> lock(postMutex_);
        news.swap(posted_);
        for (Connection* c : news)
            c->posted = false;
    }
    for (Connection* c : news) {
        if (c->state != Connection::kWorking) continue;
        pullMailbox(c);
        if (c->handle != kNoHandle && c->state == Connection::kHead &&
            (!c->in.empty() || c->peerClosed)) {
            advance(c);
        }
    }
}

void Daemon::sweep(Clock::time_point now) {
    const auto silence = std::chrono::milliseconds(settings_.readTimeoutMs);
    const auto headTime = std::chrono::milliseconds(settings_.requestDeadlineMs);
    for (size_t i = 0; i < connections_.size(); ++i) {
        Connection* c = connections_[i];
        if (c->handle == kNoHandle) continue;
        switch (c->state) {
            case Connection::kHead:
                if (!c->received) {
                    if (now - c->lastInput >= silence) {
                        close(c);
                    } else if (now - c->lastInput >= kIdleShed) {
                        c->shed();
                    }
                } else if (now - c->requestStart >= headTime || now - c->lastInput >= silence) {
                    answerRefused(c, 400, "malformed, incomplete or over-long request head");
                }
                break;
            case Connection::kBody:
                if (now - c->lastInput >= silence) {
                    answerRefused(c, 413, "request body too large or incomplete");
                }
                break;
            case Connection::kWriting:
            case Connection::kWorking:
                if (c->unsent() > 0 && now - c->lastOutput >= kWriteStall) close(c);
                break;
            case Connection::kLinger:
                if (now >= c->lingerUntil) close(c);
                break;
        }
    }
}

}  // namespace velmorad
