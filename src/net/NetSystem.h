// Internal: the socket services that addresses, sockets, the server socket and the ICMP
// echo need, one implementation per operating system (posix/, win32/). A socket handle is
// carried as an unsigned 64-bit value; all ones is the invalid handle on every system.
#pragma once

#include <cstdint>

namespace velmora {
namespace netsys {

typedef uint64_t Handle;
const Handle kInvalidHandle = ~static_cast<Handle>(0);

int familyIpv4();        // the system's IPv4 address family (2)
int familyIpv6();        // the system's IPv6 address family (23 on Windows)
int addressInUseCode();  // the error number of an address already in use
int timedOutCode();      // the error number of a receive whose socket time-out expired
int lastSocketError();   // the socket library's last error of this thread
void setLastSocketError(int code);
// The error number of a call given an invalid argument.
int invalidArgumentCode();
bool startSocketLibrary();  // Windows Sockets 2.0; nothing to do elsewhere

// The first address that the resolver gives for text in that family: 4 or 16 bytes.
bool resolve(int family, const char* text, unsigned char* out);
// The numeric text of 4 (IPv4) or 16 (IPv6) address bytes.
bool numericHost(int family, const unsigned char* address, char* out, int size);

Handle openStream(bool ipv6);
bool connectIpv4(Handle handle, const unsigned char address[4], int port);
// The IPv6 connect as clients have always done it: it hands the system a zeroed IPv4
// record with the IPv6 record's length, so it never connects.
bool connectIpv6AsKept(Handle handle);
void shutdownBoth(Handle handle);
void closeHandle(Handle handle);

// Waits for the handle: > 0 ready, 0 timed out, < 0 failed. A negative milliseconds
// value waits without limit.
int waitReadable(Handle handle, int milliseconds);
int waitWritable(Handle handle, int milliseconds);
int receive(Handle handle, char* buffer, int size);  // the system's result
int peekByte(Handle handle);                         // the peek's result, nothing consumed
int sendBytes(Handle handle, const char* data, int size);
// Sends what the socket takes at once, without waiting: the count sent (> 0), kNotNow when
// it would have to wait (or the system cannot send without waiting), -1 on failure.
const int kNotNow = -2;
int sendNow(Handle handle, const char* data, int size);
bool pendingBytes(Handle handle, int* count);  // the FIONREAD request

bool setReuseAddress(Handle handle);
bool setIpv6OnlyOff(Handle handle);
// Binds to the 4 or 16 address bytes, or to the any-address when address is null.
bool bindIpv4(Handle handle, const unsigned char* address, int port);
bool bindIpv6(Handle handle, const unsigned char* address, int port);
bool listenOn(Handle handle, int backlog);
Handle acceptIpv4(Handle handle, unsigned char peer[4]);
Handle acceptIpv6(Handle handle, unsigned char peer[16]);

// The version of Windows: platform id (1 consumer line, 2 NT line) and major version.
// Systems without one answer as an NT 6 system, whose listeners accept both families.
void systemVersion(int* platform, int* major);

// Raw ICMP over IPv4.
bool parseIpv4Literal(const char* text, unsigned char out[4]);
bool lookupIpv4Name(const char* name, unsigned char out[4]);
Handle openRawIcmp();
bool sendToIpv4(Handle handle, const unsigned char address[4], const void* data, int size);
int processId();

}  // namespace netsys
}  // namespace velmora
