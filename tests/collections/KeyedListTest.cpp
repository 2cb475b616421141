#include <velmora/collections/KeyedList.h>
#include <velmora/collections/NullMapStore.h>
#include <velmora/platform/PlatformUtil.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace velmora;

// Keys repeat; lookups take the first match in any case.
TEST(KeyedList, RepeatedKeysAndPositions) {
    KeyedList l;
    l.add("a", "1");
    l.add("a", "2");
    l.add("A", "abc");
    l.addInt("n", 0);
    l.add(nullptr, "x");
    EXPECT_EQ(l.keyCount("a"), 3);
    char buf[8];
    EXPECT_STREQ(l.get("A", buf, 8, "d"), "1");
    EXPECT_EQ(l.getIntAtIndex(2), -1);
    EXPECT_EQ(l.getIntAtIndex(3), 0);
    EXPECT_EQ(l.getIntAtIndex(9), -1);
    std::memset(buf, 'z', sizeof buf);
    l.getAtIndex(5, buf, 8);
    EXPECT_EQ(std::string(buf, 3), std::string("\0zz", 3)) << "only the first byte is cleared";
    l.set(1, "two");
    l.setBoolean(3, true);
    EXPECT_STREQ(l.getAtIndex(1, buf, 8), "two");
    EXPECT_TRUE(l.getBooleanAtIndex(3));
    EXPECT_STREQ(l.getKey(2, buf, 8), "A");
    EXPECT_TRUE(l.isModified());
    char* copy = nullptr;
    l.get("a", &copy, "d");
    EXPECT_STREQ(copy, "1");
    velmora::release(copy);  // the library's one way back for every block it hands out
}

// remove(i) keeps the count; removeAll lowers it; positions past the entries find nothing.
TEST(KeyedList, RemoveKeepsCountRemoveAllLowersIt) {
    KeyedList l;
    l.add("x", "0");
    l.add("y", "1");
    l.add("z", "2");
    l.remove(0);
    EXPECT_EQ(l.getCount(), 3);
    char buf[8];
    EXPECT_STREQ(l.getAtIndex(0, buf, 8), "1");
    EXPECT_STREQ(l.getAtIndex(1, buf, 8), "2");
    EXPECT_STREQ(l.getAtIndex(2, buf, 8), "") << "stale position, no crash";
    EXPECT_EQ(l.getIntAtIndex(2), -1);
    l.remove(1);  // the tail: later adds link after the new tail
    l.add("y", "3");
    EXPECT_TRUE(l.removeAll("Y"));
    EXPECT_EQ(l.getCount(), 2);
    EXPECT_FALSE(l.removeAll("y"));
    l.add("w", "4");
    EXPECT_STREQ(l.getKey(0, buf, 8), "w");

    l.clear();
    EXPECT_EQ(l.getCount(), 3);
    EXPECT_EQ(l.keyCount("w"), 0);
}

// duplicateDeep moves the entries into the copy.
TEST(KeyedList, DuplicateDeepConsumesTheSource) {
    KeyedList l;
    l.add("a", "1");
    l.add("b", "2");
    std::unique_ptr<KeyedList> copy(l.duplicateDeep());
    EXPECT_EQ(l.keyCount("a"), 0);
    EXPECT_EQ(l.getCount(), 2);
    char buf[8];
    EXPECT_STREQ(copy->getKey(1, buf, 8), "b");
    EXPECT_EQ(copy->getCount(), 2);
    EXPECT_TRUE(copy->isModified());
}

namespace {

struct Shared {
    Map* map;
    KeyedList* list;
    int id;
};

uint32_t hammer(void* arg) {
    Shared* s = static_cast<Shared*>(arg);
    char key[16], buf[16];
    for (int i = 0; i < 2000; ++i) {
        std::snprintf(key, sizeof key, "k%d", (i * 7 + s->id) % 50);
        s->map->setInt(key, i);
        s->map->get(key, buf, sizeof buf, "");
        if (s->map->getInt(key, 0) < 0) return 1;
        if (i % 100 == 0) s->map->remove(key);
        s->list->addInt(key, i);
        s->list->get(key, buf, sizeof buf, "");
        if (i % 10 == 0) s->list->removeAll(key);
    }
    return 0;
}

}  // namespace

// Several threads writing and reading one map and one keyed list.
TEST(Collections, ConcurrentSetAndGet) {
    std::unique_ptr<Map> map(NullMapStore::makeMap());
    KeyedList list;
    Shared shared[4];
    PlatformThread threads[4];
    for (int i = 0; i < 4; ++i) {
        shared[i] = Shared{map.get(), &list, i};
        threads[i] = PlatformUtil::createThread(hammer, &shared[i], "hammer");
        ASSERT_NE(threads[i], nullptr);
    }
    for (PlatformThread t : threads)
        EXPECT_EQ(PlatformUtil::joinThread(t), 0u);
    char buf[16];
    map->lock();
    for (int k = 0; k < 50; ++k) {
        std::snprintf(buf, sizeof buf, "k%d", k);
        EXPECT_LT(map->getInt(buf, 0), 2000);
    }
    map->unlock();
}

// A list makes its mutex on the first lock: threads that all lock a fresh list at once must
// end up behind one mutex, so that no entry is lost.
TEST(KeyedList, ConcurrentFirstLocksShareOneMutex) {
    for (int round = 0; round < 50; ++round) {
        KeyedList l;
        std::atomic<bool> go{false};
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&l, &go, t] {
                while (!go.load())
                    std::this_thread::yield();
                for (int i = 0; i < 50; ++i)
                    l.add(("k" + std::to_string(t)).c_str(), "v");
            });
        }
        go = true;
        for (std::thread& th : threads)
            th.join();
        ASSERT_EQ(l.getCount(), 200);
        for (int t = 0; t < 4; ++t)
            EXPECT_EQ(l.keyCount(("k" + std::to_string(t)).c_str()), 50);
    }
}
