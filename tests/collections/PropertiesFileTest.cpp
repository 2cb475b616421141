#include <velmora/collections/ListMap.h>
#include <velmora/collections/MultiKeyPropertiesFile.h>
#include <velmora/collections/PropertiesFile.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>

#include "support/TempDir.h"

using namespace velmora;
using velmora::test::readFile;
using velmora::test::TempDir;
using velmora::test::writeFile;

namespace {

std::unique_ptr<Map> open(const std::string& path, char sep = '=') {
    return std::unique_ptr<Map>(PropertiesFile::makeMap(path.c_str(), sep));
}

PropertiesFile* store(Map& m) {
    return static_cast<PropertiesFile*>(m.getStore());
}

std::string value(Map& m, const char* key) {
    char buf[2048];
    return m.get(key, buf, sizeof buf, "<none>");
}

// Moves the file's modification time on, as an edit a while later would.
void touchLater(const std::string& path) {
    auto t = std::filesystem::last_write_time(path);
    std::filesystem::last_write_time(path, t + std::chrono::seconds(5));
}

}  // namespace

// The line syntax: separators, comments, ignored lines, long lines, and the layout kept
// on save with "=" as separator.
TEST(PropertiesFile, LoadsLinesAndSavesThemBackInPlace) {
    TempDir dir;
    std::string path = dir.file("a.properties");
    std::string longLine = "k:" + std::string(1021, 'x') + "tail:value:";
    ASSERT_EQ(longLine.size(), 1034u);
    ASSERT_TRUE(writeFile(path, "a::b\r\nempty:\r\n:novalue\n\n\n# note\nc:d\n" + longLine + "\n"));
    auto m = open(path, ':');
    EXPECT_EQ(value(*m, "a"), "b");
    EXPECT_EQ(value(*m, "empty"), "<none>");
    EXPECT_EQ(value(*m, "k"), std::string(1021, 'x')) << "the first 1023 bytes are one line";
    EXPECT_EQ(value(*m, "tail"), "value:") << "the rest is read as a further line";
    EXPECT_EQ(m->getSize(), 4);

    m->set("C", "e");
    m->set("new", "1");
    m->remove("tail");
    EXPECT_TRUE(store(*m)->isModified());
    ASSERT_TRUE(store(*m)->save());
    EXPECT_FALSE(store(*m)->isModified());
    EXPECT_EQ(readFile(path), "a=b\n\n\n# note\nc=e\nk=" + std::string(1021, 'x') + "\nnew=1\n");
}

// save() drops the lines of removed keys, merge() keeps them with their file values.
TEST(PropertiesFile, SaveDropsAndMergeKeepsRemovedKeys) {
    TempDir dir;
    std::string path = dir.file("sub/dir/m.properties");
    auto m = open(path);
    EXPECT_FALSE(store(*m)->load()) << "no file yet";
    m->set("x", "1");
    m->set("y", "2");
    ASSERT_TRUE(store(*m)->save()) << "directories are made";
    m->remove("x");
    m->set("y", "3");
    ASSERT_TRUE(store(*m)->merge());
    EXPECT_EQ(readFile(path), "x=1\ny=3\n");
    ASSERT_TRUE(store(*m)->save());
    EXPECT_EQ(readFile(path), "y=3\n");
}

// A load reads the file only when its modification time moved on.
TEST(PropertiesFile, LoadsAgainOnlyWhenTheFileChanged) {
    TempDir dir;
    std::string path = dir.file("t.properties");
    ASSERT_TRUE(writeFile(path, "a=1\n"));
    auto m = open(path);
    m->set("a", "changed");
    m->set("b", "2");
    EXPECT_TRUE(store(*m)->load());
    EXPECT_EQ(value(*m, "a"), "changed");
    ASSERT_TRUE(writeFile(path, "a=3\n"));
    touchLater(path);
    EXPECT_TRUE(store(*m)->load());
    EXPECT_EQ(value(*m, "a"), "3");
    EXPECT_EQ(value(*m, "b"), "<none>");
    EXPECT_EQ(m->getSize(), 3) << "the map's count stays stale after the reload's clear()";
}

// A read-only file is made writable; a save that cannot complete leaves the old file whole
// and the map as it was.
TEST(PropertiesFile, FailedSaveNeverTruncatesTheFile) {
    TempDir dir;
    std::string path = dir.file("r.properties");
    ASSERT_TRUE(writeFile(path, "a=1\n"));
    std::filesystem::permissions(path, std::filesystem::perms::owner_write,
                                 std::filesystem::perm_options::remove);
    auto m = open(path);
    m->set("a", "2");
    EXPECT_TRUE(store(*m)->save());
    EXPECT_EQ(readFile(path), "a=2\n");

    // Something in the way of the new text: the save fails before touching the file.
    std::filesystem::create_directory(path + ".saving");
    m->set("a", "3");
    EXPECT_FALSE(store(*m)->save());
    EXPECT_EQ(readFile(path), "a=2\n");
    EXPECT_EQ(value(*m, "a"), "3");

    auto blocked = open(dir.file("r.properties/sub.properties"));
    blocked->set("a", "1");
    EXPECT_FALSE(store(*blocked)->save());
}

// The password is protected where the system can, and always reads back in clear.
TEST(PropertiesFile, PasswordIsProtectedWhereTheSystemCan) {
    TempDir dir;
    std::string path = dir.file("p.properties");
    ASSERT_TRUE(writeFile(path, "user=u\npassword=old\n"));
    auto m = open(path);
    m->set("password", "s3cret");
    ASSERT_TRUE(store(*m)->save());
    std::string text = readFile(path);
#ifdef _WIN32
    EXPECT_EQ(text.find("s3cret"), std::string::npos) << text;
    EXPECT_EQ(text.rfind("user=u\n_password=", 0), 0u) << text;
#else
    EXPECT_EQ(text, "user=u\npassword=s3cret\n");
#endif
    auto again = open(path);
    EXPECT_EQ(value(*again, "password"), "s3cret");
    EXPECT_EQ(value(*again, "_password"), "<none>");
}

// Keys repeat in a multi-key file, in file order, and survive a save and a load.
TEST(PropertiesFile, MultiKeyFileKeepsRepeatedKeysInOrder) {
    TempDir dir;
    std::string path = dir.file("multi.properties");
    ASSERT_TRUE(writeFile(path, "# routes\nroute=a\nother==x\nROUTE=b\nbad\n"));
    MultiKeyPropertiesFile f(path.c_str(), '=');
    ASSERT_TRUE(f.load());
    EXPECT_EQ(f.keyCount("route"), 2);
    EXPECT_EQ(f.getCount(), 3);
    f.add("route", "c");
    EXPECT_TRUE(f.isModified());
    ASSERT_TRUE(f.save());
    EXPECT_EQ(readFile(path), "route=a\nother=x\nROUTE=b\nroute=c\n");
    touchLater(path);
    ASSERT_TRUE(f.load());
    EXPECT_EQ(f.getCount(), 4) << "a reload starts the count again";
    char buf[8];
    EXPECT_STREQ(f.getAtIndex(3, buf, 8), "c");
}
