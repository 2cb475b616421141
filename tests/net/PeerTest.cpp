// The library against Python's socket module: a peer that nobody here wrote. Linux only,
// since Wine cannot start the Linux interpreter.
#if !defined(_WIN32)
#include <velmora/net/InetAddress.h>
#include <velmora/net/ServerSocket.h>
#include <velmora/net/Socket.h>
#include <velmora/net/SocketInput.h>
#include <velmora/net/SocketOutput.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "NetTestSupport.h"

using namespace velmora;

namespace {

FILE* startPeer(const std::string& arguments) {
    if (std::system("python3 -c pass") != 0) return nullptr;
    return popen(("python3 " VELMORA_NET_PEER " " + arguments).c_str(), "r");
}

std::string firstLine(FILE* peer) {
    char line[8192] = {};
    if (std::fgets(line, sizeof line, peer) == nullptr) return "";
    std::string s = line;
    while (!s.empty() && (s.back() == '\n' || s.back() == '\r'))
        s.pop_back();
    return s;
}

std::string take(char* text) {
    std::string s = text != nullptr ? text : "<null>";
    velmora::release(text);
    return s;
}

}  // namespace

TEST(Peer, PythonClientReadsWhatTheServerWrites) {
    std::unique_ptr<ServerSocket> server(ServerSocket::make(nullptr, 0, "127.0.0.1"));
    ASSERT_TRUE(server);
    FILE* peer = startPeer("client " + std::to_string(test::localPort(server->getSocketHandle())));
    if (peer == nullptr) GTEST_SKIP() << "python3 is not available";
    std::unique_ptr<Socket> accepted(server->accept());
    ASSERT_TRUE(accepted);
    EXPECT_STREQ(accepted->getInetAddress()->getHostAddress(), "127.0.0.1");
    EXPECT_EQ(take(accepted->getInput()->readLine()), "GET / HTTP/1.0");
    SocketOutput* out = accepted->getOutput();
    out->writeInt(1);
    out->writeLine("ok");
    EXPECT_TRUE(out->flush());
    accepted->close();
    EXPECT_EQ(firstLine(peer), "000000016f6b0d0a");
    EXPECT_EQ(pclose(peer), 0);
}

TEST(Peer, ClientAgainstPythonServer) {
    FILE* peer = startPeer("server");
    if (peer == nullptr) GTEST_SKIP() << "python3 is not available";
    const int port = std::atoi(firstLine(peer).c_str());
    ASSERT_GT(port, 0);
    std::unique_ptr<Socket> s(Socket::make(nullptr, "127.0.0.1", port));
    ASSERT_TRUE(s);
    SocketInput* in = s->getInput();
    EXPECT_EQ(take(in->readLine()), "x\ry");
    int value = 0;
    EXPECT_TRUE(in->readInt(&value));
    EXPECT_EQ(value, 42);
    EXPECT_EQ(take(in->readString(4, 8, ';')), "<null>");

    const std::string block(2049, 'z');  // the 2049th byte sends the first 2048
    EXPECT_TRUE(s->getOutput()->write(block.c_str(), 2049));
    EXPECT_EQ(take(in->readLine()), "56789;2048");

    in->setTimeout(100);
    char c;
    EXPECT_FALSE(in->readByte(&c)) << "the peer is silent for longer than the time-out";
    EXPECT_FALSE(in->getSocketError());
    in->setTimeout(-1);
    EXPECT_EQ(take(in->readLine()), "abc") << "the peer closed in the middle of the line";
    EXPECT_EQ(take(in->readLine()), "<null>");
    EXPECT_TRUE(s->inError() || in->getSocketError());
    EXPECT_EQ(pclose(peer), 0);
}
#endif
