// The network change that waits for its confirmation. POST /network?confirmWithin=S hands
// the capture of the host as it was before the change to begin(); unless confirm() comes
// within S seconds, the capture is restored by the journal's own thread. The capture is
// written to the daemon's home before the change is made, so that a daemon that ends in
// the window (killed, crashed, stopped) puts the host back at its next start (resume()).
// A daemon that stops in the window reverts the change before it ends.
//
// Every apply, restore and reading of the host happens under lock(): the settings objects
// are one process-wide instance and unsynchronised.
#pragma once

#include <velmora/log/Log.h>
#include <velmora/tcpip/TcpIpSnapshot.h>

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace velmorad {

class NetworkJournal {
public:
    static NetworkJournal& instance();
    ~NetworkJournal();

    std::mutex& lock() { return hostLock_; }

    // At start: a capture left by a daemon that ended inside a window is restored and
    // removed. `log` receives what happens here and later.
    void resume(const std::string& home, velmora::Log* log);
    // At stop: a change still waiting is reverted; the thread ends.
    void shutdown();

    // Where the capture of a change that waits is kept.
    std::string capturePath() const;
    // Starts the window for a change just applied, whose capture `before` was saved to
    // capturePath(). Answers the change's id.
    std::string begin(std::unique_ptr<velmora::TcpIpSnapshot> before, int seconds,
                      const std::string& summary);
    // True when `id` names the change that waits; it is kept from then on.
    bool confirm(const std::string& id);
    // Reverts the change that waits (`id` empty: whichever). False when there is none or
    // `id` names another; otherwise `*failures` holds what could not be put back ("" when
    // all was) and `*reverted` its id.
    bool revert(const std::string& id, std::string* reverted, std::string* failures);
    // The change that waits, if any, and its seconds left (rounded up).
    bool pending(std::string* id, long* secondsLeft);

private:
    NetworkJournal() = default;
    // Restores the capture of the change that waits; the caller holds hostLock_ and stateLock_.
    std::string revertNow(const char* why);
    void watch();

    std::mutex hostLock_;
    std::mutex stateLock_;
    std::condition_variable wake_;
    std::thread watcher_;
    bool stopping_ = false;
    std::string home_;
    velmora::Log* log_ = nullptr;
    std::unique_ptr<velmora::TcpIpSnapshot> capture_;
    std::string id_;
    std::string summary_;
    int64_t deadlineMs_ = 0;  // steady clock
};

}  // namespace velmorad
