#include <velmora/net/Icmp.h>
#include <velmora/net/InetAddress.h>
#include <velmora/net/ServerSocket.h>
#include <velmora/net/Socket.h>
#include <velmora/net/SocketFactory.h>
#include <velmora/net/SocketInput.h>
#include <velmora/net/SocketOutput.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "NetTestSupport.h"
#include "net/OsVersionSource.h"

using namespace velmora;

// Only the 6.x line of NT answers yes; the decision reaches the listener's option.
TEST(ServerSocket, DualStackOnlyForWindowsSix) {
    struct Case {
        int platform, major;
        bool dual;
    } cases[] = {{2, 5, false}, {2, 6, true}, {2, 10, false}, {1, 6, false}, {2, 7, false}};
    for (const Case& c : cases) {
        OsVersionSource::set(c.platform, c.major);
        EXPECT_EQ(ServerSocket::isDualStackSupported(), c.dual) << c.platform << "." << c.major;
    }
    // A listener on the IPv4-mapped loopback address needs the option off to bind at all,
    // and then takes IPv4 clients.
    OsVersionSource::set(2, 6);
    std::unique_ptr<ServerSocket> dual(ServerSocket::make(nullptr, 0, "::ffff:127.0.0.1"));
    OsVersionSource::set(2, 10);
    std::unique_ptr<ServerSocket> plain(ServerSocket::make(nullptr, 0, "::FFFF:127.0.0.1"));
    OsVersionSource::reset();
    ASSERT_TRUE(dual);
    EXPECT_EQ(test::ipv6Only(dual->getSocketHandle()), 0);
    std::unique_ptr<Socket> client(
        Socket::make(nullptr, "127.0.0.1", test::localPort(dual->getSocketHandle())));
    ASSERT_TRUE(client);
    std::unique_ptr<Socket> peer(dual->accept6());
    ASSERT_TRUE(peer);
    EXPECT_STREQ(peer->getInetAddress()->getHostAddress(), "::ffff:127.0.0.1");
    if (test::defaultIpv6Only() == 1) {
        EXPECT_FALSE(plain) << "the option stays at the system's default";
    } else {
        ASSERT_TRUE(plain);
        EXPECT_EQ(test::ipv6Only(plain->getSocketHandle()), 0);
    }
}

TEST(ServerSocket, FailuresGiveNullAndLeaveNothingOpen) {
    const int before = test::openDescriptors();
    EXPECT_EQ(ServerSocket::make(nullptr, 0, nullptr), nullptr);
    EXPECT_EQ(ServerSocket::make(nullptr, 0, "no-such-host.invalid"), nullptr);
    std::unique_ptr<ServerSocket> first(ServerSocket::make(nullptr, 0, "127.0.0.1"));
    ASSERT_TRUE(first);
    const int port = test::localPort(first->getSocketHandle());
    EXPECT_EQ(ServerSocket::make(nullptr, port, "127.0.0.1"), nullptr) << "port in use";
    first->close();
    first->close();  // a second close does nothing
    EXPECT_EQ(Socket::make(nullptr, "127.0.0.1", port), nullptr) << "nobody listens";
    EXPECT_EQ(Socket::make(nullptr, nullptr, port), nullptr);
    // Kept: a client connect to an IPv6 address never succeeds, even with a listener.
    std::unique_ptr<ServerSocket> six(ServerSocket::make(nullptr, 0, "::1"));
    ASSERT_TRUE(six);
    EXPECT_EQ(Socket::make(nullptr, "::1", test::localPort(six->getSocketHandle())), nullptr);
    six.reset();
    if (before >= 0) {
        EXPECT_EQ(test::openDescriptors(), before);
    }
}

// A thousand short connections in a row, then sixteen clients at once: every handle and
// every object goes again (the descriptor count here, the leak checker under sanitizers).
TEST(ServerSocket, ConcurrentClientsLeaveNoHandleBehind) {
    std::unique_ptr<ServerSocket> server(
        SocketFactory::getInstance()->makeServerSocket(nullptr, 0, "127.0.0.1", 32));
    ASSERT_TRUE(server);
    const int port = test::localPort(server->getSocketHandle());
    const int before = test::openDescriptors();
    const int kSerial = 1000, kParallel = 16;
    std::atomic<int> answered{0};
    std::thread acceptor([&] {
        for (int i = 0; i < kSerial + kParallel; ++i) {
            std::unique_ptr<Socket> peer(server->accept());
            if (!peer) return;
            char* line = peer->getInput()->readLine();
            if (line != nullptr) {
                peer->getOutput()->writeLine(line);
                peer->getOutput()->flush();
            }
            velmora::release(line);
        }
    });
    auto client = [&](int n) {
        std::unique_ptr<Socket> s(
            SocketFactory::getInstance()->makeSocket(nullptr, "127.0.0.1", port));
        if (!s) return;
        const std::string sent = "client " + std::to_string(n);
        s->getOutput()->writeLine(sent.c_str());
        s->getOutput()->flush();
        char* echo = s->getInput()->readLine();
        if (echo != nullptr && sent == echo) ++answered;
        velmora::release(echo);
    };
    for (int i = 0; i < kSerial; ++i)
        client(i);
    std::vector<std::thread> clients;
    for (int i = 0; i < kParallel; ++i)
        clients.emplace_back(client, i);
    for (std::thread& t : clients)
        t.join();
    acceptor.join();
    EXPECT_EQ(answered.load(), kSerial + kParallel);
    if (before >= 0) {
        EXPECT_EQ(test::openDescriptors(), before);
    }
}

TEST(Icmp, EchoOnLoopbackAndItsFailures) {
    unsigned short odd[2] = {0, 0};
    reinterpret_cast<unsigned char*>(odd)[0] = 0x01;
    reinterpret_cast<unsigned char*>(odd)[1] = 0x02;
    reinterpret_cast<unsigned char*>(odd)[2] = 0x03;
    // Words as stored in memory: the trailing byte adds its own value, unshifted.
    unsigned short first;
    std::memcpy(&first, odd, 2);
    EXPECT_EQ(Icmp::icmp_checksum(odd, 3), static_cast<unsigned short>(~(first + 0x03)));
    unsigned short ones[2] = {0xffff, 0x0001};  // the carry folds back in
    EXPECT_EQ(Icmp::icmp_checksum(ones, 4), static_cast<unsigned short>(~0x0001));

    Icmp* icmp = Icmp::getInstance(nullptr);
    ASSERT_NE(icmp, nullptr);
    EXPECT_EQ(icmp->ping6(nullptr, "::1", 1), -1);
    EXPECT_EQ(icmp->ping(nullptr, "no-such-host.invalid", 1), -1);
    const int result = icmp->ping(nullptr, "127.0.0.1", 2);
    // Raw sockets need root (Administrator); without that right ping gives -1. The time is
    // in milliseconds: a loopback answer takes well under a second, not 0 or 1000.
    if (!test::mayOpenRawIcmp()) {
        EXPECT_EQ(result, -1);
        Icmp::unload();
        return;
    }
    EXPECT_GE(result, 0);
    EXPECT_LT(result, 500);

    // Threads pinging at once each get their own answer from the one socket.
    std::vector<std::thread> threads;
    std::atomic<int> answered{0};
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20; ++i)
                if (icmp->ping(nullptr, "127.0.0.1", 2) >= 0) ++answered;
        });
    }
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(answered.load(), 160);
    Icmp::unload();
}
