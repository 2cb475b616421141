// The daemon: a listener and a pool of connection threads (one connection per thread at a
// time, at most the connection cap), requests read with a deadline, answers from the
// routes, keep-alive while both sides allow it.
#pragma once

#include <velmora/log/FilteredLogBundle.h>
#include <velmora/log/Log.h>
#include <velmora/net/ServerSocket.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Settings.h"

namespace velmora {
class Socket;
}

namespace velmorad {

class DeadlineInput;

class Daemon {
public:
    Daemon(const Settings& settings, velmora::Log* log, velmora::FilteredLogBundle* levels);
    ~Daemon();

    // Binds the listener; false (reported to the log) when the address cannot be had.
    bool listen();
    int getPort() const { return port_; }
    // Accepts until stop() is called, then waits for open connections to finish.
    void run();
    // Safe from a signal handler: sets a flag and interrupts the listener.
    void stop();

    const Settings& settings() const { return settings_; }
    velmora::FilteredLogBundle* levels() const { return levels_; }
    velmora::Log* log() const { return log_; }
    velmora::Log* accessLog() const { return access_; }
    int64_t uptimeSeconds() const { return static_cast<int64_t>(std::time(nullptr) - started_); }
    long requestsServed() const { return served_.load(); }
    int connectionsOpen() const { return open_.load(); }
    void countRequest() { ++served_; }

private:
    bool placeFree();                    // false: over the cap (after a short wait for a place)
    void hand(velmora::Socket* socket);  // to an idle connection thread, or a new one
    void work();                         // a connection thread: serves queued connections
    void serve(velmora::Socket* socket);
    void refuse(velmora::Socket* socket);
    void lingeringClose(velmora::Socket* socket, DeadlineInput& in);

    Settings settings_;
    velmora::Log* log_;
    velmora::FilteredLogBundle* levels_;
    velmora::Log* access_;
    std::unique_ptr<velmora::ServerSocket> server_;
    uint64_t listenHandle_ = 0;
    int port_ = -1;
    std::time_t started_;
    std::atomic<bool> stopping_{false};
    std::atomic<int> open_{0};
    std::atomic<long> served_{0};

    // Connection threads are started as the load needs them and then kept: starting a
    // thread for every connection cost more than serving its request.
    std::mutex poolMutex_;
    std::condition_variable poolWake_;
    std::deque<velmora::Socket*> queue_;
    std::vector<std::thread> workers_;
    size_t idle_ = 0;       // threads waiting for a connection
    size_t returning_ = 0;  // threads closing a connection, about to take the next
    bool draining_ = false;
    std::condition_variable placeFreed_;
    bool listenerWaiting_ = false;
};

}  // namespace velmorad
