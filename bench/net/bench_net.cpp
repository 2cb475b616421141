// Loopback throughput of SocketOutput -> SocketInput against plain send/recv of the same
// messages on a connection of the same kind, measured in the same run. Each message is
// written and flushed, then read back whole on the other end.
#include <velmora/net/ServerSocket.h>
#include <velmora/net/Socket.h>
#include <velmora/net/SocketInput.h>
#include <velmora/net/SocketOutput.h>

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

int portOf(uint64_t handle) {
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    getsockname(static_cast<int>(handle), reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

void libraryStreams(benchmark::State& state) {
    const int size = static_cast<int>(state.range(0));
    std::unique_ptr<velmora::ServerSocket> server(
        velmora::ServerSocket::make(nullptr, 0, "127.0.0.1"));
    std::unique_ptr<velmora::Socket> client(
        velmora::Socket::make(nullptr, "127.0.0.1", portOf(server->getSocketHandle())));
    std::unique_ptr<velmora::Socket> peer(server->accept());
    std::string message(size, 'm');
    std::vector<char> got(size);
    velmora::SocketOutput* out = client->getOutput();
    velmora::SocketInput* in = peer->getInput();
    for (auto _ : state) {
        out->write(message.data(), size);
        out->flush();
        if (in->read(got.data(), size) != size) state.SkipWithError("short read");
    }
    state.SetBytesProcessed(state.iterations() * size);
}

void plainSendRecv(benchmark::State& state) {
    const int size = static_cast<int>(state.range(0));
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
    listen(listener, 1);
    socklen_t length = sizeof address;
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    const int client = socket(AF_INET, SOCK_STREAM, 0);
    connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address);
    const int peer = accept(listener, nullptr, nullptr);
    std::string message(size, 'm');
    std::vector<char> got(size);
    for (auto _ : state) {
        for (int sent = 0; sent < size;)
            sent += static_cast<int>(send(client, message.data() + sent, size - sent, 0));
        for (int read = 0; read < size;) {
            const ssize_t n = recv(peer, got.data() + read, size - read, 0);
            if (n <= 0) {
                state.SkipWithError("short read");
                break;
            }
            read += static_cast<int>(n);
        }
    }
    state.SetBytesProcessed(state.iterations() * size);
    close(peer);
    close(client);
    close(listener);
}

}  // namespace

BENCHMARK(libraryStreams)->Arg(1024)->Arg(64 * 1024)->MinTime(1.0)->UseRealTime();
BENCHMARK(plainSendRecv)->Arg(1024)->Arg(64 * 1024)->MinTime(1.0)->UseRealTime();

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    class Collect : public benchmark::ConsoleReporter {
    public:
        std::map<std::string, double> rate;
        void ReportRuns(const std::vector<Run>& runs) override {
            for (const Run& run : runs) {
                rate[run.benchmark_name()] =
                    run.counters.count("bytes_per_second")
                        ? static_cast<double>(run.counters.at("bytes_per_second"))
                        : 0.0;
            }
            ConsoleReporter::ReportRuns(runs);
        }
    } reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    for (int size : {1024, 64 * 1024}) {
        const std::string arg = "/" + std::to_string(size) + "/min_time:1.000/real_time";
        const double lib = reporter.rate["libraryStreams" + arg];
        const double plain = reporter.rate["plainSendRecv" + arg];
        std::printf(
            "SocketOutput->SocketInput vs send/recv, %d-byte messages: %.2f (%.1f vs %.1f MB/s)\n",
            size, plain > 0 ? lib / plain : 0.0, lib / 1e6, plain / 1e6);
    }
    return 0;
}
