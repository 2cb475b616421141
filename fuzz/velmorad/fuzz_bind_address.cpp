// Listening addresses on any bytes (host names left out: they would ask the resolver).
// An accepted address is numeric and accepted again as it is printed; a dotted one is
// exactly four numbers 0 to 255 and passes unchanged, so that nothing becomes the wildcard
// address unless it was written so; a refusal always says why.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "BindAddress.h"

namespace {

void require(bool ok) {
    if (!ok) std::abort();
}

// What the resolver would be asked about: letters, digits, '-' and '.' (brackets around
// them taken off), unless it is digits and dots only.
bool looksLikeName(std::string text) {
    if (text.size() > 2 && text.front() == '[' && text.back() == ']') {
        text = text.substr(1, text.size() - 2);
    }
    bool other = false;
    for (unsigned char c : text) {
        if (c == '-' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')) {
            other = true;
        } else if (!(c >= '0' && c <= '9') && c != '.') {
            return false;
        }
    }
    return other;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    if (looksLikeName(text)) return 0;
    std::string numeric, why;
    if (!velmorad::resolveBindAddress(text, &numeric, &why)) {
        require(!why.empty());
        return 0;
    }
    require(velmorad::isAddressLiteral(numeric));
    if (text.find(':') == std::string::npos) {
        require(numeric == text);
        int parts = 0;
        size_t start = 0;
        while (start <= text.size()) {
            size_t dot = text.find('.', start);
            if (dot == std::string::npos) dot = text.size();
            require(dot > start && dot - start <= 3 &&
                    std::atoi(text.substr(start, dot - start).c_str()) <= 255);
            ++parts;
            start = dot + 1;
        }
        require(parts == 4);
    }
    std::string again, why2;
    require(velmorad::resolveBindAddress(numeric, &again, &why2) && again == numeric);
    return 0;
}
