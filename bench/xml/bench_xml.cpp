// Throughput of the XML parser and writer on documents of several shapes, each generated
// from a seed and a size (ShapeDocuments.h), against expat (parsing) and pugixml (saving
// and loading) on the same bytes, measured in the same run.
//
//   bench_xml [--size=MB] [--seed=N] [--rounds=N] [--shape=name] [--op=name]
//
// For every shape it prints one row per operation: the writer driven by events (the
// helpers w, attr, safe, indent, nl) into a BufferedXWriter and into an XWriter over a
// StringWriter, a parsed tree written into a BufferedXWriter and into a file, all against
// pugixml's save of the same document (to memory, to a file); the pull scan (next() over
// every event) from a StringReader and a FileReader against expat; parse() against expat
// and pugixml's load. Rates are MB of the generated document per second, so that both
// sides are measured on the same work; the ratio is the peer's time over ours. Times are
// the thread's CPU time; every operation runs once per round, all operations in turn, and
// the fastest round counts: on a shared machine that is the figure least moved by the
// neighbours' load (they still share the caches and the memory bus). Shapes that
// hold UTF-8 are read and written in the UTF-8 mode; between shapes the library's pooled
// node memory is released. It also checks that the events
// writer gives the tree writer's bytes and counts the allocations of a pull scan, which
// should not grow with the document.
#include <velmora/text/FileReader.h>
#include <velmora/text/FileWriter.h>
#include <velmora/text/StringReader.h>
#include <velmora/text/StringWriter.h>
#include <velmora/xml/BufferedXWriter.h>
#include <velmora/xml/XElem.h>
#include <velmora/xml/XParser.h>

#include <expat.h>
#include <pugixml.hpp>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ShapeDocuments.h"

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
const char* kOutPath = "bench_xml_written.xml";

// One step of writing a document with the helpers, prepared from a parsed tree so that
// replaying it costs only the helper calls.
struct Event {
    enum Kind { Open, Empty, OneLine, Text, Close } kind;
    int indent;
    std::string name;                                        // qualified
    std::vector<std::pair<std::string, std::string>> attrs;  // qualified names
    std::string text;
    bool cdata;
};

// The events of the document as the pull parser reports them, shaped into the calls that
// write the tree's layout: an element without content ends with "/>", one holding a single
// text stays on one line, any other has its children on lines of their own.
void collect(const std::string& doc, bool utf8, std::vector<Event>& out) {
    StringReader in(doc.data(), static_cast<int>(doc.size()));
    XParser p(&in);
    p.setUtf8(utf8);
    struct Open {
        size_t index;
        int children;
    };
    std::vector<Open> open;
    for (int e = p.next(); e != -1; e = p.next()) {
        if (e == XParser::START) {
            if (!open.empty()) ++open.back().children;
            const XElem* el = p.elem();
            Event ev{Event::Open, p.getDepth() - 1, el->getQName(), {}, "", false};
            for (int i = 0; i < el->getAttrCount(); ++i) {
                std::string name;
                const XNs* ns = el->attrNs(i);
                if (ns != nullptr && !ns->isDefault()) name = std::string(ns->getPrefix()) + ":";
                ev.attrs.emplace_back(name + el->attrName(i), el->attrValue(i));
            }
            open.push_back({out.size(), 0});
            out.push_back(ev);
        } else if (e == XParser::TEXT && !open.empty()) {
            ++open.back().children;
            const XText* t = p.text();
            out.push_back({Event::Text,
                           0,
                           "",
                           {},
                           std::string(t->string(), static_cast<size_t>(t->getLength())),
                           t->isCDATA()});
        } else if (e == XParser::END && !open.empty()) {
            Open o = open.back();
            open.pop_back();
            Event& start = out[o.index];
            if (o.children == 0) {
                start.kind = Event::Empty;
            } else if (o.children == 1 && out.size() == o.index + 2 &&
                       out.back().kind == Event::Text) {
                start.kind = Event::OneLine;
                start.text = out.back().text;
                start.cdata = out.back().cdata;
                out.pop_back();
            } else {
                out.push_back({Event::Close, start.indent, start.name, {}, "", false});
            }
            if (open.empty()) return;
        }
    }
}

void writeText(XWriter* out, const Event& ev) {
    if (ev.cdata) {
        out->w("<![CDATA[")->write(ev.text.data(), static_cast<int>(ev.text.size()));
        out->w("]]>");
    } else {
        out->safe(ev.text.data(), static_cast<int>(ev.text.size()), false);
    }
}

void replay(XWriter* out, const std::vector<Event>& events) {
    out->prolog();
    for (const Event& ev : events) {
        switch (ev.kind) {
            case Event::Text:
                writeText(out, ev);
                continue;
            case Event::Close:
                out->indent(ev.indent)->w("</")->w(ev.name.c_str())->w('>')->nl();
                continue;
            default:
                break;
        }
        out->indent(ev.indent)->w('<')->w(ev.name.c_str());
        for (const auto& a : ev.attrs)
            out->w(' ')->attr(a.first.c_str(), a.second.c_str());
        if (ev.kind == Event::Empty) {
            out->w("/>")->nl();
        } else if (ev.kind == Event::Open) {
            out->w('>')->nl();
        } else {
            out->w('>');
            writeText(out, ev);
            out->w("</")->w(ev.name.c_str())->w('>')->nl();
        }
    }
}

struct Doc {
    bench::ShapeInfo info;
    std::string text;
    std::unique_ptr<XElem> tree;
    std::vector<Event> events;
    pugi::xml_document pugi;
};

void writeFile(const char* path, const std::string& s) {
    std::FILE* f = std::fopen(path, "wb");
    if (f == nullptr) return;
    std::fwrite(s.data(), 1, s.size(), f);
    std::fclose(f);
}

long scan(CharReader* in, bool utf8) {
    XParser p(in);
    p.setUtf8(utf8);
    long events = 0;
    for (int e = p.next(); e != -1; e = p.next())
        ++events;
    return events;
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

long expatParse(const std::string& doc) {
    XML_Parser parser = XML_ParserCreate(nullptr);
    long events = 0;
    XML_SetUserData(parser, &events);
    XML_SetElementHandler(parser, onStart, onEnd);
    XML_SetCharacterDataHandler(parser, onText);
    if (XML_Parse(parser, doc.data(), static_cast<int>(doc.size()), 1) != XML_STATUS_OK) {
        std::fprintf(stderr, "expat refused the document: %s at line %lu\n",
                     XML_ErrorString(XML_GetErrorCode(parser)),
                     static_cast<unsigned long>(XML_GetCurrentLineNumber(parser)));
        events = -1;
    }
    XML_ParserFree(parser);
    return events;
}

struct StringSink : pugi::xml_writer {
    std::string text;
    void write(const void* data, size_t size) override {
        text.append(static_cast<const char*>(data), size);
    }
};

volatile long sinkValue;

// The operations measured on one document, by name.
std::vector<std::pair<std::string, std::function<void()>>> operations(Doc& d) {
    const bool utf8 = d.info.utf8;
    return {
        {"events>buffer",
         [&d, utf8] {
             BufferedXWriter out;
             out.setUtf8(utf8);
             replay(&out, d.events);
             sinkValue = out.getLength();
         }},
        {"events>string",
         [&d, utf8] {
             StringWriter text;
             {
                 XWriter out(&text);
                 out.setUtf8(utf8);
                 replay(&out, d.events);
             }
             sinkValue = text.getLength();
         }},
        {"tree>buffer",
         [&d, utf8] {
             BufferedXWriter out;
             out.setUtf8(utf8);
             out.prolog();
             d.tree->write(&out, 0);
             sinkValue = out.getLength();
         }},
        {"tree>file",
         [&d, utf8] {
             std::unique_ptr<FileWriter> file(FileWriter::make(kOutPath));
             if (file == nullptr) return;
             XWriter out(file.get());
             out.setUtf8(utf8);
             out.prolog();
             d.tree->write(&out, 0);
         }},
        {"pugixml save",
         [&d] {
             StringSink sink;
             d.pugi.save(sink, " ");
             sinkValue = static_cast<long>(sink.text.size());
         }},
        {"pugixml save_file", [&d] { sinkValue = d.pugi.save_file(kOutPath, " "); }},
        {"scan string",
         [&d, utf8] {
             StringReader in(d.text.data(), static_cast<int>(d.text.size()));
             sinkValue = scan(&in, utf8);
         }},
        {"scan file",
         [utf8] {
             std::unique_ptr<FileReader> in(FileReader::make(kPath));
             if (in != nullptr) sinkValue = scan(in.get(), utf8);
         }},
        {"expat", [&d] { sinkValue = expatParse(d.text); }},
        {"parse tree",
         [&d, utf8] {
             StringReader in(d.text.data(), static_cast<int>(d.text.size()));
             XParser p(&in);
             p.setUtf8(utf8);
             std::unique_ptr<XElem> root(p.parse(false));
             sinkValue = root != nullptr;
         }},
        {"pugixml load",
         [&d] {
             pugi::xml_document tree;
             sinkValue = static_cast<bool>(tree.load_buffer(d.text.data(), d.text.size()));
         }},
    };
}

struct Row {
    const char* label;
    const char* ours;
    const char* peer;
    double target;  // 0: for reference only
};

const Row kRows[] = {
    {"writer: events, buffer", "events>buffer", "pugixml save", 1.0},
    {"writer: events, string", "events>string", "pugixml save", 0},
    {"writer: tree, buffer", "tree>buffer", "pugixml save", 1.0},
    {"writer: tree, file", "tree>file", "pugixml save_file", 1.0},
    {"pull scan: StringReader", "scan string", "expat", 1.0},
    {"pull scan: FileReader", "scan file", "expat", 1.0},
    {"parse() tree", "parse tree", "expat", 0},
    {"parse() tree", "parse tree", "pugixml load", 0},
};

// The CPU time of this thread (user and system): the time the neighbours' load takes
// from the process does not count, as wall time would.
double cpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

double seconds(const std::function<void()>& op) {
    double start = cpuSeconds();
    op();
    return cpuSeconds() - start;
}

// Allocations of one pull scan over the first `bytes` bytes of `doc`.
long scanAllocations(const std::string& doc, size_t bytes, bool utf8, long* elements) {
    StringReader in(doc.data(), static_cast<int>(bytes));
    long before = allocations.load();
    XParser p(&in);
    p.setUtf8(utf8);
    *elements = 0;
    for (int e = p.next(); e != -1; e = p.next())
        *elements += e == 1;
    return allocations.load() - before;
}

// With --op, only that operation runs (for a profiler) and nothing is printed.
const char* onlyOp = nullptr;

bool runShape(const bench::ShapeInfo& info, uint64_t seed, size_t bytes, int rounds) {
    Doc d;
    d.info = info;
    d.text = bench::shapeDocument(info.shape, seed, bytes);
    writeFile(kPath, d.text);
    {
        StringReader in(d.text.data(), static_cast<int>(d.text.size()));
        XParser p(&in);
        p.setUtf8(info.utf8);
        d.tree.reset(p.parse(false));
    }
    if (d.tree == nullptr || !d.pugi.load_buffer(d.text.data(), d.text.size())) {
        std::printf("%s: the document did not load\n", info.name);
        return false;
    }
    collect(d.text, info.utf8, d.events);
    BufferedXWriter byEvents;
    byEvents.setUtf8(info.utf8);
    replay(&byEvents, d.events);
    BufferedXWriter byTree;
    byTree.setUtf8(info.utf8);
    byTree.prolog();
    d.tree->write(&byTree, 0);
    bool same = byEvents.getLength() == byTree.getLength() &&
                std::memcmp(byEvents.getString(), byTree.getString(), byTree.getLength()) == 0;
    long expatEvents = expatParse(d.text);

    auto ops = operations(d);
    if (onlyOp != nullptr) {
        for (const auto& op : ops) {
            if (op.first != onlyOp) continue;
            for (int r = 0; r < rounds; ++r)
                op.second();
        }
        return true;
    }
    std::map<std::string, double> best;
    for (int r = 0; r < rounds; ++r) {
        for (const auto& op : ops) {
            double t = seconds(op.second);
            auto it = best.find(op.first);
            if (it == best.end() || t < it->second) best[op.first] = t;
        }
    }

    double mb = static_cast<double>(d.text.size()) / 1e6;
    double load[3] = {0, 0, 0};
    std::FILE* la = std::fopen("/proc/loadavg", "r");
    if (la != nullptr) {
        if (std::fscanf(la, "%lf %lf %lf", &load[0], &load[1], &load[2]) != 3) load[0] = -1;
        std::fclose(la);
    }
    std::printf(
        "\nshape %s (seed %llu): %.1f MB, %zu write events, written %.1f MB%s; "
        "expat events %ld; cores %u; load %.2f %.2f %.2f\n",
        info.name, static_cast<unsigned long long>(seed), mb, d.events.size(),
        byTree.getLength() / 1e6, info.utf8 ? " (UTF-8 mode)" : "", expatEvents,
        std::thread::hardware_concurrency(), load[0], load[1], load[2]);
    std::printf("%-24s %10s %10s %-18s %6s %s\n", "operation", "MB/s", "peer MB/s", "peer", "ratio",
                "target");
    bool met = same && expatEvents >= 0;
    for (const Row& row : kRows) {
        double ours = mb / best[row.ours];
        double peer = mb / best[row.peer];
        double ratio = ours / peer;
        std::printf("%-24s %10.1f %10.1f %-18s %6.2f ", row.label, ours, peer, row.peer, ratio);
        if (row.target > 0) {
            met = met && ratio >= row.target;
            std::printf(">= %.1f %s\n", row.target, ratio >= row.target ? "met" : "MISSED");
        } else {
            std::printf("-\n");
        }
    }
    std::printf("events writer gives the tree writer's bytes: %s\n", same ? "yes" : "NO");
    long smallElements = 0;
    long bigElements = 0;
    // The first scan of the process also makes the parser's shared tables.
    scanAllocations(d.text, d.text.size() / 100, info.utf8, &smallElements);
    long small = scanAllocations(d.text, d.text.size() / 100, info.utf8, &smallElements);
    long big = scanAllocations(d.text, d.text.size(), info.utf8, &bigElements);
    // Only the text buffers grow, to the longest text; nothing grows with the elements.
    bool bounded = big <= small + 8;
    std::printf("allocations of a pull scan: %ld for %ld elements, %ld for %ld elements: %s\n",
                small, smallElements, big, bigElements,
                small == big ? "constant"
                : bounded    ? "bounded (text buffers)"
                             : "GROWING");
    return met && bounded;
}

}  // namespace

int main(int argc, char** argv) {
    size_t megabytes = 8;
    uint64_t seed = 1;
    int rounds = 7;
    const char* only = nullptr;
    for (int i = 1; i < argc; ++i) {
        const char* a = argv[i];
        if (std::strncmp(a, "--size=", 7) == 0) {
            megabytes = std::strtoul(a + 7, nullptr, 10);
        } else if (std::strncmp(a, "--seed=", 7) == 0) {
            seed = std::strtoull(a + 7, nullptr, 10);
        } else if (std::strncmp(a, "--rounds=", 9) == 0) {
            rounds = std::atoi(a + 9);
        } else if (std::strncmp(a, "--op=", 5) == 0) {
            onlyOp = a + 5;
        } else if (std::strncmp(a, "--shape=", 8) == 0) {
            only = a + 8;
        } else {
            std::fprintf(stderr,
                         "usage: bench_xml [--size=MB] [--seed=N] [--rounds=N] [--shape=name] "
                         "[--op=name]\n");
            return 2;
        }
    }
    if (megabytes == 0) megabytes = 1;
    if (rounds < 1) rounds = 1;
    bool allMet = true;
    for (const auto& info : bench::kShapes) {
        if (only != nullptr && std::strcmp(only, info.name) != 0) continue;
        allMet = runShape(info, seed, megabytes * 1000 * 1000, rounds) && allMet;
        // The node memory the shape's trees gave back is released, so that the next
        // shape's tree is laid out in fresh memory as in a process of its own, not in the
        // order the free lists hand the blocks out.
        XParser::unload();
        XWriter::unload();
    }
    std::printf("\n%s\n", allMet ? "all targets met" : "some targets missed");
    std::remove(kPath);
    std::remove(kOutPath);
    return 0;
}
