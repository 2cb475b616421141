// Internal: what the Windows network settings ask of the host besides the three back ends:
// the Windows version, which decides where each value is read from, and the registry root
// below which the machine's TCP/IP and computer-name keys are found. Both answer the
// system's own values unless a test stands in for them; exported (not published) for the
// tests.
#pragma once

#include <velmora/Export.h>
#include <velmora/platform/RegUtil.h>

namespace velmora {

class VELMORA_API HostSystemWin32 {
public:
    // Windows generations, oldest first; each includes what the earlier ones have.
    enum Version { kBefore2000, kWin2000, kWinXP, kWinXPSP1, kWinVista };

    // 1 when this Windows is at least the named version, from RegUtil's predicates.
    static int isWin2k();
    static int isWinXP();
    static int isWinXPSP1();
    static int isWinVista();
    // Answers as if this were `version` from now on.
    static void substituteVersion(Version version);

    // A key under which "SYSTEM\CurrentControlSet\..." is opened: HKEY_LOCAL_MACHINE. The
    // registry operations close the root they are given, so every call gets a key of its
    // own.
    static RegKey openMachineRoot();
    // Opens the machine root with `open` from now on (a test's own key).
    static void substituteMachineRoot(RegKey (*open)());

    // Back to the system's answers.
    static void restore();
};

}  // namespace velmora
