// What the networking classes report into the caller's log: module, key, arguments and
// the English text of each failure, and the trace of an accepted connection.
#include <velmora/log/Log.h>
#include <velmora/log/MessageBundle.h>
#include <velmora/net/Icmp.h>
#include <velmora/net/ServerSocket.h>
#include <velmora/net/Socket.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "NetTestSupport.h"

using namespace velmora;

namespace {

struct Report {
    std::string level, module, key, text;
    std::vector<std::string> arguments;
};

class RecordingLog : public Log {
public:
    using Log::error;
    using Log::message;
    using Log::trace;
    using Log::warning;
    void error(MessageBundle* b) override { record("error", b); }
    void trace(MessageBundle* b) override { record("trace", b); }
    void warning(MessageBundle* b) override { record("warning", b); }
    void message(MessageBundle* b) override { record("message", b); }
    // The only report since the last call.
    Report take() {
        EXPECT_EQ(reports.size(), 1u);
        Report r = reports.empty() ? Report() : reports.back();
        reports.clear();
        return r;
    }
    std::vector<Report> reports;

private:
    void record(const char* level, MessageBundle* b) {
        Report r{level,
                 b->getModule() ? b->getModule() : "",
                 b->getKey() ? b->getKey() : "",
                 b->getText() ? b->getText() : "",
                 {}};
        for (const MessageArgument* a = b->getArguments(); a != nullptr; a = a->next) {
            r.arguments.push_back(a->value);
        }
        reports.push_back(r);
    }
};

}  // namespace

TEST(NetReports, EveryFailureAndAcceptanceReachesTheLog) {
    RecordingLog log;
    EXPECT_EQ(Socket::make(&log, nullptr, 80), nullptr);
    Report r = log.take();
    EXPECT_EQ(r.level + " " + r.module + " " + r.key, "error platform socket.invalidAddress");
    EXPECT_EQ(r.text, "socket: Null address!\n");
    EXPECT_TRUE(r.arguments.empty());

    EXPECT_EQ(Socket::make(&log, "no-such-host.invalid", 80), nullptr);
    r = log.take();
    EXPECT_EQ(r.text, "socket: Unable to validate host address no-such-host.invalid\n");
    EXPECT_EQ(r.arguments, std::vector<std::string>{"no-such-host.invalid"});

    std::unique_ptr<ServerSocket> six(ServerSocket::make(&log, 0, "::1"));
    ASSERT_TRUE(six);
    EXPECT_EQ(Socket::make(&log, "::1", test::localPort(six->getSocketHandle())), nullptr);
    r = log.take();
    EXPECT_EQ(r.key, "socket.unableToConnect");
    ASSERT_EQ(r.arguments.size(), 2u) << "the host, then the runtime's error number";
    EXPECT_EQ(r.arguments[0], "::1");
    EXPECT_EQ(r.text, "socket: Unable to connect to host ::1 -> " + r.arguments[1] + "\n");

    EXPECT_EQ(ServerSocket::make(&log, 0, nullptr), nullptr);
    EXPECT_EQ(log.take().text, "socket: Null address, use makeNull instead.\n");

    std::unique_ptr<ServerSocket> server(ServerSocket::make(&log, 0, "127.0.0.1"));
    ASSERT_TRUE(server);
    const int port = test::localPort(server->getSocketHandle());
    EXPECT_EQ(ServerSocket::make(&log, port, "127.0.0.1"), nullptr);
    r = log.take();
#if defined(_WIN32)
    // Kept: Windows Sockets leave errno alone, so a port in use reads as "cannot bind".
    EXPECT_EQ(r.key + r.text, "socket.cannotBindsocket: Cannot bind to server port\n");
#else
    EXPECT_EQ(r.key + r.text, "socket.addressInUsesocket: Address already in use\n");
#endif
    EXPECT_TRUE(r.arguments.empty());

    std::unique_ptr<Socket> client(Socket::make(&log, "127.0.0.1", port));
    std::unique_ptr<Socket> accepted(server->accept());
    ASSERT_TRUE(accepted);
    r = log.take();
    EXPECT_EQ(r.level + " " + r.key, "trace socket.acceptedClient");
    EXPECT_EQ(r.text, "socket: Accepted connection from client -> 127.0.0.1");
    EXPECT_EQ(r.arguments, std::vector<std::string>{"127.0.0.1"});
}

TEST(NetReports, PingFailures) {
    RecordingLog log;
    Icmp* icmp = Icmp::getInstance(&log);
    ASSERT_NE(icmp, nullptr);
    EXPECT_EQ(icmp->ping6(&log, "::1", 1), -1);
    Report r = log.take();
    EXPECT_EQ(r.module + " " + r.key, "platform platNet.ping6.unsupported");
    EXPECT_EQ(r.text, "ping6: ipv6 is not supported\n");
    EXPECT_EQ(r.arguments, std::vector<std::string>{"::1"});
    EXPECT_EQ(icmp->ping(&log, "no-such-host.invalid", 1), -1);
    EXPECT_EQ(log.take().key, "platNet.ping.invalidAddress");
    if (!test::mayOpenRawIcmp()) {
        EXPECT_EQ(icmp->ping(&log, "127.0.0.1", 1), -1);
        EXPECT_EQ(log.take().key, "platNet.ping.socketFailed");
    } else {
        // Timeouts at the ends of their range: a negative one is a failed wait, not a
        // time-out; one of many years is clamped rather than overflowing into a bad wait.
        EXPECT_EQ(icmp->ping(&log, "127.0.0.1", -5), -1);
        r = log.take();
        EXPECT_EQ(r.key, "");
        EXPECT_EQ(r.text.rfind("ping: select 127.0.0.1 failed - ", 0), 0u) << r.text;
        const int huge = icmp->ping(&log, "127.0.0.1", 2147483647);
        EXPECT_GE(huge, 0);
        EXPECT_LT(huge, 500);
        EXPECT_TRUE(log.reports.empty());
    }
    Icmp::unload();
}
