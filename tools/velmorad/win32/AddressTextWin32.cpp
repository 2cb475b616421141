#include <winsock2.h>
#include <ws2tcpip.h>

#include "AddressText.h"

namespace velmorad {

int parseAddressLiteral(const char* text, unsigned char out[16]) {
    if (InetPtonA(AF_INET, text, out) == 1) return 4;
    if (InetPtonA(AF_INET6, text, out) == 1) return 16;
    return 0;
}

}  // namespace velmorad
