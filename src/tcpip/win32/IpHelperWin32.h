// Internal: the IP Helper records of the host's adapters, kept between calls and loaded
// again when the system reports an address change. The adapter and host settings read
// every value through it, so that tests can hand them records built in memory.
//
//   IpHelperWin32* ip = IpHelperWin32::getInstance();
//   if (ip != nullptr && ip->changeDetected()) ip->refresh();
//   IP_ADAPTER_ADDRESSES* a = ip != nullptr ? ip->findAddresses("Ethernet") : nullptr;
//
// Records point into the cache: they are valid until the next refresh.
#pragma once

#include <velmora/Export.h>

// Windows Sockets before windows.h, then the IP Helper types.
#include <winsock2.h>
#include <ws2tcpip.h>
// (separate block, so that sorting keeps the order)
#include <iphlpapi.h>
#include <windows.h>

namespace velmora {

class VELMORA_API IpHelperWin32 {
public:
    // The cache in use; null when the system's records could not be read.
    static IpHelperWin32* getInstance();
    // getInstance answers `helper` (not owned; null means unavailable) from now on.
    static void substitute(IpHelperWin32* helper);
    // Back to the system's cache.
    static void restore();

    virtual ~IpHelperWin32();

    // True when the system has reported an address change since the last refresh.
    virtual bool changeDetected() = 0;
    // Loads every record again; earlier records become invalid.
    virtual void refresh() = 0;
    // The adapter addresses records (from Vista on in the longer form, whose Length says
    // so), null when there are none.
    virtual IP_ADAPTER_ADDRESSES* getAdapterAddresses() = 0;
    // The adapter information records, null when there are none.
    virtual IP_ADAPTER_INFO* getAdapterInfo() = 0;
    // The per-adapter information of the interface `index`, allocated on the process heap
    // (the caller releases it with HeapFree), or null.
    virtual IP_PER_ADAPTER_INFO* makePerAdapterInfo(unsigned long index) = 0;
    // The host's fixed information, or null.
    virtual FIXED_INFO* getFixedInfo() = 0;

    // The addresses record whose adapter id is `id` (see adapterId), or null.
    IP_ADAPTER_ADDRESSES* findAddresses(const char* id);
    // The information record whose adapter name (the GUID text) is `name`, or null.
    IP_ADAPTER_INFO* findInfo(const char* name);

    // The id of an addresses record: its friendly name as multi-byte text; when that cannot
    // be converted, false with the conversion's errno in *error and the adapter name (GUID
    // text) in `out`.
    static bool adapterId(IP_ADAPTER_ADDRESSES* record, char* out, int size, int* error);
    // Wide text converted with the C library (wcstombs), cut to fit `out`; false with
    // errno in *error when it cannot be converted.
    static bool toMultiByte(const wchar_t* text, char* out, int size, int* error);

protected:
    IpHelperWin32() = default;

private:
    IpHelperWin32(const IpHelperWin32&) = delete;
    IpHelperWin32& operator=(const IpHelperWin32&) = delete;
};

}  // namespace velmora
