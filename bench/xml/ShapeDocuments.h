// Documents of different shapes for the XML benchmark, each made from a seed and a size,
// so that a figure can be reproduced and no shape is tuned for: configuration-like
// elements with many attributes, long paragraphs with entities and UTF-8, deep nesting,
// many tiny elements, and attribute values full of characters that need escaping.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace velmora {
namespace bench {

// splitmix64: small, fast and the same on every machine.
class Random {
public:
    explicit Random(uint64_t seed) : state_(seed) {}
    uint64_t next() {
        uint64_t z = (state_ += 0x9e3779b97f4a7c15ULL);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
        return z ^ (z >> 31);
    }
    int below(int n) { return static_cast<int>(next() % static_cast<uint64_t>(n)); }
    int between(int lo, int hi) { return lo + below(hi - lo + 1); }

private:
    uint64_t state_;
};

enum class Shape { Config, Text, Deep, Tiny, Escapes };

struct ShapeInfo {
    Shape shape;
    const char* name;
    bool utf8;  // holds raw UTF-8, read and written in the UTF-8 mode
};

const ShapeInfo kShapes[] = {
    {Shape::Config, "config", false},   {Shape::Text, "text", true},
    {Shape::Deep, "deep", false},       {Shape::Tiny, "tiny", false},
    {Shape::Escapes, "escapes", false},
};

namespace detail {

const char* const kWords[] = {"station", "north", "feed", "kept", "hall", "the", "of", "line",
                              "value",   "port",  "a",    "to",   "and",  "in",  "is", "settings",
                              "address", "relay", "east", "on",   "for",  "it",  "by", "gateway"};
// Non-ASCII words in UTF-8: two-, three- and four-byte sequences.
const char* const kUtf8Words[] = {"caf\xc3\xa9",
                                  "\xc3\xbc"
                                  "ber",
                                  "stra\xc3\x9f"
                                  "e",
                                  "\xe2\x80\x94",
                                  "\xe6\x97\xa5\xe6\x9c\xac",
                                  "\xf0\x9f\x93\xa1",
                                  "na\xc3\xafve",
                                  "\xce\xb1\xce\xb2"};
const char* const kEntities[] = {"&amp;", "&lt;", "&gt;", "&quot;", "&apos;", "&#233;", "&#x2014;"};

template <size_t N>
const char* pick(Random& r, const char* const (&list)[N]) {
    return list[r.below(static_cast<int>(N))];
}

inline void word(std::string& d, Random& r) {
    d += pick(r, kWords);
}

inline void number(std::string& d, Random& r, int max) {
    d += std::to_string(r.below(max));
}

inline void config(std::string& d, Random& r, size_t minBytes) {
    static const char* const kNames[] = {"station", "device", "route", "service", "user"};
    static const char* const kKeys[] = {"id",   "name",    "enabled", "host",     "port",
                                        "mode", "timeout", "retries", "cfg:zone", "owner"};
    while (d.size() < minBytes) {
        const char* name = pick(r, kNames);
        d += " <";
        d += name;
        int attrs = r.between(3, 10);
        for (int i = 0; i < attrs; ++i) {
            d += ' ';
            d += kKeys[i];
            d += "=\"";
            if (i % 3 == 0) {
                number(d, r, 100000);
            } else if (i % 3 == 1) {
                word(d, r);
                d += '-';
                number(d, r, 1000);
            } else {
                d += r.below(2) ? "true" : "false";
            }
            d += '"';
        }
        int children = r.below(4);
        if (children == 0) {
            d += "/>\n";
            continue;
        }
        d += ">\n";
        for (int i = 0; i < children; ++i) {
            d += "  <option key=\"";
            word(d, r);
            d += '.';
            word(d, r);
            d += "\" value=\"";
            number(d, r, 10000);
            d += "\"/>\n";
        }
        d += " </";
        d += name;
        d += ">\n";
    }
}

inline void text(std::string& d, Random& r, size_t minBytes) {
    while (d.size() < minBytes) {
        d += " <para lang=\"en\">";
        int words = r.between(30, 400);
        for (int i = 0; i < words; ++i) {
            int kind = r.below(20);
            if (kind < 3) {
                d += pick(r, kUtf8Words);
            } else if (kind == 3) {
                d += pick(r, kEntities);
            } else {
                word(d, r);
            }
            d += r.below(12) == 0 ? ",\n" : " ";
        }
        d += "end.</para>\n";
    }
}

inline void deep(std::string& d, Random& r, size_t minBytes) {
    static const char* const kNames[] = {"node", "group", "item", "level"};
    while (d.size() < minBytes) {
        int levels = r.between(20, 200);
        for (int i = 0; i < levels; ++i) {
            d += '<';
            d += kNames[i % 4];
            d += " n=\"";
            number(d, r, 1000);
            d += "\">";
        }
        word(d, r);
        for (int i = levels - 1; i >= 0; --i) {
            d += "</";
            d += kNames[i % 4];
            d += '>';
        }
        d += '\n';
    }
}

inline void tiny(std::string& d, Random& r, size_t minBytes) {
    static const char* const kNames[] = {"a", "b", "i", "x", "v", "ok"};
    while (d.size() < minBytes) {
        const char* name = pick(r, kNames);
        d += '<';
        d += name;
        if (r.below(2)) {
            d += "/>";
        } else {
            d += '>';
            number(d, r, 100);
            d += "</";
            d += name;
            d += '>';
        }
        if (r.below(8) == 0) d += '\n';
    }
}

inline void escapes(std::string& d, Random& r, size_t minBytes) {
    static const char* const kAwkward[] = {"&quot;", "&apos;", "&lt;", "&gt;", "&amp;", "&#9;",
                                           "&#10;",  "&#13;",  "'",    "\"",   ">"};
    while (d.size() < minBytes) {
        d += " <rule";
        int attrs = r.between(2, 5);
        for (int i = 0; i < attrs; ++i) {
            d += " p";
            d += std::to_string(i);
            // Single quotes around values that hold double quotes, and the other way.
            bool apos = r.below(2) == 0;
            d += apos ? "='" : "=\"";
            int pieces = r.between(4, 16);
            for (int k = 0; k < pieces; ++k) {
                const char* piece = pick(r, kAwkward);
                if ((apos && piece[0] == '\'') || (!apos && piece[0] == '"')) piece = "&amp;";
                d += piece;
                if (r.below(3) == 0) word(d, r);
            }
            d += apos ? '\'' : '"';
        }
        d += "/>\n";
    }
}

}  // namespace detail

// At least `minBytes` of a document of the given shape, the same for the same seed.
inline std::string shapeDocument(Shape shape, uint64_t seed, size_t minBytes) {
    Random r(seed * 31 + static_cast<uint64_t>(shape));
    std::string d = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    d += "<root xmlns:cfg=\"urn:velmora:config\">\n";
    size_t body = minBytes > d.size() + 8 ? minBytes - 8 : 0;
    switch (shape) {
        case Shape::Config:
            detail::config(d, r, body);
            break;
        case Shape::Text:
            detail::text(d, r, body);
            break;
        case Shape::Deep:
            detail::deep(d, r, body);
            break;
        case Shape::Tiny:
            detail::tiny(d, r, body);
            break;
        case Shape::Escapes:
            detail::escapes(d, r, body);
            break;
    }
    d += "</root>\n";
    return d;
}

}  // namespace bench
}  // namespace velmora
