// Failed token attempts counted by client address, so that guessing the token is slow:
// the first few failures are free; after them each further attempt must wait a second
// after the last failure (earlier ones are refused, not counted); after more failures the
// client is refused for a minute. A client silent for ten minutes is forgotten.
#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <unordered_map>

namespace velmorad {

class Throttle {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr int kFreeFailures = 5;
    static constexpr int kLockFailures = 10;
    static constexpr int kLockSeconds = 60;

    // 0 when `client` may try a token now, else the seconds it must wait first.
    int wait(const std::string& client, Clock::time_point now);
    // Counts a failed attempt and answers the count; kLockFailures when this one locked the
    // client out (once per lock: the lock's own count restarts below it).
    int failed(const std::string& client, Clock::time_point now);
    void succeeded(const std::string& client);

private:
    struct Record {
        int failures = 0;
        Clock::time_point last;
        Clock::time_point lockedUntil;
    };
    void sweep(Clock::time_point now);

    std::mutex lock_;
    std::unordered_map<std::string, Record> records_;
};

}  // namespace velmorad
