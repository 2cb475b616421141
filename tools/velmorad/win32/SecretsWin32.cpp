#include <windows.h>

#include <bcrypt.h>
#include <sddl.h>

#include <string>

#include "Secrets.h"

namespace velmorad {

namespace {

std::string failure(const char* what, const std::string& path) {
    return std::string(what) + " " + path + " (error " + std::to_string(GetLastError()) + ")";
}

}  // namespace

bool secureRandom(unsigned char* out, size_t size) {
    return BCryptGenRandom(nullptr, out, static_cast<ULONG>(size),
                           BCRYPT_USE_SYSTEM_PREFERRED_RNG) == 0;
}

bool writePrivateFile(const std::string& path, const std::string& text, std::string* why) {
    // Protected (not inherited), full access for the file's owner and the administrators.
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorA(
            "D:P(A;;FA;;;OW)(A;;FA;;;BA)", SDDL_REVISION_1, &descriptor, nullptr)) {
        *why = failure("cannot make an access list for", path);
        return false;
    }
    SECURITY_ATTRIBUTES attributes = {sizeof attributes, descriptor, FALSE};
    std::string temporary = path + ".new";
    DeleteFileA(temporary.c_str());
    // A new file takes the descriptor given here; an existing one would keep its own.
    HANDLE file = CreateFileA(temporary.c_str(), GENERIC_WRITE, 0, &attributes, CREATE_NEW,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    LocalFree(descriptor);
    if (file == INVALID_HANDLE_VALUE) {
        *why = failure("cannot create", temporary);
        return false;
    }
    DWORD written = 0;
    bool ok = WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr) &&
              written == text.size() && FlushFileBuffers(file);
    if (!ok) *why = failure("cannot write", temporary);
    CloseHandle(file);
    if (ok && !MoveFileExA(temporary.c_str(), path.c_str(),
                           MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        ok = false;
        *why = failure("cannot rename to", path);
    }
    if (!ok) DeleteFileA(temporary.c_str());
    return ok;
}

bool isPrivateFile(const std::string& path, std::string* why) {
    // The access list was set when the file was written; only its presence is checked here.
    if (GetFileAttributesA(path.c_str()) == INVALID_FILE_ATTRIBUTES) {
        *why = failure("cannot read", path);
        return false;
    }
    return true;
}

}  // namespace velmorad
