#include "support/SocketLibrary.h"

#if defined(_WIN32)
#include <winsock2.h>
#endif

namespace velmora {
namespace test {

bool startSocketLibrary() {
#if defined(_WIN32)
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data) == 0;
#else
    return true;
#endif
}

}  // namespace test
}  // namespace velmora
