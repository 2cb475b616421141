// The write filter exists only on Windows Embedded: loading always fails here, so the
// other services are never reached through EwfUtil.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <cwchar>

#include "files/EwfSystem.h"

namespace velmora {
namespace ewfsys {

bool load(ewf::Functions* table) {
    *table = ewf::Functions();
    table->loadFailed = true;
    return false;
}

void unload() {}

unsigned long lastError() {
    return static_cast<unsigned long>(errno);
}

void freeConfig(ewf::EWF_VOLUME_CONFIG* config) {
    std::free(config);
}

TimeResult localTime(const ewf::FILETIME& time, LocalTime* out) {
    // 100 ns steps since 1601 to seconds since 1970.
    const uint64_t ticks = (static_cast<uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
    const std::time_t seconds = static_cast<std::time_t>(ticks / 10000000ULL) - 11644473600LL;
    std::tm tm = {};
    if (localtime_r(&seconds, &tm) == nullptr) return TimeResult::localFailed;
    *out = {tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec};
    return TimeResult::ok;
}

void writeWide(const std::wstring& text) {
    std::fputws(text.c_str(), stdout);
    std::fflush(stdout);
}

}  // namespace ewfsys
}  // namespace velmora
