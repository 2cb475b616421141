#include "tcpip/win32/HostSystemWin32.h"

#include <windows.h>

namespace velmora {

namespace {

bool versionGiven = false;
HostSystemWin32::Version givenVersion = HostSystemWin32::kWinVista;
RegKey (*openRoot)() = nullptr;

int atLeast(HostSystemWin32::Version version) {
    return givenVersion >= version ? 1 : 0;
}

}  // namespace

int HostSystemWin32::isWin2k() {
    return versionGiven ? atLeast(kWin2000) : RegUtil::isWin2k();
}

int HostSystemWin32::isWinXP() {
    return versionGiven ? atLeast(kWinXP) : RegUtil::isWinXP();
}

int HostSystemWin32::isWinXPSP1() {
    return versionGiven ? atLeast(kWinXPSP1) : RegUtil::isWinXPSP1();
}

int HostSystemWin32::isWinVista() {
    return versionGiven ? atLeast(kWinVista) : RegUtil::isWinVista();
}

void HostSystemWin32::substituteVersion(Version version) {
    givenVersion = version;
    versionGiven = true;
}

RegKey HostSystemWin32::openMachineRoot() {
    return openRoot != nullptr ? openRoot() : HKEY_LOCAL_MACHINE;
}

void HostSystemWin32::substituteMachineRoot(RegKey (*open)()) {
    openRoot = open;
}

void HostSystemWin32::restore() {
    versionGiven = false;
    openRoot = nullptr;
}

}  // namespace velmora
