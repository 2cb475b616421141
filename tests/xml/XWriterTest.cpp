#include <velmora/xml/BufferedXWriter.h>
#include <velmora/xml/XElem.h>

#include <gtest/gtest.h>

#include <string>

using namespace velmora;

TEST(XWriter, EscapesQuotesControlAndHighBytes) {
    BufferedXWriter out;
    out.safe("a\"<\n'&>\t\xe9\x7f");
    EXPECT_STREQ(out.getString(), "a&#x22;&lt;&#xa;&#x27;&amp;&gt;&#x9;&#xe9;&#x7f;");
    out.clear();
    out.safe("l\nr\rt\t\"", false);
    EXPECT_STREQ(out.getString(), "l\nr\rt\t&#x22;") << "whitespace kept literal in text";
    out.clear();
    out.attr("v", "1 < 2")->w(' ')->attrf("n", "%d-%s", 5, 1234, "xyz");
    EXPECT_STREQ(out.getString(), "v=\"1 &lt; 2\" n=\"1234\"") << "attrf cuts at its size";
    out.clear();
    out.indent(60)->w('|')->indent(3)->w(-7)->nl()->prolog();
    EXPECT_EQ(std::string(out.getString()),
              std::string(60, ' ') + "|   -7\n<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
    EXPECT_EQ(out.getLength(), 67u + 39u);

    XWriter none(nullptr);
    EXPECT_EQ(none.write("x", 1), 0);
    EXPECT_FALSE(none.write('x'));
}

// The UTF-8 mode passes well-formed UTF-8 through and escapes the rest as the default
// mode does; a tree written in it keeps its text.
TEST(XWriter, Utf8ModePassesUtf8Through) {
    BufferedXWriter out;
    out.setUtf8(true);
    out.safe("caf\xc3\xa9 \xf0\x9f\x93\xa1 \xe9 \xc3 \"<\n", false);
    EXPECT_STREQ(out.getString(), "caf\xc3\xa9 \xf0\x9f\x93\xa1 &#xe9; &#xc3; &#x22;&lt;\n");
    out.clear();
    out.attr("d", "\xe2\x80\x94\xef\xbf\xbf\xed\xa0\x80\xc0\xaf");
    EXPECT_STREQ(out.getString(),
                 "d=\"\xe2\x80\x94&#xef;&#xbf;&#xbf;&#xed;&#xa0;&#x80;&#xc0;&#xaf;\"")
        << "U+FFFF, surrogates and overlong forms are no characters to pass on";
    out.clear();
    XElem e("e");
    e.addAttr("a", "\xc3\xa9");
    e.addContent(new XText("\xc3\xa9"));
    e.write(&out, 0);
    out.setUtf8(false);
    e.write(&out, 0);
    EXPECT_STREQ(out.getString(),
                 "<e a=\"\xc3\xa9\">\xc3\xa9</e>\n"
                 "<e a=\"&#xc3;&#xa9;\">&#xc3;&#xa9;</e>\n");
}

TEST(XWriter, ElementLayout) {
    XElem root("p", "urn:p", "root");
    XNs ans("a", "urn:a");
    root.addAttr("q", "say \"hi\"\n");
    XElem* one = new XElem("one");
    one->addAttr(&ans, "x", "1");
    one->addContent(new XText("a&b\nc"));
    root.addContent(one);
    XElem* mixed = new XElem("mixed");
    mixed->addContent(new XElem("leaf"));
    mixed->addContent(new XText("tail"));
    XText* cdata = new XText("<raw>&");
    cdata->setCDATA(true);
    mixed->addContent(cdata);
    root.addContent(mixed);
    BufferedXWriter out;
    root.write(&out, 1);
    EXPECT_STREQ(out.getString(),
                 " <p:root q=\"say &#x22;hi&#x22;&#xa;\">\n"
                 "  <one a:x=\"1\">a&amp;b\nc</one>\n"
                 "  <mixed>\n"
                 "   <leaf/>\n"
                 "tail<![CDATA[<raw>&]]>  </mixed>\n"
                 " </p:root>\n");
}

// Closing the XWriter closes its target; a BufferedXWriter keeps its own text readable.
TEST(XWriter, CloseReachesTheTarget) {
    StringWriter target;
    {
        XWriter out(&target);
        out.w("abc");
    }
    target.write("def", 3);  // ignored: closed by the writer's destructor
    EXPECT_STREQ(target.getString(), "abc");
    BufferedXWriter buffered;
    buffered.w("x")->close();
    buffered.w("y");
    EXPECT_STREQ(buffered.getString(), "x");
}

// The buffered writer writes in the text's own memory: the text it hands out must still
// end in a zero right after what was written, whatever the helpers wrote past the end, and
// texts longer than any block, clearing and writing to the handed-out text all keep every
// byte in order.
TEST(XWriter, BufferedTextKeepsEveryByteInOrder) {
    std::string expected;
    BufferedXWriter out;
    out.setUtf8(true);
    for (int i = 1; i < 40; ++i) {
        std::string piece(static_cast<size_t>(i * 7), 'a');
        piece[static_cast<size_t>(i)] = '<';
        out.safe(piece.c_str(), static_cast<int>(piece.size()), false);
        piece.replace(static_cast<size_t>(i), 1, "&lt;");
        expected += piece;
    }
    out.indent(2);  // written as 16 spaces, of which 2 count
    expected += "  ";
    ASSERT_EQ(std::string(out.getString()), expected);
    CharWriter* text = out.getCharWriter();
    ASSERT_NE(text, nullptr);
    text->write('!');
    expected += '!';
    EXPECT_EQ(std::string(out.getString()), expected) << "a zero follows the handed-out text";
    const std::string big(3 << 20, 'b');
    out.w(big.c_str())->indent(3);
    text->write("|", 1);
    expected += big + "   |";
    EXPECT_EQ(out.getLength(), expected.size());
    EXPECT_TRUE(std::string(out.getString()) == expected);

    BufferedXWriter fresh;
    fresh.w(big.c_str())->w('c');
    fresh.clear();
    fresh.safe("\xc3\xa9x");
    EXPECT_STREQ(fresh.getString(), "&#xc3;&#xa9;x") << "after clear the text starts again";
    EXPECT_EQ(fresh.getLength(), 13u);
}
