// Internal: changes an adapter's IPv4 settings through the WMI methods of
// Win32_NetworkAdapterConfiguration (namespace ROOT\CIMV2), the adapter being the one whose
// MACAddress is the given "XX:XX:XX:XX:XX:XX" text. Each call answers the method's
// "ReturnValue" (0 done, 1 done after a restart, other values are the method's failures)
// or -1 when WMI could not be reached or the method not run.
//
//   int r = WMIUtilWin32::getInstance()->invokeSetDNSDomainOnMAC("00:11:22:33:44:55", "x.test");
#pragma once

#include <velmora/Export.h>

namespace velmora {

class VELMORA_API WMIUtilWin32 {
public:
    // The WMI access in use; null when a test says WMI is unavailable.
    static WMIUtilWin32* getInstance();
    // getInstance answers `wmi` (not owned; null means unavailable) from now on.
    static void substitute(WMIUtilWin32* wmi);
    // Back to the system's WMI.
    static void restore();

    virtual ~WMIUtilWin32();

    virtual int invokeEnableStaticOnMAC(const char* mac, const char* address, const char* mask) = 0;
    virtual int invokeEnableDHCPOnMAC(const char* mac) = 0;
    virtual int invokeSetGatewaysOnMAC(const char* mac, const char* gateway) = 0;
    virtual int invokeSetDNSDomainOnMAC(const char* mac, const char* domain) = 0;
    // `list` is space-separated; an empty list clears the search order.
    virtual int invokeSetDNSServerSearchOrderOnMAC(const char* mac, const char* list) = 0;

    // The COM status of the last call that failed before the method's answer (0 when the
    // method answered); what a person reading a failure needs.
    virtual long getLastStatus() { return 0; }

protected:
    WMIUtilWin32() = default;

private:
    WMIUtilWin32(const WMIUtilWin32&) = delete;
    WMIUtilWin32& operator=(const WMIUtilWin32&) = delete;
};

}  // namespace velmora
