// Text from outside (request bytes, posted values, report texts that quote them) made safe
// for a log line: every control character, DEL and the backslash become "\xNN", so that a
// CR or LF can never start a line of its own and an escaped text reads back unambiguously.
// Bytes from 0x80 up (UTF-8) stay as they are.
//
//   log->warning(("network: " + logSafe(report)).c_str());
#pragma once

#include <string>

namespace velmorad {

std::string logSafe(const std::string& text);
// The same for a NUL-terminated text; null gives "-".
std::string logSafe(const char* text);

}  // namespace velmorad
