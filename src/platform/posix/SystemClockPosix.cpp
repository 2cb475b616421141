#include "platform/SystemClock.h"

namespace velmora {
namespace clock {

bool localTime(std::time_t t, std::tm* out) {
    return out != nullptr && localtime_r(&t, out) != nullptr;
}

}  // namespace clock
}  // namespace velmora
