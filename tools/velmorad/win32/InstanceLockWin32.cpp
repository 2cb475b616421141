#include <windows.h>

#include <string>

#include "InstanceLock.h"

namespace velmorad {

InstanceLock::~InstanceLock() {
    if (handle_ >= 0) CloseHandle(reinterpret_cast<HANDLE>(static_cast<intptr_t>(handle_)));
}

// The file is opened for writing with no sharing of writes: a second opener fails with a
// sharing violation until the holder's handle closes (also when the holder is killed),
// and may still read the holder's process id from it.
bool InstanceLock::acquire(const std::string& path, std::string* why) {
    HANDLE h = CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        const DWORD err = GetLastError();
        if (err != ERROR_SHARING_VIOLATION) {
            *why = "cannot open the lock file " + path + " (error " + std::to_string(err) + ")";
            return false;
        }
        std::string who = "another process";
        HANDLE r = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                               nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (r != INVALID_HANDLE_VALUE) {
            char text[32] = {};
            DWORD n = 0;
            if (ReadFile(r, text, sizeof text - 1, &n, nullptr) && n > 0) {
                std::string pid(text, n);
                pid = pid.substr(0, pid.find_first_of("\r\n"));
                if (!pid.empty()) who = "process " + pid;
            }
            CloseHandle(r);
        }
        *why = "another velmorad (" + who + ") runs with this home; it holds " + path;
        return false;
    }
    SetEndOfFile(h);
    const std::string pid = std::to_string(GetCurrentProcessId()) + "\n";
    DWORD written = 0;
    WriteFile(h, pid.data(), static_cast<DWORD>(pid.size()), &written, nullptr);
    FlushFileBuffers(h);
    handle_ = static_cast<long long>(reinterpret_cast<intptr_t>(h));
    return true;
}

}  // namespace velmorad
