// Arbitrary text through the URI decoder, into buffers of every small size.
#include <velmora/http/Http.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    int room = data[0] % 64 + 1;
    std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    char* out = static_cast<char*>(std::malloc(room));
    velmora::Http::decodeUri(text.c_str(), out, room);
    if (std::strlen(out) >= static_cast<size_t>(room)) std::abort();
    velmora::Http::getServletName(text.c_str(), out, room);
    std::free(out);
    return 0;
}
