#include "vre/HostName.h"

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

namespace velmora {
namespace vre {

int queryHostName(bool ipv6, char* name, int size) {
    char host[256] = {};
    // One byte short of the array, so that a name cut by the system stays terminated.
    if (gethostname(host, sizeof host - 1) != 0 || host[0] == '\0') return -1;
    const size_t length = std::strlen(host);
    if (length + 1 > static_cast<size_t>(size)) return -1;

    addrinfo hints = {};
    hints.ai_family = ipv6 ? AF_INET6 : AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(host, nullptr, &hints, &found) != 0 || found == nullptr) return -1;
    freeaddrinfo(found);
    std::memcpy(name, host, length + 1);
    return 0;
}

}  // namespace vre
}  // namespace velmora
