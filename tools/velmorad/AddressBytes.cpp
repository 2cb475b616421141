#include <cstring>

#include "HostServices.h"

namespace velmorad {

int addressBytes(int family, const unsigned char* raw, unsigned char* bytes16) {
    if (family == 4) {
        std::memcpy(bytes16, raw, 4);
        return 4;
    }
    static const unsigned char mapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
    if (std::memcmp(raw, mapped, 12) == 0) {
        std::memcpy(bytes16, raw + 12, 4);
        return 4;
    }
    std::memcpy(bytes16, raw, 16);
    return 6;
}

}  // namespace velmorad
