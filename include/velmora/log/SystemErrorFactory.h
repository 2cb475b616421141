// Turns the operating system's last error into reports. Call these right after the failed
// system call: they read the calling thread's own last error (errno off Windows).
//
//   FILE* f = fopen(path, "rb");
//   if (f == nullptr) velmora::SystemErrorFactory::error(handler, "Cannot open the file:");
#pragma once

#include <velmora/Export.h>
#include <velmora/log/ErrorHandler.h>
#include <velmora/text/Release.h>

namespace velmora {

class VELMORA_API SystemErrorFactory {
public:
    // Reports the last system error as error(handler, code).
    static void error(ErrorHandler* handler);
    // Reports "System Error: <system text>\n" under the key "native.systemError" with the
    // system text as argument; code 0 reports "A system error has occurred -> Unknown
    // System Error".
    static void error(ErrorHandler* handler, unsigned long code);
    // Reports "<prefix> <system text>" (text only), or just the prefix when there is no
    // last error.
    static void error(ErrorHandler* handler, const char* prefix);
    // The symbolic name of the last socket error ("WSAECONNREFUSED"), or its number when it
    // has none, in a new 64-byte buffer that the caller gives back with velmora::release.
    static char* getWinsockErrorString();
};

}  // namespace velmora
