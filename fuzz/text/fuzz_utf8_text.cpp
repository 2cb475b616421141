// UTF-8 to wide text on any bytes: the text is accepted exactly when a plain decoder finds
// it well-formed (shortest form, no surrogates, at most U+10FFFF), and an accepted text
// converts back to the same bytes.
#include <velmora/text/UnicodeText.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace {

bool wellFormed(const std::string& s) {
    size_t i = 0;
    while (i < s.size()) {
        const unsigned char b = static_cast<unsigned char>(s[i]);
        const int length = b < 0x80         ? 1
                           : (b >> 5) == 6  ? 2
                           : (b >> 4) == 14 ? 3
                           : (b >> 3) == 30 ? 4
                                            : 0;
        if (length == 0 || i + length > s.size()) return false;
        uint32_t value = length == 1 ? b : b & (0x7F >> length);
        for (int k = 1; k < length; ++k) {
            const unsigned char c = static_cast<unsigned char>(s[i + k]);
            if ((c & 0xC0) != 0x80) return false;
            value = value << 6 | (c & 0x3F);
        }
        const uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
        if (value < smallest[length] || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
            return false;
        i += static_cast<size_t>(length);
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The text ends at its first zero byte, as a C string does.
    const std::string text(reinterpret_cast<const char*>(data),
                           strnlen(reinterpret_cast<const char*>(data), size));

    // Refusals write a line to standard error; keep it out of the fuzzer's own output.
    static const int quiet = open("/dev/null", O_WRONLY);
    std::fflush(stderr);
    const int saved = dup(2);
    dup2(quiet, 2);
    velmora::UnicodeText fromUtf8(text.c_str());
    std::fflush(stderr);
    dup2(saved, 2);
    close(saved);

    const bool accepted = fromUtf8.getWide()[0] != L'\0';
    if (strcmp(fromUtf8.getUtf8(), text.c_str()) != 0) std::abort();
    if (!text.empty() && accepted != wellFormed(text)) std::abort();
    if (accepted && velmora::UnicodeText(fromUtf8.getWide()).getUtf8() != text) std::abort();
    return 0;
}
