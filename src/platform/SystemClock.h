// Internal: local calendar time, thread-safe, one implementation per operating system.
#pragma once

#include <ctime>

namespace velmora {
namespace clock {

// Fills `out` with the local time of `t`; false when the time cannot be converted.
bool localTime(std::time_t t, std::tm* out);

}  // namespace clock
}  // namespace velmora
