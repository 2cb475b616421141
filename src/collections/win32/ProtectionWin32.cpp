#include <velmora/text/CharUtil.h>

#include <windows.h>
// After windows.h, which it builds on.
#include <wincrypt.h>

#include <cstring>
#include <vector>

#include "collections/Protection.h"

namespace velmora {
namespace protection {

// The value is protected for the current user with the data-protection service and
// kept as Base64 text of the protected blob.
bool protect(const char* clear, std::string* text) {
    if (clear == nullptr || text == nullptr) return false;
    DATA_BLOB in;
    in.pbData = reinterpret_cast<BYTE*>(const_cast<char*>(clear));
    in.cbData = static_cast<DWORD>(std::strlen(clear));
    DATA_BLOB out = {0, nullptr};
    if (!CryptProtectData(&in, L"password", nullptr, nullptr, nullptr, CRYPTPROTECT_UI_FORBIDDEN,
                          &out))
        return false;
    int size = CharUtil::base64EncodeSize(static_cast<int>(out.cbData));
    bool ok = size > 0;
    if (ok) {
        std::vector<char> buf(static_cast<size_t>(size));
        int n = CharUtil::base64Encode(out.pbData, static_cast<int>(out.cbData), buf.data());
        text->assign(buf.data(), static_cast<size_t>(n));
    }
    LocalFree(out.pbData);
    return ok;
}

bool unprotect(const char* text, std::string* clear) {
    if (text == nullptr || clear == nullptr) return false;
    int length = static_cast<int>(std::strlen(text));
    std::vector<unsigned char> blob(static_cast<size_t>(CharUtil::base64DecodeSize(length)) + 1);
    int n = CharUtil::base64Decode(text, length, blob.data());
    if (n <= 0) return false;
    DATA_BLOB in;
    in.pbData = blob.data();
    in.cbData = static_cast<DWORD>(n);
    DATA_BLOB out = {0, nullptr};
    if (!CryptUnprotectData(&in, nullptr, nullptr, nullptr, nullptr, CRYPTPROTECT_UI_FORBIDDEN,
                            &out))
        return false;
    clear->assign(reinterpret_cast<const char*>(out.pbData), out.cbData);
    LocalFree(out.pbData);
    // A value with a NUL inside cannot be a map value; it is cut there.
    clear->resize(std::strlen(clear->c_str()));
    return true;
}

}  // namespace protection
}  // namespace velmora
