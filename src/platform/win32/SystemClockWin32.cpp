#include "platform/SystemClock.h"

namespace velmora {
namespace clock {

bool localTime(std::time_t t, std::tm* out) {
    return out != nullptr && localtime_s(out, &t) == 0;
}

}  // namespace clock
}  // namespace velmora
