// What the daemon needs from the operating system beyond the library: the socket library
// started, stop requests (SIGINT/SIGTERM, console control events) turned into a callback,
// and the port a listener was given.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

namespace velmorad {

bool startSockets();
void stopSockets();
// Calls `onStop` once, from a signal handler or a system thread: it may only set flags
// and shut handles down.
void installStopHandler(void (*onStop)());
// Shuts a listening handle down so that a thread blocked in accept returns.
void interruptListener(uint64_t handle);
// The local port of a bound handle, or -1.
int localPort(uint64_t handle);
// The local address of a connected handle as 4 or 16 bytes (an IPv4-mapped IPv6 address
// as its 4): 4 or 6, or 0 when it cannot be had.
int localAddress(uint64_t handle, unsigned char* bytes16);
// The name of the network interface that holds the address (`family` 4 or 6), or "" when
// none does or the system cannot say (Windows: the adapter list is the library's).
std::string interfaceOf(const unsigned char* bytes16, int family);
// Sends small writes at once (no Nagle delay): an answer's head and body leave as two
// writes, and a keep-alive client would otherwise wait for a delayed acknowledgement.
void setNoDelay(uint64_t handle);
// Shuts the sending side of a connection: the peer reads the end of the data while this
// side may still read what the peer sends.
void shutdownSend(uint64_t handle);
// Lets a blocking receive on the connection end after `ms` milliseconds without input, so
// that waiting for a request costs one system call instead of a wait and a receive. False
// where a receive that timed out leaves the connection unusable (Windows): then the daemon
// waits before it receives.
bool setReceiveTimeout(uint64_t handle, int ms);
// Universal time, thread-safe.
bool utcTime(std::time_t t, struct tm* out);

}  // namespace velmorad
