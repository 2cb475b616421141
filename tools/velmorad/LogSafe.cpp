#include "LogSafe.h"

namespace velmorad {

std::string logSafe(const std::string& text) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(text.size());
    for (unsigned char c : text) {
        if (c < 0x20 || c == 0x7F || c == '\\') {
            out += "\\x";
            out += kHex[c >> 4];
            out += kHex[c & 0x0F];
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

std::string logSafe(const char* text) {
    return text != nullptr ? logSafe(std::string(text)) : std::string("-");
}

}  // namespace velmorad
