#include <velmora/log/NullLog.h>
#include <velmora/log/SystemErrorFactory.h>
#include <velmora/text/StringWriter.h>
#include <velmora/xml/XWriter.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#ifdef VELMORA_TEST_EXPAT
#include <expat.h>
#endif
#ifdef _WIN32
// winsock2.h must come before windows.h.
#include <winsock2.h>

#include <windows.h>
#endif

using velmora::MessageArgument;
using velmora::MessageBundle;
using velmora::NullLog;
using velmora::SystemErrorFactory;

namespace {

std::vector<std::string> arguments(const MessageBundle& b) {
    std::vector<std::string> all;
    for (const MessageArgument* a = b.getArguments(); a != nullptr; a = a->next) {
        all.push_back(a->value);
    }
    return all;
}

// Sets the last system error and the last socket error (one value off Windows).
void setLastError(unsigned long code) {
#ifdef _WIN32
    SetLastError(code);
    WSASetLastError(static_cast<int>(code));
#else
    errno = static_cast<int>(code);
#endif
}

std::string winsockName(int code) {
    setLastError(static_cast<unsigned long>(code));
    char* name = SystemErrorFactory::getWinsockErrorString();
    std::string copy = name;
    velmora::release(name);
    return copy;
}

}  // namespace

// Bundles own copies: the reporter's buffers and the original may go, the order of the
// arguments survives a copy, and only module plus key makes a bundle localised.
TEST(MessageBundle, DeepCopyKeepsEverythingInOrder) {
    char module[] = "platform";
    char key[] = "socket.unableToConnect";
    char text[] = "socket: Unable to connect\n";
    auto* original = new MessageBundle(module, key, "host", text);
    original->addLexiconArgument(-42);
    original->addLexiconArgument("third");
    std::memset(module, 'x', sizeof module - 1);
    std::memset(text, 'x', sizeof text - 1);
    MessageBundle copy(original);
    delete original;
    EXPECT_STREQ(copy.getModule(), "platform");
    EXPECT_STREQ(copy.getKey(), "socket.unableToConnect");
    EXPECT_STREQ(copy.getText(), "socket: Unable to connect\n");
    EXPECT_EQ(arguments(copy), (std::vector<std::string>{"host", "-42", "third"}));
    EXPECT_TRUE(copy.isLocalized());

    MessageBundle textOnly(static_cast<const char*>(nullptr));
    EXPECT_EQ(textOnly.getText(), nullptr);
    EXPECT_FALSE(MessageBundle("platform", nullptr, "t").isLocalized());
    EXPECT_EQ(MessageBundle("platform", "k", 7, "t").getArgumentCount(), 1);
}

// A handler keeps one copy of the last error; text reports become text-only bundles.
TEST(ErrorHandler, KeepsOnlyTheLastErrorAsACopy) {
    NullLog* log = NullLog::getInstance();
    log->clearError();
    log->clearError();  // nothing recorded: harmless
    EXPECT_EQ(log->getLastError(), nullptr);
    {
        MessageBundle first("platform", "a.first", "first");
        log->error(&first);
    }
    log->error("second\n");
    ASSERT_NE(log->getLastError(), nullptr);
    EXPECT_STREQ(log->getLastError()->getText(), "second\n");
    EXPECT_FALSE(log->getLastError()->isLocalized());
    log->warning("not an error");
    EXPECT_STREQ(log->getLastError()->getText(), "second\n");
    NullLog::unload();
    EXPECT_EQ(NullLog::getInstance()->getLastError(), nullptr) << "a fresh instance";
}

// System errors carry the system's own text as argument and in the formatted text.
TEST(SystemErrorFactory, ReportsSystemTextsUnderOneKey) {
    NullLog* log = NullLog::getInstance();
    SystemErrorFactory::error(log, 0ul);
    MessageBundle* e = log->getLastError();
    ASSERT_NE(e, nullptr);
    EXPECT_STREQ(e->getText(), "A system error has occurred -> Unknown System Error");
    EXPECT_EQ(arguments(*e), std::vector<std::string>{"Unknown System Error"});

    setLastError(2);  // no such file, on both systems
    SystemErrorFactory::error(log);
    e = log->getLastError();
    EXPECT_STREQ(e->getModule(), "platform");
    EXPECT_STREQ(e->getKey(), "native.systemError");
    ASSERT_EQ(e->getArgumentCount(), 1);
    std::string systemText = e->getArguments()->value;
    EXPECT_FALSE(systemText.empty());
    EXPECT_EQ(std::string(e->getText()), "System Error: " + systemText + "\n");

    setLastError(2);
    SystemErrorFactory::error(log, "Cannot open x:");
    EXPECT_EQ(std::string(log->getLastError()->getText()), "Cannot open x: " + systemText);
    EXPECT_FALSE(log->getLastError()->isLocalized());
    setLastError(0);
    SystemErrorFactory::error(log, "Cannot open y:");
    EXPECT_STREQ(log->getLastError()->getText(), "Cannot open y:");
    NullLog::unload();
}

// Names follow the Winsock constants, with 10110 deliberately named like 10035.
TEST(SystemErrorFactory, WinsockNamesAndNumbers) {
    EXPECT_EQ(winsockName(10035), "WSAEWOULDBLOCK");
    EXPECT_EQ(winsockName(10110), "WSAEWOULDBLOCK");
    EXPECT_EQ(winsockName(10061), "WSAECONNREFUSED");
    EXPECT_EQ(winsockName(11004), "WSANO_DATA");
    EXPECT_EQ(winsockName(10080), "10080");
    EXPECT_EQ(winsockName(10013), "10013");
    EXPECT_EQ(winsockName(0), "0");
#ifndef _WIN32
    // The system's own numbers read as the same names ("ping: ... failed - WSAE...").
    EXPECT_EQ(winsockName(ECONNREFUSED), "WSAECONNREFUSED");
    EXPECT_EQ(winsockName(EAGAIN), "WSAEWOULDBLOCK");
    EXPECT_EQ(winsockName(EHOSTUNREACH), "WSAEHOSTUNREACH");
    EXPECT_EQ(winsockName(EACCES), std::to_string(EACCES)) << "no name: the number";
#endif
}

// The XML form: text-only bundles have no localized element, one without arguments a
// self-closing one, and a null text is written as an empty attribute.
TEST(MessageBundle, AppendXmlLayout) {
    velmora::StringWriter text;
    velmora::XWriter out(&text);
    MessageBundle(static_cast<const char*>(nullptr)).appendXML(&out);
    MessageBundle("platform", "a.key", "t").appendXML(&out);
    MessageBundle("platform", nullptr, "no key").appendXML(&out);
    MessageBundle withArguments("platform", "a.key", "x\"y", "t");
    withArguments.addLexiconArgument(2);
    withArguments.appendXML(&out);
    EXPECT_STREQ(text.getString(),
                 "<message>\n<nonlocalized text=\"\"/>\n</message>\n"
                 "<message>\n<nonlocalized text=\"t\"/>\n"
                 "<localized module=\"platform\" key=\"a.key\"/>\n</message>\n"
                 "<message>\n<nonlocalized text=\"no key\"/>\n</message>\n"
                 "<message>\n<nonlocalized text=\"t\"/>\n"
                 "<localized module=\"platform\" key=\"a.key\">\n"
                 "<lexArg value=\"x&#x22;y\"/>\n<lexArg value=\"2\"/>\n</localized>\n</message>\n");
}

#ifdef VELMORA_TEST_EXPAT
namespace {

// Collects every attribute as "element.name=value".
void XMLCALL collect(void* data, const XML_Char* name, const XML_Char** attrs) {
    auto* seen = static_cast<std::vector<std::string>*>(data);
    for (int i = 0; attrs[i] != nullptr; i += 2) {
        seen->push_back(std::string(name) + "." + attrs[i] + "=" + attrs[i + 1]);
    }
}

}  // namespace

// Hostile texts still make well-formed XML that a parser reads back to the same texts.
// (Only tab, line feed and carriage return among the control bytes: XML has no way to
// carry the others, whose references a parser must refuse.)
TEST(MessageBundle, HostileTextsRoundTripThroughAnXmlParser) {
    const std::string hostile = "q\"a'<b>&c;]]>\t\n\r\xe9\xff end";
    MessageBundle bundle("platform", "k<&>", hostile.c_str(), hostile.c_str());
    bundle.addLexiconArgument("'\"");
    velmora::StringWriter text;
    velmora::XWriter out(&text);
    out.w("<all>");
    bundle.appendXML(&out);
    out.w("</all>");
    std::vector<std::string> seen;
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &seen);
    XML_SetStartElementHandler(parser, collect);
    int ok = XML_Parse(parser, text.getString(), text.getLength(), 1);
    EXPECT_EQ(ok, XML_STATUS_OK) << XML_ErrorString(XML_GetErrorCode(parser)) << "\n"
                                 << text.getString();
    XML_ParserFree(parser);
    // Bytes above 127 are references to the code points of the same number: UTF-8 here.
    std::string h = "q\"a'<b>&c;]]>\t\n\r\xc3\xa9\xc3\xbf end";
    EXPECT_EQ(seen, (std::vector<std::string>{"nonlocalized.text=" + h, "localized.module=platform",
                                              "localized.key=k<&>", "lexArg.value=" + h,
                                              "lexArg.value='\""}));
}
#endif
