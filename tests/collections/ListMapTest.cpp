#include <velmora/collections/ListMap.h>
#include <velmora/collections/NullMapStore.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

using namespace velmora;

namespace {

std::vector<std::string> entries(Map& m) {
    std::vector<std::string> out;
    std::unique_ptr<MapIterator> it(m.makeIterator());
    char k[64], v[64];
    while (it->hasNext()) {
        it->moveNext();
        out.push_back(std::string(it->getKey(k, 63)) + "=" + it->getValue(v, 63));
    }
    return out;
}

// A store that loads fixed entries and counts the changes it is told about.
class FixedStore : public NullMapStore {
public:
    bool load() override {
        getMap()->set("a", "store");
        return true;
    }
    void setModified() override { ++changes; }
    int changes = 0;
};

}  // namespace

// Keys match ignoring ASCII case only; an update keeps the first spelling and place.
TEST(ListMap, CaseInsensitiveKeysKeepFirstSpellingAndPosition) {
    ListMap m;
    m.set("Port", "1");
    m.set("host", "a");
    m.set("PORT", "2");
    m.set(nullptr, "x");
    m.set("x", nullptr);
    EXPECT_EQ(entries(m), (std::vector<std::string>{"Port=2", "host=a"}));
    EXPECT_EQ(m.getSize(), 2);
    m.set("\xC4", "x");
    EXPECT_FALSE(m.containsKey("\xE4")) << "only A-Z fold, whatever the locale";
    EXPECT_TRUE(m.containsKey("HoSt"));
}

// The buffer getter zero-fills and leaves no terminator when the value fills the buffer;
// the allocating getter copies the value or the default.
TEST(ListMap, BufferAndAllocatingGetters) {
    ListMap m;
    m.set("k", "abcd");
    m.set("s", "abc");
    char buf[8];
    std::memset(buf, 'z', sizeof buf);
    m.get("k", buf, 4, "d");
    EXPECT_EQ(std::string(buf, 5), std::string("abcdz", 5));
    m.get("s", buf, 4, "d");
    EXPECT_EQ(std::string(buf, 4), std::string("abc\0", 4));
    EXPECT_STREQ(m.get("none", buf, 8, "dflt"), "dflt");
    m.get("none", buf, 8, nullptr);
    EXPECT_EQ(std::string(buf, 8), std::string(8, '\0'));

    char* out = nullptr;
    m.get("K", &out, "d");
    EXPECT_STREQ(out, "abcd");
    velmora::release(out);
    m.get("none", &out, nullptr);
    EXPECT_EQ(out, nullptr);
}

// Conversions: a zero counts only when the text starts with "0"; only "true" is true.
TEST(ListMap, TypedValuesFollowTheTextRules) {
    ListMap m;
    m.set("hex", "0x10");
    m.set("x", "x");
    m.set("neg0", "-0");
    m.set("lead", "12abc");
    m.set("empty", "");
    m.set("big", "99999999999");
    m.setLong("long", -1234567890123LL);
    m.setInt("int", -5);
    m.setBoolean("b", true);
    m.set("T", "TRUE");
    m.set("yes", "yes");
    EXPECT_EQ(m.getInt("hex", 7), 0);
    EXPECT_EQ(m.getInt("x", 7), 7);
    EXPECT_EQ(m.getInt("neg0", 7), 7);
    EXPECT_EQ(m.getInt("lead", 7), 12);
    EXPECT_EQ(m.getInt("empty", 7), 7);
    EXPECT_EQ(m.getInt("big", 7), 2147483647) << "saturates like a 32-bit long";
    EXPECT_EQ(m.getInt("int", 0), -5);
    EXPECT_EQ(m.getLong("long", 0), -1234567890123LL);
    EXPECT_EQ(m.getLong("neg0", 9), 9);
    EXPECT_EQ(m.getLong("x", 9), 9);
    EXPECT_TRUE(m.getBoolean("b", false));
    EXPECT_TRUE(m.getBoolean("t", false));
    EXPECT_FALSE(m.getBoolean("yes", true));
    EXPECT_TRUE(m.getBoolean("empty", true));
    EXPECT_TRUE(m.getBoolean("missing", true));
}

// clear() keeps the former count; the list itself is empty and relinks on the next set.
// Removing the tail lets later appends link after the new tail.
TEST(ListMap, ClearKeepsStaleCountAndRemoveMovesTail) {
    ListMap m;
    m.set("a", "1");
    m.set("b", "2");
    m.set("c", "3");
    m.clear();
    EXPECT_EQ(m.getSize(), 3);
    EXPECT_FALSE(m.isEmpty());
    EXPECT_FALSE(m.containsKey("a"));
    m.set("d", "4");
    EXPECT_EQ(m.getSize(), 4);
    EXPECT_EQ(entries(m), (std::vector<std::string>{"d=4"}));

    m.set("e", "5");
    EXPECT_TRUE(m.remove("E"));
    EXPECT_FALSE(m.remove("e"));
    EXPECT_FALSE(m.remove(nullptr));
    m.set("f", "6");
    EXPECT_EQ(entries(m), (std::vector<std::string>{"d=4", "f=6"}));
    EXPECT_EQ(m.getSize(), 5);
}

// Deleting the current entry visits every other entry exactly once.
TEST(ListMap, DeleteCurrentDuringIteration) {
    ListMap m;
    for (const char* k : {"a", "b", "c", "d"})
        m.set(k, "v");
    std::unique_ptr<MapIterator> it(m.makeIterator());
    std::string seen;
    char k[4];
    while (it->hasNext()) {
        it->moveNext();
        seen += it->getKey(k, 4);
        if (k[0] == 'a' || k[0] == 'c' || k[0] == 'd') it->deleteCurrent();
    }
    EXPECT_EQ(seen, "abcd");
    EXPECT_EQ(entries(m), (std::vector<std::string>{"b=v"}));
    m.set("e", "v");
    EXPECT_EQ(entries(m), (std::vector<std::string>{"b=v", "e=v"}));
}

// newCopy puts the store's entries first and keeps duplicates; lookups find the first,
// and removing it exposes the second.
TEST(ListMap, NewCopyLoadsFromStoreThenAppendsDuplicates) {
    ListMap m;
    m.set("b", "1");
    m.set("A", "mine");
    std::unique_ptr<Map> copy(m.newCopy(new FixedStore));
    EXPECT_EQ(entries(*copy), (std::vector<std::string>{"a=store", "b=1", "A=mine"}));
    char buf[16];
    EXPECT_STREQ(copy->get("a", buf, 16, ""), "store");
    EXPECT_TRUE(copy->remove("a"));
    EXPECT_STREQ(copy->get("a", buf, 16, ""), "mine");
    EXPECT_GT(static_cast<FixedStore*>(copy->getStore())->changes, 0);

    ListMap target;
    target.set("b", "old");
    target.copyAll(copy.get());
    target.copyAll(nullptr);
    EXPECT_EQ(entries(target), (std::vector<std::string>{"b=1", "A=mine"}));
}

// Lookups stay exact through growth and many removals, and removals keep the list order.
TEST(ListMap, LookupsStayExactThroughGrowthAndRemovals) {
    ListMap m;
    char key[16];
    for (int i = 0; i < 3000; ++i) {
        std::snprintf(key, sizeof key, "Key%d", i);
        m.setInt(key, i);
    }
    for (int i = 0; i < 3000; i += 3) {
        std::snprintf(key, sizeof key, "KEY%d", i);
        ASSERT_TRUE(m.remove(key));
    }
    for (int i = 0; i < 3000; ++i) {
        std::snprintf(key, sizeof key, "key%d", i);
        ASSERT_EQ(m.getInt(key, -1), i % 3 == 0 ? -1 : i) << key;
    }
    std::vector<std::string> all = entries(m);
    ASSERT_EQ(all.size(), 2000u);
    EXPECT_EQ(all.front(), "Key1=1");
    EXPECT_EQ(all.back(), "Key2999=2999");
}
