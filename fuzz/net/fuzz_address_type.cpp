// Address classification on any text: never reads past the end, and every text it calls an
// IPv4 shape consists of four groups of one to three digits.
#include <velmora/net/InetAddress.h>

#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const int type = velmora::InetAddress::getAddressType(text.c_str());
    if (type < -1 || type > 2) std::abort();
    if (type == 0) {
        int groups = 1;
        for (char c : std::string(text.c_str()))
            groups += c == '.';
        if (groups != 4) std::abort();
    }
    return 0;
}
