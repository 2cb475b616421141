// One ICMP echo (IPv4) at a time: the round trip in milliseconds, with whole-second
// resolution (0 for a quick answer), or -1. Raw sockets need administrator or root rights;
// without them ping reports "platNet.ping.socketFailed".
//
//   velmora::Icmp* icmp = velmora::Icmp::getInstance(log);  // starts the socket library
//   int ms = icmp ? icmp->ping(log, "127.0.0.1", 2) : -1;
#pragma once

#include <velmora/Export.h>

namespace velmora {

class ErrorHandler;

class VELMORA_API Icmp {
public:
    // The process's instance, made on first call once the socket library has started.
    static Icmp* getInstance(ErrorHandler* handler);
    // Deletes the instance.
    static void unload();

    // One echo request to host; waits up to timeout seconds for the answer.
    int ping(ErrorHandler* handler, const char* host, int timeout);
    // IPv6 echo is not supported: reports so and returns -1.
    int ping6(ErrorHandler* handler, const char* host, int timeout);
    // The Internet checksum (RFC 1071) of length bytes.
    static unsigned short icmp_checksum(unsigned short* data, int length);

private:
    Icmp() = default;
    Icmp(const Icmp&) = delete;
    Icmp& operator=(const Icmp&) = delete;

    int sequence_ = 0;
};

}  // namespace velmora
