// How long the event loop keeps looking for events before it goes to sleep.
//
// A loop that sleeps between requests is woken by the kernel for each one, and on a virtual
// machine whose idle cores halt that wake-up costs tens of microseconds (the host has to
// run the core again): under a moderate load every request waits for it. Looking for events
// for a little while before sleeping answers them at once. Spinning only pays while cores
// would otherwise idle: on a machine that runs full it takes time from the clients and from
// other work. So the loop spins only while the machine's cores were at least a quarter idle
// over the last sample (taken every sweep, a tenth of a second); the time spent spinning
// counts as busy, which turns spinning off again as soon as the machine fills up.
//
//   velmorad::LoopSpin spin(settings.pollSpinMicros);
//   spin.sample();                       // every sweep
//   if (spin.micros() > 0) ...           // look for events that long before sleeping
#pragma once

#include <cstdint>

namespace velmorad {

class LoopSpin {
public:
    explicit LoopSpin(int micros) : micros_(micros) {}

    // Reads the machine's processor times and decides for the time until the next sample.
    void sample();
    // Microseconds to look for events before sleeping; 0: sleep at once.
    int micros() const { return spinning_ ? micros_ : 0; }

private:
    int micros_;
    bool spinning_ = false;
    uint64_t idle_ = 0, total_ = 0;  // at the last sample; total_ 0: none yet
};

}  // namespace velmorad
