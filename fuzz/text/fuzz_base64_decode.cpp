// The lenient Base64 decoder on any bytes: it stays inside the announced output size, gives
// what a plain reading of its rules gives (keep the alphabet, decode whole groups, a cut
// group gives its whole bytes), and encoding the result decodes back to the same bytes.
#include <velmora/text/CharUtil.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

std::vector<unsigned char> reference(const uint8_t* data, size_t size) {
    static const std::string alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::vector<uint32_t> values;
    for (size_t i = 0; i < size; ++i) {
        const size_t v =
            data[i] != 0 ? alphabet.find(static_cast<char>(data[i])) : std::string::npos;
        if (v != std::string::npos) values.push_back(static_cast<uint32_t>(v));
    }
    std::vector<unsigned char> out;
    for (size_t i = 0; i < values.size(); i += 4) {
        const size_t n = values.size() - i < 4 ? values.size() - i : 4;
        uint32_t bits = 0;
        for (size_t k = 0; k < 4; ++k)
            bits = bits << 6 | (k < n ? values[i + k] : 0);
        for (size_t k = 0; k + 1 < n; ++k)
            out.push_back(static_cast<unsigned char>(bits >> (16 - 8 * k)));
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 1 << 20) return 0;
    const int n = static_cast<int>(size);
    // Exactly the announced size on the heap, so that AddressSanitizer sees any overrun.
    const int capacity = velmora::CharUtil::base64DecodeSize(n);
    std::unique_ptr<unsigned char[]> out(new unsigned char[capacity]);
    std::unique_ptr<char[]> text(new char[size]);
    if (size > 0) std::memcpy(text.get(), data, size);
    const int decoded = velmora::CharUtil::base64Decode(text.get(), n, out.get());
    if (decoded < 0 || decoded >= capacity) std::abort();
    if (reference(data, size) != std::vector<unsigned char>(out.get(), out.get() + decoded))
        std::abort();

    const int encodedSize = velmora::CharUtil::base64EncodeSize(decoded);
    std::unique_ptr<char[]> encoded(new char[encodedSize]);
    const int written = velmora::CharUtil::base64Encode(out.get(), decoded, encoded.get());
    if (written + 1 != encodedSize || encoded[written] != '\0') std::abort();
    std::unique_ptr<unsigned char[]> again(
        new unsigned char[velmora::CharUtil::base64DecodeSize(written)]);
    if (velmora::CharUtil::base64Decode(encoded.get(), written, again.get()) != decoded ||
        (decoded > 0 && std::memcmp(again.get(), out.get(), static_cast<size_t>(decoded)) != 0))
        std::abort();
    return 0;
}
