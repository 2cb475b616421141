#include <velmora/xml/XElem.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

using namespace velmora;

// qname follows the namespace through every change; names past the inline buffers survive.
TEST(XElem, QualifiedNameFollowsNamespaceAndLongNames) {
    XElem e("px", "urn:u", "name");
    EXPECT_STREQ(e.getQName(), "px:name");
    e.setNs(nullptr);
    EXPECT_STREQ(e.getQName(), "name");
    XNs empty("", "urn:d");
    e.setNs(&empty);
    EXPECT_STREQ(e.getQName(), "name");
    EXPECT_EQ(e.prefix(), nullptr);
    EXPECT_STREQ(e.uri(), "urn:d");

    std::string longName(127, 'n');  // fits the name buffer, not the qname buffer
    XElem big("p", "urn:u", longName.c_str());
    EXPECT_EQ(big.getName(), longName);
    EXPECT_EQ(big.getQName(), "p:" + longName);
    big.setName(std::string(300, 'm').c_str());
    big.setAttr(std::string(200, 'a').c_str(), std::string(500, 'v').c_str());
    big.setAttr(std::string(200, 'a').c_str(), "short");
    EXPECT_STREQ(big.get(std::string(200, 'a').c_str()), "short");
    EXPECT_EQ(std::string(big.getQName()), "p:" + std::string(300, 'm'));
}

TEST(XElem, TypedGettersFollowTheirReadingRules) {
    XElem e("x");
    e.setAttr("yes", "Yes");
    e.setAttr("no", "FALSE");
    e.setAttr("num", " 42abc");
    e.setAttr("word", "abc");
    e.setAttr("big", "99999999999");
    e.setAttr("small", "-99999999999");
    EXPECT_TRUE(e.getb("yes", true));
    EXPECT_FALSE(e.getb("yes", false));
    EXPECT_FALSE(e.getb("no", true));
    EXPECT_TRUE(e.getb("missing", true));
    EXPECT_EQ(e.geti("num", 7), 42);
    EXPECT_EQ(e.geti("word", 7), 0) << "a value that is no number reads as 0";
    EXPECT_EQ(e.geti("missing", 7), 7);
    EXPECT_EQ(e.getl("big", 1), 2147483647);
    EXPECT_EQ(e.getl("small", 1), -2147483647LL - 1);
    e.setAttrLong("big", 5000000000LL);
    EXPECT_STREQ(e.get("big"), "5000000000");
    EXPECT_EQ(e.getl("big", 1), 2147483647) << "kept: 32-bit reading";
    EXPECT_EQ(e.getl("missing", 5000000000LL), 5000000000LL);
}

TEST(XElem, AttributesKeepOrderDuplicatesAndNamespaces) {
    XElem e("x");
    XNs a("a", "urn:a");
    XNs other("b", "urn:a");  // same URI, other prefix: the same namespace
    e.addAttr("k", "1");
    e.addAttr("k", "2");
    e.setAttr(&a, "k", "ns");
    e.setAttrInt("n", -5);
    e.setAttrBool("f", true);
    ASSERT_EQ(e.getAttrCount(), 5);
    EXPECT_STREQ(e.get("k"), "1");
    EXPECT_STREQ(e.attrValue(1), "2");
    EXPECT_STREQ(e.get(&other, "k"), "ns");
    EXPECT_EQ(e.attrIndex(&a, "k"), 2);
    EXPECT_EQ(e.attrIndex(nullptr, "k"), 0);
    EXPECT_STREQ(e.attrNs(2)->getPrefix(), "a");
    EXPECT_EQ(e.attrName(5), nullptr);
    e.setAttr("k", "3");
    EXPECT_STREQ(e.attrValue(0), "3");
    e.removeAttr("k");
    EXPECT_STREQ(e.get("k"), "2");
    EXPECT_EQ(e.getAttrCount(), 4);
    e.clearAttr();
    e.addAttr("z", "1");  // reuses a cleared node
    EXPECT_EQ(e.getAttrCount(), 1);
    EXPECT_STREQ(e.attrName(0), "z");
}

TEST(XElem, FindAndDefineNamespaces) {
    XElem e("x");
    e.setAttr("href", "urn:u");
    e.setAttr("xmlns:a", "urn:u");
    EXPECT_EQ(e.findNs("urn:u"), nullptr) << "kept: the first attribute with the URI decides";
    std::unique_ptr<XNs> d(e.defineNs("d", "urn:d"));
    std::unique_ptr<XNs> found(e.findNs("urn:d"));
    ASSERT_NE(found, nullptr);
    EXPECT_STREQ(found->getPrefix(), "d");
    std::unique_ptr<XNs> def(e.defineNs(nullptr, "urn:def"));
    std::unique_ptr<XNs> again(e.defineNs("d", "urn:d2"));  // replaces the declaration
    EXPECT_STREQ(e.get("xmlns"), "urn:def");
    EXPECT_STREQ(e.get("xmlns:d"), "urn:d2");
    std::unique_ptr<XNs> dflt(e.findNs("urn:def"));
    ASSERT_NE(dflt, nullptr);
    EXPECT_TRUE(dflt->isDefault());
    EXPECT_EQ(e.findNs(nullptr), nullptr);
    XElem own("p", "urn:p", "y");
    std::unique_ptr<XNs> mine(own.findNs("urn:p"));
    EXPECT_STREQ(mine->getPrefix(), "p");
    EXPECT_TRUE(XNs::equals(nullptr, nullptr));
    EXPECT_FALSE(XNs::equals(mine.get(), nullptr));
}

TEST(XElem, ContentOwnershipAndPlacement) {
    XElem a("a");
    XElem b("b");
    auto* t = new XText("t");
    auto* c = new XElem("c");
    a.addContent(t);
    a.addContent(0, c);  // front
    b.addContent(t);     // already parented: refused
    EXPECT_EQ(b.getContentCount(), 0);
    auto* loose = new XElem("loose");
    a.addContent(5, loose);
    EXPECT_EQ(a.getContentCount(), 2);
    EXPECT_EQ(loose->getParent(), nullptr);
    a.addContent(1, loose);  // between c and t
    EXPECT_EQ(a.elem(1), loose);
    EXPECT_EQ(a.text(2), t);
    EXPECT_EQ(a.text(), nullptr) << "the first child is an element";

    XContent* removed = a.removeContent(0);
    ASSERT_EQ(removed, c);
    EXPECT_EQ(removed->getParent(), &a);
    b.addContent(removed);
    EXPECT_EQ(b.getContentCount(), 0) << "a removed node keeps its parent";
    removed->setParent(nullptr);
    b.addContent(removed);
    EXPECT_EQ(b.elem("c"), c);

    auto* fresh = new XText("f");
    std::unique_ptr<XContent> old(a.replaceContent(0, fresh));
    EXPECT_EQ(old.get(), loose);
    EXPECT_EQ(a.removeContent(old.get()), nullptr);
    EXPECT_STREQ(a.string(), "f");
    a.addContent(new XElem("c"));  // appended after a removal at the end works
    EXPECT_EQ(a.getContentCount(), 3);
    std::unique_ptr<XContent> last(a.removeContent(2));
    last->setParent(nullptr);
    a.addContent(last.release());
    EXPECT_STREQ(a.elem(2)->getName(), "c");
}

TEST(XElem, QueriesAndDeepCopy) {
    XElem root("p", "urn:p", "root");
    root.addAttr(root.getNs(), "id", "1");
    root.addContent(new XElem("item"));
    root.addContent(new XText("mid"));
    root.addContent(new XElem("p", "urn:p", "item"));
    root.addContent(new XElem("other"));
    XNs same("q", "urn:p");
    std::unique_ptr<XElemList> items(root.elems("item"));
    EXPECT_EQ(items->getSize(), 2);
    std::unique_ptr<XElemList> nsItems(root.elems(&same, "item"));
    ASSERT_EQ(nsItems->getSize(), 1);
    EXPECT_EQ(nsItems->get(0), root.elem(2));
    EXPECT_EQ(root.elem(&same, "item"), root.elem(2));
    std::unique_ptr<XElemList> all(root.elems());
    EXPECT_EQ(all->getSize(), 3);
    std::unique_ptr<XElemList> none(XElem("empty").elems("x"));
    EXPECT_EQ(none->getSize(), 0);
    EXPECT_EQ(none->getFirst(), nullptr);

    std::unique_ptr<XElem> copy(static_cast<XElem*>(root.newCopy()));
    root.setName("changed");
    root.clearContent();
    EXPECT_EQ(copy->getParent(), nullptr);
    EXPECT_STREQ(copy->getQName(), "p:root");
    EXPECT_STREQ(copy->get(&same, "id"), "1");
    ASSERT_EQ(copy->getContentCount(), 4);
    EXPECT_STREQ(copy->text(1)->string(), "mid");
    EXPECT_EQ(copy->elem(0)->getParent(), copy.get());

    XText zeros("a\0b", 3);
    zeros.setCDATA(true);
    std::unique_ptr<XText> z(static_cast<XText*>(zeros.newCopy()));
    EXPECT_EQ(std::string(z->string(), z->getLength()), std::string("a\0b", 3));
    EXPECT_TRUE(z->isCDATA());
}
