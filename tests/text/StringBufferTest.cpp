#include <velmora/text/StringBuffer.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using namespace velmora;

// The capacity grows by whole steps of the initial size plus one, never by doubling, and
// the text is always terminated.
TEST(StringBuffer, GrowsInStepsOfInitialSizePlusOne) {
    StringBuffer b(4);
    EXPECT_EQ(b.getCapacity(), 5);
    b.append("abcd");
    EXPECT_EQ(b.getCapacity(), 5) << "four characters and the terminator fit";
    b.append("efghijkl");
    EXPECT_EQ(b.getCapacity(), 15) << "12 characters take two more steps of 5";
    b.append("m", 1).append("", 0).append(nullptr).append("xyz", -1);
    int length = -1;
    EXPECT_STREQ(b.getBuffer(&length), "abcdefghijklm");
    EXPECT_EQ(length, 13);

    b.append(b.getBuffer(nullptr), 13);  // its own text, across a reallocation
    EXPECT_STREQ(b.getBuffer(nullptr), "abcdefghijklmabcdefghijklm");
    EXPECT_EQ(b.getCapacity(), 30);

    b.clear();
    EXPECT_EQ(b.getLength(), 0);
    EXPECT_EQ(b.getCapacity(), 30);
    EXPECT_EQ(std::string(b.getBuffer(nullptr), 30), std::string(30, '\0'));
}

// Formatting appends the whole result, also beyond the usual 32 KiB scratch space.
TEST(StringBuffer, AppendfAppendsFormattedTextOfAnyLength) {
    StringBuffer b(0);
    b.appendf("%s=%d;", "port", 8080).appendf("%05.1f", 2.5);
    EXPECT_STREQ(b.getBuffer(nullptr), "port=8080;002.5");
    const std::string big(40000, 'x');
    b.clear();
    b.appendf("<%s>", big.c_str());
    EXPECT_EQ(b.getLength(), 40002);
    EXPECT_EQ(std::string(b.getBuffer(nullptr)), "<" + big + ">");
}
