// Throughput of the XML parser and writer on a ~20 MB configuration-like document.
// After the Google Benchmark table it prints, in MB/s and as a ratio to the peer measured
// in the same run: the pull scan (next() over every event) from a StringReader and from a
// FileReader and tree building with parse(), each against expat parsing the same bytes
// (target for the pull scans: at least 0.5), and the writer against pugixml's save.
// It also counts the allocations of one pull scan, which should not grow with the
// number of elements (names here are all under 128 bytes).
#include <velmora/text/FileReader.h>
#include <velmora/text/StringReader.h>
#include <velmora/text/StringWriter.h>
#include <velmora/xml/BufferedXWriter.h>
#include <velmora/xml/XElem.h>
#include <velmora/xml/XParser.h>

#include <benchmark/benchmark.h>
#include <expat.h>
#include <pugixml.hpp>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

// Allocation counting: every malloc of the process (the library's and operator new's)
// passes through here; glibc keeps the real allocator under its __libc_ names.
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void __libc_free(void*);
}
namespace {
std::atomic<long> allocations{0};
}
extern "C" void* malloc(size_t n) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(n);
}
extern "C" void* calloc(size_t n, size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(n, size);
}
extern "C" void* realloc(void* p, size_t n) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(p, n);
}
extern "C" void free(void* p) {
    __libc_free(p);
}

using namespace velmora;

namespace {

const char* kPath = "bench_xml_document.xml";

// Stations with addresses, ports, options and descriptions, as the platform keeps them.
const std::string& document() {
    static const std::string doc = [] {
        std::string d =
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- station settings -->\n"
            "<settings version=\"3\" xmlns:cfg=\"urn:velmora:config\">\n";
        char buf[1024];
        for (int i = 0; d.size() < 20u * 1000 * 1000; ++i) {
            std::snprintf(
                buf, sizeof buf,
                " <station id=\"%d\" name=\"station-%d\" enabled=\"%s\" cfg:zone=\"z%d\">\n"
                "  <address host=\"10.%d.%d.%d\" port=\"%d\" protocol=\"tcp\"/>\n"
                "  <timeout unit=\"ms\">%d</timeout>\n"
                "  <option key=\"retry.count\" value=\"%d\"/>\n"
                "  <option key=\"log.level\" value=\"warning\"/>\n"
                "  <description>Station %d &amp; its feed, kept for the "
                "north hall (line %d).</description>\n"
                " </station>\n",
                i, i, i % 3 ? "true" : "false", i % 7, i % 250, (i / 250) % 250, i % 200,
                8000 + i % 1000, 500 + i % 4500, i % 5, i, i % 40);
            d += buf;
        }
        d += "</settings>\n";
        std::FILE* f = std::fopen(kPath, "wb");
        if (f != nullptr) {
            std::fwrite(d.data(), 1, d.size(), f);
            std::fclose(f);
        }
        return d;
    }();
    return doc;
}

long scan(CharReader* in) {
    XParser p(in);
    long events = 0;
    for (int e = p.next(); e != -1; e = p.next())
        ++events;
    return events;
}

void PullScanString_velmora(benchmark::State& state) {
    const std::string& doc = document();
    for (auto _ : state) {
        StringReader in(doc.data(), static_cast<int>(doc.size()));
        benchmark::DoNotOptimize(scan(&in));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(doc.size()));
}

void PullScanFile_velmora(benchmark::State& state) {
    const std::string& doc = document();
    for (auto _ : state) {
        std::unique_ptr<FileReader> in(FileReader::make(kPath));
        if (in == nullptr) {
            state.SkipWithError("document file missing");
            return;
        }
        benchmark::DoNotOptimize(scan(in.get()));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(doc.size()));
}

void ParseTree_velmora(benchmark::State& state) {
    const std::string& doc = document();
    for (auto _ : state) {
        StringReader in(doc.data(), static_cast<int>(doc.size()));
        XParser p(&in);
        std::unique_ptr<XElem> root(p.parse(false));
        benchmark::DoNotOptimize(root.get());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(doc.size()));
}

void XMLCALL onStart(void* data, const XML_Char*, const XML_Char**) {
    ++*static_cast<long*>(data);
}
void XMLCALL onEnd(void* data, const XML_Char*) {
    ++*static_cast<long*>(data);
}
void XMLCALL onText(void* data, const XML_Char*, int) {
    ++*static_cast<long*>(data);
}

void Parse_expat(benchmark::State& state) {
    const std::string& doc = document();
    for (auto _ : state) {
        XML_Parser parser = XML_ParserCreate(nullptr);
        long events = 0;
        XML_SetUserData(parser, &events);
        XML_SetElementHandler(parser, onStart, onEnd);
        XML_SetCharacterDataHandler(parser, onText);
        if (XML_Parse(parser, doc.data(), static_cast<int>(doc.size()), 1) != XML_STATUS_OK)
            state.SkipWithError("expat refused the document");
        XML_ParserFree(parser);
        benchmark::DoNotOptimize(events);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(doc.size()));
}

XElem* tree() {
    static XElem* root = [] {
        const std::string& doc = document();
        StringReader in(doc.data(), static_cast<int>(doc.size()));
        XParser p(&in);
        return p.parse(false);
    }();
    return root;
}

void Write_velmora(benchmark::State& state) {
    int64_t bytes = 0;
    for (auto _ : state) {
        BufferedXWriter out;
        out.prolog();
        tree()->write(&out, 0);
        bytes += out.getLength();
        benchmark::DoNotOptimize(out.getString());
    }
    state.SetBytesProcessed(bytes);
}

struct StringSink : pugi::xml_writer {
    std::string text;
    void write(const void* data, size_t size) override {
        text.append(static_cast<const char*>(data), size);
    }
};

void Write_pugixml(benchmark::State& state) {
    const std::string& doc = document();
    pugi::xml_document tree;
    tree.load_buffer(doc.data(), doc.size());
    int64_t bytes = 0;
    for (auto _ : state) {
        StringSink sink;
        tree.save(sink, " ");
        bytes += static_cast<int64_t>(sink.text.size());
        benchmark::DoNotOptimize(sink.text.data());
    }
    state.SetBytesProcessed(bytes);
}

BENCHMARK(PullScanString_velmora)->Unit(benchmark::kMillisecond);
BENCHMARK(PullScanFile_velmora)->Unit(benchmark::kMillisecond);
BENCHMARK(ParseTree_velmora)->Unit(benchmark::kMillisecond);
BENCHMARK(Parse_expat)->Unit(benchmark::kMillisecond);
BENCHMARK(Write_velmora)->Unit(benchmark::kMillisecond);
BENCHMARK(Write_pugixml)->Unit(benchmark::kMillisecond);

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

// Allocations of one pull scan over the first `bytes` bytes of the document.
long scanAllocations(size_t bytes, long* elements) {
    const std::string& doc = document();
    StringReader in(doc.data(), static_cast<int>(bytes));
    long before = allocations.load();
    XParser p(&in);
    *elements = 0;
    for (int e = p.next(); e != -1; e = p.next())
        *elements += e == 1;
    return allocations.load() - before;
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    document();
    RateReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const struct {
        const char* label;
        const char* ours;
        const char* peer;
        const char* peerName;
        double target;
    } rows[] = {
        {"pull scan, StringReader", "PullScanString_velmora", "Parse_expat", "expat", 0.5},
        {"pull scan, FileReader", "PullScanFile_velmora", "Parse_expat", "expat", 0.5},
        {"parse() tree", "ParseTree_velmora", "Parse_expat", "expat", 0},
        {"writer", "Write_velmora", "Write_pugixml", "pugixml", 0},
    };
    std::printf("\ndocument: %.1f MB\n", static_cast<double>(document().size()) / 1e6);
    std::printf("%-24s %12s %12s %-8s %7s %7s\n", "operation", "velmora MB/s", "peer MB/s", "peer",
                "ratio", "target");
    bool allMet = true;
    for (const auto& row : rows) {
        const double ours = reporter.rates[row.ours] / 1e6;
        const double peer = reporter.rates[row.peer] / 1e6;
        if (ours <= 0 || peer <= 0) continue;
        const double ratio = ours / peer;
        if (row.target > 0) allMet = allMet && ratio >= row.target;
        std::printf("%-24s %12.1f %12.1f %-8s %7.2f ", row.label, ours, peer, row.peerName, ratio);
        if (row.target > 0) {
            std::printf("%7.2f %s\n", row.target, ratio >= row.target ? "met" : "MISSED");
        } else {
            std::printf("%7s\n", "-");
        }
    }
    long smallElements = 0;
    long bigElements = 0;
    long small = scanAllocations(document().size() / 100, &smallElements);
    long big = scanAllocations(document().size(), &bigElements);
    std::printf(
        "allocations of a pull scan: %ld for %ld elements, %ld for %ld elements "
        "(parser set-up and namespace declarations only)\n",
        small, smallElements, big, bigElements);
    std::printf("%s\n", allMet ? "all targets met" : "some targets missed");
    std::remove(kPath);
    benchmark::Shutdown();
    return 0;
}
