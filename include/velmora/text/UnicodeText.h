// One text held both as UTF-8 and as the system's wide text (UTF-16 on Windows, UTF-32
// where wchar_t has 32 bits), for calls into wide-character system interfaces.
//
//   velmora::UnicodeText name("caf\xC3\xA9");
//   CreateFileW(name.getWide(), ...);
//
// Made from UTF-8 that is not well-formed (overlong forms, encoded surrogates, values
// above U+10FFFF, stray or missing continuation bytes), the wide text stays empty and one
// line goes to standard error: "Encoding error - No unicode translation". The other
// failures of the system's conversion write "Encoding error - Insufficient buffer",
// "... - Invalid flags" or "... - Invalid parameter"; any other failure writes nothing.
#pragma once

#include <velmora/Export.h>

namespace velmora {

class VELMORA_API UnicodeText {
public:
    // The UTF-8 form is converted; a lone surrogate becomes U+FFFD. Null gives empty texts.
    explicit UnicodeText(const wchar_t* s);
    // `s` is taken as UTF-8 and kept as given; null gives empty texts and no error line.
    explicit UnicodeText(const char* s);
    ~UnicodeText();

    // Both zero-terminated and never null; they live as long as this object.
    const char* getUtf8() const { return utf8_ != nullptr ? utf8_ : ""; }
    const wchar_t* getWide() const { return wide_ != nullptr ? wide_ : L""; }

private:
    UnicodeText(const UnicodeText&) = delete;
    UnicodeText& operator=(const UnicodeText&) = delete;

    char* utf8_ = nullptr;
    wchar_t* wide_ = nullptr;
};

}  // namespace velmora
