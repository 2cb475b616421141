#include <velmora/log/FilteredLogBundle.h>
#include <velmora/log/MulticastLog.h>
#include <velmora/log/NullLog.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/TempDir.h"

using velmora::FilteredLog;
using velmora::FilteredLogBundle;
using velmora::FilteredLogIterator;
using velmora::Log;
using velmora::MessageBundle;
using velmora::MulticastLog;
using velmora::test::readFile;
using velmora::test::TempDir;
using velmora::test::writeFile;

namespace {

// Remembers every report as "<level>:<text>" plus a tag of the log that got it.
class RecordingLog : public Log {
public:
    RecordingLog(std::vector<std::string>* seen, const char* tag) : seen_(seen), tag_(tag) {}
    using ErrorHandler::error;
    using Log::message;
    using Log::trace;
    using Log::warning;
    void trace(MessageBundle* b) override { add("T", b); }
    void message(MessageBundle* b) override { add("M", b); }
    void warning(MessageBundle* b) override { add("W", b); }
    void error(MessageBundle* b) override { add("E", b); }

private:
    void add(const char* level, MessageBundle* b) {
        seen_->push_back(tag_ + level + ":" + (b->getText() ? b->getText() : "(null)"));
    }
    std::vector<std::string>* seen_;
    std::string tag_;
};

void everyLevel(Log* log) {
    log->trace("t");
    log->message("m");
    log->warning("w");
    log->error("e");
}

}  // namespace

// A filter level passes its own level and above; a filtered-out error is not recorded.
TEST(FilteredLog, PassesItsLevelAndAboveAndRecordsOnlyPassingErrors) {
    std::vector<std::string> seen;
    RecordingLog target(&seen, "");
    FilteredLog byDefault(&target);
    everyLevel(&byDefault);
    EXPECT_EQ(seen, (std::vector<std::string>{"M:m", "W:w", "E:e"}));
    ASSERT_NE(byDefault.getLastError(), nullptr);
    EXPECT_STREQ(byDefault.getLastError()->getText(), "e");

    seen.clear();
    FilteredLog quiet(&target, 2);
    everyLevel(&quiet);
    EXPECT_EQ(seen, (std::vector<std::string>{"W:w", "E:e"}));

    seen.clear();
    quiet.setFilterLevel(4);
    quiet.clearError();
    everyLevel(&quiet);
    EXPECT_TRUE(seen.empty());
    EXPECT_EQ(quiet.getLastError(), nullptr);
}

// Every report reaches every target in index order; zero targets are fine.
TEST(MulticastLog, FansOutInOrderAndRecordsNothing) {
    std::vector<std::string> seen;
    RecordingLog a(&seen, "a");
    RecordingLog b(&seen, "b");
    Log* targets[] = {&a, &b};
    MulticastLog both(2, targets);
    both.warning("w");
    both.error("e");
    EXPECT_EQ(seen, (std::vector<std::string>{"aW:w", "bW:w", "aE:e", "bE:e"}));
    EXPECT_EQ(both.getLastError(), nullptr);
    MulticastLog none(0, nullptr);
    everyLevel(&none);
}

// Levels come from the file once; names fold case; a forced level never reaches the file
// and cannot be withdrawn; save writes every log's level.
TEST(FilteredLogBundle, LevelsFileForcedLevelsAndSave) {
    TempDir dir;
    std::string path = dir.file("log.properties");
    std::string longName(70, 'n');
    ASSERT_TRUE(writeFile(path, "# levels\nweb=3\nbad=abc\n" + longName + "=2\n"));
    std::vector<std::string> seen;
    RecordingLog target(&seen, "");
    {
        FilteredLogBundle levels(path.c_str(), &target);
        EXPECT_EQ(levels.get("WEB")->getFilterLevel(), 3);
        EXPECT_EQ(levels.get("Web"), levels.get("web"));
        EXPECT_EQ(levels.get("bad")->getFilterLevel(), 0);
        EXPECT_EQ(levels.get(longName.substr(0, 63).c_str())->getFilterLevel(), 2);
        EXPECT_EQ(levels.get("fresh")->getFilterLevel(), 1);

        std::vector<std::string> names;
        FilteredLogIterator it;
        levels.getIterator(&it);
        while (it.hasNext())
            names.push_back(it.getNext()->getName());
        EXPECT_EQ(names, (std::vector<std::string>{"web", "bad", longName.substr(0, 63), "fresh"}));

        levels.get("web")->warning("to target");
        EXPECT_TRUE(seen.empty()) << "web is at level 3";
        levels.get("bad")->setFilterLevel(2);
        EXPECT_EQ(levels.getSaveTime(), 0);
        ASSERT_TRUE(levels.save());
        EXPECT_GT(levels.getSaveTime(), 0);

        levels.forceLevel(0);
        levels.forceLevel(-1);
        EXPECT_EQ(levels.getForceLevel(), 0);
        EXPECT_EQ(levels.get("web")->getFilterLevel(), 0);
        EXPECT_EQ(levels.get("later")->getFilterLevel(), 0);
        std::string before = readFile(path);
        EXPECT_FALSE(levels.save());
        EXPECT_EQ(readFile(path), before);
    }
    FilteredLogBundle reloaded(path.c_str(), &target);
    EXPECT_EQ(reloaded.get("bad")->getFilterLevel(), 2);
    EXPECT_EQ(reloaded.get("fresh")->getFilterLevel(), 1);
    EXPECT_EQ(reloaded.get("web")->getFilterLevel(), 3);
    EXPECT_EQ(readFile(path).rfind("# levels\n", 0), 0u) << "comments stay";

    FilteredLogBundle missing(dir.file("none/levels.properties").c_str(), &target);
    FilteredLogIterator empty;
    missing.getIterator(&empty);
    EXPECT_FALSE(empty.hasNext());
}
