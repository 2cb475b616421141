#include <velmora/text/StringReader.h>
#include <velmora/xml/BufferedXWriter.h>
#include <velmora/xml/XElem.h>
#include <velmora/xml/XParser.h>
#include <velmora/xml/XText.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace velmora;

namespace {

std::string written(const XElem* e) {
    BufferedXWriter out;
    e->write(&out, 0);
    return std::string(out.getString(), out.getLength());
}

XElem* parsed(const std::string& doc) {
    StringReader in(doc.data(), static_cast<int>(doc.size()));
    XParser p(&in);
    return p.parse(false);
}

}  // namespace

// Trees are built, written and dropped by several threads at once, and trees built by one
// thread are deleted by another: every tree comes out the same although their memory is
// reused between threads, and after the memory is given back the next tree is as good.
TEST(XmlNodeReuse, TreesStayIntactWhileTheirMemoryIsReusedAcrossThreads) {
    std::string doc = "<r xmlns:p=\"urn:p\">";
    for (int i = 0; i < 300; ++i) {
        doc += "<p:e a=\"" + std::to_string(i) + "\" p:b=\"" + std::string(i % 90, 'v') +
               "\" c=\"" + std::string(i % 7 == 0 ? 200 : 3, 'w') + "\">t" + std::to_string(i) +
               "<i/></p:e>";
    }
    doc += "</r>";
    std::unique_ptr<XElem> first(parsed(doc));
    ASSERT_NE(first, nullptr);
    const std::string expected = written(first.get());

    std::vector<std::unique_ptr<XElem>> handed(4);
    std::vector<int> bad(4, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < 20; ++round) {
                std::unique_ptr<XElem> e(parsed(doc));
                std::unique_ptr<XElem> copy(static_cast<XElem*>(e->newCopy()));
                if (written(e.get()) != expected || written(copy.get()) != expected) ++bad[t];
            }
            handed[t].reset(parsed(doc));
        });
    }
    for (std::thread& th : threads)
        th.join();
    EXPECT_EQ(bad, std::vector<int>(4, 0));
    for (auto& h : handed)
        h.reset();  // deleted by a thread other than the one that built it

    XParser::unload();
    std::unique_ptr<XElem> again(parsed(doc));
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(written(again.get()), expected);
}

// Content list items live in shared slabs, each given back when its last item goes: lists
// that grow and shrink in a scattered order across many slabs keep every child, and
// trees built after most slabs went back are whole.
TEST(XmlNodeReuse, ListsStayWholeWhileTheirItemsComeAndGo) {
    const int kLists = 6;
    const int kChildren = 5000;  // about seven slabs of items in all
    std::vector<std::unique_ptr<XElem>> lists;
    for (int l = 0; l < kLists; ++l) {
        lists.emplace_back(new XElem("l"));
        for (int c = 0; c < kChildren; ++c)
            lists[l]->addContent(new XText(std::to_string(l * kChildren + c).c_str()));
    }
    // Every third child of every list goes, lists interleaved, then half of the lists.
    for (int c = kChildren - 1; c >= 0; --c) {
        for (int l = 0; l < kLists; ++l) {
            if (c % 3 == 0) delete lists[l]->removeContent(c);
        }
    }
    for (int l = 0; l < kLists; l += 2)
        lists[l].reset();
    // New children land in the freed items; the lists left must read in order.
    for (int l = 1; l < kLists; l += 2) {
        for (int c = 0; c < kChildren / 3; ++c)
            lists[l]->addContent(new XText("n"));
        std::string expected;
        for (int c = 0; c < kChildren; ++c) {
            if (c % 3 != 0) expected += std::to_string(l * kChildren + c) + "|";
        }
        for (int c = 0; c < kChildren / 3; ++c)
            expected += "n|";
        std::string actual;
        for (int i = 0; i < lists[l]->getContentCount(); ++i)
            actual += std::string(lists[l]->text(i)->string()) + "|";
        EXPECT_EQ(actual, expected) << "list " << l;
    }
    lists.clear();
    XParser::unload();
    std::unique_ptr<XElem> again(parsed("<a><b>x</b><c/>y</a>"));
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(written(again.get()), "<a>\n <b>x</b>\n <c/>\ny</a>\n");
}
