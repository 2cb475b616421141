#include <velmora/platform/PlatformUtil.h>
#include <velmora/text/FileReader.h>
#include <velmora/text/FileWriter.h>
#include <velmora/text/MulticastWriter.h>
#include <velmora/text/StringReader.h>
#include <velmora/text/StringWriter.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>

#include "support/TempDir.h"

using namespace velmora;
using velmora::test::readFile;
using velmora::test::TempDir;
using velmora::test::writeFile;

namespace {

std::string drain(CharReader& in) {
    std::string s;
    for (int c = in.getChar(); c != -1; c = in.getChar())
        s += static_cast<char>(c);
    return s;
}

}  // namespace

// Growth happens one increment per call, already when the text would exactly fill the
// buffer, so the text is always followed by a zero.
TEST(StringWriter, GrowsOneIncrementPerCallAndStaysTerminated) {
    StringWriter w(16);
    for (int i = 0; i < 15; ++i)
        ASSERT_TRUE(w.write(static_cast<char>('a' + i)));
    EXPECT_EQ(w.getCapacity(), 16u);
    EXPECT_STREQ(w.getString(), "abcdefghijklmno");
    w.write('p');
    EXPECT_EQ(w.getCapacity(), 32u);
    EXPECT_EQ(w.getLength(), 16);
    EXPECT_EQ(w.getString()[16], '\0');

    std::string big(100, 'x');
    EXPECT_EQ(w.write(big.data(), 100), 100);
    EXPECT_GT(w.getCapacity(), 116u) << "one long write grows as far as it needs";
    EXPECT_EQ(w.getCapacity() % 16, 0u);
    EXPECT_EQ(std::string(w.getString()), "abcdefghijklmnop" + big);

    // Every byte the capacity covers after the text reads as zero, also after clear(), and
    // whatever the new memory held (under AddressSanitizer it comes filled, so a missed
    // zero shows there).
    StringWriter grown(64);
    for (int i = 0; i < 3000; ++i)
        grown.write(big.data(), 1 + i % 37);
    auto zeroAfter = [&grown](uint32_t from) {
        for (uint32_t i = from; i < grown.getCapacity(); ++i)
            if (grown.getString()[i] != '\0') return false;
        return true;
    };
    EXPECT_TRUE(zeroAfter(static_cast<uint32_t>(grown.getLength())));
    grown.clear();
    EXPECT_TRUE(zeroAfter(0));

    StringWriter fromText("seed");
    EXPECT_STREQ(fromText.getString(), "seed");
    EXPECT_EQ(fromText.getCapacity(), 1024u);
    StringWriter odd(0);
    EXPECT_EQ(odd.getCapacity(), 1024u) << "a useless increment falls back to the default";
}

TEST(StringWriter, ClosedWriterReportsLengthButKeepsText) {
    StringWriter w;
    w.writeString("kept");
    w.close();
    EXPECT_EQ(w.write("more", 4), 4);
    EXPECT_TRUE(w.write('!')) << "write(c) reports the length it was told";
    EXPECT_STREQ(w.getString(), "kept");
    w.clear();
    EXPECT_EQ(w.getLength(), 0);
    EXPECT_STREQ(w.getString(), "");
    w.writeString("after clear");
    EXPECT_STREQ(w.getString(), "") << "clear leaves a closed writer closed";
    EXPECT_EQ(w.write(nullptr, 3), 3);
    EXPECT_EQ(w.writeString(nullptr), 0);
}

namespace {

struct LineWriter {
    StringWriter* out;
    int id;
};

uint32_t writeLines(void* arg) {
    auto* lw = static_cast<LineWriter*>(arg);
    for (int i = 0; i < 500; ++i) {
        std::string line = "thread " + std::to_string(lw->id) + " line " + std::to_string(i) + "\n";
        lw->out->write(line.data(), static_cast<int>(line.size()));
    }
    return 0;
}

}  // namespace

TEST(StringWriter, ConcurrentWritersKeepEveryLineWhole) {
    StringWriter w(8);
    LineWriter workers[4] = {{&w, 0}, {&w, 1}, {&w, 2}, {&w, 3}};
    PlatformThread threads[4];
    for (int i = 0; i < 4; ++i)
        threads[i] = PlatformUtil::createThread(writeLines, &workers[i], "w");
    for (auto& t : threads)
        PlatformUtil::joinThread(t);
    w.lock();
    std::istringstream lines(w.getString());
    w.unlock();
    int count[4] = {0, 0, 0, 0};
    std::string line;
    while (std::getline(lines, line)) {
        int id = -1, n = -1;
        ASSERT_EQ(std::sscanf(line.c_str(), "thread %d line %d", &id, &n), 2) << line;
        ASSERT_TRUE(id >= 0 && id < 4);
        EXPECT_EQ(n, count[id]++) << "lines of one thread stay in order";
    }
    for (int c : count)
        EXPECT_EQ(c, 500);
}

// Kept: the text constructor never delivers the last character; the length form does.
TEST(StringReader, TextFormDropsLastCharacterLengthFormDoesNot) {
    StringReader shortened("abc");
    EXPECT_EQ(shortened.getChar(), 'a');
    EXPECT_FALSE(shortened.eof());
    EXPECT_EQ(shortened.getChar(), 'b');
    EXPECT_TRUE(shortened.eof());
    EXPECT_EQ(shortened.getChar(), -1);

    StringReader whole("abc", 3);
    EXPECT_EQ(drain(whole), "abc");
    StringReader empty("");
    EXPECT_EQ(empty.getChar(), -1);
    StringReader none(nullptr);
    EXPECT_TRUE(none.eof());

    StringReader bytes("\0\xE9\xFF", 3);
    EXPECT_EQ(bytes.getChar(), 0);
    EXPECT_EQ(bytes.getChar(), 0xE9) << "unsigned, unlike FileReader";
    EXPECT_EQ(bytes.getChar(), 0xFF);
    EXPECT_EQ(bytes.getChar(), -1);
}

TEST(StringReader, GetBufHandsOutBlocksThenNothing) {
    StringReader in("0123456789", 10);
    char* buf = nullptr;
    int len = 0;
    in.getBuf(6, &buf, &len);
    ASSERT_EQ(len, 6);
    EXPECT_EQ(std::string(buf, 6), "012345");
    velmora::release(buf);
    in.getBuf(10, &buf, &len);
    ASSERT_EQ(len, 4);
    EXPECT_EQ(std::string(buf, 4), "6789");
    velmora::release(buf);
    EXPECT_TRUE(in.eof());
    in.getBuf(10, &buf, &len);
    EXPECT_EQ(buf, nullptr);
    EXPECT_EQ(len, 0);

    StringReader mixed("abcdef", 6);
    EXPECT_EQ(mixed.getChar(), 'a');
    int left = 0;
    const char* rest = mixed.peekRemaining(&left);
    EXPECT_EQ(std::string(rest, left), "bcdef");
    mixed.advance(2);
    EXPECT_EQ(mixed.getChar(), 'd');
    mixed.advance(100);
    EXPECT_TRUE(mixed.eof());
}

// Files are binary: CR LF, ^Z and NUL come back exactly; bytes above 127 read signed.
TEST(FileStreams, BinaryRoundTripAndSignedBytes) {
    TempDir tmp;
    std::string path = tmp.file("sub/dir/data.bin");
    const std::string content("line\r\n\x1A\0\xE9\xFFz", 11);
    {
        std::unique_ptr<FileWriter> out(FileWriter::make(path.c_str()));
        ASSERT_TRUE(out) << "make creates the directories";
        EXPECT_EQ(out->write(content.data(), 9), 9);
        EXPECT_TRUE(out->write('\xFF'));
        EXPECT_TRUE(out->write('z'));
        out->close();
        EXPECT_EQ(out->write("x", 1), 0);
        EXPECT_FALSE(out->write('x'));
    }
    EXPECT_EQ(readFile(path), content);

    std::unique_ptr<FileReader> in(FileReader::make(path.c_str()));
    ASSERT_TRUE(in);
    std::string head;
    for (int i = 0; i < 8; ++i)
        head += static_cast<char>(in->getChar());
    EXPECT_EQ(head, content.substr(0, 8));
    EXPECT_EQ(in->getChar(), -23) << "0xE9 as a signed character";
    EXPECT_EQ(in->getChar(), -1) << "0xFF reads as -1";
    EXPECT_FALSE(in->eof()) << "...but is not the end";
    EXPECT_EQ(in->getChar(), 'z');
    EXPECT_EQ(in->getChar(), -1);
    EXPECT_TRUE(in->eof());

    std::unique_ptr<FileReader> again(FileReader::make(path.c_str()));
    for (int i = 0; i < 6; ++i)
        again->getChar();
    EXPECT_EQ(again->getChar(), 0x1A);
    EXPECT_EQ(again->getChar(), 0);
}

// getBuf continues exactly where getChar stopped, and reports the end with a null block.
TEST(FileStreams, GetBufAfterGetCharAndAtEnd) {
    TempDir tmp;
    std::string data;
    for (int i = 0; i < 200000; ++i)
        data += static_cast<char>('a' + i % 26);
    ASSERT_TRUE(writeFile(tmp.file("big.txt"), data));
    std::unique_ptr<FileReader> in(FileReader::make(tmp.file("big.txt").c_str()));
    ASSERT_TRUE(in);
    std::string got;
    got += static_cast<char>(in->getChar());
    char* buf = nullptr;
    int len = 0;
    while (true) {
        in->getBuf(70000, &buf, &len);
        if (buf == nullptr) break;
        got.append(buf, len);
        velmora::release(buf);
    }
    EXPECT_EQ(len, 0);
    EXPECT_TRUE(in->eof());
    EXPECT_EQ(got, data);
    in->close();
    EXPECT_EQ(in->getChar(), -1);
    in->getBuf(10, &buf, &len);
    EXPECT_EQ(buf, nullptr);

    EXPECT_EQ(FileReader::make(tmp.file("missing").c_str()), nullptr);
    EXPECT_EQ(FileReader::make(nullptr), nullptr);
    ASSERT_TRUE(writeFile(tmp.file("blocker"), "x"));
    EXPECT_EQ(FileWriter::make(tmp.file("blocker/f.txt").c_str()), nullptr);
    EXPECT_EQ(FileWriter::make(nullptr), nullptr);
}

namespace {

// A target that refuses everything and counts what it was asked.
class RefusingWriter : public CharWriter {
public:
    int write(const char*, int) override {
        ++calls;
        return -1;
    }
    bool write(char) override {
        ++calls;
        return false;
    }
    void close() override { ++closes; }
    int calls = 0;
    int closes = 0;
};

}  // namespace

TEST(MulticastWriter, FansOutInOrderIgnoresFailuresAndClosesTargets) {
    StringWriter a, b;
    RefusingWriter bad;
    {
        MulticastWriter m(&a);
        m.addWriter(&bad);
        m.addWriter(&b);
        m.addWriter(&b);
        EXPECT_EQ(m.write("hello", 5), 5);
        EXPECT_TRUE(m.write('!'));
        EXPECT_EQ(m.writeString("?"), 1);
    }
    EXPECT_STREQ(a.getString(), "hello!?");
    EXPECT_STREQ(b.getString(), "hellohello!!??") << "a writer added twice gets everything twice";
    EXPECT_EQ(bad.calls, 3);
    EXPECT_EQ(bad.closes, 1) << "destroying the multicast writer closes its targets";
    a.writeString("late");
    EXPECT_STREQ(a.getString(), "hello!?");
}
