// Prints what the version predicates answer for the Windows version this program runs
// under, one line:
//   version=5.1 win2k=1 winxp=1 winxpsp1=1 vista=0 win7=0 win8=0
// With "--build N" the build number is read from a key of the probe's own holding N
// (below HKEY_CURRENT_USER\Software, removed before the probe ends).
#include <windows.h>

#include <velmora/platform/RegUtil.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "platform/BuildNumberSource.h"

using velmora::RegUtil;

int main(int argc, char** argv) {
    std::string own;
    const char* path[2] = {"Software", nullptr};
    if (argc == 3 && std::strcmp(argv[1], "--build") == 0) {
        own = "VelmoraBuildProbe-" + std::to_string(GetCurrentProcessId());
        path[1] = own.c_str();
        HKEY key = nullptr;
        if (RegCreateKeyExA(HKEY_CURRENT_USER, ("Software\\" + own).c_str(), 0, nullptr, 0,
                            KEY_ALL_ACCESS, nullptr, &key, nullptr) != ERROR_SUCCESS) {
            return 2;
        }
        RegSetValueExA(key, "CurrentBuildNumber", 0, REG_SZ, reinterpret_cast<const BYTE*>(argv[2]),
                       static_cast<DWORD>(std::strlen(argv[2]) + 1));
        RegCloseKey(key);
        velmora::BuildNumberSource::redirect(HKEY_CURRENT_USER, path, 2);
    }
    OSVERSIONINFOA info = {};
    info.dwOSVersionInfoSize = sizeof info;
    GetVersionExA(&info);
    std::printf("version=%lu.%lu win2k=%d winxp=%d winxpsp1=%d vista=%d win7=%d win8=%d\n",
                info.dwMajorVersion, info.dwMinorVersion, RegUtil::isWin2k(), RegUtil::isWinXP(),
                RegUtil::isWinXPSP1(), RegUtil::isWinVista(), RegUtil::isWin7(), RegUtil::isWin8());
    if (!own.empty()) RegDeleteKeyA(HKEY_CURRENT_USER, ("Software\\" + own).c_str());
    return 0;
}
