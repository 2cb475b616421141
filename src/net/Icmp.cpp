#include <velmora/net/Icmp.h>

#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <new>
#include <vector>

#include "net/NetReport.h"
#include "net/NetSystem.h"

namespace velmora {

using netreport::Report;
using Clock = std::chrono::steady_clock;

namespace {

Icmp* instance = nullptr;

const int kRequestSize = 16;
const int kReplyRoom = 512;
// The longest single wait for the socket: a receiver looks at the clock (and lets another
// ping take over) at least this often.
const int kReceiveSliceMs = 200;

// "ping: <step> <host> failed - <socket error name>", reported as text only.
void reportSocketFailure(ErrorHandler* handler, const char* step, const char* host) {
    char* name = netreport::socketErrorName();
    char text[256];
    std::snprintf(text, sizeof text, "ping: %s %s failed - %s\n", step, host,
                  name != nullptr ? name : "");
    std::free(name);
    netreport::error(handler, Report(nullptr, text));
}

void putNetwork16(unsigned char* at, unsigned value) {
    at[0] = static_cast<unsigned char>((value >> 8) & 0xff);
    at[1] = static_cast<unsigned char>(value & 0xff);
}

unsigned getNetwork16(const unsigned char* at) {
    return (static_cast<unsigned>(at[0]) << 8) | at[1];
}

// The wait in milliseconds for a timeout in seconds, clamped before it is multiplied, so
// that a huge one waits as long as a wait can instead of overflowing.
int waitMilliseconds(int timeout) {
    if (timeout <= 0) return 0;
    if (timeout > INT_MAX / 1000) return INT_MAX / 1000 * 1000;
    return timeout * 1000;
}

}  // namespace

// One raw socket for the process. A ping registers a waiter, sends, and then either
// receives on the socket itself (one ping at a time does, handing every packet to the
// waiter it belongs to) or sleeps until its waiter is answered or its time is up.
class Icmp::Endpoint {
public:
    struct Waiter {
        unsigned char address[4];
        unsigned sequence;
        Clock::time_point sent;
        int result = -1;  // milliseconds once answered
        int errorType = -1;
        int errorCode = 0;
        bool done = false;
    };

    ~Endpoint() {
        if (handle_ != netsys::kInvalidHandle) netsys::closeHandle(handle_);
    }

    std::mutex mutex;
    std::condition_variable changed;
    netsys::Handle handle_ = netsys::kInvalidHandle;
    std::vector<Waiter*> waiters;
    bool receiving = false;

    // Hands one received packet to the waiter it answers; called with the lock held.
    void dispatch(const unsigned char* packet, int length, unsigned identifier) {
        if (length < 1) return;
        const int header = (packet[0] & 0x0f) * 4;
        if (header < 20 || header + 8 > length) return;
        const unsigned char* icmp = packet + header;
        const unsigned char* source = packet + 12;
        if (icmp[0] == 0 && icmp[1] == 0) {  // echo reply
            if (getNetwork16(icmp + 4) != identifier) return;
            Waiter* w = find(getNetwork16(icmp + 6), source);
            if (w == nullptr) return;
            w->result = static_cast<int>(
                std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - w->sent)
                    .count());
            w->done = true;
            return;
        }
        // An error carries the start of the packet it is about: its IP header, then the
        // first 8 bytes of our echo request.
        if (icmp[0] != 3 && icmp[0] != 11 && icmp[0] != 12) return;
        const unsigned char* inner = icmp + 8;
        if (header + 8 + 20 > length) return;
        const int innerHeader = (inner[0] & 0x0f) * 4;
        if (innerHeader < 20 || header + 8 + innerHeader + 8 > length) return;
        const unsigned char* request = inner + innerHeader;
        if (request[0] != 8 || getNetwork16(request + 4) != identifier) return;
        Waiter* w = find(getNetwork16(request + 6), inner + 16);
        if (w == nullptr) return;
        w->errorType = icmp[0];
        w->errorCode = icmp[1];
        w->done = true;
    }

private:
    Waiter* find(unsigned sequence, const unsigned char* address) {
        for (Waiter* w : waiters) {
            if (!w->done && w->sequence == sequence && std::memcmp(w->address, address, 4) == 0)
                return w;
        }
        return nullptr;
    }
};

Icmp::Icmp() : endpoint_(new Endpoint()) {}

Icmp::~Icmp() {
    delete endpoint_;
}

Icmp* Icmp::getInstance(ErrorHandler* handler) {
    if (instance != nullptr) return instance;
    if (!netsys::startSocketLibrary()) {
        netreport::error(handler,
                         Report("icmp.winsockStartupError", "icmp: Winsock startup failed.\n"));
        return nullptr;
    }
    instance = new (std::nothrow) Icmp();
    return instance;
}

void Icmp::unload() {
    delete instance;
    // The pointer is cleared too, so that a later getInstance makes a new instance rather
    // than handing out a deleted one.
    instance = nullptr;
}

unsigned short Icmp::icmp_checksum(unsigned short* data, int length) {
    uint32_t sum = 0;
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(data);
    int i = 0;
    for (; i + 1 < length; i += 2) {
        uint16_t word;
        std::memcpy(&word, bytes + i, 2);
        sum += word;
    }
    if (i < length) sum += bytes[i];  // a trailing byte counts as a word of its own value
    sum = (sum >> 16) + (sum & 0xffff);
    sum += sum >> 16;
    return static_cast<unsigned short>(~sum & 0xffff);
}

int Icmp::ping(ErrorHandler* handler, const char* host, int timeout) {
    Endpoint::Waiter me;
    if (host == nullptr || (!netsys::parseIpv4Literal(host, me.address) &&
                            !netsys::lookupIpv4Name(host, me.address))) {
        netreport::error(handler, Report("platNet.ping.invalidAddress", "ping: invalid address\n")
                                      .arg(host != nullptr ? host : ""));
        return -1;
    }
    if (timeout < 0) {
        // No wait can take a negative time: reported as the failed wait it is, not as a
        // time-out of a request that was never sent.
        netsys::setLastSocketError(netsys::invalidArgumentCode());
        reportSocketFailure(handler, "select", host);
        return -1;
    }
    const unsigned identifier = static_cast<unsigned>(netsys::processId()) & 0xffff;
    Endpoint& e = *endpoint_;
    std::unique_lock<std::mutex> lock(e.mutex);
    if (e.handle_ == netsys::kInvalidHandle) e.handle_ = netsys::openRawIcmp();
    if (e.handle_ == netsys::kInvalidHandle) {
        lock.unlock();
        netreport::error(handler,
                         Report("platNet.ping.socketFailed", "ping: socketFailed\n").arg(host));
        return -1;
    }
    const netsys::Handle handle = e.handle_;

    // type 8, code 0, checksum, identifier, sequence, then the send time in host order.
    unsigned char request[kRequestSize] = {8, 0};
    me.sequence = static_cast<unsigned>(sequence_) & 0xffff;
    ++sequence_;
    putNetwork16(request + 4, identifier);
    putNetwork16(request + 6, me.sequence);
    const int64_t sentAt = static_cast<int64_t>(std::time(nullptr));
    std::memcpy(request + 8, &sentAt, 8);
    unsigned short words[kRequestSize / 2];
    std::memcpy(words, request, kRequestSize);
    const unsigned short checksum = icmp_checksum(words, kRequestSize);
    std::memcpy(request + 2, &checksum, 2);  // already in the order the words were summed

    // Registered before the send, so that no receiver can pass over the answer.
    e.waiters.push_back(&me);
    me.sent = Clock::now();
    const Clock::time_point deadline =
        me.sent + std::chrono::milliseconds(waitMilliseconds(timeout));
    lock.unlock();
    bool sent = netsys::sendToIpv4(handle, me.address, request, kRequestSize);
    lock.lock();
    bool receiveFailed = false;
    if (!sent) {
        lock.unlock();
        reportSocketFailure(handler, "send to", host);
        lock.lock();
    }
    while (sent && !me.done) {
        const Clock::time_point now = Clock::now();
        if (now >= deadline) break;
        if (e.receiving) {
            e.changed.wait_until(lock, deadline);
            continue;
        }
        e.receiving = true;
        lock.unlock();
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now).count();
        int wait = left < kReceiveSliceMs ? static_cast<int>(left) : kReceiveSliceMs;
        unsigned char reply[kReplyRoom];
        int got = 0;
        const int ready = netsys::waitReadable(handle, wait);
        if (ready > 0) got = netsys::receive(handle, reinterpret_cast<char*>(reply), kReplyRoom);
        lock.lock();
        e.receiving = false;
        if (ready < 0 || got < 0) {
            lock.unlock();
            reportSocketFailure(handler, ready < 0 ? "select" : "receive", host);
            lock.lock();
            receiveFailed = true;
        } else if (got > 0) {
            e.dispatch(reply, got, identifier);
        }
        e.changed.notify_all();
        if (receiveFailed) break;
    }
    for (size_t i = 0; i < e.waiters.size(); ++i) {
        if (e.waiters[i] == &me) {
            e.waiters.erase(e.waiters.begin() + static_cast<long>(i));
            break;
        }
    }
    lock.unlock();
    if (!sent || receiveFailed) return -1;
    if (me.done && me.errorType < 0) return me.result;
    if (me.done) {
        char text[128];
        if (me.errorType == 3) {
            std::snprintf(text, sizeof text, "ping: destination unreachable (code %d)\n",
                          me.errorCode);
            netreport::error(handler, Report("platNet.ping.unreachable", text).arg(host));
        } else {
            std::snprintf(text, sizeof text, "ping: ICMP error type %d code %d\n", me.errorType,
                          me.errorCode);
            netreport::error(handler, Report("platNet.ping.icmpError", text).arg(host));
        }
        return -1;
    }
    netreport::error(handler,
                     Report("platNet.ping.timeout", "ping: request timed out\n").arg(host));
    return -1;
}

int Icmp::ping6(ErrorHandler* handler, const char* host, int /*timeout*/) {
    netreport::error(handler, Report("platNet.ping6.unsupported", "ping6: ipv6 is not supported\n")
                                  .arg(host != nullptr ? host : ""));
    return -1;
}

}  // namespace velmora
