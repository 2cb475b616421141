// ICMP echo (IPv4): the round trip in milliseconds, measured with a monotonic clock, or
// -1. Only an echo reply from the pinged address carrying this request's identifier and
// sequence counts; other packets are passed over until the time-out, and an ICMP error
// about this request (unreachable, time exceeded) is reported as such. Every ping of the
// process goes through the instance's one raw socket, which hands each reply to the ping
// that waits for it, so any number of threads may ping at once. Raw sockets need
// administrator or root rights; without them ping reports "platNet.ping.socketFailed".
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

    // One echo request to host; waits up to timeout seconds for the answer. A negative
    // timeout is a failed wait ("ping: select <host> failed - ..."); one beyond what a wait
    // can hold (about 24 days) waits as long as a wait can.
    int ping(ErrorHandler* handler, const char* host, int timeout);
    // IPv6 echo is not supported: reports so and returns -1.
    int ping6(ErrorHandler* handler, const char* host, int timeout);
    // The Internet checksum (RFC 1071) of length bytes.
    static unsigned short icmp_checksum(unsigned short* data, int length);

private:
    class Endpoint;

    Icmp();
    ~Icmp();
    Icmp(const Icmp&) = delete;
    Icmp& operator=(const Icmp&) = delete;

    int sequence_ = 0;    // taken under the endpoint's lock
    Endpoint* endpoint_;  // the shared socket and the pings waiting on it
};

}  // namespace velmora
