#include "Throttle.h"

namespace velmorad {

namespace {

const auto kPause = std::chrono::seconds(1);
const auto kForget = std::chrono::minutes(10);
const size_t kMostClients = 4096;  // records kept at most; a flood of addresses costs no more

int secondsUntil(Throttle::Clock::time_point then, Throttle::Clock::time_point now) {
    auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(then - now).count();
    return static_cast<int>((ms + 999) / 1000);
}

}  // namespace

int Throttle::wait(const std::string& client, Clock::time_point now) {
    std::lock_guard<std::mutex> hold(lock_);
    auto it = records_.find(client);
    if (it == records_.end()) return 0;
    Record& r = it->second;
    if (r.lockedUntil > now) return secondsUntil(r.lockedUntil, now);
    if (now - r.last > kForget) {
        records_.erase(it);
        return 0;
    }
    if (r.failures >= kFreeFailures && now - r.last < kPause) {
        return secondsUntil(r.last + kPause, now);
    }
    return 0;
}

int Throttle::failed(const std::string& client, Clock::time_point now) {
    std::lock_guard<std::mutex> hold(lock_);
    if (records_.size() >= kMostClients && records_.find(client) == records_.end()) sweep(now);
    Record& r = records_[client];
    ++r.failures;
    r.last = now;
    if (r.failures < kLockFailures) return r.failures;
    r.lockedUntil = now + std::chrono::seconds(kLockSeconds);
    // After the lock one more failure locks again.
    r.failures = kLockFailures - 1;
    return kLockFailures;
}

void Throttle::succeeded(const std::string& client) {
    std::lock_guard<std::mutex> hold(lock_);
    records_.erase(client);
}

void Throttle::sweep(Clock::time_point now) {
    for (auto it = records_.begin(); it != records_.end();) {
        bool locked = it->second.lockedUntil > now;
        it = !locked && now - it->second.last > kForget ? records_.erase(it) : std::next(it);
    }
    // Still full: the clients that are not locked out go; a locked one keeps its lock.
    for (auto it = records_.begin(); records_.size() >= kMostClients && it != records_.end();) {
        it = it->second.lockedUntil > now ? std::next(it) : records_.erase(it);
    }
}

}  // namespace velmorad
