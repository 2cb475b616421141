// Internal: runs a command of the network tools ("ipv6 rt", for example) as a process of
// its own and keeps what it wrote to its standard output and error.
//
//   NetShUtilWin32* sh = NetShUtilWin32::getInstance();
//   if (sh != nullptr && sh->executeCommand("ipv6 rt") >= 0) scan(sh->getOutputBuffer());
#pragma once

#include <velmora/Export.h>

namespace velmora {

class VELMORA_API NetShUtilWin32 {
public:
    // The command runner in use; null when a test says there is none.
    static NetShUtilWin32* getInstance();
    // getInstance answers `shell` (not owned; null means unavailable) from now on.
    static void substitute(NetShUtilWin32* shell);
    // Back to the system's runner.
    static void restore();

    virtual ~NetShUtilWin32();

    // Runs the command line and waits for it: its exit code, or -1 when it could not be
    // started. The output of the run replaces the former one.
    virtual int executeCommand(const char* command) = 0;
    // The output of the last run (empty text when there was none); owned by the runner.
    virtual const char* getOutputBuffer() = 0;

protected:
    NetShUtilWin32() = default;

private:
    NetShUtilWin32(const NetShUtilWin32&) = delete;
    NetShUtilWin32& operator=(const NetShUtilWin32&) = delete;
};

}  // namespace velmora
