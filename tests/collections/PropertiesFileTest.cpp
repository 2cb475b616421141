#include <velmora/collections/ListMap.h>
#include <velmora/collections/MultiKeyPropertiesFile.h>
#include <velmora/collections/PropertiesFile.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#ifndef _WIN32
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#endif

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

#ifndef _WIN32
    // A write that cannot complete (the process may write no file past 64 bytes): the
    // save fails and the old text is still there, whole.
    struct rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    struct rlimit small = before;
    small.rlim_cur = 64;
    auto oldSignal = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    m->set("a", std::string(200, '3').c_str());
    bool saved = store(*m)->save();
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, oldSignal);
    EXPECT_FALSE(saved);
    EXPECT_EQ(readFile(path), "a=2\n");
    EXPECT_EQ(value(*m, "a"), std::string(200, '3'));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1)
        << "nothing is left beside the file";
#endif

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
    EXPECT_EQ(readFile(path), "# routes\nroute=a\nother=x\nROUTE=b\nroute=c\n");
    touchLater(path);
    ASSERT_TRUE(f.load());
    EXPECT_EQ(f.getCount(), 4) << "a reload starts the count again";
    char buf[8];
    EXPECT_STREQ(f.getAtIndex(3, buf, 8), "c");
}

// Comments longer than a line may be stay comments, and long lines, a multi-key file's
// separator, comments and blank lines all come back unchanged from a load and a save.
TEST(PropertiesFile, LongLinesCommentsAndSeparatorsSurviveASave) {
    TempDir dir;
    std::string path = dir.file("long.properties");
    std::string comment = "# " + std::string(1100, 'c') + "tail=value";
    std::string longLine = "k=" + std::string(1500, 'v');
    std::string text = comment + "\n\na=1\n" + longLine + "\n# end\n";
    ASSERT_TRUE(writeFile(path, text));
    auto m = open(path);
    EXPECT_EQ(value(*m, "tail"), "<none>") << "a comment's tail is no property";
    EXPECT_EQ(value(*m, "k"), std::string(1021, 'v'));
    ASSERT_TRUE(store(*m)->save());
    EXPECT_EQ(readFile(path), text);
    m->set("k", "short");
    ASSERT_TRUE(store(*m)->save());
    EXPECT_EQ(readFile(path), comment + "\n\na=1\nk=short\n# end\n");

    std::string multiPath = dir.file("multi.properties");
    std::string multi = "# routes\nroute:a\n\n" + comment +
                        "\nroute:b\nx:" + std::string(1200, 'x') + "\n\n# last\nother:1\n";
    ASSERT_TRUE(writeFile(multiPath, multi));
    MultiKeyPropertiesFile f(multiPath.c_str(), ':');
    ASSERT_TRUE(f.load());
    EXPECT_EQ(f.getCount(), 4);
    ASSERT_TRUE(f.save());
    EXPECT_EQ(readFile(multiPath), multi) << "an unchanged list saves the file as it was";
    f.set(1, "B");
    f.add("route", "c");
    ASSERT_TRUE(f.save());
    touchLater(multiPath);
    MultiKeyPropertiesFile again(multiPath.c_str(), ':');
    ASSERT_TRUE(again.load());
    EXPECT_EQ(again.keyCount("route"), 3) << readFile(multiPath);
    EXPECT_EQ(readFile(multiPath), "# routes\nroute:a\n\n" + comment + "\nroute:B\nx:" +
                                       std::string(1200, 'x') + "\n\n# last\nother:1\nroute:c\n");
}

// A save replaces the file a link names, keeps its mode, owner and group, works in place
// where the directory may not be written, and of several saves at once one wins whole.
TEST(PropertiesFile, SaveReplacesTheRealFileWhole) {
    TempDir dir;
    std::string path = dir.file("real.properties");
    ASSERT_TRUE(writeFile(path, "a=1\n"));
#ifndef _WIN32
    std::string link = dir.file("link.properties");
    ASSERT_EQ(symlink("real.properties", link.c_str()), 0);
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    const bool root = geteuid() == 0;
    if (root) {
        ASSERT_EQ(chown(path.c_str(), 4242, 4343), 0);
    }
    {
        auto m = open(link);
        m->set("a", "2");
        ASSERT_TRUE(store(*m)->save());
    }
    EXPECT_TRUE(std::filesystem::is_symlink(link)) << "the link stays a link";
    EXPECT_EQ(readFile(path), "a=2\n");
    struct stat st;
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
    if (root) {
        EXPECT_EQ(st.st_uid, 4242u);
        EXPECT_EQ(st.st_gid, 4343u);
    }

    // A directory its user may not write: the file is rewritten in place. Run as another
    // user in a child when this is root, since root may write any directory.
    std::string locked = dir.file("locked");
    std::filesystem::create_directory(locked);
    std::string inside = locked + "/in.properties";
    ASSERT_TRUE(writeFile(inside, "# kept\nb=1\n"));
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (root &&
            (chown(inside.c_str(), 65534, 65534) != 0 || setgid(65534) != 0 || setuid(65534) != 0))
            _exit(2);
        if (!root && chmod(locked.c_str(), 0555) != 0) _exit(2);
        std::unique_ptr<Map> m(PropertiesFile::makeMap(inside.c_str(), '='));
        m->set("b", "2");
        _exit(m->getStore()->save() ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(readFile(inside), "# kept\nb=2\n");
#endif

    // Two objects saving one file at once, many times: whatever order the saves end in,
    // the file always holds one of the texts whole.
    std::vector<std::thread> savers;
    for (char letter : {'x', 'y', 'z'}) {
        savers.emplace_back([&path, letter] {
            auto m = open(path);
            for (int i = 0; i < 40; ++i) {
                m->set("a", std::string(30000, letter).c_str());
                store(*m)->save();
            }
        });
    }
    for (auto& t : savers)
        t.join();
    std::string text = readFile(path);
    ASSERT_EQ(text.size(), 30003u) << text.substr(0, 40);
    EXPECT_EQ(text.find_first_not_of(text[2], 2), text.size() - 1) << "one text, not a mix";
}
