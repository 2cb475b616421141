// epoll: the kernel keeps the set of watched sockets, so a wait costs the same for 10 000
// idle connections as for ten. Level-triggered, so that a connection whose input was
// not all read is reported again. An eventfd wakes the wait.
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "Poller.h"

namespace velmorad {

namespace {

uint32_t eventsOf(int interest) {
    uint32_t events = 0;
    if ((interest & Poller::kRead) != 0) events |= EPOLLIN;
    if ((interest & Poller::kWrite) != 0) events |= EPOLLOUT;
    return events;
}

class EpollPoller : public Poller {
public:
    EpollPoller(int epoll, int wake) : epoll_(epoll), wake_(wake) {}
    ~EpollPoller() override {
        close(wake_);
        close(epoll_);
    }

    bool add(uint64_t handle, int interest, void* tag) override {
        epoll_event e = {};
        e.events = eventsOf(interest);
        e.data.ptr = tag;
        return epoll_ctl(epoll_, EPOLL_CTL_ADD, static_cast<int>(handle), &e) == 0;
    }
    bool modify(uint64_t handle, int interest, void* tag) override {
        epoll_event e = {};
        e.events = eventsOf(interest);
        e.data.ptr = tag;
        return epoll_ctl(epoll_, EPOLL_CTL_MOD, static_cast<int>(handle), &e) == 0;
    }
    // Closing the descriptor (its only copy) takes it out of the set.
    void remove(uint64_t) override {}
    int wait(Event* events, int max, int timeoutMs) override {
        enum { kBatch = 256 };
        epoll_event got[kBatch];
        int n = epoll_wait(epoll_, got, max < kBatch ? max : kBatch, timeoutMs);
        if (n < 0) return errno == EINTR ? 0 : -1;
        int out = 0;
        for (int i = 0; i < n; ++i) {
            if (got[i].data.ptr == this) {
                uint64_t count;
                if (read(wake_, &count, sizeof count) < 0) {
                    // Already drained by an earlier event of this wait: nothing to do.
                }
                continue;
            }
            Event& e = events[out++];
            e.tag = got[i].data.ptr;
            e.ready = ((got[i].events & EPOLLIN) != 0 ? kRead : 0) |
                      ((got[i].events & EPOLLOUT) != 0 ? kWrite : 0);
            e.hangup = (got[i].events & (EPOLLHUP | EPOLLERR)) != 0;
        }
        return out;
    }
    void wake() override {
        const uint64_t one = 1;
        // A full counter already means "wake": the failure needs no handling.
        if (write(wake_, &one, sizeof one) < 0) return;
    }

    bool watchWake() {
        epoll_event e = {};
        e.events = EPOLLIN;
        e.data.ptr = this;
        return epoll_ctl(epoll_, EPOLL_CTL_ADD, wake_, &e) == 0;
    }

private:
    int epoll_;
    int wake_;
};

}  // namespace

Poller* Poller::make() {
    int epoll = epoll_create1(EPOLL_CLOEXEC);
    if (epoll < 0) return nullptr;
    int wake = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (wake < 0) {
        close(epoll);
        return nullptr;
    }
    EpollPoller* poller = new EpollPoller(epoll, wake);
    if (!poller->watchWake()) {
        delete poller;
        return nullptr;
    }
    return poller;
}

}  // namespace velmorad
