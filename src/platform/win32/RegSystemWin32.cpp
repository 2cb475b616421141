#include "platform/RegSystem.h"

#include <windows.h>

#include <cstring>

namespace velmora {
namespace regsys {

RegKey localMachine() {
    return HKEY_LOCAL_MACHINE;
}

long openKey(RegKey parent, const char* name, unsigned long access, RegKey* out) {
    HKEY key = nullptr;
    const LONG status = RegOpenKeyExA(parent, name, 0, access, &key);
    *out = status == ERROR_SUCCESS ? key : nullptr;
    return status;
}

long closeKey(RegKey key) {
    return RegCloseKey(key);
}

long queryValue(RegKey key, const char* name, unsigned long* type, unsigned char* data,
                unsigned long* size) {
    DWORD t = 0;
    DWORD n = size != nullptr ? *size : 0;
    const LONG status =
        RegQueryValueExA(key, name, nullptr, &t, data, size != nullptr ? &n : nullptr);
    if (type != nullptr) *type = t;
    if (size != nullptr) *size = n;
    return status;
}

long setValue(RegKey key, const char* name, unsigned long type, const unsigned char* data,
              unsigned long size) {
    return RegSetValueExA(key, name, 0, type, data, size);
}

long flushKey(RegKey key) {
    return RegFlushKey(key);
}

bool windowsVersion(unsigned long* platform, unsigned long* major, unsigned long* minor) {
    OSVERSIONINFOA info;
    std::memset(&info, 0, sizeof info);
    info.dwOSVersionInfoSize = sizeof info;  // the plain 148-byte record
    if (!GetVersionExA(&info)) return false;
    *platform = info.dwPlatformId;
    *major = info.dwMajorVersion;
    *minor = info.dwMinorVersion;
    return true;
}

std::u16string codePageToUtf16(const char* text, size_t length) {
    if (length == 0) return std::u16string();
    const int n = MultiByteToWideChar(CP_ACP, 0, text, static_cast<int>(length), nullptr, 0);
    std::u16string out(n > 0 ? static_cast<size_t>(n) : 0, u'\0');
    if (n > 0) {
        MultiByteToWideChar(CP_ACP, 0, text, static_cast<int>(length),
                            reinterpret_cast<wchar_t*>(&out[0]), n);
    }
    return out;
}

}  // namespace regsys
}  // namespace velmora
