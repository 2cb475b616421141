// The part of an adapter that every system shares: its id. The operations live in
// src/tcpip/<system>/.
#include <velmora/tcpip/TcpIpAdapterSettings.h>

#include <cstdio>

namespace velmora {

TcpIpAdapterSettings::TcpIpAdapterSettings(const char* id) {
    std::snprintf(id_, sizeof id_, "%s", id != nullptr ? id : "");
}

TcpIpAdapterSettings::~TcpIpAdapterSettings() = default;

}  // namespace velmora
