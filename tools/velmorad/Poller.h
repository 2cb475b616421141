// Readiness of many sockets to one thread: the daemon's event loop asks which of its
// connections can be read or written and sleeps in one system call until one can, a
// time-out passes or another thread wakes it. One implementation per system: epoll on
// Linux (linux/), WSAPoll on Windows (win32/).
//
//   std::unique_ptr<velmorad::Poller> poller(velmorad::Poller::make());
//   poller->add(handle, velmorad::Poller::kRead, connection);
//   velmorad::Poller::Event events[64];
//   int n = poller->wait(events, 64, 100);  // each event carries the tag given to add
#pragma once

#include <cstdint>

namespace velmorad {

class Poller {
public:
    enum { kRead = 1, kWrite = 2 };
    struct Event {
        void* tag;
        int ready;    // kRead and/or kWrite
        bool hangup;  // the peer closed or the socket failed
    };

    // A poller with its wake-up channel, or null when the system refuses one.
    static Poller* make();
    virtual ~Poller() = default;

    // Watches `handle` for `interest` (kRead, kWrite, both or none: a handle watched for
    // nothing still reports a hang-up where the system can).
    virtual bool add(uint64_t handle, int interest, void* tag) = 0;
    virtual bool modify(uint64_t handle, int interest, void* tag) = 0;
    // Stops watching a handle that the caller closes right after (the daemon never keeps
    // a handle it no longer watches): epoll drops a closed descriptor by itself, so there
    // this costs no system call.
    virtual void remove(uint64_t handle) = 0;
    // Up to `max` events, waiting up to `timeoutMs` for the first; 0 when the time passed
    // or wake() was called. Negative on failure.
    virtual int wait(Event* events, int max, int timeoutMs) = 0;
    // Ends a wait at once; safe from any thread and from a signal handler.
    virtual void wake() = 0;
};

}  // namespace velmorad
