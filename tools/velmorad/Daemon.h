// The daemon: one event loop thread owns the listener and every connection. It reads
// request heads and bodies without blocking, answers the routes that are quick on the
// spot, hands the routes that block to a small worker pool, and sends every answer itself.
// A connection costs memory, not a thread, so connections are limited by maxConnections
// (and the descriptor limit) alone. Deadlines per connection: the head of a request, the
// silence of an idle keep-alive connection, a client that does not read its answer.
//
// A stop (SIGTERM) closes the listener at once, lets the requests in flight finish for up
// to stopGraceMs, then cuts what is left, waits for the workers and returns.
#pragma once

#include <velmora/log/FilteredLogBundle.h>
#include <velmora/log/Log.h>
#include <velmora/net/ServerSocket.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "AccessLog.h"
#include "LoopSpin.h"
#include "Poller.h"
#include "Settings.h"
#include "WorkerPool.h"

namespace velmorad {

struct Connection;

class Daemon {
public:
    using Clock = std::chrono::steady_clock;

    Daemon(const Settings& settings, velmora::Log* log, velmora::FilteredLogBundle* levels);
    ~Daemon();

    // Binds the listener and makes the loop's poller; false (reported to the log) when
    // either cannot be had.
    bool listen();
    int getPort() const { return port_; }
    // Serves until stop() is called, then stops as described above.
    void run();
    // Safe from a signal handler: sets a flag and wakes the loop.
    void stop();
    // Connections still open when the stop's grace ran out (valid after run()).
    int connectionsCut() const { return cut_; }

    const Settings& settings() const { return settings_; }
    velmora::FilteredLogBundle* levels() const { return levels_; }
    velmora::Log* log() const { return log_; }
    int64_t uptimeSeconds() const { return static_cast<int64_t>(std::time(nullptr) - started_); }
    long requestsServed() const { return served_.load(); }
    int connectionsOpen() const { return open_.load(); }
    void countRequest() { ++served_; }

    // From a worker: the connection has news in its mailbox (or its worker is done).
    void post(Connection* c);
    // From a worker, as the last thing it does with the connection: its answer is complete.
    void workerDone(Connection* c);

private:
    void acceptAll();
    void admitWaiting(Clock::time_point now);
    void refuse(uint64_t handle);
    void onEvent(Connection* c, int ready, bool hangup);
    void receive(Connection* c);
    void advance(Connection* c);
    bool readHead(Connection* c);
    void startRequest(Connection* c, int headLength);
    void dispatch(Connection* c);
    void finish(Connection* c);
    void answerRefused(Connection* c, int status, const char* message);
    void send(Connection* c);
    void sent(Connection* c);
    void pullMailbox(Connection* c);
    void takePosted();
    void watch(Connection* c, int interest);
    void close(Connection* c);
    void destroy(Connection* c);
    void sweep(Clock::time_point now);
    int lookBriefly(Poller::Event* events, int max, int micros);
    void beginStop();
    void logRequest(Connection* c, int status, long bytes);

    Settings settings_;
    velmora::Log* log_;
    velmora::FilteredLogBundle* levels_;
    AccessLog access_;
    std::unique_ptr<velmora::ServerSocket> server_;
    std::unique_ptr<Poller> poller_;
    std::unique_ptr<WorkerPool> workers_;
    LoopSpin spin_;
    uint64_t listenHandle_ = ~static_cast<uint64_t>(0);
    int port_ = -1;
    std::time_t started_;
    std::atomic<bool> stopping_{false};
    bool stopBegun_ = false;
    bool dataFirst_ = false;  // the listener hands over connections with their first bytes
    Clock::time_point stopDeadline_;
    std::atomic<int> open_{0};
    std::atomic<long> served_{0};
    int cut_ = 0;
    std::vector<Connection*> connections_;
    std::vector<Connection*> closed_;  // closed this round or waiting for their worker
    std::deque<Connection*> waiting_;  // accepted over the cap, waiting for a place

    std::mutex postMutex_;
    std::vector<Connection*> posted_;
};

}  // namespace velmorad
