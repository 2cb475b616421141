#include <velmora/text/UnicodeText.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "text/WideText.h"

namespace velmora {

namespace {

char* copyUtf8(const char* s) {
    const size_t length = s != nullptr ? std::strlen(s) : 0;
    char* copy = static_cast<char*>(std::calloc(length + 1, 1));
    if (copy != nullptr && length > 0) std::memcpy(copy, s, length);
    return copy;
}

wchar_t* copyWide(const wchar_t* s) {
    const size_t length = s != nullptr ? std::wcslen(s) : 0;
    wchar_t* copy = static_cast<wchar_t*>(std::calloc(length + 1, sizeof(wchar_t)));
    if (copy != nullptr && length > 0) std::memcpy(copy, s, length * sizeof(wchar_t));
    return copy;
}

const char* errorLine(text::WideStatus status) {
    switch (status) {
        case text::WideStatus::insufficientBuffer:
            return "Encoding error - Insufficient buffer\n";
        case text::WideStatus::invalidFlags:
            return "Encoding error - Invalid flags\n";
        case text::WideStatus::invalidParameter:
            return "Encoding error - Invalid parameter\n";
        case text::WideStatus::noTranslation:
            return "Encoding error - No unicode translation\n";
        default:
            return nullptr;
    }
}

}  // namespace

UnicodeText::UnicodeText(const wchar_t* s) {
    wide_ = copyWide(s);
    utf8_ = s != nullptr ? text::wideToUtf8(s) : nullptr;
    if (utf8_ == nullptr) utf8_ = copyUtf8(nullptr);
}

UnicodeText::UnicodeText(const char* s) {
    utf8_ = copyUtf8(s);
    if (s == nullptr) {
        wide_ = copyWide(nullptr);
        return;
    }
    const text::WideStatus status = text::utf8ToWide(s, &wide_);
    if (status != text::WideStatus::ok) {
        const char* line = errorLine(status);
        if (line != nullptr) std::fputs(line, stderr);
        wide_ = copyWide(nullptr);
    }
}

UnicodeText::~UnicodeText() {
    std::free(utf8_);
    std::free(wide_);
    utf8_ = nullptr;
    wide_ = nullptr;
}

}  // namespace velmora
