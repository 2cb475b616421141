#include <arpa/inet.h>

#include "AddressText.h"

namespace velmorad {

int parseAddressLiteral(const char* text, unsigned char out[16]) {
    if (inet_pton(AF_INET, text, out) == 1) return 4;
    if (inet_pton(AF_INET6, text, out) == 1) return 16;
    return 0;
}

}  // namespace velmorad
