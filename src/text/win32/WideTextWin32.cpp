#include "text/WideText.h"

#include <windows.h>

#include <cstdlib>

namespace velmora {
namespace text {

namespace {

WideStatus lastStatus() {
    switch (GetLastError()) {
        case ERROR_INSUFFICIENT_BUFFER:
            return WideStatus::insufficientBuffer;
        case ERROR_INVALID_FLAGS:
            return WideStatus::invalidFlags;
        case ERROR_INVALID_PARAMETER:
            return WideStatus::invalidParameter;
        case ERROR_NO_UNICODE_TRANSLATION:
            return WideStatus::noTranslation;
        default:
            return WideStatus::other;
    }
}

}  // namespace

WideStatus utf8ToWide(const char* s, wchar_t** out) {
    *out = nullptr;
    const int units = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, s, -1, nullptr, 0);
    if (units <= 0) return lastStatus();
    // The counted length (terminator included) plus one, zero-filled.
    wchar_t* wide =
        static_cast<wchar_t*>(std::calloc(static_cast<size_t>(units) + 1, sizeof(wchar_t)));
    if (wide == nullptr) return WideStatus::other;
    if (MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, s, -1, wide, units + 1) <= 0) {
        const WideStatus status = lastStatus();
        std::free(wide);
        return status;
    }
    *out = wide;
    return WideStatus::ok;
}

char* wideToUtf8(const wchar_t* s) {
    if (s == nullptr) return nullptr;
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, s, -1, nullptr, 0, nullptr, nullptr);
    if (bytes <= 0) return nullptr;
    char* text = static_cast<char*>(std::calloc(static_cast<size_t>(bytes) + 1, 1));
    if (text == nullptr) return nullptr;
    if (WideCharToMultiByte(CP_UTF8, 0, s, -1, text, bytes + 1, nullptr, nullptr) <= 0) {
        std::free(text);
        return nullptr;
    }
    return text;
}

}  // namespace text
}  // namespace velmora
