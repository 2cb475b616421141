#include "NetworkJournal.h"

#include <velmora/files/FileUtil.h>
#include <velmora/tcpip/TcpIpHostSettings.h>

#include <chrono>
#include <cstdio>
#include <random>

#include "Reports.h"

namespace velmorad {

namespace {

int64_t nowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

std::string newId() {
    std::random_device random;
    char text[17];
    std::snprintf(text, sizeof text, "%08x%08x", static_cast<unsigned>(random()),
                  static_cast<unsigned>(random()));
    return text;
}

}  // namespace

NetworkJournal& NetworkJournal::instance() {
    static NetworkJournal journal;
    return journal;
}

NetworkJournal::~NetworkJournal() {
    log_ = nullptr;  // the daemon's log may be gone by now
    shutdown();
}

std::string NetworkJournal::capturePath() const {
    return home_ + "/lib/network-pending.capture";
}

void NetworkJournal::resume(const std::string& home, velmora::Log* log) {
    std::lock_guard<std::mutex> host(hostLock_);
    std::lock_guard<std::mutex> state(stateLock_);
    home_ = home;
    log_ = log;
    stopping_ = false;
    // A daemon whose settings live elsewhere (--config) may have no lib folder yet.
    if (!velmora::FileUtil::isDirectory((home_ + "/lib").c_str()))
        velmora::FileUtil::createDirectory((home_ + "/lib").c_str());
    std::FILE* f = std::fopen(capturePath().c_str(), "rb");
    if (f == nullptr) return;
    std::fclose(f);
    Reports reports;
    velmora::TcpIpHostSettings* settings = velmora::TcpIpHostSettings::getInstance(&reports);
    capture_.reset(velmora::TcpIpSnapshot::load(settings, capturePath().c_str(), &reports));
    if (capture_ == nullptr) {
        if (log_ != nullptr)
            log_->warning(("network: the capture of an unconfirmed change could not be read: " +
                           reports.joined())
                              .c_str());
        return;  // kept for a look by hand
    }
    id_ = "(before restart)";
    revertNow("the daemon ended before the change was confirmed");
}

void NetworkJournal::shutdown() {
    {
        std::lock_guard<std::mutex> host(hostLock_);
        std::lock_guard<std::mutex> state(stateLock_);
        if (capture_ != nullptr) revertNow("the daemon stopped before the change was confirmed");
        stopping_ = true;
    }
    wake_.notify_all();
    if (watcher_.joinable()) watcher_.join();
}

std::string NetworkJournal::begin(std::unique_ptr<velmora::TcpIpSnapshot> before, int seconds,
                                  const std::string& summary) {
    std::string id = newId();
    {
        std::lock_guard<std::mutex> state(stateLock_);
        capture_ = std::move(before);
        id_ = id;
        summary_ = summary;
        deadlineMs_ = nowMs() + static_cast<int64_t>(seconds) * 1000;
        stopping_ = false;
        if (!watcher_.joinable()) watcher_ = std::thread([this] { watch(); });
    }
    wake_.notify_all();
    return id;
}

bool NetworkJournal::confirm(const std::string& id) {
    std::lock_guard<std::mutex> state(stateLock_);
    if (capture_ == nullptr || id.empty() || id != id_) return false;
    capture_.reset();
    std::remove(capturePath().c_str());
    if (log_ != nullptr)
        log_->message(("network: change " + id + " confirmed: " + summary_).c_str());
    wake_.notify_all();
    return true;
}

bool NetworkJournal::revert(const std::string& id, std::string* reverted, std::string* failures) {
    std::lock_guard<std::mutex> host(hostLock_);
    std::lock_guard<std::mutex> state(stateLock_);
    if (capture_ == nullptr || (!id.empty() && id != id_)) return false;
    *reverted = id_;
    *failures = revertNow("asked to revert");
    return true;
}

bool NetworkJournal::pending(std::string* id, long* secondsLeft) {
    std::lock_guard<std::mutex> state(stateLock_);
    if (capture_ == nullptr) return false;
    *id = id_;
    int64_t left = deadlineMs_ - nowMs();
    *secondsLeft = left <= 0 ? 0 : static_cast<long>((left + 999) / 1000);
    return true;
}

std::string NetworkJournal::revertNow(const char* why) {
    Reports reports;
    int result = capture_->restore(&reports);
    std::string failures = result == 0 ? "" : reports.joined();
    if (result == 0) std::remove(capturePath().c_str());
    if (log_ != nullptr) {
        std::string line = "network: change " + id_ + " reverted (" + why + ")";
        if (!summary_.empty()) line += ", undoing: " + summary_;
        if (result != 0) {
            line += "; not all could be put back: " + failures;
            log_->warning(line.c_str());
        } else {
            log_->message(line.c_str());
        }
    }
    capture_.reset();
    id_.clear();
    summary_.clear();
    return failures;
}

// Waits for the deadline of the change that waits; confirm, revert and stop wake it.
void NetworkJournal::watch() {
    std::unique_lock<std::mutex> state(stateLock_);
    while (!stopping_) {
        if (capture_ == nullptr) {
            wake_.wait(state);
            continue;
        }
        int64_t left = deadlineMs_ - nowMs();
        if (left > 0) {
            wake_.wait_for(state, std::chrono::milliseconds(left));
            continue;
        }
        // The host lock comes first everywhere: take it without holding the state.
        state.unlock();
        std::lock_guard<std::mutex> host(hostLock_);
        state.lock();
        if (capture_ != nullptr && deadlineMs_ <= nowMs()) revertNow("not confirmed in time");
    }
}

}  // namespace velmorad
