#include <velmora/platform/RegUtil.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/Reports.h"

#ifdef _WIN32
#include <windows.h>

#include <process.h>
#endif

using velmora::RegKey;
using velmora::RegUtil;
using velmora::test::Reports;

// Runs of delimiters make one break; the entry found at the capacity still lands in the
// extra slot; a buffer without a terminator is never read past.
TEST(RegUtil, DelimitedSplitKeepsTheSlotPastTheCapacity) {
    char text[] = " a,,b , c ";
    char* entries[8] = {};
    int count = 7;
    RegUtil::parseDelimited(text, sizeof text, entries, &count, ", ");
    ASSERT_EQ(count, 3);
    EXPECT_STREQ(entries[0], "a");
    EXPECT_STREQ(entries[1], "b");
    EXPECT_STREQ(entries[2], "c");

    char four[] = "w x y z";
    char* three[3] = {};
    count = 2;
    RegUtil::parseDelimited(four, sizeof four, three, &count, " ");
    EXPECT_EQ(count, 2);
    EXPECT_STREQ(three[1], "x");
    EXPECT_STREQ(three[2], "y") << "the entry found at the capacity is stored past it";

    char unterminated[4] = {'p', ' ', 'q', 'r'};
    count = 4;
    RegUtil::parseDelimited(unterminated, sizeof unterminated, entries, &count, " ");
    ASSERT_EQ(count, 2);
    EXPECT_STREQ(entries[1], "q") << "the last byte becomes the terminator";
}

// Each entry starts after a zero byte; the double terminator and leading zeros add none.
TEST(RegUtil, MultiStringEntriesStartAfterZeros) {
    char data[] = "\0first\0second\0";  // plus the literal's own terminator
    char* entries[4] = {};
    int count = -1;
    RegUtil::parseRegMultiSz(data, sizeof data, entries, &count);
    ASSERT_EQ(count, 2);
    EXPECT_STREQ(entries[0], "first");
    EXPECT_STREQ(entries[1], "second");
    RegUtil::parseRegMultiSz(data, 0, entries, &count);
    EXPECT_EQ(count, 0);

    const char* const path[] = {"SOFTWARE", "Velmora", "Net"};
    testing::internal::CaptureStdout();
    RegUtil::printKey(path, 3);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "SOFTWARE:Velmora:Net:\n");
}

#ifndef _WIN32

// Without a registry every key is missing: empty answers, failing writes, no reports.
TEST(RegUtil, WithoutRegistryEverythingIsMissingAndSilent) {
    Reports reports;
    const char* const path[] = {"SOFTWARE", "Microsoft"};
    EXPECT_EQ(RegUtil::getKey(&reports, nullptr, path, 2, RegUtil::kRead), nullptr);
    unsigned char data[8] = "junk";
    unsigned long type = 99, size = sizeof data;
    EXPECT_EQ(RegUtil::getKeyValue(&reports, nullptr, path, 2, "x", &type, data, &size), 2);
    EXPECT_EQ(data[0], 0);
    EXPECT_NE(RegUtil::setKeyValue(&reports, nullptr, path, 2, "x", "text"), 0);
    EXPECT_NE(RegUtil::setKeyValue(&reports, nullptr, path, 2, "x", data, 4), 0);
    EXPECT_TRUE(reports.texts.empty());
    EXPECT_EQ(RegUtil::isWin2k() + RegUtil::isWinXP() + RegUtil::isWinXPSP1() +
                  RegUtil::isWinVista() + RegUtil::isWin7() + RegUtil::isWin8(),
              0);
}

#else

namespace {

// A key of the test's own below HKEY_CURRENT_USER\Software, removed afterwards.
class RegUtilOwnKey : public testing::Test {
protected:
    void SetUp() override {
        name_ = "VelmoraRegTest-" + std::to_string(_getpid());
        path_[1] = name_.c_str();
        std::string sub = "Software\\" + name_ + "\\Values";
        ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, sub.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                                  nullptr, &values_, nullptr),
                  ERROR_SUCCESS);
        put("Text", REG_SZ, "hello", 6);
        put("Multi", REG_MULTI_SZ, "one\0two\0", 9);
        const DWORD number = 7;
        put("Number", REG_DWORD, &number, sizeof number);
    }
    void TearDown() override {
        RegCloseKey(values_);
        std::string key = "Software\\" + name_;
        RegDeleteKeyA(HKEY_CURRENT_USER, (key + "\\Values").c_str());
        RegDeleteKeyA(HKEY_CURRENT_USER, key.c_str());
    }
    void put(const char* name, DWORD type, const void* data, DWORD size) {
        ASSERT_EQ(RegSetValueExA(values_, name, 0, type, static_cast<const BYTE*>(data), size),
                  ERROR_SUCCESS);
    }
    // The value's bytes read straight from the registry; "<missing>" when there is none.
    std::string raw(const char* name, DWORD* type) {
        BYTE data[64];
        DWORD size = sizeof data;
        if (RegQueryValueExA(values_, name, nullptr, type, data, &size) != ERROR_SUCCESS) {
            return "<missing>";
        }
        return std::string(reinterpret_cast<char*>(data), size);
    }

    std::string name_;
    const char* path_[3] = {"Software", nullptr, "Values"};
    HKEY values_ = nullptr;
    Reports reports_;
};

}  // namespace

// Registry statuses come back as they are; missing keys and values are silent and leave an
// empty text; a buffer that is too small is reported.
TEST_F(RegUtilOwnKey, ReadsGiveStatusesAndOnlyRealFailuresAreReported) {
    char text[16];
    unsigned long type = 0, size = sizeof text;
    auto* data = reinterpret_cast<unsigned char*>(text);
    EXPECT_EQ(
        RegUtil::getKeyValue(&reports_, HKEY_CURRENT_USER, path_, 3, "Text", &type, data, &size),
        0);
    EXPECT_EQ(type, 1u);
    EXPECT_EQ(size, 6u);
    EXPECT_STREQ(text, "hello");

    std::strcpy(text, "stale");
    size = sizeof text;
    EXPECT_EQ(
        RegUtil::getKeyValue(&reports_, HKEY_CURRENT_USER, path_, 3, "Absent", &type, data, &size),
        2);
    EXPECT_STREQ(text, "");
    const char* const missing[] = {"Software", "VelmoraNoSuchKey", "Values"};
    EXPECT_EQ(RegUtil::getKey(&reports_, HKEY_CURRENT_USER, missing, 3, RegUtil::kRead), nullptr);
    std::strcpy(text, "stale");
    EXPECT_EQ(
        RegUtil::getKeyValue(&reports_, HKEY_CURRENT_USER, missing, 3, "Text", &type, data, &size),
        2);
    EXPECT_STREQ(text, "");
    EXPECT_TRUE(reports_.texts.empty());

    size = 3;
    EXPECT_EQ(
        RegUtil::getKeyValue(&reports_, HKEY_CURRENT_USER, path_, 3, "Text", &type, data, &size),
        ERROR_MORE_DATA);
    EXPECT_STREQ(text, "");
    ASSERT_EQ(reports_.keys.size(), 1u);
    EXPECT_EQ(reports_.keys[0], "native.systemError");

    RegKey key = RegUtil::getKey(&reports_, HKEY_CURRENT_USER, path_, 3, RegUtil::kRead);
    ASSERT_NE(key, nullptr);
    RegUtil::closeKey(key);

    // A buffer of size 0 is never written, not even the terminator of an empty text.
    char guard[2] = {'G', 'G'};
    size = 0;
    EXPECT_EQ(RegUtil::getKeyValue(nullptr, HKEY_CURRENT_USER, path_, 3, "Text", &type,
                                   reinterpret_cast<unsigned char*>(guard), &size),
              ERROR_MORE_DATA);
    EXPECT_EQ(guard[0], 'G');
    // A text stored without its terminator still reads as a terminated text.
    put("Raw", REG_SZ, "unterminated", 12);
    char raw[20];
    for (unsigned long room : {20ul, 12ul}) {
        std::memset(raw, 'X', sizeof raw);
        size = room;
        long status = RegUtil::getKeyValue(nullptr, HKEY_CURRENT_USER, path_, 3, "Raw", &type,
                                           reinterpret_cast<unsigned char*>(raw), &size);
        // The system may also refuse a value that leaves no room for a terminator.
        EXPECT_TRUE(status == 0 || (room == 12 && status == ERROR_MORE_DATA)) << status;
        ASSERT_LT(strnlen(raw, room), room) << "terminated within " << room << " bytes";
        EXPECT_EQ(std::string("unterminated").rfind(raw, 0), 0u) << raw;
    }
}

// A write keeps the value's type (a multi-string gets its double terminator), creates
// nothing, and fails with a report on a key that may only be read.
TEST_F(RegUtilOwnKey, WritesChangeOnlyExistingValuesAndKeepTheirType) {
    DWORD type = 0;
    EXPECT_EQ(RegUtil::setKeyValue(&reports_, HKEY_CURRENT_USER, path_, 3, "Text", "changed"), 0);
    EXPECT_EQ(raw("Text", &type), std::string("changed\0", 8));
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
    EXPECT_EQ(RegUtil::setKeyValue(&reports_, HKEY_CURRENT_USER, path_, 3, "Multi", "alpha"), 0);
    EXPECT_EQ(raw("Multi", &type), std::string("alpha\0\0", 7));
    EXPECT_EQ(type, static_cast<DWORD>(REG_MULTI_SZ));
    const unsigned char bytes[4] = {0x2A, 0, 0, 0};
    EXPECT_EQ(RegUtil::setKeyValue(&reports_, HKEY_CURRENT_USER, path_, 3, "Number", bytes, 4), 0);
    EXPECT_EQ(raw("Number", &type), std::string("\x2A\0\0\0", 4));
    EXPECT_EQ(type, static_cast<DWORD>(REG_DWORD));
    EXPECT_TRUE(reports_.texts.empty());

    EXPECT_EQ(RegUtil::setKeyValue(&reports_, HKEY_CURRENT_USER, path_, 3, "New", "x"), 2);
    EXPECT_EQ(raw("New", &type), "<missing>");
    EXPECT_EQ(reports_.keys.size(), 1u) << "writing a missing value is the caller's error";

    // The path of no components is the root itself: here a key opened for reading only.
    HKEY readOnly = nullptr;
    ASSERT_EQ(RegOpenKeyExA(values_, nullptr, 0, KEY_READ, &readOnly), ERROR_SUCCESS);
    EXPECT_EQ(RegUtil::setKeyValue(&reports_, readOnly, path_, 0, "Text", "denied"),
              ERROR_ACCESS_DENIED);
    EXPECT_EQ(reports_.keys.size(), 2u);
    EXPECT_EQ(raw("Text", &type), std::string("changed\0", 8));
}

#endif
