#include "tcpip/Ipv6RouteTable.h"

#include <cstdio>
#include <cstring>

namespace velmora {

void Ipv6RouteTable::findDefaultGateway(const char* routes, unsigned long index, char* buffer,
                                        int size) {
    const char* p = routes;
    for (int i = 0; p != nullptr && i < 4; ++i) {
        p = std::strstr(p, "::/0 -> ");
        if (p == nullptr) return;
        p += 8;
        unsigned short number = 0;
        if (std::sscanf(p, "%hu/%*s", &number) != 1 || number != index) continue;
        // Kept: the interface number is taken to have one or two digits.
        const size_t skip = number >= 10 ? 3 : 2;
        // A truncated text may end inside the skip: never read beyond it.
        if (std::strlen(p) < skip) return;
        const char* gateway = p + skip;
        const char* end = std::strstr(gateway, " pref");
        // A line without " pref" ends the gateway at the line's end.
        const char* lineEnd = gateway + std::strcspn(gateway, "\r\n");
        if (end == nullptr || end > lineEnd) end = lineEnd;
        const int length = static_cast<int>(end - gateway);
        if (buffer != nullptr && size > 0)
            std::snprintf(buffer, static_cast<size_t>(size), "%.*s",
                          length < size ? length : size - 1, gateway);
        return;
    }
}

}  // namespace velmora
