// Arbitrary text through the header-date parser; whatever it accepts must format back to
// the same text (with a three-letter zone) and parse again to the same fields.
#include <velmora/http/Http.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    struct tm parsed;
    if (velmora::Http::parseTime(text.c_str(), &parsed) != 0) return 0;
    std::string zone = text.substr(26);
    char out[64];
    if (velmora::Http::formatTime(&parsed, zone.c_str(), out, sizeof out) != 0) std::abort();
    if (std::strcmp(out, text.c_str()) != 0) std::abort();
    return 0;
}
