#include <windows.h>

#include <cstdio>
#include <cstring>
#include <cwchar>

#include "files/EwfSystem.h"

namespace velmora {
namespace ewfsys {

namespace {

HMODULE library = nullptr;

// The filter's library comes from the system directory only, by its full path: where the
// filter is not installed, a DLL of that name in the current directory or on PATH must
// not be loaded into the process. The tests name their own filter library (a full path)
// in VELMORA_TEST_EWFAPI instead.
HMODULE openLibrary() {
    char path[MAX_PATH + 16];
    DWORD n = GetEnvironmentVariableA("VELMORA_TEST_EWFAPI", path, MAX_PATH);
    if (n == 0 || n >= MAX_PATH) {
        UINT length = GetSystemDirectoryA(path, MAX_PATH);
        if (length == 0 || length >= MAX_PATH) return nullptr;
        std::strcpy(path + length, "\\ewfapi.dll");
    }
    return LoadLibraryExA(path, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
}

}  // namespace

bool load(ewf::Functions* table) {
    *table = ewf::Functions();
    HMODULE module = openLibrary();
    if (module == nullptr) {
        table->loadFailed = true;
        return false;
    }
    // The table's function pointers in order, each taken by its exported name.
    void (**slots[12])() = {};
    auto slot = [](auto& field) { return reinterpret_cast<void (**)()>(&field); };
    slots[0] = slot(table->GetDriveLetterFromVolumeName);
    slots[1] = slot(table->VolumeNameListDelete);
    slots[2] = slot(table->VolumeNameEntryPop);
    slots[3] = slot(table->Close);
    slots[4] = slot(table->GetProtectedVolumeConfig);
    slots[5] = slot(table->OpenProtected);
    slots[6] = slot(table->VolumeNameListIsEmpty);
    slots[7] = slot(table->GetProtectedVolumeList);
    slots[8] = slot(table->Commit);
    slots[9] = slot(table->Disable);
    slots[10] = slot(table->ClearCommand);
    slots[11] = slot(table->Enable);
    for (int i = 0; i < 12; ++i) {
        FARPROC proc = GetProcAddress(module, ewf::kFunctionNames[i]);
        if (proc == nullptr) {
            FreeLibrary(module);
            *table = ewf::Functions();
            table->loadFailed = true;
            return false;
        }
        *slots[i] = reinterpret_cast<void (*)()>(proc);
    }
    library = module;
    return true;
}

void unload() {
    if (library != nullptr) FreeLibrary(library);
    library = nullptr;
}

unsigned long lastError() {
    return GetLastError();
}

void freeConfig(ewf::EWF_VOLUME_CONFIG* config) {
    LocalFree(config);
}

TimeResult localTime(const ewf::FILETIME& time, LocalTime* out) {
    ::FILETIME utc = {time.dwLowDateTime, time.dwHighDateTime};
    ::FILETIME local;
    if (!FileTimeToLocalFileTime(&utc, &local)) return TimeResult::localFailed;
    SYSTEMTIME st;
    if (!FileTimeToSystemTime(&local, &st)) return TimeResult::calendarFailed;
    *out = {st.wYear, st.wMonth, st.wDay, st.wHour, st.wMinute, st.wSecond};
    return TimeResult::ok;
}

void writeWide(const std::wstring& text) {
    std::fputws(text.c_str(), stdout);
    std::fflush(stdout);
}

}  // namespace ewfsys
}  // namespace velmora
