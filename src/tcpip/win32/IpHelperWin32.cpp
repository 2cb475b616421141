// The system's IP Helper cache: the adapter addresses records (XP and later), the adapter
// information records and the fixed information, loaded at once and again after the
// system signals an address change.
#include "tcpip/win32/IpHelperWin32.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

#include "tcpip/win32/HostSystemWin32.h"

namespace velmora {

namespace {

// Calls `get(buffer, &size)` with a growing buffer until it fits. False on failure;
// ERROR_NO_DATA counts as success with no records (an empty buffer).
template <typename Get>
bool loadRecords(std::vector<unsigned char>& buffer, Get get) {
    ULONG size = 16 * 1024;
    for (int attempt = 0; attempt < 4; ++attempt) {
        buffer.assign(size, 0);
        ULONG status = get(buffer.data(), &size);
        if (status == NO_ERROR) return true;
        if (status == ERROR_NO_DATA) {
            buffer.clear();
            return true;
        }
        if (status != ERROR_BUFFER_OVERFLOW) break;
    }
    buffer.clear();
    return false;
}

class SystemIpHelper : public IpHelperWin32 {
public:
    SystemIpHelper() {
        std::memset(&overlapped_, 0, sizeof overlapped_);
        overlapped_.hEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
        watch();
    }

    ~SystemIpHelper() override {
        if (watching_) CancelIPChangeNotify(&overlapped_);
        if (overlapped_.hEvent != nullptr) CloseHandle(overlapped_.hEvent);
    }

    // The records the settings need on this Windows could all be read.
    bool load() {
        bool ok = true;
        if (HostSystemWin32::isWinXP()) {
            ULONG flags = GAA_FLAG_INCLUDE_PREFIX;
            // Gateways come only with the longer record that Vista introduced.
            if (HostSystemWin32::isWinVista()) flags |= GAA_FLAG_INCLUDE_GATEWAYS;
            ok = loadRecords(addresses_, [flags](unsigned char* data, ULONG* size) {
                return GetAdaptersAddresses(AF_UNSPEC, flags, nullptr,
                                            reinterpret_cast<IP_ADAPTER_ADDRESSES*>(data), size);
            });
        }
        ok = loadRecords(info_,
                         [](unsigned char* data, ULONG* size) {
                             return GetAdaptersInfo(reinterpret_cast<IP_ADAPTER_INFO*>(data), size);
                         }) &&
             ok;
        // The fixed information is asked for separately: without it only the host name and
        // domain are missing.
        loadRecords(fixed_, [](unsigned char* data, ULONG* size) {
            return GetNetworkParams(reinterpret_cast<FIXED_INFO*>(data), size);
        });
        return ok;
    }

    bool changeDetected() override {
        // Without a notification pending a change cannot be seen: read again every time.
        if (!watching_) return true;
        return WaitForSingleObject(overlapped_.hEvent, 0) == WAIT_OBJECT_0;
    }

    void refresh() override {
        if (watching_) {
            CancelIPChangeNotify(&overlapped_);
            watching_ = false;
        }
        watch();
        load();
    }

    IP_ADAPTER_ADDRESSES* getAdapterAddresses() override {
        return addresses_.empty() ? nullptr
                                  : reinterpret_cast<IP_ADAPTER_ADDRESSES*>(addresses_.data());
    }

    IP_ADAPTER_INFO* getAdapterInfo() override {
        return info_.empty() ? nullptr : reinterpret_cast<IP_ADAPTER_INFO*>(info_.data());
    }

    IP_PER_ADAPTER_INFO* makePerAdapterInfo(unsigned long index) override {
        ULONG size = 0;
        if (GetPerAdapterInfo(index, nullptr, &size) != ERROR_BUFFER_OVERFLOW || size == 0)
            return nullptr;
        void* block = HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, size);
        if (block == nullptr) return nullptr;
        auto* info = static_cast<IP_PER_ADAPTER_INFO*>(block);
        if (GetPerAdapterInfo(index, info, &size) != NO_ERROR) {
            HeapFree(GetProcessHeap(), 0, block);
            return nullptr;
        }
        return info;
    }

    FIXED_INFO* getFixedInfo() override {
        return fixed_.empty() ? nullptr : reinterpret_cast<FIXED_INFO*>(fixed_.data());
    }

private:
    // Asks the system to signal the event at the next address change.
    void watch() {
        if (overlapped_.hEvent == nullptr) return;
        ResetEvent(overlapped_.hEvent);
        HANDLE handle = nullptr;
        DWORD status = NotifyAddrChange(&handle, &overlapped_);
        watching_ = status == ERROR_IO_PENDING;
    }

    std::vector<unsigned char> addresses_;
    std::vector<unsigned char> info_;
    std::vector<unsigned char> fixed_;
    OVERLAPPED overlapped_;
    bool watching_ = false;
};

bool substituted = false;
IpHelperWin32* given = nullptr;
SystemIpHelper* systemHelper = nullptr;

}  // namespace

IpHelperWin32* IpHelperWin32::getInstance() {
    if (substituted) return given;
    if (systemHelper == nullptr) {
        auto* helper = new SystemIpHelper();
        if (!helper->load()) {
            // Tried again on the next request: the system may answer later.
            delete helper;
            return nullptr;
        }
        systemHelper = helper;
    }
    return systemHelper;
}

void IpHelperWin32::substitute(IpHelperWin32* helper) {
    given = helper;
    substituted = true;
}

void IpHelperWin32::restore() {
    substituted = false;
    given = nullptr;
}

IpHelperWin32::~IpHelperWin32() = default;

IP_ADAPTER_ADDRESSES* IpHelperWin32::findAddresses(const char* id) {
    if (id == nullptr) return nullptr;
    for (IP_ADAPTER_ADDRESSES* a = getAdapterAddresses(); a != nullptr; a = a->Next) {
        char name[256];
        int error = 0;
        adapterId(a, name, sizeof name, &error);
        // Ids are kept to 127 characters: compare as much as the adapter object holds.
        if (std::strncmp(name, id, 127) == 0) return a;
    }
    return nullptr;
}

IP_ADAPTER_INFO* IpHelperWin32::findInfo(const char* name) {
    if (name == nullptr) return nullptr;
    for (IP_ADAPTER_INFO* i = getAdapterInfo(); i != nullptr; i = i->Next) {
        if (std::strcmp(i->AdapterName, name) == 0) return i;
    }
    return nullptr;
}

bool IpHelperWin32::adapterId(IP_ADAPTER_ADDRESSES* record, char* out, int size, int* error) {
    if (toMultiByte(record->FriendlyName, out, size, error)) return true;
    std::snprintf(out, size, "%s", record->AdapterName != nullptr ? record->AdapterName : "");
    return false;
}

bool IpHelperWin32::toMultiByte(const wchar_t* text, char* out, int size, int* error) {
    if (out == nullptr || size <= 0) return false;
    out[0] = '\0';
    if (text == nullptr) return true;
    // Converted into room for the longest result: a counting call (null destination) is
    // not enough, since some C libraries count characters they then fail to convert.
    std::string converted(std::wcslen(text) * MB_CUR_MAX + 1, '\0');
    errno = 0;
    if (std::wcstombs(&converted[0], text, converted.size()) == static_cast<size_t>(-1)) {
        if (error != nullptr) *error = errno != 0 ? errno : EILSEQ;
        return false;
    }
    std::snprintf(out, size, "%s", converted.c_str());
    return true;
}

}  // namespace velmora
