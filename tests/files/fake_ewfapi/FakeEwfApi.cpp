// A stand-in for the write filter's management library ("ewfapi.dll"), built for the
// tests: it exports the twelve management functions over protected volumes that the test
// describes, fails the functions the test names with the last error it chooses, and keeps
// a log of the calls that act on a volume.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "files/EwfApi.h"

using velmora::ewf::EWF_LEVEL_DESC;
using velmora::ewf::EWF_VOLUME_CONFIG;
using velmora::ewf::EWF_VOLUME_NAME_ENTRY;
typedef velmora::ewf::WCHAR Wide;

namespace {

struct Volume {
    std::u16string name;
    Wide letter;
    std::vector<unsigned char> config;  // the configuration with its level records
};

std::vector<Volume> volumes;
std::map<std::string, DWORD> failing;  // function name -> the last error it fails with
std::string calls;
int liveEntries = 0;
int openHandles = 0;

bool fails(const char* function) {
    auto it = failing.find(function);
    if (it == failing.end()) return false;
    SetLastError(it->second);
    return true;
}

Volume* byHandle(HANDLE device) {
    const intptr_t i = reinterpret_cast<intptr_t>(device) - 1;
    return i >= 0 && i < static_cast<intptr_t>(volumes.size()) ? &volumes[i] : nullptr;
}

void record(const char* what, HANDLE device, const char* extra = "") {
    Volume* v = byHandle(device);
    calls += std::string(what) + "(" + (v != nullptr ? static_cast<char>(v->letter) : '?') + extra +
             ") ";
}

const EWF_VOLUME_CONFIG* configOf(const Volume& v) {
    return reinterpret_cast<const EWF_VOLUME_CONFIG*>(v.config.data());
}

// A command that succeeds becomes the volume's pending boot command, as in the filter.
BOOL command(const char* function, HANDLE device, velmora::ewf::EWF_CMD pending) {
    if (fails(function)) return 0;
    Volume* v = byHandle(device);
    if (v != nullptr) {
        reinterpret_cast<EWF_VOLUME_CONFIG*>(v->config.data())->BootCommand.Command = pending;
    }
    return 1;
}

EWF_VOLUME_NAME_ENTRY* newEntry(const std::u16string& name, EWF_VOLUME_NAME_ENTRY* next) {
    auto* e = static_cast<EWF_VOLUME_NAME_ENTRY*>(
        std::calloc(1, sizeof(EWF_VOLUME_NAME_ENTRY) + name.size() * sizeof(Wide)));
    std::memcpy(e->Name, name.c_str(), (name.size() + 1) * sizeof(Wide));
    e->Next = next;
    ++liveEntries;
    return e;
}

void freeEntry(EWF_VOLUME_NAME_ENTRY* e) {
    std::free(e);
    --liveEntries;
}

// Volumes given to a program that cannot script them (the daemon): VELMORA_FAKE_EWF holds
// "<letter>:<type>:<state>:<command>:<RAM data size>" per volume, separated by spaces.
void addFromEnvironment();
struct FromEnvironment {
    FromEnvironment() { addFromEnvironment(); }
} fromEnvironment;

}  // namespace

#define EXPORT extern "C" __declspec(dllexport)

// The test's side.
EXPORT void EwfFakeReset() {
    volumes.clear();
    failing.clear();
    calls.clear();
}

// A protected volume; `config` is followed by config->CurrentLevel level records.
EXPORT void EwfFakeAddVolume(const Wide* name, Wide letter, const EWF_VOLUME_CONFIG* config) {
    const int levels = config->CurrentLevel > 0 ? config->CurrentLevel : 1;
    const size_t size =
        offsetof(EWF_VOLUME_CONFIG, LevelDescArray) + levels * sizeof(EWF_LEVEL_DESC);
    const auto* bytes = reinterpret_cast<const unsigned char*>(config);
    volumes.push_back({name, letter, std::vector<unsigned char>(bytes, bytes + size)});
}

EXPORT void EwfFakeFail(const char* function, DWORD lastError) {
    failing[function] = lastError;
}

EXPORT const char* EwfFakeCalls() {
    return calls.c_str();
}

// Volume handles and list entries not given back yet.
EXPORT int EwfFakeLeftOpen() {
    return openHandles + liveEntries;
}

// The filter's side. A list ends in an entry with an empty name.
EXPORT EWF_VOLUME_NAME_ENTRY* EwfMgrGetProtectedVolumeList() {
    if (fails("EwfMgrGetProtectedVolumeList")) return nullptr;
    EWF_VOLUME_NAME_ENTRY* list = newEntry(u"", nullptr);
    for (size_t i = volumes.size(); i-- > 0;)
        list = newEntry(volumes[i].name, list);
    return list;
}

EXPORT BOOL EwfMgrVolumeNameListIsEmpty(EWF_VOLUME_NAME_ENTRY* list) {
    return list == nullptr || list->Name[0] == 0;
}

EXPORT void EwfMgrVolumeNameEntryPop(EWF_VOLUME_NAME_ENTRY** list) {
    if (*list == nullptr || (*list)->Next == nullptr) return;
    EWF_VOLUME_NAME_ENTRY* next = (*list)->Next;
    freeEntry(*list);
    *list = next;
}

EXPORT void EwfMgrVolumeNameListDelete(EWF_VOLUME_NAME_ENTRY* list) {
    while (list != nullptr) {
        EWF_VOLUME_NAME_ENTRY* next = list->Next;
        freeEntry(list);
        list = next;
    }
}

// Knows the volume names and the devices' names in the global object space.
EXPORT Wide EwfMgrGetDriveLetterFromVolumeName(const Wide* name) {
    if (fails("EwfMgrGetDriveLetterFromVolumeName")) return 0;
    for (const Volume& v : volumes) {
        if (v.name == name ||
            u"\\\\?\\GLOBALROOT" + std::u16string(configOf(v)->VolumeDesc.DeviceName) == name) {
            return v.letter;
        }
    }
    SetLastError(ERROR_FILE_NOT_FOUND);
    return 0;
}

EXPORT HANDLE EwfMgrOpenProtected(const Wide* name) {
    if (fails("EwfMgrOpenProtected")) return INVALID_HANDLE_VALUE;
    for (size_t i = 0; i < volumes.size(); ++i) {
        if (volumes[i].name == name) {
            HANDLE device = reinterpret_cast<HANDLE>(static_cast<intptr_t>(i + 1));
            record("Open", device);
            ++openHandles;
            return device;
        }
    }
    SetLastError(ERROR_FILE_NOT_FOUND);
    return INVALID_HANDLE_VALUE;
}

EXPORT BOOL EwfMgrClose(HANDLE device) {
    record("Close", device);
    --openHandles;  // given back even when the call reports a failure
    return !fails("EwfMgrClose");
}

EXPORT EWF_VOLUME_CONFIG* EwfMgrGetProtectedVolumeConfig(HANDLE device) {
    record("Config", device);
    Volume* v = byHandle(device);
    if (fails("EwfMgrGetProtectedVolumeConfig") || v == nullptr) return nullptr;
    void* copy = LocalAlloc(LPTR, v->config.size());  // released by the caller's LocalFree
    std::memcpy(copy, v->config.data(), v->config.size());
    return static_cast<EWF_VOLUME_CONFIG*>(copy);
}

EXPORT BOOL EwfMgrCommit(HANDLE device) {
    record("Commit", device);
    return command("EwfMgrCommit", device, velmora::ewf::EWF_COMMIT);
}

EXPORT BOOL EwfMgrDisable(HANDLE device, BOOL commit) {
    record("Disable", device, commit ? ",commit" : ",keep");
    return command("EwfMgrDisable", device, velmora::ewf::EWF_DISABLE);
}

EXPORT BOOL EwfMgrClearCommand(HANDLE device) {
    record("ClearCommand", device);
    return command("EwfMgrClearCommand", device, velmora::ewf::EWF_NO_CMD);
}

EXPORT BOOL EwfMgrEnable(HANDLE device) {
    record("Enable", device);
    return command("EwfMgrEnable", device, velmora::ewf::EWF_ENABLE);
}

namespace {

void addFromEnvironment() {
    const char* given = std::getenv("VELMORA_FAKE_EWF");
    for (int used = 0; given != nullptr && *given != 0; given += used) {
        char letter = 0;
        int type = 0, state = 0, command = 0;
        long long ram = 0;
        used = 0;
        if (std::sscanf(given, " %c:%d:%d:%d:%lld%n", &letter, &type, &state, &command, &ram,
                        &used) != 5 ||
            used == 0) {
            return;
        }
        EWF_VOLUME_CONFIG c = {};
        c.Type = static_cast<velmora::ewf::EWF_TYPE>(type);
        c.State = static_cast<velmora::ewf::EWF_STATE>(state);
        c.BootCommand.Command = static_cast<velmora::ewf::EWF_CMD>(command);
        c.RamOverlay.RamDataSize = ram;
        const std::u16string device = u"\\Device\\HarddiskVolume" + std::u16string(1, letter);
        device.copy(c.VolumeDesc.DeviceName, device.size());
        const std::u16string name = u"\\\\?\\Volume{" + std::u16string(1, letter) + u"}";
        EwfFakeAddVolume(name.c_str(), static_cast<Wide>(letter), &c);
    }
}

}  // namespace
