#include "Connection.h"

#include <chrono>

#include "Daemon.h"

namespace velmorad {

namespace {

// A worker gives up on a client that takes nothing for this long (the library's socket
// output allows as long).
const std::chrono::seconds kStall(100);

}  // namespace

Connection::Connection(Daemon* d, uint64_t h, const char* p) : daemon(d), handle(h), peer(p) {
    requestStart = lastInput = lastOutput = Clock::now();
}

void Connection::shed() {
    output.reset();
    std::string().swap(out);
    std::string().swap(in);
    sent = 0;
}

bool Connection::take(const char* data, int count) {
    if (!onWorker) {
        out.append(data, static_cast<size_t>(count));
        return true;
    }
    std::unique_lock<std::mutex> lock(mailboxMutex);
    const auto until = Clock::now() + kStall;
    while (!cut && mailbox.size() >= kMailboxLimit) {
        if (mailboxDrained.wait_until(lock, until) == std::cv_status::timeout) return false;
    }
    if (cut) return false;
    mailbox.append(data, static_cast<size_t>(count));
    lock.unlock();
    daemon->post(this);
    return true;
}

ReplyOutput::ReplyOutput(Connection* connection)
    : velmora::SocketOutput(nullptr), connection_(connection) {}

bool ReplyOutput::deliver(const char* data, int count) {
    if (!connection_->take(data, count)) return false;
    delivered_ += count;
    return true;
}

}  // namespace velmorad
