// Internal: the records and functions of the Enhanced Write Filter's management library
// ("ewfapi.dll") as its documentation publishes them, written with fixed-width types so
// that the portable code can walk them. WCHAR is a 16-bit character, BOOL a 32-bit int,
// HANDLE a pointer. The test filter library is built against this header too.
#pragma once

#include <cstddef>
#include <cstdint>

// The filter's functions follow the Windows calling convention (which only 32-bit x86
// distinguishes).
#if defined(_WIN32) && !defined(_WIN64)
#define VELMORA_EWF_CALL __stdcall
#else
#define VELMORA_EWF_CALL
#endif

namespace velmora {
namespace ewf {

typedef char16_t WCHAR;
typedef int32_t BOOL;
typedef void* HANDLE;

enum EWF_CMD : int32_t { EWF_NO_CMD = 0, EWF_ENABLE, EWF_DISABLE, EWF_SET_LEVEL, EWF_COMMIT };
enum EWF_STATE : int32_t { EWF_ENABLED = 0, EWF_DISABLED };
enum EWF_TYPE : int32_t { EWF_DISK = 0, EWF_RAM, EWF_RAM_REG };

const int EWF_MAX_DEVICE_NAME_LENGTH = 256;
const int EWF_VOLUME_ID_SIZE = 16;
const int EWF_MAX_LEVEL_NAME_LENGTH = 64;
const int EWF_MAX_PERSISTENT_DATA = 32;

struct FILETIME {
    uint32_t dwLowDateTime;
    uint32_t dwHighDateTime;
};

struct EWF_COMMAND {
    EWF_CMD Command;
    uint32_t Param1;
    uint32_t Param2;
};

struct EWF_VOLUME_NAME_ENTRY {
    EWF_VOLUME_NAME_ENTRY* Next;
    WCHAR Name[1];  // the name runs on past the record, terminated
};

struct EWF_LEVEL_DESC {
    WCHAR LevelName[EWF_MAX_LEVEL_NAME_LENGTH];
    FILETIME LevelEndTime;
    int64_t LevelDataSize;
};

struct EWF_VOLUME_DESC {
    WCHAR DeviceName[EWF_MAX_DEVICE_NAME_LENGTH];
    uint8_t VolumeID[EWF_VOLUME_ID_SIZE];
};

struct EWF_VOLUME_CONFIG {
    EWF_TYPE Type;
    EWF_STATE State;
    EWF_COMMAND BootCommand;
    uint8_t PersistentData[EWF_MAX_PERSISTENT_DATA];
    uint16_t MaxLevels;
    uint32_t ClumpSize;
    uint16_t CurrentLevel;
    union {
        struct {
            int64_t DiskMapSize;
            int64_t DiskDataSize;
        } DiskOverlay;
        struct {
            int64_t RamDataSize;
        } RamOverlay;
    };
    uint32_t MemMapSize;
    EWF_VOLUME_DESC VolumeDesc;
    EWF_LEVEL_DESC LevelDescArray[1];  // CurrentLevel entries follow in one allocation
};

// The layout the filter's 64-bit library hands out.
static_assert(sizeof(EWF_LEVEL_DESC) == 144, "level record");
static_assert(offsetof(EWF_VOLUME_CONFIG, MaxLevels) == 52, "volume record");
static_assert(offsetof(EWF_VOLUME_CONFIG, DiskOverlay) == 64, "volume record");
static_assert(offsetof(EWF_VOLUME_CONFIG, VolumeDesc) == 84, "volume record");
static_assert(offsetof(EWF_VOLUME_CONFIG, LevelDescArray) == 616, "volume record");

// The management functions, taken from the library by name into one table.
struct Functions {
    WCHAR(VELMORA_EWF_CALL* GetDriveLetterFromVolumeName)(const WCHAR* volumeName);
    void(VELMORA_EWF_CALL* VolumeNameListDelete)(EWF_VOLUME_NAME_ENTRY* list);
    void(VELMORA_EWF_CALL* VolumeNameEntryPop)(EWF_VOLUME_NAME_ENTRY** list);
    BOOL(VELMORA_EWF_CALL* Close)(HANDLE device);
    EWF_VOLUME_CONFIG*(VELMORA_EWF_CALL* GetProtectedVolumeConfig)(HANDLE device);
    HANDLE(VELMORA_EWF_CALL* OpenProtected)(const WCHAR* volume);
    BOOL(VELMORA_EWF_CALL* VolumeNameListIsEmpty)(EWF_VOLUME_NAME_ENTRY* list);
    EWF_VOLUME_NAME_ENTRY*(VELMORA_EWF_CALL* GetProtectedVolumeList)();
    BOOL(VELMORA_EWF_CALL* Commit)(HANDLE device);
    BOOL(VELMORA_EWF_CALL* Disable)(HANDLE device, BOOL commit);
    BOOL(VELMORA_EWF_CALL* ClearCommand)(HANDLE device);
    BOOL(VELMORA_EWF_CALL* Enable)(HANDLE device);
    bool loadFailed;
};

// The exported names, in the table's order.
const char* const kFunctionNames[12] = {"EwfMgrGetDriveLetterFromVolumeName",
                                        "EwfMgrVolumeNameListDelete",
                                        "EwfMgrVolumeNameEntryPop",
                                        "EwfMgrClose",
                                        "EwfMgrGetProtectedVolumeConfig",
                                        "EwfMgrOpenProtected",
                                        "EwfMgrVolumeNameListIsEmpty",
                                        "EwfMgrGetProtectedVolumeList",
                                        "EwfMgrCommit",
                                        "EwfMgrDisable",
                                        "EwfMgrClearCommand",
                                        "EwfMgrEnable"};

}  // namespace ewf
}  // namespace velmora
