// Internal: the registry and version services that RegUtil needs, one implementation per
// operating system (posix/, win32/). Statuses are the registry's own numbers.
#pragma once

#include <velmora/platform/RegUtil.h>

#include <cstddef>
#include <string>

namespace velmora {
namespace regsys {

const long kSuccess = 0;
const long kNotFound = 2;  // a missing key or value
const unsigned long kMultiSz = 7;

// HKEY_LOCAL_MACHINE where there is a registry, null elsewhere.
RegKey localMachine();

// Opens `name` below `parent`; `*out` is set on success. Off Windows every key is missing.
long openKey(RegKey parent, const char* name, unsigned long access, RegKey* out);
long closeKey(RegKey key);
// RegQueryValueEx: `data` may be null to learn only the type and size.
long queryValue(RegKey key, const char* name, unsigned long* type, unsigned char* data,
                unsigned long* size);
long setValue(RegKey key, const char* name, unsigned long type, const unsigned char* data,
              unsigned long size);
long flushKey(RegKey key);

// Registry text (the system's code page on Windows; elsewhere one byte per character,
// ISO 8859-1) as UTF-16 code units, the form Java strings are made from.
std::u16string codePageToUtf16(const char* text, size_t length);

// GetVersionExA with the plain 148-byte record; false when the call fails or there is no
// such call.
bool windowsVersion(unsigned long* platform, unsigned long* major, unsigned long* minor);

}  // namespace regsys
}  // namespace velmora
