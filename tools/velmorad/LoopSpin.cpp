#include "LoopSpin.h"

#include "HostServices.h"

namespace velmorad {

void LoopSpin::sample() {
    uint64_t idle = 0, total = 0;
    if (micros_ <= 0 || !processorTimes(&idle, &total)) {
        spinning_ = false;
        return;
    }
    // Counters that went backwards (or a first sample) decide nothing yet.
    spinning_ =
        total_ != 0 && total > total_ && idle >= idle_ && (idle - idle_) * 4 >= total - total_;
    idle_ = idle;
    total_ = total;
}

}  // namespace velmorad
