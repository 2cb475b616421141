// Conversions between UTF-8 and the system's wide text (UTF-16 on Windows, UTF-32 where
// wchar_t has 32 bits), done by the system where it has them.
#pragma once

namespace velmora {
namespace text {

// Why a conversion failed, as the Windows conversion reports it.
enum class WideStatus {
    ok,
    insufficientBuffer,  // 122
    invalidFlags,        // 1004
    invalidParameter,    // 87
    noTranslation,       // 1113: the input is not well-formed UTF-8
    other,
};

// Converts zero-terminated UTF-8 strictly: overlong forms, encoded surrogates, values above
// U+10FFFF, stray or missing continuation bytes are failures. On success *out is a new,
// zero-terminated text (free it with std::free); on failure *out is null.
WideStatus utf8ToWide(const char* s, wchar_t** out);

// Converts zero-terminated wide text to a new UTF-8 text (free with std::free), replacing
// code units that are no character (lone surrogates) with U+FFFD. Null on failure.
char* wideToUtf8(const wchar_t* s);

}  // namespace text
}  // namespace velmora
