#include <velmora/files/EwfUtil.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "support/Reports.h"

#ifdef _WIN32
#include <windows.h>

#include <regex>
#endif

using velmora::EwfUtil;
using velmora::test::Reports;

// Where the filter is not installed (Linux, and Wine without the test library on its
// search path) the feature is reported missing, every time it is asked for.
TEST(EwfUtil, MissingFilterIsReportedAndGivesNoInstance) {
    EwfUtil::unload();
    Reports reports;
    EXPECT_EQ(EwfUtil::getInstance(&reports), nullptr);
    EXPECT_EQ(EwfUtil::getInstance(&reports), nullptr);
    ASSERT_EQ(reports.texts.size(), 2u);
    EXPECT_EQ(reports.texts[0], "ewfapi.dll is not available");
    EwfUtil::unload();
}

#ifdef _WIN32

// Where the filter is not installed, a library of its name in the current directory, on
// PATH or in the DLL directory is never loaded into the process.
TEST(EwfUtil, FilterLibraryComesFromTheSystemDirectoryOnly) {
    char exe[MAX_PATH];
    GetModuleFileNameA(nullptr, exe, MAX_PATH);
    std::string probe(exe, std::strrchr(exe, '\\') - exe);
    probe += "\\ewf-fake";
    char before[MAX_PATH], path[32768];
    GetCurrentDirectoryA(MAX_PATH, before);
    DWORD pathLength = GetEnvironmentVariableA("PATH", path, sizeof path);
    ASSERT_TRUE(SetCurrentDirectoryA(probe.c_str()));
    SetEnvironmentVariableA("PATH", (probe + ";" + std::string(path, pathLength)).c_str());
    SetDllDirectoryA(probe.c_str());
    EwfUtil::unload();
    Reports reports;
    EwfUtil* ewf = EwfUtil::getInstance(&reports);
    HMODULE loaded = GetModuleHandleA("ewfapi.dll");
    EwfUtil::unload();
    SetDllDirectoryA(nullptr);
    SetEnvironmentVariableA("PATH", std::string(path, pathLength).c_str());
    SetCurrentDirectoryA(before);
    EXPECT_EQ(ewf, nullptr);
    EXPECT_EQ(loaded, nullptr) << "the probe library was loaded";
    EXPECT_EQ(reports.texts, std::vector<std::string>{"ewfapi.dll is not available"});
}

namespace {

// The records the test library hands out, as the filter documents them.
enum { kDisk = 0, kRam = 1, kEnabled = 0, kDisabled = 1 };
struct LevelDesc {
    char16_t name[64];
    FILETIME end;
    int64_t dataSize;
};
struct VolumeConfig {
    int32_t type, state, command;
    uint32_t param1, param2;
    uint8_t persistent[32];
    uint16_t maxLevels;
    uint32_t clumpSize;
    uint16_t currentLevel;
    int64_t mapOrRamSize, diskDataSize;
    uint32_t memMapSize;
    char16_t deviceName[256];
    uint8_t volumeId[16];
    LevelDesc levels[2];
};
static_assert(offsetof(VolumeConfig, levels) == 616, "the filter's 64-bit layout");

// The project's own filter library, loaded by the library's ordinary LoadLibrary call
// once its folder is on the search path, with volumes scripted by each test.
class EwfUtilFilter : public testing::Test {
protected:
    void SetUp() override {
        char exe[MAX_PATH];
        GetModuleFileNameA(nullptr, exe, MAX_PATH);
        std::string dir(exe, std::strrchr(exe, '\\') - exe);
        SetEnvironmentVariableA("VELMORA_TEST_EWFAPI", (dir + "\\ewf-fake\\ewfapi.dll").c_str());
        EwfUtil::unload();
        ewf_ = EwfUtil::getInstance(&reports_);
        ASSERT_NE(ewf_, nullptr);
        HMODULE fake = GetModuleHandleA("ewfapi.dll");
        ASSERT_NE(fake, nullptr);
        find(fake, "EwfFakeReset", &reset_);
        find(fake, "EwfFakeAddVolume", &add_);
        find(fake, "EwfFakeFail", &fail_);
        find(fake, "EwfFakeCalls", &calls_);
        find(fake, "EwfFakeLeftOpen", &leftOpen_);
        reset_();
        add(u"\\\\?\\Volume{d}", L'D', kDisk, kDisabled, 1, 0);
        add(u"\\\\?\\Volume{c}", L'C', kRam, kEnabled, 4, 5000000000LL);
    }
    void TearDown() override {
        EXPECT_EQ(leftOpen_(), 0) << "every volume closed and every list deleted";
        EwfUtil::unload();
        SetEnvironmentVariableA("VELMORA_TEST_EWFAPI", nullptr);
    }
    template <typename F>
    void find(HMODULE m, const char* name, F* fn) {
        *fn = reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(m, name)));
        ASSERT_NE(*fn, nullptr) << name;
    }
    void add(const char16_t* name, wchar_t letter, int type, int state, int command, int64_t size) {
        VolumeConfig c = {};
        c.type = type;
        c.state = state;
        c.command = command;
        c.mapOrRamSize = size;
        c.currentLevel = type == kDisk ? 2 : 0;
        c.maxLevels = 9;
        c.clumpSize = 512;
        c.persistent[0] = 0x0A;
        c.volumeId[15] = 0xC3;
        std::u16string device = u"\\Device\\HarddiskVolume" + std::u16string(1, letter);
        device.copy(c.deviceName, device.size());
        for (int i = 0; i < 2; ++i) {
            std::u16string(u"level-").append(1, u'1' + i).copy(c.levels[i].name, 7);
            c.levels[i].end = {0xF12C0000, 0x01CDE7B2};  // 1 January 2013, 00:00 UTC
            c.levels[i].dataSize = 4096 * (i + 1);
        }
        add_(name, static_cast<char16_t>(letter), &c);
    }

    EwfUtil* ewf_ = nullptr;
    Reports reports_;
    void (*reset_)() = nullptr;
    void (*add_)(const char16_t*, char16_t, const VolumeConfig*) = nullptr;
    void (*fail_)(const char*, DWORD) = nullptr;
    const char* (*calls_)() = nullptr;
    int (*leftOpen_)() = nullptr;
};

}  // namespace

// The getters find the volume by its letter in either case; a letter with no protected
// volume answers 0 and is no error.
TEST_F(EwfUtilFilter, GettersReadTheNamedVolume) {
    EXPECT_EQ(ewf_->getOverlayState(L'D', &reports_), kDisabled);
    EXPECT_EQ(ewf_->getOverlayCommand(L'd', &reports_), 1);
    EXPECT_EQ(ewf_->getOverlayCommand(L'C', &reports_), 4);
    EXPECT_EQ(ewf_->getOverlayRamUsage(L'C', &reports_), 5000000000LL);
    EXPECT_EQ(ewf_->getOverlayState(L'E', &reports_), 0);
    EXPECT_FALSE(ewf_->setOverlayCommand(L'E', 1, &reports_));
    EXPECT_EQ(ewf_->isProtected(L'e', &reports_), 0) << "state 0 above: no volume, not enabled";
    EXPECT_EQ(ewf_->isProtected(L'c', &reports_), 1);
    EXPECT_TRUE(reports_.texts.empty());
    EXPECT_STREQ(calls_(),
                 "Open(D) Config(D) Close(D) Open(D) Config(D) Close(D) Open(C) "
                 "Config(C) Close(C) Open(C) Config(C) Close(C) ");
}

// Each command number reaches its function (disabling always commits); set-level and
// unknown numbers are refused without asking the filter.
TEST_F(EwfUtilFilter, CommandsMapToTheirFunctions) {
    testing::internal::CaptureStdout();
    for (int command : {0, 1, 2, 4})
        EXPECT_TRUE(ewf_->setOverlayCommand(L'C', command, &reports_));
    std::string printed;
    for (int i = 0; i < 4; ++i)
        printed += "EwfMgr Command succeeded\n";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), printed);
    EXPECT_STREQ(calls_(),
                 "Open(C) ClearCommand(C) Close(C) Open(C) Enable(C) Close(C) "
                 "Open(C) Disable(C,commit) Close(C) Open(C) Commit(C) Close(C) ");
    reset_();
    add(u"\\\\?\\Volume{c}", L'C', kRam, kEnabled, 0, 0);
    EXPECT_FALSE(ewf_->setOverlayCommand(L'C', 3, &reports_));
    EXPECT_FALSE(ewf_->setOverlayCommand(L'C', 9, &reports_));
    EXPECT_STREQ(calls_(), "Open(C) Close(C) Open(C) Close(C) ");
    ASSERT_EQ(reports_.texts.size(), 2u);
    EXPECT_EQ(reports_.texts[0], "EwfMgr Command failed, reason code=87\n");
}

// Each failing step is reported once, with the filter's last error, and nothing is left
// open; a value read before a failing close is still answered.
TEST_F(EwfUtilFilter, FailuresCarryTheFiltersLastError) {
    const struct {
        const char* function;
        DWORD error;
        const char* text;
    } cases[] = {
        {"EwfMgrGetProtectedVolumeList", 8, "EwfMgrGetProtectedVolumeList failed, reason code=8\n"},
        {"EwfMgrGetDriveLetterFromVolumeName", 21,
         "EwfMgrGetDriveLetterFromVolumeName failed, reason code=21\n"},
        {"EwfMgrOpenProtected", 5, "EwfMgrOpenProtected failed, reason code=5\n"},
        {"EwfMgrGetProtectedVolumeConfig", 1117,
         "EwfMgrGetProtectedVolumeConfig failed, reason code=1117\n"},
    };
    for (const auto& c : cases) {
        reports_.texts.clear();
        fail_(c.function, c.error);
        EXPECT_EQ(ewf_->getOverlayRamUsage(L'C', &reports_), -1) << c.function;
        EXPECT_EQ(ewf_->getOverlayState(L'C', nullptr), -1) << "a failure is never state 0";
        EXPECT_EQ(reports_.texts, std::vector<std::string>{c.text});
        reset_();
        add(u"\\\\?\\Volume{c}", L'C', kRam, kEnabled, 0, 77);
    }
    reports_.texts.clear();
    fail_("EwfMgrClose", 6);
    EXPECT_EQ(ewf_->getOverlayRamUsage(L'C', &reports_), 77);
    fail_("EwfMgrEnable", 31);
    EXPECT_FALSE(ewf_->setOverlayCommand(L'C', 1, &reports_));
    EXPECT_EQ(reports_.texts,
              (std::vector<std::string>{"EwfMgrClose failed, reason code=6\n",
                                        "EwfMgr Command failed, reason code=31\n"}));
}

// The printout shows every volume with its configuration and levels, and the failures of
// a volume that cannot be read as its own lines.
TEST_F(EwfUtilFilter, DumpPrintsEveryVolume) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(ewf_->dumpEwfProtectedVolumeList(&reports_), 0);
    std::string out = testing::internal::GetCapturedStdout();
    for (const char* line :
         {"D: = \\\\?\\Volume{d}\n", "TYPE      : EWF_DISK\nSTATE     : EWF_DISABLED\n",
          "BOOT CMD  : EWF_ENABLE Param1 = 0  Param2 = 0\n\n", "Current Level    : 2\n",
          "Persistent Data  :0A00", "00C3\n",
          "Maximum Levels   : 9\nClump Size       : 512 Bytes\n", "Disk Map Size    : 0 Bytes\n",
          "Device Name      : \\Device\\HarddiskVolumeD\n", "Drive            : D\n\n",
          "Level Index      : 2\nLevel Name       : level-2\n", "Level Data Size  : 8192 Bytes\n\n",
          "C: = \\\\?\\Volume{c}\n", "TYPE      : EWF_RAM\n", "BOOT CMD  : EWF_COMMIT",
          "Ram Data Size    : 5000000000 Bytes\n", "Memory Map Size  : 0 Bytes\n\n",
          "Drive            : C\n\n"}) {
        EXPECT_NE(out.find(line), std::string::npos) << line << "\nin\n" << out;
    }
    EXPECT_TRUE(std::regex_search(out, std::regex("Level ended at   : \\d+:\\d+:\\d+ on "
                                                  "(1/1|12/31)/201[23]\n")));
    EXPECT_EQ(out.find("Ram Data Size    : 0"), std::string::npos) << "a disk overlay has none";

    fail_("EwfMgrOpenProtected", 5);
    testing::internal::CaptureStdout();
    EXPECT_EQ(ewf_->dumpEwfProtectedVolumeList(&reports_), 5);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "D: = \\\\?\\Volume{d}\nEwfMgrOpenProtected failed LE = 5\n"
              "C: = \\\\?\\Volume{c}\nEwfMgrOpenProtected failed LE = 5\n");
    EXPECT_TRUE(reports_.texts.empty());
}

#endif
