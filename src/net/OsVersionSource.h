// Internal: where the server socket learns the Windows version that decides whether an
// IPv6 listener accepts IPv4 too. Exported (but not published) so that tests can stand in
// for Windows versions that the machine running them is not.
#pragma once

#include <velmora/Export.h>

namespace velmora {

class VELMORA_API OsVersionSource {
public:
    // The platform id (1 consumer line, 2 NT line) and the major version.
    static void get(int* platform, int* major);
    // Answers these values from now on instead of asking the system.
    static void set(int platform, int major);
    // Asks the system again.
    static void reset();
};

}  // namespace velmora
