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
// The 4 (`family` 4) or 16 (6) bytes of an address as localAddress gives them: an
// IPv4-mapped IPv6 address as its 4 bytes. Answers 4 or 6. Portable, shared by the back ends.
int addressBytes(int family, const unsigned char* raw, unsigned char* bytes16);
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
// Local time and its offset east of universal time in seconds, thread-safe.
bool localTime(std::time_t t, struct tm* out, long* offsetSeconds);

// Non-blocking socket calls of the event loop. A handle of all ones is no handle.
const uint64_t kNoHandle = ~static_cast<uint64_t>(0);
// Receive or send would have to wait.
const int kWouldBlock = -2;
bool setNonBlocking(uint64_t handle);
// Has the listener hand over a connection only once its first bytes arrived, or once the
// client stayed silent for about `seconds`: the accept then finds the request waiting, and
// the connection costs no wake-up of its own before it. False where the system cannot
// (then connections come as soon as they are made).
bool acceptWhenData(uint64_t listener, int seconds);
// A connection waiting on the listener, made non-blocking and without Nagle delay, with
// the peer's numeric address in `peer`; kNoHandle when none waits (or the accept failed).
uint64_t acceptNow(uint64_t listener, char* peer, int size);
// > 0: bytes received; 0: the peer closed; kWouldBlock; -1: the connection failed.
int receiveSome(uint64_t handle, char* buffer, int size);
// > 0: bytes sent; kWouldBlock; -1: the connection failed.
int sendSome(uint64_t handle, const char* data, int size);
void closeHandle(uint64_t handle);
// The time the machine's cores spent idle and in all since it started, summed over the
// cores, in a unit of the system's own (only differences and ratios mean anything); false
// where the system does not tell.
bool processorTimes(uint64_t* idle, uint64_t* total);
// Raises the process's limit of open descriptors towards `wanted` where the system allows;
// the limit in effect afterwards.
long raiseDescriptorLimit(long wanted);

}  // namespace velmorad
