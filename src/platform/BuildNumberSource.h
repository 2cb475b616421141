// Internal: where isWinXPSP1 reads the build number of the system ("CurrentBuildNumber").
// Exported (but not published) so that a test can point it at a key of its own and show
// both sides of the build boundary, which the machine running it cannot.
#pragma once

#include <velmora/platform/RegUtil.h>

namespace velmora {

class VELMORA_API BuildNumberSource {
public:
    // Reads the value below this key from now on; the path must outlive the redirection.
    static void redirect(RegKey root, const char* const* path, int count);
    // Back to HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows NT\CurrentVersion.
    static void reset();
    // The build number read as decimal; 0 when it cannot be read (nothing is reported).
    static int read();
};

}  // namespace velmora
