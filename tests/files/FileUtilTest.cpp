#include <velmora/files/DirectoryListing.h>
#include <velmora/files/FileUtil.h>

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <map>
#include <memory>
#include <regex>
#include <string>

#include "support/TempDir.h"

#ifdef _WIN32
#include <windows.h>
#endif

using velmora::DirectoryEntry;
using velmora::DirectoryListing;
using velmora::FileUtil;
using velmora::test::readFile;
using velmora::test::TempDir;
using velmora::test::writeFile;
namespace fsys = std::filesystem;

namespace {

std::map<std::string, std::unique_ptr<DirectoryEntry>> listAll(const std::string& dir) {
    std::map<std::string, std::unique_ptr<DirectoryEntry>> all;
    std::unique_ptr<DirectoryListing> listing(DirectoryListing::make(dir.c_str()));
    while (listing) {
        DirectoryEntry* e = listing->next();
        if (e == nullptr) break;
        all[e->getName()].reset(e);
    }
    return all;
}

std::string backupName(const std::string& stem, const std::string& ext, std::time_t when) {
    char stamp[32];
    std::tm local = *std::localtime(&when);
    std::strftime(stamp, sizeof stamp, ".backup_%Y%m%d_%H%M", &local);
    return stem + stamp + ext;
}

}  // namespace

// Every directory above the file is made, whichever separator is used; the file is not.
TEST(FileUtil, VerifyPathCreatesEachMissingDirectory) {
    TempDir tmp;
    std::string file = tmp.path() + "/a\\b/c\\data.txt";
    EXPECT_TRUE(FileUtil::verifyPath(file.c_str()));
    EXPECT_TRUE(FileUtil::isDirectory(tmp.file("a/b/c").c_str()));
    EXPECT_FALSE(fsys::exists(tmp.file("a/b/c/data.txt")));
    EXPECT_TRUE(FileUtil::verifyPath(file.c_str())) << "existing directories are fine";
    EXPECT_TRUE(FileUtil::verifyPath("bare-name.txt"));
    EXPECT_FALSE(FileUtil::verifyPath(nullptr));

    ASSERT_TRUE(writeFile(tmp.file("plain"), "x"));
    EXPECT_FALSE(FileUtil::verifyPath(tmp.file("plain/sub/file.txt").c_str()))
        << "a file where a directory must go";
    std::string deep = tmp.path();
    for (int i = 0; i < 40; ++i)
        deep += "/segment-" + std::to_string(i);
    FileUtil::verifyPath((deep + "/f").c_str());  // may fail on a short path limit, never crash
}

TEST(FileUtil, ClassifiesDirectoriesFilesAndMissingPaths) {
    TempDir tmp;
    ASSERT_TRUE(writeFile(tmp.file("f.txt"), "x"));
    EXPECT_TRUE(FileUtil::createDirectory(tmp.file("d").c_str()));
    EXPECT_TRUE(FileUtil::createDirectory(tmp.file("d").c_str())) << "already a directory";
    EXPECT_FALSE(FileUtil::createDirectory(tmp.file("f.txt").c_str()));
    EXPECT_FALSE(FileUtil::createDirectory(tmp.file("missing/d").c_str()));
    EXPECT_FALSE(FileUtil::createDirectory(nullptr));

    EXPECT_TRUE(FileUtil::isDirectory(tmp.file("d").c_str()));
    EXPECT_FALSE(FileUtil::isDirectory(tmp.file("f.txt").c_str()));
    EXPECT_FALSE(FileUtil::isDirectory(tmp.file("nothing").c_str()));
    EXPECT_TRUE(FileUtil::isFileRegular(tmp.file("f.txt").c_str()));
    EXPECT_TRUE(FileUtil::isFileRegular(tmp.file("d").c_str())) << "directories count";
    EXPECT_FALSE(FileUtil::isFileRegular(tmp.file("nothing").c_str()));
    EXPECT_FALSE(FileUtil::isFileRegular(nullptr));
#ifndef _WIN32
    EXPECT_FALSE(FileUtil::isFileRegular("/dev/null")) << "a device";
#endif
}

TEST(FileUtil, DeleteFileClearsReadOnlyAndAcceptsMissingFiles) {
    TempDir tmp;
    std::string ro = tmp.file("ro.txt");
    ASSERT_TRUE(writeFile(ro, "x"));
    fsys::permissions(
        ro, fsys::perms::owner_write | fsys::perms::group_write | fsys::perms::others_write,
        fsys::perm_options::remove);
    EXPECT_EQ(FileUtil::deleteFile(ro.c_str()), 0);
    EXPECT_FALSE(fsys::exists(ro));
    EXPECT_EQ(FileUtil::deleteFile(ro.c_str()), 0) << "not found";
    EXPECT_EQ(FileUtil::deleteFile(tmp.file("no/such/dir/f").c_str()), 0) << "path not found";
    ASSERT_TRUE(FileUtil::createDirectory(tmp.file("d").c_str()));
    EXPECT_EQ(FileUtil::deleteFile(tmp.file("d").c_str()), -1) << "a directory is no file";
    EXPECT_EQ(FileUtil::deleteFile(nullptr), -1);
#ifdef _WIN32
    std::string locked = tmp.file("locked.txt");
    ASSERT_TRUE(writeFile(locked, "x"));
    HANDLE h = CreateFileA(locked.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    EXPECT_EQ(FileUtil::deleteFile(locked.c_str()), -1) << "open without delete sharing";
    CloseHandle(h);
    EXPECT_EQ(FileUtil::deleteFile(locked.c_str()), 0);
#endif
}

TEST(FileUtil, ExtensionAndFilesystemName) {
    EXPECT_STREQ(FileUtil::getExtension("logs/server.log"), "log");
    EXPECT_STREQ(FileUtil::getExtension("a.d/file"), "d/file") << "last dot of the whole path";
    EXPECT_STREQ(FileUtil::getExtension("README"), "");
    EXPECT_STREQ(FileUtil::getExtension(nullptr), "");

    char buf[64];
    FileUtil::getFilesystemName("C:/data/x.txt", buf, sizeof buf);
    EXPECT_STREQ(buf, "C:\\");
    FileUtil::getFilesystemName("D:\\", buf, sizeof buf);
    EXPECT_STREQ(buf, "D:\\");
    FileUtil::getFilesystemName("\\\\server\\share\\dir\\f", buf, sizeof buf);
    EXPECT_STREQ(buf, "\\\\server\\");
    FileUtil::getFilesystemName("volume", buf, sizeof buf);
    EXPECT_STREQ(buf, "volume");
    FileUtil::getFilesystemName("C:\\data", buf, 2);
    EXPECT_STREQ(buf, "C") << "cut to the buffer, terminated";
    FileUtil::getFilesystemName(nullptr, buf, sizeof buf);
    EXPECT_STREQ(buf, "");
}

TEST(FileUtil, DirectoryListingGivesNamePathKindSizeAndTime) {
    TempDir tmp;
    ASSERT_TRUE(writeFile(tmp.file("five.bin"), "12345"));
    ASSERT_TRUE(FileUtil::createDirectory(tmp.file("sub").c_str()));
    auto all = listAll(tmp.path());
    ASSERT_EQ(all.size(), 2u) << "no . or ..";
    const DirectoryEntry& f = *all["five.bin"];
    EXPECT_FALSE(f.isDirectory());
    EXPECT_EQ(f.getSize(), 5);
    EXPECT_EQ(readFile(f.getPath()), "12345");
    std::time_t now = std::time(nullptr);
    EXPECT_LT(std::llabs(f.getModified() - static_cast<int64_t>(now)), 3600)
        << "seconds since 1970";
    EXPECT_TRUE(all["sub"]->isDirectory());

    EXPECT_EQ(DirectoryListing::make(tmp.file("missing").c_str()), nullptr);
    EXPECT_EQ(DirectoryListing::make(tmp.file("five.bin").c_str()), nullptr);
    EXPECT_EQ(DirectoryListing::make(nullptr), nullptr);
}

// The backup name carries the minute; a second backup in the same minute fails and
// overwrites nothing.
TEST(FileUtil, RenameToBackupNamesByMinuteAndNeverOverwrites) {
    TempDir tmp;
    std::string log = tmp.file("server.log");
    ASSERT_TRUE(writeFile(log, "first"));
    EXPECT_EQ(FileUtil::renameToBackup(log.c_str()), 0);
    auto all = listAll(tmp.path());
    ASSERT_EQ(all.size(), 1u);
    std::string name = all.begin()->first;
    EXPECT_TRUE(std::regex_match(name, std::regex(R"(server\.backup_\d{8}_\d{4}\.log)"))) << name;
    EXPECT_EQ(readFile(tmp.file(name)), "first");

    // Occupy this minute's and the next minute's names, so the clock cannot slip past.
    std::time_t now = std::time(nullptr);
    ASSERT_TRUE(writeFile(tmp.file(backupName("server", ".log", now)), "kept"));
    ASSERT_TRUE(writeFile(tmp.file(backupName("server", ".log", now + 60)), "kept"));
    ASSERT_TRUE(writeFile(log, "second"));
    EXPECT_EQ(FileUtil::renameToBackup(log.c_str()), -1);
    EXPECT_EQ(readFile(log), "second");
    EXPECT_EQ(readFile(tmp.file(backupName("server", ".log", now))), "kept");

    ASSERT_TRUE(writeFile(tmp.file("noext"), "x"));
    EXPECT_EQ(FileUtil::renameToBackup(tmp.file("noext").c_str()), 0);
    int appended = 0;
    for (const auto& entry : listAll(tmp.path())) {
        appended += std::regex_match(entry.first, std::regex(R"(noext\.backup_\d{8}_\d{4})"));
    }
    EXPECT_EQ(appended, 1) << "suffix appended when there is no dot";

    EXPECT_EQ(FileUtil::renameToBackup(tmp.file("vanished.log").c_str(), 3), -1);
    EXPECT_EQ(FileUtil::renameToBackup(nullptr, 3), -1);
}

// Oldest backups go first (time, then name), and max + 1 backups remain after the rename.
TEST(FileUtil, RenameToBackupPrunesOldestKeepingMaxPlusOne) {
    TempDir tmp;
    std::string log = tmp.file("app.log");
    ASSERT_TRUE(writeFile(log, "current"));
    auto base = fsys::last_write_time(log);
    // name -> age in hours; "b" and "c" share a time, so the name decides between them.
    std::map<std::string, int> backups = {{"app.backup_a.log", 1},
                                          {"app.backup_b.log", 5},
                                          {"app.backup_c.log", 5},
                                          {"app.backup_d.log", 9},
                                          {"app.backup_e.log", 2}};
    for (const auto& [name, hours] : backups) {
        ASSERT_TRUE(writeFile(tmp.file(name), name));
        fsys::last_write_time(tmp.file(name), base - std::chrono::hours(hours));
    }
    ASSERT_TRUE(writeFile(tmp.file("app.other.log"), "unrelated"));

    EXPECT_EQ(FileUtil::renameToBackup(log.c_str(), 3), 0);
    auto left = listAll(tmp.path());
    EXPECT_EQ(left.count("app.backup_d.log"), 0u) << "oldest";
    EXPECT_EQ(left.count("app.backup_b.log"), 0u) << "same time as c, smaller name";
    EXPECT_EQ(left.count("app.backup_c.log"), 1u);
    EXPECT_EQ(left.count("app.backup_a.log"), 1u);
    EXPECT_EQ(left.count("app.backup_e.log"), 1u);
    EXPECT_EQ(left.count("app.other.log"), 1u);
    EXPECT_EQ(left.size(), 5u) << "three old backups, the new one, the unrelated file";

    // Exactly max backups: none deleted, so max + 1 after the rename.
    TempDir other;
    std::string log2 = other.file("app.log");
    ASSERT_TRUE(writeFile(log2, "current"));
    for (const char* name : {"app.backup_1.log", "app.backup_2.log", "app.backup_3.log"}) {
        ASSERT_TRUE(writeFile(other.file(name), name));
        fsys::last_write_time(other.file(name), base - std::chrono::hours(1));
    }
    EXPECT_EQ(FileUtil::renameToBackup(log2.c_str(), 3), 0);
    EXPECT_EQ(listAll(other.path()).size(), 4u);
}

// Kept as designed: without an extension, a dot in the directory name receives the suffix,
// and the rename fails, leaving the file where it was.
TEST(FileUtil, RenameToBackupDotInDirectoryNameFails) {
    TempDir tmp;
    ASSERT_TRUE(FileUtil::createDirectory(tmp.file("conf.d").c_str()));
    std::string file = tmp.file("conf.d/settings");
    ASSERT_TRUE(writeFile(file, "x"));
    EXPECT_EQ(FileUtil::renameToBackup(file.c_str(), 5), -1);
    EXPECT_EQ(readFile(file), "x");
}
