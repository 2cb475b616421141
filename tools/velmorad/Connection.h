// One client connection as the event loop keeps it: what was received and not yet used,
// the request being answered, what is still to send, its deadlines, and the mailbox
// through which a worker thread hands over the answer of a request whose route blocks.
// Only the loop's thread touches it, except for the mailbox (under its lock) while a
// worker holds the request.
#pragma once

#include <velmora/http/HttpRequest.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "Exchange.h"
#include "ReplyOutput.h"

namespace velmorad {

class Daemon;

struct Connection {
    using Clock = std::chrono::steady_clock;
    enum State {
        kHead,     // waiting for (the rest of) a request head
        kBody,     // waiting for the rest of a request body
        kWorking,  // a worker answers the request
        kWriting,  // sending an answer
        kLinger,   // answer sent after a refused request: reading away what the client sends
    };

    // What a worker may have handed over and the loop not yet sent before the worker
    // waits: a client that reads slowly holds this much of a streamed answer, not all.
    static const size_t kMailboxLimit = 256 * 1024;

    Connection(Daemon* daemon, uint64_t handle, const char* peer);

    // Where the output's bytes go: the send buffer on the loop's thread, the mailbox on a
    // worker's. False when the connection was cut or the client did not read for too long.
    bool take(const char* data, int count);
    size_t unsent() const { return out.size() - sent; }
    // Gives back the memory that only a request in progress needs (the reply output and
    // its buffer, the send and receive buffers); the next request makes it again. For a
    // connection waiting for its next request, nothing received or unsent.
    void shed();

    Daemon* daemon;
    uint64_t handle;
    std::string peer;
    State state = kHead;
    int interest = -1;    // what the poller watches now
    size_t index = 0;     // place in the daemon's list of connections
    bool counted = true;  // counts against maxConnections (false while it waits for a place)

    std::string in;         // received, not yet used
    size_t scanned = 0;     // bytes of `in` searched for line ends
    int lineEnds = 0;       // line ends in the head so far
    bool received = false;  // a byte of the current request arrived
    bool peerClosed = false;
    Clock::time_point requestStart;
    Clock::time_point lastInput;
    long bodyLength = 0;
    int served = 0;

    std::unique_ptr<velmora::HttpRequest> request;
    std::unique_ptr<ReplyOutput> output;
    std::unique_ptr<Exchange> exchange;
    std::string requestLine, referer, userAgent;  // for the access log
    bool closeAfter = false;
    bool lingerAfter = false;  // close with a lingering read (the request was not all read)
    Clock::time_point lingerUntil;

    std::string out;  // to send, from `sent` on
    size_t sent = 0;
    Clock::time_point lastOutput;

    bool onWorker = false;  // changed by the loop only, while no worker runs for it
    bool posted = false;    // in the daemon's list of connections with news (its lock)
    std::mutex mailboxMutex;
    std::condition_variable mailboxDrained;
    std::string mailbox;
    bool workerDone = false;
    bool cut = false;  // the client is gone or the stop cut the connection
};

}  // namespace velmorad
