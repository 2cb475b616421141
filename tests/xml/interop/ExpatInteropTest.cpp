// What the writer produces is read by expat as the same elements, attributes and text.
#include <velmora/xml/BufferedXWriter.h>
#include <velmora/xml/XElem.h>

#include <gtest/gtest.h>

#include <expat.h>

#include <string>

using namespace velmora;

namespace {

// One line per event: "<qname a=v ...", "text", ">" for an end. Text between events is
// joined; runs of white space alone (the writer's layout) are left out.
struct Trace {
    std::string out;
    std::string pending;
    void flush() {
        if (pending.find_first_not_of(" \t\n") != std::string::npos) out += pending + "\n";
        pending.clear();
    }
};

void XMLCALL onStart(void* data, const XML_Char* name, const XML_Char** attrs) {
    auto* t = static_cast<Trace*>(data);
    t->flush();
    t->out += std::string("<") + name;
    for (int i = 0; attrs[i] != nullptr; i += 2)
        t->out += std::string(" ") + attrs[i] + "=" + attrs[i + 1];
    t->out += "\n";
}

void XMLCALL onEnd(void* data, const XML_Char*) {
    auto* t = static_cast<Trace*>(data);
    t->flush();
    t->out += ">\n";
}

void XMLCALL onText(void* data, const XML_Char* s, int len) {
    static_cast<Trace*>(data)->pending.append(s, static_cast<size_t>(len));
}

// Bytes above 127 stand for the characters of the same number, which expat gives in UTF-8.
std::string utf8(const std::string& bytes) {
    std::string out;
    for (unsigned char b : bytes) {
        if (b < 0x80) {
            out += static_cast<char>(b);
        } else {
            out += static_cast<char>(0xC0 | (b >> 6));
            out += static_cast<char>(0x80 | (b & 0x3F));
        }
    }
    return out;
}

void expected(const XElem* e, std::string* out) {
    *out += std::string("<") + e->getQName();
    for (int i = 0; i < e->getAttrCount(); ++i) {
        const XNs* ns = e->attrNs(i);
        *out += " ";
        if (ns != nullptr && !ns->isDefault()) *out += std::string(ns->getPrefix()) + ":";
        *out += std::string(e->attrName(i)) + "=" + utf8(e->attrValue(i));
    }
    *out += "\n";
    for (int i = 0; i < e->getContentCount(); ++i) {
        if (e->elem(i) != nullptr) {
            expected(e->elem(i), out);
        } else {
            *out += utf8(e->text(i)->string()) + "\n";
        }
    }
    *out += ">\n";
}

}  // namespace

TEST(XWriterInterop, ExpatReadsTheSameTree) {
    XNs cfg("cfg", "urn:velmora:config");
    XElem root(&cfg, "settings");
    root.defineNs(&cfg);
    root.addAttr("title", "Caf\xe9 \"north\" & <south> 'hall'\t\r\n");
    XElem* station = new XElem(&cfg, "station");
    station->addAttr(&cfg, "zone", "z1");
    station->setAttrInt("id", 7);
    station->addContent(new XText("feed & more\nline two \xe9\xff"));
    root.addContent(station);
    XElem* raw = new XElem("raw");
    XText* cdata = new XText("<not> & markup");
    cdata->setCDATA(true);
    raw->addContent(cdata);
    root.addContent(raw);
    root.addContent(new XElem("empty"));

    BufferedXWriter out;
    out.prolog();
    root.write(&out, 0);
    Trace trace;
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &trace);
    XML_SetElementHandler(parser, onStart, onEnd);
    XML_SetCharacterDataHandler(parser, onText);
    XML_Status status =
        XML_Parse(parser, out.getString(), static_cast<int>(out.getLength()), XML_TRUE);
    EXPECT_EQ(status, XML_STATUS_OK) << XML_ErrorString(XML_GetErrorCode(parser)) << "\n"
                                     << out.getString();
    XML_ParserFree(parser);
    std::string want;
    expected(&root, &want);
    EXPECT_EQ(trace.out, want);
}
