// Internal: what the write-filter control needs from the operating system, one
// implementation per system (posix/, win32/).
#pragma once

#include <string>

#include "files/EwfApi.h"

namespace velmora {
namespace ewfsys {

// Loads "ewfapi.dll" and fills every function of the table by name; false (with the table
// left empty and loadFailed set) when the library or one of its functions is missing.
bool load(ewf::Functions* table);
// Releases the library loaded by load.
void unload();

// The calling thread's last system error (GetLastError).
unsigned long lastError();
// Releases a configuration that the filter handed out (LocalFree).
void freeConfig(ewf::EWF_VOLUME_CONFIG* config);

// Local calendar time of a level's end.
struct LocalTime {
    int year, month, day, hour, minute, second;
};
enum class TimeResult { ok, localFailed, calendarFailed };
TimeResult localTime(const ewf::FILETIME& time, LocalTime* out);

// Writes wide text to standard output.
void writeWide(const std::wstring& text);

}  // namespace ewfsys
}  // namespace velmora
