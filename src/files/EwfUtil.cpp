#include <velmora/files/EwfUtil.h>

#include <velmora/log/ErrorHandler.h>

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "files/EwfApi.h"
#include "files/EwfSystem.h"

namespace velmora {

using namespace ewf;

namespace {

ewf::Functions table = {};
EwfUtil* instance = nullptr;

// The reason given when a command number has no filter function: no system call failed.
const unsigned long kInvalidParameter = 87;

// The failure of one call, reported once when the call ends. The first failure is kept:
// what goes wrong while cleaning up after it is only a consequence.
class Failure {
public:
    void record(const char* function, unsigned long code) {
        if (text_[0] != 0) return;
        std::snprintf(text_, sizeof text_, "%s failed, reason code=%lu\n", function, code);
    }
    void report(ErrorHandler* err) const {
        if (text_[0] != 0 && err != nullptr) err->error(text_);
    }

private:
    char text_[100] = {};
};

bool isOpen(HANDLE device) {
    return device != nullptr && device != reinterpret_cast<HANDLE>(static_cast<intptr_t>(-1));
}

// Drive letters compare ignoring ASCII case: callers write "c" as often as "C".
bool sameDrive(WCHAR letter, wchar_t drive) {
    auto upper = [](unsigned long c) { return c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c; };
    return upper(letter) == upper(static_cast<unsigned long>(drive));
}

#if defined(__GNUC__)
__attribute__((format(printf, 2, 3)))
#endif
void appendf(std::wstring& out, const char* format, ...) {
    char text[256];
    va_list args;
    va_start(args, format);
    const int n = std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    for (int i = 0; i < n && i < static_cast<int>(sizeof text) - 1; ++i) {
        out += static_cast<wchar_t>(static_cast<unsigned char>(text[i]));
    }
}

// A name of at most `max` characters (the filter's fields need not be terminated).
void appendName(std::wstring& out, const WCHAR* name, int max) {
    for (int i = 0; i < max && name[i] != 0; ++i)
        out += static_cast<wchar_t>(name[i]);
}

void appendHex(std::wstring& out, const uint8_t* bytes, int count) {
    for (int i = 0; i < count; ++i)
        appendf(out, "%02X", bytes[i]);
    out += L'\n';
}

// The operations that act on one protected volume once it is open.
enum class Work { find, state, command, ramUsage, setCommand };

// Reads one field of the configuration, releases it and closes the volume.
int64_t readConfig(HANDLE* device, Work work, Failure* failure) {
    EWF_VOLUME_CONFIG* config = table.GetProtectedVolumeConfig(*device);
    if (config == nullptr) {
        failure->record("EwfMgrGetProtectedVolumeConfig", ewfsys::lastError());
        return -1;
    }
    int64_t value = 0;
    if (work == Work::state) {
        value = static_cast<uint16_t>(config->State);  // read as 16 bits
    } else if (work == Work::command) {
        value = static_cast<uint16_t>(config->BootCommand.Command);
    } else {
        value = config->RamOverlay.RamDataSize;
    }
    ewfsys::freeConfig(config);
    if (!table.Close(*device)) failure->record("EwfMgrClose", ewfsys::lastError());
    *device = nullptr;
    return value;
}

BOOL runCommand(HANDLE device, int command) {
    switch (command) {
        case EWF_NO_CMD:
            return table.ClearCommand(device);
        case EWF_ENABLE:
            return table.Enable(device);
        case EWF_DISABLE:
            return table.Disable(device, 1);  // disabling always commits the overlay
        case EWF_COMMIT:
            return table.Commit(device);
        default:
            // EWF_SET_LEVEL and unknown numbers: nothing is asked of the filter.
            return 0;
    }
}

bool setCommand(HANDLE* device, int command, Failure* failure) {
    const bool known = command >= EWF_NO_CMD && command <= EWF_COMMIT && command != EWF_SET_LEVEL;
    if (!runCommand(*device, command)) {
        failure->record("EwfMgr Command", known ? ewfsys::lastError() : kInvalidParameter);
        return false;
    }
    ewfsys::writeWide(L"EwfMgr Command succeeded\n");
    if (!table.Close(*device)) failure->record("EwfMgrClose", ewfsys::lastError());
    *device = nullptr;
    return true;
}

// Walks the protected volumes to the one on `drive` and does the work there. A drive with
// no protected volume answers 0 without a report; a step that fails before the answer is
// known answers -1 (false for a command), reported, so that 0 never stands for a failure.
int64_t onVolume(wchar_t drive, ErrorHandler* err, Work work, int command) {
    Failure failure;
    const int64_t failed = work == Work::setCommand ? 0 : -1;
    EWF_VOLUME_NAME_ENTRY* list = table.GetProtectedVolumeList();
    if (list == nullptr) {
        failure.record("EwfMgrGetProtectedVolumeList", ewfsys::lastError());
        failure.report(err);
        return failed;
    }
    int64_t result = 0;
    HANDLE device = nullptr;
    while (!table.VolumeNameListIsEmpty(list)) {
        const WCHAR letter = table.GetDriveLetterFromVolumeName(list->Name);
        if (letter == 0) {
            failure.record("EwfMgrGetDriveLetterFromVolumeName", ewfsys::lastError());
            result = failed;
            break;
        }
        if (sameDrive(letter, drive) && work == Work::find) {
            result = 1;
            break;
        }
        if (sameDrive(letter, drive)) {
            device = table.OpenProtected(list->Name);
            if (!isOpen(device)) {
                failure.record("EwfMgrOpenProtected", ewfsys::lastError());
                device = nullptr;
                result = failed;
            } else if (work == Work::setCommand) {
                result = setCommand(&device, command, &failure) ? 1 : 0;
            } else {
                result = readConfig(&device, work, &failure);
            }
            break;
        }
        table.VolumeNameEntryPop(&list);
    }
    table.VolumeNameListDelete(list);
    if (device != nullptr && !table.Close(device)) {
        failure.record("EwfMgrClose", ewfsys::lastError());
    }
    failure.report(err);
    return result;
}

// The printed configuration of one volume.
class Printout {
public:
    explicit Printout(int64_t* status) : status_(status) {}

    // Prints "<function> failed LE = <code>" and keeps the first code as the result.
    void fail(const char* function) {
        const unsigned long code = ewfsys::lastError();
        appendf(text_, "%s failed LE = %lu\n", function, code);
        if (*status_ == 0) *status_ = code != 0 ? static_cast<int64_t>(code) : -1;
    }
    void volume(WCHAR letter, const WCHAR* name) {
        appendf(text_, "%c: = ", static_cast<char>(letter));
        appendName(text_, name, 1 << 15);
        text_ += L'\n';
    }
    void config(const EWF_VOLUME_CONFIG* c);
    void flush() {
        ewfsys::writeWide(text_);
        text_.clear();
    }

private:
    void kindAndState(const EWF_VOLUME_CONFIG* c);
    void sizes(const EWF_VOLUME_CONFIG* c);
    void device(const EWF_VOLUME_CONFIG* c);
    void level(int index, const EWF_LEVEL_DESC* level);

    std::wstring text_;
    int64_t* status_;
};

void Printout::config(const EWF_VOLUME_CONFIG* c) {
    const std::string rule(56, '-');
    appendf(text_, "%s\n", rule.c_str());
    appendf(text_, "-- Ewf protected volume configuration                   \n");
    appendf(text_, "%s\n\n", rule.c_str());
    kindAndState(c);
    appendf(text_, "Persistent Data  :");
    appendHex(text_, c->PersistentData, EWF_MAX_PERSISTENT_DATA);
    sizes(c);
    device(c);
    for (int i = 1; i <= c->CurrentLevel; ++i)
        level(i, &c->LevelDescArray[i - 1]);
}

void Printout::kindAndState(const EWF_VOLUME_CONFIG* c) {
    static const char* const kTypes[] = {"TYPE      : EWF_DISK\n", "TYPE      : EWF_RAM\n",
                                         "TYPE      : EWF_RAM_REG\n"};
    // In the order of the filter's command numbers.
    static const char* const kCommands[] = {"BOOT CMD  : EWF_NO_CMD", "BOOT CMD  : EWF_ENABLE",
                                            "BOOT CMD  : EWF_DISABLE", "BOOT CMD  : EWF_SET_LEVEL",
                                            "BOOT CMD  : EWF_COMMIT"};
    const bool knownType = c->Type >= EWF_DISK && c->Type <= EWF_RAM_REG;
    appendf(text_, "%s", knownType ? kTypes[c->Type] : "ERROR: Unknown Ewf type\n");
    appendf(text_, "%s",
            c->State == EWF_ENABLED    ? "STATE     : EWF_ENABLED\n"
            : c->State == EWF_DISABLED ? "STATE     : EWF_DISABLED\n"
                                       : "ERROR: Unknown Ewf state\n");
    const int cmd = c->BootCommand.Command;
    const char* name =
        cmd >= EWF_NO_CMD && cmd <= EWF_COMMIT ? kCommands[cmd] : "ERROR: Unknown Ewf command";
    appendf(text_, "%s Param1 = %u  Param2 = %u\n\n", name, c->BootCommand.Param1,
            c->BootCommand.Param2);
}

// Sizes are printed whole: a RAM overlay may pass 4 GB.
void Printout::sizes(const EWF_VOLUME_CONFIG* c) {
    appendf(text_, "Maximum Levels   : %u\n", c->MaxLevels);
    appendf(text_, "Clump Size       : %u Bytes\n", c->ClumpSize);
    appendf(text_, "Current Level    : %u\n", c->CurrentLevel);
    if (c->Type == EWF_DISK) {
        appendf(text_, "Disk Map Size    : %" PRId64 " Bytes\n", c->DiskOverlay.DiskMapSize);
        appendf(text_, "Disk Data Size   : %" PRId64 " Bytes\n", c->DiskOverlay.DiskDataSize);
    } else {
        appendf(text_, "Ram Data Size    : %" PRId64 " Bytes\n", c->RamOverlay.RamDataSize);
    }
    appendf(text_, "Memory Map Size  : %u Bytes\n\n", c->MemMapSize);
}

void Printout::device(const EWF_VOLUME_CONFIG* c) {
    const EWF_VOLUME_DESC& desc = c->VolumeDesc;
    appendf(text_, "Device Name      : ");
    appendName(text_, desc.DeviceName, EWF_MAX_DEVICE_NAME_LENGTH);
    text_ += L'\n';
    appendf(text_, "Volume ID        :");
    appendHex(text_, desc.VolumeID, EWF_VOLUME_ID_SIZE);
    // The drive letter through the device's name in the global object space.
    std::u16string global = u"\\\\?\\GLOBALROOT";
    for (int i = 0; i < EWF_MAX_DEVICE_NAME_LENGTH && desc.DeviceName[i] != 0; ++i) {
        global += desc.DeviceName[i];
    }
    const WCHAR letter = table.GetDriveLetterFromVolumeName(global.c_str());
    if (letter == 0) {
        fail("EwfMgrGetDriveLetterFromVolumeName");
    } else {
        appendf(text_, "Drive            : %c\n\n", static_cast<char>(letter));
    }
}

void Printout::level(int index, const EWF_LEVEL_DESC* level) {
    appendf(text_, "Level Index      : %u\n", static_cast<unsigned>(index));
    appendf(text_, "Level Name       : ");
    appendName(text_, level->LevelName, EWF_MAX_LEVEL_NAME_LENGTH);
    text_ += L'\n';
    ewfsys::LocalTime t = {};
    switch (ewfsys::localTime(level->LevelEndTime, &t)) {
        case ewfsys::TimeResult::ok:
            appendf(text_, "Level ended at   : %d:%d:%d on %d/%d/%d\n", t.hour, t.minute, t.second,
                    t.month, t.day, t.year);
            break;
        case ewfsys::TimeResult::localFailed:
            appendf(text_, "Failed converting FILETIME to local FILETIME\n");
            break;
        case ewfsys::TimeResult::calendarFailed:
            appendf(text_, "Failed converting FILETIME to SYSTEMTIME\n");
            break;
    }
    appendf(text_, "Level Data Size  : %" PRId64 " Bytes\n\n", level->LevelDataSize);
}

}  // namespace

EwfUtil* EwfUtil::getInstance(ErrorHandler* err) {
    if (instance == nullptr && !table.loadFailed && ewfsys::load(&table)) {
        instance = new EwfUtil();
    }
    if (instance == nullptr && err != nullptr) err->error("ewfapi.dll is not available");
    return instance;
}

void EwfUtil::unload() {
    delete instance;
    instance = nullptr;
    ewfsys::unload();
    table = ewf::Functions();
}

int EwfUtil::isProtected(wchar_t drive, ErrorHandler* err) {
    return static_cast<int>(onVolume(drive, err, Work::find, 0));
}

int EwfUtil::getOverlayState(wchar_t drive, ErrorHandler* err) {
    return static_cast<int>(onVolume(drive, err, Work::state, 0));
}

int EwfUtil::getOverlayCommand(wchar_t drive, ErrorHandler* err) {
    return static_cast<int>(onVolume(drive, err, Work::command, 0));
}

int64_t EwfUtil::getOverlayRamUsage(wchar_t drive, ErrorHandler* err) {
    return onVolume(drive, err, Work::ramUsage, 0);
}

bool EwfUtil::setOverlayCommand(wchar_t drive, int command, ErrorHandler* err) {
    return onVolume(drive, err, Work::setCommand, command) != 0;
}

int64_t EwfUtil::dumpEwfProtectedVolumeList(ErrorHandler*) {
    int64_t status = 0;
    Printout out(&status);
    EWF_VOLUME_NAME_ENTRY* list = table.GetProtectedVolumeList();
    if (list == nullptr) {
        out.fail("EwfMgrGetProtectedVolumeList");
        out.flush();
        return status;
    }
    // Every volume is shown; one that fails is shown as far as it goes.
    for (; !table.VolumeNameListIsEmpty(list); table.VolumeNameEntryPop(&list)) {
        const WCHAR letter = table.GetDriveLetterFromVolumeName(list->Name);
        if (letter == 0) {
            out.fail("EwfMgrGetDriveLetterFromVolumeName");
            continue;
        }
        out.volume(letter, list->Name);
        HANDLE device = table.OpenProtected(list->Name);
        if (!isOpen(device)) {
            out.fail("EwfMgrOpenProtected");
            continue;
        }
        EWF_VOLUME_CONFIG* config = table.GetProtectedVolumeConfig(device);
        if (config == nullptr) {
            out.fail("EwfMgrGetProtectedVolumeConfig");
        } else {
            out.config(config);
            ewfsys::freeConfig(config);
        }
        if (!table.Close(device)) out.fail("EwfMgrClose");
    }
    table.VolumeNameListDelete(list);
    out.flush();
    return status;
}

}  // namespace velmora
