// WSAPoll: the one readiness call of Windows sockets that works under Wine as on Windows
// and keeps the loop's shape (wait, then read or write what is ready). An I/O completion
// port would scale further on Windows but turns every read and write into an
// asynchronous operation with its own buffer; the daemon serves its many-connection load
// on Linux, so the simpler back end was chosen here. The set is a plain array, scanned by
// the system on each wait. A UDP socket on loopback that sends to itself wakes the wait.
#include <winsock2.h>
#include <ws2tcpip.h>

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "Poller.h"

namespace velmorad {

namespace {

short eventsOf(int interest) {
    short events = 0;
    if ((interest & Poller::kRead) != 0) events |= POLLRDNORM;
    if ((interest & Poller::kWrite) != 0) events |= POLLWRNORM;
    return events;
}

class WsaPoller : public Poller {
public:
    explicit WsaPoller(SOCKET wake) : wake_(wake) {
        WSAPOLLFD entry = {};
        entry.fd = wake_;
        entry.events = POLLRDNORM;
        entries_.push_back(entry);
        tags_.push_back(nullptr);
    }
    ~WsaPoller() override { closesocket(wake_); }

    bool add(uint64_t handle, int interest, void* tag) override {
        WSAPOLLFD entry = {};
        entry.fd = static_cast<SOCKET>(handle);
        entry.events = eventsOf(interest);
        index_[handle] = entries_.size();
        entries_.push_back(entry);
        tags_.push_back(tag);
        return true;
    }
    bool modify(uint64_t handle, int interest, void* tag) override {
        auto it = index_.find(handle);
        if (it == index_.end()) return false;
        entries_[it->second].events = eventsOf(interest);
        tags_[it->second] = tag;
        return true;
    }
    void remove(uint64_t handle) override {
        auto it = index_.find(handle);
        if (it == index_.end()) return;
        size_t at = it->second;
        index_.erase(it);
        size_t last = entries_.size() - 1;
        if (at != last) {
            entries_[at] = entries_[last];
            tags_[at] = tags_[last];
            index_[static_cast<uint64_t>(entries_[at].fd)] = at;
        }
        entries_.pop_back();
        tags_.pop_back();
    }
    int wait(Event* events, int max, int timeoutMs) override {
        int n = WSAPoll(entries_.data(), static_cast<ULONG>(entries_.size()), timeoutMs);
        if (n < 0) return -1;
        int out = 0;
        for (size_t i = 0; i < entries_.size() && n > 0 && out < max; ++i) {
            short r = entries_[i].revents;
            if (r == 0) continue;
            --n;
            if (i == 0) {
                char scratch[64];
                while (recv(wake_, scratch, sizeof scratch, 0) > 0) {
                }
                continue;
            }
            Event& e = events[out++];
            e.tag = tags_[i];
            e.ready = ((r & (POLLRDNORM | POLLHUP)) != 0 ? kRead : 0) |
                      ((r & POLLWRNORM) != 0 ? kWrite : 0);
            e.hangup = (r & (POLLERR | POLLNVAL)) != 0;
        }
        return out;
    }
    void wake() override { send(wake_, "w", 1, 0); }

private:
    SOCKET wake_;
    std::vector<WSAPOLLFD> entries_;
    std::vector<void*> tags_;
    std::unordered_map<uint64_t, size_t> index_;
};

}  // namespace

Poller* Poller::make() {
    SOCKET wake = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    if (wake == INVALID_SOCKET) return nullptr;
    sockaddr_in self = {};
    self.sin_family = AF_INET;
    self.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int length = sizeof self;
    u_long nonBlocking = 1;
    if (bind(wake, reinterpret_cast<sockaddr*>(&self), sizeof self) != 0 ||
        getsockname(wake, reinterpret_cast<sockaddr*>(&self), &length) != 0 ||
        connect(wake, reinterpret_cast<sockaddr*>(&self), sizeof self) != 0 ||
        ioctlsocket(wake, FIONBIO, &nonBlocking) != 0) {
        closesocket(wake);
        return nullptr;
    }
    return new WsaPoller(wake);
}

}  // namespace velmorad
