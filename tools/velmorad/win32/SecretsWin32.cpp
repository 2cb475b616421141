#include <windows.h>

#include <aclapi.h>
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
    PACL dacl = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    DWORD rc = GetNamedSecurityInfoA(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION,
                                     nullptr, nullptr, &dacl, nullptr, &descriptor);
    if (rc != ERROR_SUCCESS) {
        SetLastError(rc);
        *why = failure("cannot read the access list of", path);
        return false;
    }
    // No access list at all lets everyone in; otherwise look for a grant of reading to
    // everyone, the users or the authenticated users.
    bool open = dacl == nullptr;
    for (DWORD i = 0; !open && i < dacl->AceCount; ++i) {
        void* ace = nullptr;
        if (!GetAce(dacl, i, &ace) ||
            static_cast<ACE_HEADER*>(ace)->AceType != ACCESS_ALLOWED_ACE_TYPE) {
            continue;
        }
        auto* allowed = static_cast<ACCESS_ALLOWED_ACE*>(ace);
        PSID sid = &allowed->SidStart;
        bool anyone = IsWellKnownSid(sid, WinWorldSid) || IsWellKnownSid(sid, WinBuiltinUsersSid) ||
                      IsWellKnownSid(sid, WinAuthenticatedUserSid);
        open = anyone && (allowed->Mask & (FILE_READ_DATA | GENERIC_READ | GENERIC_ALL)) != 0;
    }
    LocalFree(descriptor);
    if (open)
        *why =
            path + " may be read by other users; let only its owner and the administrators read it";
    return !open;
}

}  // namespace velmorad
