#include <velmora/net/InetAddress.h>
#include <velmora/net/ServerSocket.h>
#include <velmora/net/Socket.h>
#include <velmora/net/SocketInput.h>
#include <velmora/net/SocketInputReader.h>
#include <velmora/net/SocketOutput.h>
#include <velmora/net/SocketOutputWriter.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "NetTestSupport.h"

#ifndef _WIN32
#include <sys/socket.h>
#include <sys/time.h>
#endif

using namespace velmora;

namespace {

std::string take(char* text) {
    std::string s = text != nullptr ? text : "<null>";
    velmora::release(text);
    return s;
}

void send(Socket* socket, const char* bytes, int count) {
    ASSERT_TRUE(socket->getOutput()->write(bytes, count));
    ASSERT_TRUE(socket->getOutput()->flush());
}

}  // namespace

// Lines end only at CR LF; a lone LF or CR is data; the peer's close ends the last line.
TEST(SocketStreams, ReadLineKeepsLoneLineEndsAndEndsAtClose) {
    test::Pair pair = test::connectPair();
    ASSERT_TRUE(pair.accepted);
    const char bytes[] = "ab\ncd\r\nx\ry\r\n\r\nq\r\r\nz\r\n";
    send(pair.client.get(), bytes, sizeof bytes - 1);
    std::string big(3000, 'L');  // longer than the buffer and than several doublings
    pair.client->getOutput()->writeLine(big.c_str());
    send(pair.client.get(), "abc", 3);
    pair.client->close();

    SocketInput* in = pair.accepted->getInput();
    EXPECT_EQ(take(in->readLine()), "ab\ncd");
    EXPECT_EQ(take(in->readLine()), "x\ry");
    EXPECT_EQ(take(in->readLine()), "") << "an empty line is no failure";
    EXPECT_EQ(take(in->readLine()), "q\r\r\nz");
    EXPECT_EQ(take(in->readLine()), big);
    EXPECT_EQ(take(in->readLine()), "abc");
    EXPECT_EQ(take(in->readLine()), "<null>");
    EXPECT_TRUE(in->getSocketError());
    EXPECT_TRUE(pair.accepted->inError());
}

TEST(SocketStreams, ReadStringStopsAtTheLimitAndIntsAreBigEndian) {
    test::Pair pair = test::connectPair();
    ASSERT_TRUE(pair.accepted);
    SocketOutput* out = pair.client->getOutput();
    out->writeString("0123;0123456789;");
    out->writeInt(1);
    out->writeInt(-2);
    out->writef("%s=%d;", "port", 8080);
    out->flush();
    SocketInput* in = pair.accepted->getInput();
    EXPECT_EQ(take(in->readString(4, 8, ';')), "0123");
    EXPECT_EQ(take(in->readString(4, 8, ';')), "<null>") << "the doubled room 10 exceeds 9";
    char rest[7] = {};
    EXPECT_EQ(in->read(rest, 0, 6), 6);
    EXPECT_STREQ(rest, "56789;");
    char raw[4];
    EXPECT_EQ(in->read(raw, 4), 4);
    EXPECT_EQ(std::memcmp(raw, "\0\0\0\x01", 4), 0);
    int value = 0;
    EXPECT_TRUE(in->readInt(&value));
    EXPECT_EQ(value, -2);
    EXPECT_EQ(take(in->readString(2, 100, ';')), "port=8080");
}

// Nothing leaves before the buffer is full: the 2049th byte sends the first 2048.
TEST(SocketStreams, FullBufferFlushesAndZeroRetriesDiscard) {
    test::Pair pair = test::connectPair();
    ASSERT_TRUE(pair.accepted);
    SocketOutput* out = pair.client->getOutput();
    SocketInput* in = pair.accepted->getInput();
    in->setTimeout(200);
    std::string block(2048, 'b');
    EXPECT_TRUE(out->write(block.c_str(), 2048));
    EXPECT_LE(in->available(), 0) << "a full buffer is not sent yet";
    EXPECT_TRUE(out->writeByte('c'));
    char got[2048];
    EXPECT_EQ(in->read(got, 2048), 2048);
    char c;
    EXPECT_FALSE(in->readByte(&c)) << "the 2049th byte waits for a flush";
    EXPECT_FALSE(in->getSocketError()) << "a time-out is no error";
    EXPECT_TRUE(in->wait()) << "silence until the time-out still answers true";

    out->setFlushRetries(0);
    EXPECT_TRUE(out->flush());
    out->setFlushRetries(100);
    out->writeByte('d');
    out->flush();
    EXPECT_TRUE(in->readByte(&c));
    EXPECT_EQ(c, 'd') << "the discarded byte never arrives";
    EXPECT_FALSE(out->write("x", 0)) << "an empty write counts as failed";
    EXPECT_FALSE(out->writeString(""));
}

TEST(SocketStreams, CharacterAdaptersAndClosedPeers) {
    test::Pair pair = test::connectPair();
    ASSERT_TRUE(pair.accepted);
    SocketOutputWriter writer(pair.client->getOutput());
    EXPECT_EQ(writer.write("\xff"
                           "abc",
                           4),
              4);
    EXPECT_TRUE(writer.write('d'));
    pair.client->getOutput()->flush();
    pair.client->close();
    EXPECT_TRUE(pair.client->isClosed());
    pair.client->close();  // a second close does nothing

    SocketInputReader reader(pair.accepted->getInput());
    EXPECT_EQ(reader.getChar(), 0xff) << "bytes above 127 are no end of input";
    char* block = nullptr;
    int length = 0;
    reader.getBuf(10, &block, &length);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::string(block, length), "abcd");
    velmora::release(block);
    EXPECT_FALSE(reader.eof());
    reader.getBuf(10, &block, &length);
    EXPECT_EQ(block, nullptr);
    EXPECT_TRUE(reader.eof());

    SocketInput* in = pair.accepted->getInput();
    in->setTimeout(1000);
    EXPECT_FALSE(in->wait()) << "a closed peer is a broken connection";
    EXPECT_TRUE(in->getSocketError());
    EXPECT_TRUE(pair.accepted->equals(pair.accepted.get()));
    EXPECT_FALSE(pair.accepted->equals(pair.client.get()));
    EXPECT_FALSE(pair.accepted->equals(nullptr));
}

// Writers sharing one output: each line reaches the peer whole, never mixed with another.
#ifndef _WIN32
namespace {

// An input that waits by the socket's receive time-out, as the daemon's does.
class TimedInput : public SocketInput {
public:
    explicit TimedInput(Socket* socket) : SocketInput(socket, -1) {}
    using SocketInput::receiveNow;
};

}  // namespace

// A receive whose socket time-out expires is no error; input and the peer's close are seen.
TEST(SocketStreams, ReceiveNowTellsTimeOutFromClose) {
    test::Pair pair = test::connectPair();
    ASSERT_TRUE(pair.accepted);
    timeval limit = {0, 50 * 1000};
    ASSERT_EQ(setsockopt(static_cast<int>(pair.accepted->getSocketHandle()), SOL_SOCKET,
                         SO_RCVTIMEO, &limit, sizeof limit),
              0);
    TimedInput in(pair.accepted.get());
    EXPECT_EQ(in.receiveNow(), 0);
    EXPECT_FALSE(in.getSocketError());
    send(pair.client.get(), "GET", 3);
    EXPECT_EQ(in.receiveNow(), 3);
    char got[4] = {};
    EXPECT_EQ(in.read(got, 3), 3);
    EXPECT_STREQ(got, "GET");
    pair.client->close();
    EXPECT_LT(in.receiveNow(), 0);
    EXPECT_TRUE(in.getSocketError());
}
#endif

TEST(SocketStreams, ConcurrentWritersKeepEveryLineWhole) {
    test::Pair pair = test::connectPair();
    ASSERT_TRUE(pair.accepted);
    SocketOutput* out = pair.client->getOutput();
    const int kWriters = 4, kLines = 200;
    int whole = 0;
    std::thread reader([&] {
        for (int i = 0; i < kWriters * kLines; ++i) {
            const std::string line = take(pair.accepted->getInput()->readLine());
            if (line.size() == 100 && line == std::string(100, line[0])) ++whole;
        }
    });
    std::vector<std::thread> writers;
    for (int w = 0; w < kWriters; ++w) {
        writers.emplace_back([out, w] {
            const std::string line(100, static_cast<char>('a' + w));
            for (int i = 0; i < kLines; ++i)
                out->writeLine(line.c_str());
        });
    }
    for (std::thread& t : writers)
        t.join();
    out->flush();
    reader.join();
    EXPECT_EQ(whole, kWriters * kLines);
}
