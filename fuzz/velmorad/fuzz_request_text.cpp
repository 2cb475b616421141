// Any bytes as a Host value, an address, a settings list, a Content-Type and a log text:
// nothing reads or writes out of bounds, an escaped text holds no control character, a
// host name read once reads the same again, and a canonical address has its fixed form.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "LogSafe.h"
#include "RequestText.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);

    std::string safe = velmorad::logSafe(text);
    for (unsigned char c : safe) {
        if (c < 0x20 || c == 0x7F) std::abort();
    }
    if (safe.size() < text.size()) std::abort();

    std::string name = velmorad::hostName(text);
    if (!name.empty() && velmorad::hostName(name) != name) std::abort();
    if (name != velmorad::lower(name)) std::abort();

    std::string address = velmorad::canonicalAddress(text);
    if (!address.empty() && !(address.size() == 5 && address[0] == '4') &&
        !(address.size() == 17 && address[0] == '6')) {
        std::abort();
    }
    velmorad::isLoopback(text);

    for (const std::string& item : velmorad::listOf(text)) {
        if (item.empty() || item.find(',') != std::string::npos) std::abort();
    }
    std::string nul(text.c_str());  // the C string the daemon would hand on
    if (velmorad::mediaType(nul.c_str()).find(';') != std::string::npos) std::abort();
    return 0;
}
