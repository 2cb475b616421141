#include <velmora/text/FileReader.h>
#include <velmora/text/StringReader.h>
#include <velmora/xml/BufferedXWriter.h>
#include <velmora/xml/XParser.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/TempDir.h"

using namespace velmora;

namespace {

// Every event of `xml` as a compact trace: "1a" start, "2a" end, "3[text]", "4", "-1".
std::string trace(const std::string& xml, bool utf8 = false) {
    StringReader in(xml.data(), static_cast<int>(xml.size()));
    XParser p(&in);
    p.setUtf8(utf8);
    std::string out;
    for (int i = 0; i < 1000; ++i) {
        int e = p.next();
        out += std::to_string(e);
        if (e == 1 || e == 2) out += p.elem() != nullptr ? p.elem()->getQName() : "?";
        if (e == 3) out += "[" + std::string(p.text()->string(), p.text()->getLength()) + "]";
        if (e == -1) break;
        out += " ";
    }
    return out;
}

std::unique_ptr<XElem> parse(const std::string& xml) {
    StringReader in(xml.data(), static_cast<int>(xml.size()));
    XParser p(&in);
    return std::unique_ptr<XElem>(p.parse(false));
}

std::string written(const XElem& e) {
    BufferedXWriter out;
    e.write(&out, 0);
    return out.getString();
}

}  // namespace

TEST(XParser, EventsSkipWhatIsNotModelled) {
    EXPECT_EQ(trace("<a/><b></b>"), "1a 2a 1b 2b -1");
    EXPECT_EQ(trace("<?xml version=\"1.0\"?><!-- c -- x--><!DOCTYPE a [<!ENTITY e \"v\">]>"
                    "<a><?pi x?>word</a>"),
              "1a 3[word] 2a -1");
    EXPECT_EQ(trace("<a>\n  <b>  w  </b> \t</a>"), "1a 1b 3[  w  ] 2b 2a -1");
    EXPECT_EQ(trace("<a><![CDATA[x<y]]]>z</a>"), "1a 3[x<y]] 3[z] 2a -1");
    EXPECT_EQ(trace("<a><!-x><"), "1a 4 3[\xff] 4 -1")
        << "the remainder of bad markup reads as text; a leading '>' decodes to 255";
    EXPECT_EQ(trace("<a>x>y</a>"), "1a 3[y] 2a -1") << "text cut by '>' is dropped";
    EXPECT_EQ(trace("<a><b></c>t</a>"), "1a 1b 2b 3[\xfft] 2a -1") << "end tags close unchecked";
    EXPECT_EQ(trace("</x><a>"), "2? 3[\xff] 1a -1");
}

TEST(XParser, ReferencesAndAsciiOnlyStop) {
    EXPECT_EQ(trace("<a>&#65;&#x41;&#321;&lt;&gt;&amp;&quot;&apos;&nbsp;</a>"),
              "1a 3[AAA<>&\"'\xff] 2a -1");
    EXPECT_EQ(trace("<a>ok</a><b>bad\xe9</b><c/>"), "1a 3[ok] 2a 1b -1");
    std::unique_ptr<XElem> e = parse("<a v='&lt;&#x9;' w=\"<\" x=\"it's\"/>");
    ASSERT_NE(e, nullptr);
    EXPECT_STREQ(e->get("v"), "<\t");
    EXPECT_STREQ(e->get("w"), "\xff");
    EXPECT_STREQ(e->get("x"), "it's");
    EXPECT_EQ(parse("<a><b>\xc3\xa9</b></a>"), nullptr) << "early end gives no tree";
}

// In the UTF-8 mode well-formed UTF-8 is text like any other, references give the UTF-8
// of their character, and the first byte that breaks UTF-8 ends the input as a byte above
// 127 does in the default mode.
TEST(XParser, Utf8ModeReadsUtf8AndStopsAtWhatIsNone) {
    const std::string words = "caf\xc3\xa9 \xe6\x97\xa5\xe6\x9c\xac \xf0\x9f\x93\xa1";
    EXPECT_EQ(trace("<a v='" + words + "'>" + words + "</a>", true), "1a 3[" + words + "] 2a -1");
    EXPECT_EQ(trace("<a>&#233;&#xE9;&#x1F4E1;&#65;&#xFFFF;&#xD800;&#x110000;&bogus;</a>", true),
              "1a 3[\xc3\xa9\xc3\xa9\xf0\x9f\x93\xa1"
              "A\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd] 2a -1")
        << "what names no character reads as U+FFFD";
    for (const char* bad : {"\xe9", "\xc3", "\xc0\xaf", "\xe0\x80\x80", "\xed\xa0\x80",
                            "\xf4\x90\x80\x80", "\x80", "\xff", "\xc3<", "\xef\xbf\xbe"}) {
        EXPECT_EQ(trace(std::string("<a>ok</a><b>x") + bad + "</b><c/>", true), "1a 3[ok] 2a 1b -1")
            << "stops at " << bad;
    }
    XParser p(nullptr);
    EXPECT_FALSE(p.isUtf8()) << "ASCII unless asked";
    EXPECT_EQ(trace("<a>\r\xc3\xa9\r\n\xc3\xa9</a>", true), "1a 3[\n\xc3\xa9\n\xc3\xa9] 2a -1");
}

TEST(XParser, LineEndsAndPositions) {
    std::string xml = "<a>\r\nx\ry\r\r\n</a>";
    StringReader in(xml.data(), static_cast<int>(xml.size()));
    XParser p(&in);
    EXPECT_EQ(p.next(), 1);
    EXPECT_EQ(p.next(), 3);
    EXPECT_STREQ(p.text()->string(), "\nx\ny\n\n");
    EXPECT_EQ(p.getLine(), 5);
    EXPECT_EQ(p.next(), 2);
    EXPECT_EQ(p.getColumn(), 4);
}

TEST(XParser, AttributesAndNamespaces) {
    std::unique_ptr<XElem> a = parse(
        "<p:a xmlns:p='u' x='1' x='2' y = \"3\" p:z='4' q:w='5' xmlns='d' bad>"
        "<b/><p:c/><e xmlns=''/><p:f xmlns:p='v'><g p:h='6'/></p:f></p:a>");
    ASSERT_NE(a, nullptr);
    EXPECT_STREQ(a->getQName(), "p:a");
    EXPECT_STREQ(a->uri(), "u");
    EXPECT_STREQ(a->get("xmlns:p"), "u");
    EXPECT_STREQ(a->get("x"), "1");
    EXPECT_EQ(a->attrIndex("bad"), -1);
    EXPECT_STREQ(a->get("y"), "3");
    XNs u("other", "u");
    EXPECT_STREQ(a->get(&u, "z"), "4");
    EXPECT_STREQ(a->attrNs(a->attrIndex("z"))->getPrefix(), "p");
    EXPECT_EQ(a->attrNs(a->attrIndex("w")), nullptr) << "undeclared prefix";
    EXPECT_STREQ(a->elem("b")->uri(), "d");
    EXPECT_EQ(a->elem("b")->prefix(), nullptr);
    EXPECT_STREQ(a->elem("c")->uri(), "u");
    EXPECT_EQ(a->elem("e")->getNs(), nullptr) << "an empty default declaration removes it";
    XElem* g = a->elem("f")->elem("g");
    EXPECT_STREQ(g->uri(), "d");
    EXPECT_STREQ(g->attrNs(0)->getUri(), "v");
}

TEST(XParser, ReusesElementsAndSkipsSubtrees) {
    std::string xml = "<r><a k='1'><x><y/></x></a><b/>tail</r>";
    StringReader in(xml.data(), static_cast<int>(xml.size()));
    XParser p(&in);
    EXPECT_EQ(p.next(), 1);
    EXPECT_EQ(p.next(), 1);
    XElem* first = p.elem();
    EXPECT_STREQ(first->get("k"), "1");
    p.skip(p.getDepth());
    EXPECT_EQ(p.getType(), 2);
    EXPECT_STREQ(p.elem()->getName(), "a");
    EXPECT_EQ(p.next(), 1);
    EXPECT_EQ(p.elem(), first) << "one element object per level";
    EXPECT_STREQ(first->getName(), "b");
    EXPECT_EQ(first->getAttrCount(), 0);
    EXPECT_EQ(p.text(), nullptr);
}

// The parser leaves the reader just after what it consumed, through both fast paths.
TEST(XParser, ReaderStandsAfterTheDocument) {
    test::TempDir dir;
    std::string xml = "<a>x</a>rest";
    ASSERT_TRUE(test::writeFile(dir.file("d.xml"), xml));
    std::unique_ptr<FileReader> file(FileReader::make(dir.file("d.xml").c_str()));
    StringReader str(xml.data(), static_cast<int>(xml.size()));
    std::vector<CharReader*> readers = {file.get(), &str};
    for (CharReader* r : readers) {
        XParser p(r);
        std::unique_ptr<XElem> e(p.parse(false));
        ASSERT_NE(e, nullptr);
        EXPECT_STREQ(e->string(), "x");
        EXPECT_EQ(r->getChar(), 'r');
    }
    // Between events too: what the caller reads there is gone for the parser.
    std::string events = "<a>1</a>@<b>2</b>rest";
    ASSERT_TRUE(test::writeFile(dir.file("e.xml"), events));
    std::unique_ptr<FileReader> file2(FileReader::make(dir.file("e.xml").c_str()));
    StringReader str2(events.data(), static_cast<int>(events.size()));
    for (CharReader* r : std::vector<CharReader*>{file2.get(), &str2}) {
        XParser p(r);
        EXPECT_EQ(p.next(), XParser::START);
        EXPECT_EQ(p.next(), XParser::TEXT);
        EXPECT_EQ(p.next(), XParser::END);
        EXPECT_EQ(r->getChar(), '@');
        EXPECT_EQ(p.next(), XParser::START);
        EXPECT_STREQ(p.elem()->getName(), "b");
        EXPECT_EQ(p.next(), XParser::TEXT);
        EXPECT_EQ(p.next(), XParser::END);
        EXPECT_EQ(r->getChar(), 'r');
    }
}

TEST(XParser, NestingBeyondTheStacksStaysInBounds) {
    std::string xml;
    for (int i = 0; i < 300; ++i)
        xml += "<e>";
    xml += "deep";
    for (int i = 0; i < 300; ++i)
        xml += "</e>";
    StringReader in(xml.data(), static_cast<int>(xml.size()));
    XParser p(&in);
    int malformed = 0;
    int maxDepth = 0;
    for (int e = p.next(); e != -1; e = p.next()) {
        malformed += e == 4;
        maxDepth = std::max(maxDepth, p.getDepth());
    }
    EXPECT_EQ(malformed, 44);
    EXPECT_EQ(maxDepth, 256);
}

// Trees of ASCII names and values read back to the same text.
TEST(XParser, WriteParseWriteRoundTrip) {
    XNs c("cfg", "urn:c");
    XElem root(&c, "settings");
    root.defineNs(&c);
    root.addAttr("quote", "a\"b'c\n\t<&>\x01");
    XElem* port = new XElem(root.getNs(), "port");
    port->setAttrInt("n", 8080);
    port->addContent(new XText("  http & more\n"));
    root.addContent(port);
    XElem* raw = new XElem("raw");
    XText* cdata = new XText("<x>]]");
    cdata->setCDATA(true);
    raw->addContent(cdata);
    root.addContent(raw);
    root.addContent(new XElem(std::string(200, 'n').c_str()));
    std::string once = written(root);
    std::unique_ptr<XElem> back = parse(once);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(written(*back), once);
    EXPECT_STREQ(back->elem("port")->uri(), "urn:c");
}
