// No registry here: every key is missing, so reads answer "not found" and writes fail
// before anything is written; there is no Windows version to answer.
#include "platform/RegSystem.h"

namespace velmora {
namespace regsys {

RegKey localMachine() {
    return nullptr;
}

long openKey(RegKey, const char*, unsigned long, RegKey* out) {
    *out = nullptr;
    return kNotFound;
}

long closeKey(RegKey) {
    return kSuccess;
}

long queryValue(RegKey, const char*, unsigned long*, unsigned char*, unsigned long*) {
    return kNotFound;
}

long setValue(RegKey, const char*, unsigned long, const unsigned char*, unsigned long) {
    return kNotFound;
}

long flushKey(RegKey) {
    return kSuccess;
}

bool windowsVersion(unsigned long*, unsigned long*, unsigned long*) {
    return false;
}

std::u16string codePageToUtf16(const char* text, size_t length) {
    std::u16string out;
    out.reserve(length);
    for (size_t i = 0; i < length; ++i)
        out += static_cast<char16_t>(static_cast<unsigned char>(text[i]));
    return out;
}

}  // namespace regsys
}  // namespace velmora
