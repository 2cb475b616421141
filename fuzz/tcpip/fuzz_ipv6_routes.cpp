// Any text read as the route table of "ipv6 rt", for any interface number and buffer size:
// no read outside the text, and the gateway always terminated inside the buffer.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tcpip/Ipv6RouteTable.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    // Two bytes choose the interface, one the buffer size (1 to 64).
    const unsigned long index = static_cast<unsigned long>(data[0]) | (data[1] & 0x0F) << 8;
    const int bufferSize = 1 + data[2] % 64;
    std::string routes(reinterpret_cast<const char*>(data + 3), size - 3);
    std::vector<char> buffer(static_cast<size_t>(bufferSize), 'x');
    buffer[0] = '\0';
    velmora::Ipv6RouteTable::findDefaultGateway(routes.c_str(), index, buffer.data(), bufferSize);
    if (std::memchr(buffer.data(), '\0', buffer.size()) == nullptr) __builtin_trap();
    return 0;
}
