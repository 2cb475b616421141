// Throughput of Base64 encoding and decoding and of the MD5 text against OpenSSL, on the
// same 1 MiB block in the same run. After the usual Google Benchmark table it prints each
// operation in MB/s and as a ratio to OpenSSL, with the target ratio:
//   Base64 at least 0.5 of OpenSSL, MD5 at least 0.8.
#include <velmora/text/CharUtil.h>

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

using velmora::CharUtil;

namespace {

const int kBlock = 1 << 20;

const std::vector<unsigned char>& block() {
    static const std::vector<unsigned char> data = [] {
        std::vector<unsigned char> d(kBlock);
        std::mt19937 random(42);
        for (auto& b : d)
            b = static_cast<unsigned char>(random());
        return d;
    }();
    return data;
}

const std::string& encodedBlock() {
    static const std::string text = [] {
        std::string t(CharUtil::base64EncodeSize(kBlock), '\0');
        t.resize(CharUtil::base64Encode(block().data(), kBlock, &t[0]));
        return t;
    }();
    return text;
}

void Base64Encode_velmora(benchmark::State& state) {
    std::vector<char> out(CharUtil::base64EncodeSize(kBlock));
    for (auto _ : state) {
        benchmark::DoNotOptimize(CharUtil::base64Encode(block().data(), kBlock, out.data()));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kBlock);
}

void Base64Encode_openssl(benchmark::State& state) {
    std::vector<unsigned char> out(CharUtil::base64EncodeSize(kBlock));
    for (auto _ : state) {
        benchmark::DoNotOptimize(EVP_EncodeBlock(out.data(), block().data(), kBlock));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kBlock);
}

void Base64Decode_velmora(benchmark::State& state) {
    const std::string& text = encodedBlock();
    std::vector<unsigned char> out(CharUtil::base64DecodeSize(static_cast<int>(text.size())));
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            CharUtil::base64Decode(text.data(), static_cast<int>(text.size()), out.data()));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kBlock);
}

void Base64Decode_openssl(benchmark::State& state) {
    const std::string& text = encodedBlock();
    std::vector<unsigned char> out(text.size());
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char*>(text.data()),
                            static_cast<int>(text.size())));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kBlock);
}

void Md5_velmora(benchmark::State& state) {
    char hex[33];
    for (auto _ : state) {
        CharUtil::hexMD5(block().data(), kBlock, hex);
        benchmark::DoNotOptimize(hex);
    }
    state.SetBytesProcessed(state.iterations() * kBlock);
}

void Md5_openssl(benchmark::State& state) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    for (auto _ : state) {
        EVP_Digest(block().data(), kBlock, digest, &length, EVP_md5(), nullptr);
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(state.iterations() * kBlock);
}

BENCHMARK(Base64Encode_velmora);
BENCHMARK(Base64Encode_openssl);
BENCHMARK(Base64Decode_velmora);
BENCHMARK(Base64Decode_openssl);
BENCHMARK(Md5_velmora);
BENCHMARK(Md5_openssl);

// Keeps each run's throughput while the console shows the usual table.
class RateReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            auto it = run.counters.find("bytes_per_second");
            if (it != run.counters.end() && run.run_type == Run::RT_Iteration)
                rates[run.benchmark_name()] = it->second.value;
        }
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> rates;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RateReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);

    const struct {
        const char* name;
        double target;
    } operations[] = {{"Base64Encode", 0.5}, {"Base64Decode", 0.5}, {"Md5", 0.8}};
    std::printf("\n%-14s %14s %14s %8s %8s\n", "operation", "velmora MB/s", "OpenSSL MB/s", "ratio",
                "target");
    bool allMet = true;
    for (const auto& op : operations) {
        const double ours = reporter.rates[std::string(op.name) + "_velmora"] / 1e6;
        const double peer = reporter.rates[std::string(op.name) + "_openssl"] / 1e6;
        if (ours <= 0 || peer <= 0) continue;
        const double ratio = ours / peer;
        allMet = allMet && ratio >= op.target;
        std::printf("%-14s %14.1f %14.1f %8.2f %8.2f %s\n", op.name, ours, peer, ratio, op.target,
                    ratio >= op.target ? "met" : "MISSED");
    }
    std::printf("%s\n", allMet ? "all targets met" : "some targets missed");
    benchmark::Shutdown();
    return 0;
}
