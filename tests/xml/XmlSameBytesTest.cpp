// The writer's block-wise output and the parser's reads straight from the reader's
// buffer must give exactly what the plain byte-by-byte rules give: the benchmark's own
// document, written every way the library offers, against a reference writer kept
// here; and its events read through the buffered readers against a reader that can
// only hand out one byte at a time.
#include <velmora/text/FileReader.h>
#include <velmora/text/FileWriter.h>
#include <velmora/text/StringReader.h>
#include <velmora/text/StringWriter.h>
#include <velmora/xml/BufferedXWriter.h>
#include <velmora/xml/XElem.h>
#include <velmora/xml/XParser.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

#include "../../bench/xml/StationDocument.h"
#include "support/TempDir.h"

using namespace velmora;

namespace {

// --- the reference: one byte at a time, as the output format is described

void refEscape(std::string& out, const char* s, size_t n, bool escapeWhitespace) {
    for (size_t i = 0; i < n; ++i) {
        char c = s[i];
        signed char sc = static_cast<signed char>(c);
        if (sc < 32 || sc > 126 || c == '"' || c == '\'') {
            if (!escapeWhitespace && (c == '\n' || c == '\r' || c == '\t')) {
                out += c;
            } else {
                char ref[16];
                std::snprintf(ref, sizeof ref, "&#x%x;", static_cast<unsigned char>(c));
                out += ref;
            }
        } else if (c == '<') {
            out += "&lt;";
        } else if (c == '>') {
            out += "&gt;";
        } else if (c == '&') {
            out += "&amp;";
        } else {
            out += c;
        }
    }
}

// The UTF-8 mode: a byte above 127 that begins the shortest form of a character other than
// U+FFFE and U+FFFF goes out with its sequence, any other as in the default mode.
void refEscapeUtf8(std::string& out, const char* text, size_t n, bool escapeWhitespace) {
    const auto* s = reinterpret_cast<const unsigned char*>(text);
    for (size_t i = 0; i < n;) {
        size_t len = s[i] >= 0xF0 ? 4 : s[i] >= 0xE0 ? 3 : s[i] >= 0xC0 ? 2 : 0;
        unsigned cp = s[i] & (0x7F >> len);
        bool ok = len > 0 && s[i] < 0xF8 && i + len <= n;
        for (size_t k = 1; ok && k < len; ++k) {
            ok = (s[i + k] & 0xC0) == 0x80;
            cp = cp << 6 | (s[i + k] & 0x3F);
        }
        const unsigned least[] = {0, 0, 0x80, 0x800, 0x10000};
        if (ok && cp >= least[len] && cp <= 0x10FFFF && (cp < 0xD800 || cp > 0xDFFF) &&
            cp != 0xFFFE && cp != 0xFFFF) {
            out.append(text + i, len);
            i += len;
        } else {
            refEscape(out, text + i, 1, escapeWhitespace);
            ++i;
        }
    }
}

void refText(std::string& out, const XText* t) {
    if (t->isCDATA()) {
        out += "<![CDATA[" + std::string(t->string(), t->getLength()) + "]]>";
    } else {
        refEscape(out, t->string(), static_cast<size_t>(t->getLength()), false);
    }
}

void refWrite(std::string& out, const XElem* e, int indent) {
    std::string qname = e->prefix() != nullptr ? std::string(e->prefix()) + ":" : "";
    qname += e->getName();
    out += std::string(static_cast<size_t>(indent), ' ') + "<" + qname;
    for (int i = 0; i < e->getAttrCount(); ++i) {
        out += " ";
        const XNs* ns = e->attrNs(i);
        if (ns != nullptr && !ns->isDefault()) out += std::string(ns->getPrefix()) + ":";
        out += std::string(e->attrName(i)) + "=\"";
        refEscape(out, e->attrValue(i), std::string(e->attrValue(i)).size(), true);
        out += "\"";
    }
    if (e->getContentCount() == 0) {
        out += "/>\n";
        return;
    }
    if (e->getContentCount() == 1 && e->text(0) != nullptr) {
        out += ">";
        refText(out, e->text(0));
    } else {
        out += ">\n";
        for (int i = 0; i < e->getContentCount(); ++i) {
            if (e->elem(i) != nullptr) {
                refWrite(out, e->elem(i), indent + 1);
            } else {
                refText(out, e->text(i));
            }
        }
        out += std::string(static_cast<size_t>(indent), ' ');
    }
    out += "</" + qname + ">\n";
}

std::unique_ptr<XElem> parse(const std::string& xml) {
    StringReader in(xml.data(), static_cast<int>(xml.size()));
    XParser p(&in);
    return std::unique_ptr<XElem>(p.parse(false));
}

// Every byte value, the escapes among them, and more than one output block of it.
std::string awkwardText(size_t size) {
    std::string s;
    for (size_t i = 0; s.size() < size; ++i) {
        s += static_cast<char>(i % 256 == 0 ? 'x' : i % 256);
        if (i % 7 == 0) s += "plain text that needs nothing ";
    }
    return s;
}

// Sequences of every length, mostly good with a broken one now and then, at every offset
// from a 16-byte boundary.
std::string awkwardUtf8(size_t size) {
    const char* const good[] = {"\xc3\xa9",         "\xe2\x80\x94",     "\xf0\x9f\x93\xa1",
                                "\xee\x80\x80",     "\xf4\x8f\xbf\xbf", "\xe0\xa0\x80",
                                "\xf0\x90\x80\x80", "\xed\x9f\xbf",     "\xef\xbf\xbd",
                                "\xc2\x80",         "&\"'\n\t\x01"};
    const char* const bad[] = {
        "\xe9",         "\xc0\xaf",         "\xe0\x80\x80",     "\xed\xa0\x80",
        "\xef\xbf\xbe", "\xf4\x90\x80\x80", "\x80\xbf",         "\xe2\x80",
        "\xc3<",        "\xf0\x80\x80\x80", "\xf5\x80\x80\x80", "\xc1\xbf",
        "\xff",         "\xef\xbf\xbf",     "\xf0\x9f\x93"};
    std::string s;
    for (size_t i = 0; s.size() < size; ++i) {
        s.append(i % 17, 'a');
        s += good[i % (sizeof good / sizeof good[0])];
        if (i % 5 == 0) s += bad[(i / 5) % (sizeof bad / sizeof bad[0])];
    }
    return s;
}

// A CharReader with no buffer to look into: the parser must take it byte by byte.
class ByteReader : public CharReader {
public:
    explicit ByteReader(const std::string& s) : s_(s) {}
    int getChar() override {
        return pos_ < s_.size() ? static_cast<unsigned char>(s_[pos_++]) : -1;
    }
    void getBuf(int, char** buf, int* len) override {
        *buf = nullptr;
        *len = 0;
    }
    bool eof() override { return pos_ >= s_.size(); }

private:
    std::string s_;
    size_t pos_ = 0;
};

// Everything an event shows: its code, the element with its attributes, the text, and
// where the parser stands.
std::string events(CharReader* in, bool utf8 = false) {
    XParser p(in);
    p.setUtf8(utf8);
    std::string out;
    for (int e = p.next();; e = p.next()) {
        out += std::to_string(e) + "@" + std::to_string(p.getLine()) + ":" +
               std::to_string(p.getColumn()) + "d" + std::to_string(p.getDepth());
        const XElem* el = p.elem();
        if ((e == 1 || e == 2) && el != nullptr) {
            out += std::string(" ") + el->getQName() + (el->uri() ? el->uri() : "-");
            for (int i = 0; i < el->getAttrCount(); ++i) {
                const XNs* ns = el->attrNs(i);
                out += std::string(" ") + el->attrName(i) + "=" + el->attrValue(i) +
                       (ns != nullptr && ns->getUri() ? ns->getUri() : "-");
            }
        }
        if (e == 3) {
            out += (p.text()->isCDATA() ? " C[" : " T[") +
                   std::string(p.text()->string(), p.text()->getLength()) + "]";
        }
        out += "\n";
        if (e == -1) return out;
    }
}

// Where two long texts part, with a little of each, rather than both whole.
std::string difference(const std::string& actual, const std::string& expected) {
    if (actual == expected) return "";
    size_t i = 0;
    while (i < actual.size() && i < expected.size() && actual[i] == expected[i])
        ++i;
    size_t from = i > 20 ? i - 20 : 0;
    return "at byte " + std::to_string(i) + ": [" + actual.substr(from, 60) + "] instead of [" +
           expected.substr(from, 60) + "]";
}

}  // namespace

TEST(XmlSameBytes, BenchmarkDocumentWrittenEveryWayMatchesTheReference) {
    int stations = 0;
    std::unique_ptr<XElem> root = parse(bench::stationDocument(150 * 1000, &stations));
    ASSERT_NE(root, nullptr);
    ASSERT_GT(stations, 300);

    // The station document by hand with the helpers is the parsed tree written out.
    std::string reference = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    refWrite(reference, root.get(), 0);
    {
        BufferedXWriter byHand;
        bench::writeStations(&byHand, stations);
        EXPECT_EQ(difference(std::string(byHand.getString(), byHand.getLength()), reference), "");
    }

    // Then the awkward parts: escapes across block boundaries, long names, deep
    // indentation, namespaces, CDATA and mixed content.
    const std::string awkward = awkwardText(20000);
    XNs ns("n", "urn:n");
    XElem* odd = new XElem(&ns, std::string(300, 'L').c_str());
    odd->addAttr("value", awkward.c_str() + 1);
    odd->addAttr(&ns, "q", "'\"");
    XNs unprefixed("", "urn:d");
    odd->addAttr(&unprefixed, "d", "x");
    odd->addContent(new XText(awkward.data(), static_cast<int>(awkward.size())));
    root->addContent(odd);
    XElem* mixed = new XElem("mixed");
    XText* cdata = new XText("<raw>&\xe9]]");
    cdata->setCDATA(true);
    mixed->addContent(cdata);
    mixed->addContent(new XText("\t tail\r\n"));
    XElem* deep = mixed;
    for (int i = 0; i < 60; ++i) {
        XElem* child = new XElem("level");
        deep->addContent(child);
        deep = child;
    }
    deep->addContent(new XText(awkward.data(), 9000));
    root->addContent(mixed);

    reference = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    refWrite(reference, root.get(), 0);

    BufferedXWriter buffered;
    buffered.prolog();
    root->write(&buffered, 0);
    EXPECT_EQ(difference(std::string(buffered.getString(), buffered.getLength()), reference), "");

    StringWriter text;
    {
        XWriter out(&text);
        out.prolog();
        root->write(&out, 0);
    }
    EXPECT_EQ(
        difference(std::string(text.getString(), static_cast<size_t>(text.getLength())), reference),
        "");

    test::TempDir dir;
    std::unique_ptr<FileWriter> file(FileWriter::make(dir.file("out.xml").c_str()));
    ASSERT_NE(file, nullptr);
    {
        XWriter out(file.get());
        out.prolog();
        root->write(&out, 0);
    }
    EXPECT_EQ(difference(test::readFile(dir.file("out.xml")), reference), "");

    // The helpers alone on the same texts.
    std::string expected;
    refEscape(expected, awkward.data(), awkward.size(), false);
    refEscape(expected, awkward.data(), awkward.size(), true);
    expected += "a=\"";
    refEscape(expected, awkward.c_str() + 1, awkward.size() - 1, true);
    expected += "\"";
    for (char c : std::string("\n\t\x80\"<&z")) {
        refEscape(expected, &c, 1, false);
        refEscape(expected, &c, 1, true);
    }
    BufferedXWriter helpers;
    helpers.safe(awkward.data(), static_cast<int>(awkward.size()), false);
    helpers.safe(awkward.data(), static_cast<int>(awkward.size()), true);
    helpers.attr("a", awkward.c_str() + 1);
    for (char c : std::string("\n\t\x80\"<&z")) {
        helpers.safe(c, false);
        XWriter::safe(&helpers, c, true);
    }
    EXPECT_EQ(difference(std::string(helpers.getString(), helpers.getLength()), expected), "");

    // The UTF-8 mode on its own awkward text, through the helpers and a tree, into the
    // writer's own block and through a plain writer.
    const std::string utf8 = awkwardUtf8(40000);
    std::string utf8Expected;
    refEscapeUtf8(utf8Expected, utf8.data(), utf8.size(), false);
    utf8Expected += "a=\"";
    refEscapeUtf8(utf8Expected, utf8.data(), utf8.size(), true);
    utf8Expected += "\"<t>";
    refEscapeUtf8(utf8Expected, utf8.data(), utf8.size(), false);
    utf8Expected += "</t>\n";
    XElem t("t");
    t.addContent(new XText(utf8.data(), static_cast<int>(utf8.size())));
    BufferedXWriter inBlock;
    StringWriter plain;
    XWriter through(&plain);
    for (XWriter* w : {static_cast<XWriter*>(&inBlock), &through}) {
        w->setUtf8(true);
        w->safe(utf8.data(), static_cast<int>(utf8.size()), false);
        w->attr("a", utf8.c_str());
        t.write(w, 0);
    }
    EXPECT_EQ(difference(std::string(inBlock.getString(), inBlock.getLength()), utf8Expected), "");
    EXPECT_EQ(difference(plain.getString(), utf8Expected), "");
}

TEST(XmlSameBytes, EventsThroughEveryReaderAreTheSame) {
    // Long enough to cross the file reader's blocks inside names, values and texts.
    std::string xml = bench::stationDocument(200 * 1000, nullptr);
    xml.insert(xml.size() - 12,
               "<t a='x&#65;&lt;y' b=\"1\r\n2\" c='\r\r'>A\r\nB\rC\r\r\nD &amp;&#x42;&bad; </t>"
               "<![CDATA[ c\r\n ]]]><!-- n -- x--><?pi ?><p:e xmlns:p='u' p:a='v'/>"
               "<e>x>y</e><e a=b c='d'/><e/ ><e></f>after</e>");
    xml += "<late>t\xe9</late>";

    test::TempDir dir;
    ASSERT_TRUE(test::writeFile(dir.file("d.xml"), xml));
    ByteReader bytes(xml);
    std::string expected = events(&bytes);
    ASSERT_NE(expected.find("A\nB\nC\n\nD &B\xff"), std::string::npos);

    StringReader str(xml.data(), static_cast<int>(xml.size()));
    EXPECT_EQ(difference(events(&str), expected), "");
    std::unique_ptr<FileReader> file(FileReader::make(dir.file("d.xml").c_str()));
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(difference(events(file.get()), expected), "");

    // The UTF-8 mode on texts and values full of sequences, crossing the file reader's
    // blocks, up to a broken one.
    std::string utf8 = bench::stationDocument(100 * 1000, nullptr);
    for (size_t at = 1000; at < utf8.size(); at += 997) {
        size_t text = utf8.find("</description>", at);
        if (text == std::string::npos) break;
        utf8.insert(text, "\xc3\xa9\xe2\x80\x94\xf0\x9f\x93\xa1&#xe9;&#x1F4E1;\r\n");
        size_t value = utf8.find("warning\"", text);
        if (value != std::string::npos) utf8.insert(value, "\xe6\x97\xa5\xe6\x9c\xac");
    }
    utf8.insert(utf8.size() - 12, "<t>x\xe2\x80</t>");
    ASSERT_TRUE(test::writeFile(dir.file("u.xml"), utf8));
    ByteReader utf8Bytes(utf8);
    expected = events(&utf8Bytes, true);
    ASSERT_NE(expected.find("\xc3\xa9\xe2\x80\x94\xf0\x9f\x93\xa1\xc3\xa9\xf0\x9f\x93\xa1\n"),
              std::string::npos);
    ASSERT_NE(expected.find(" t-\n-1@"), std::string::npos) << "the broken sequence ends it";
    StringReader utf8Str(utf8.data(), static_cast<int>(utf8.size()));
    EXPECT_EQ(difference(events(&utf8Str, true), expected), "");
    std::unique_ptr<FileReader> utf8File(FileReader::make(dir.file("u.xml").c_str()));
    ASSERT_NE(utf8File, nullptr);
    EXPECT_EQ(difference(events(utf8File.get(), true), expected), "");
}
