#include <velmora/http/HeaderField.h>
#include <velmora/http/HttpLog.h>
#include <velmora/http/HttpRequest.h>
#include <velmora/http/HttpResponse.h>
#include <velmora/log/MessageBundle.h>
#include <velmora/net/Socket.h>
#include <velmora/net/SocketInput.h>
#include <velmora/net/SocketOutput.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "NetTestSupport.h"

using namespace velmora;

namespace {

// A loopback connection: what one end writes, the other reads.
struct Wire {
    test::Pair pair = test::connectPair();
    SocketOutput* out() { return pair.client->getOutput(); }
    SocketInput* in() { return pair.accepted->getInput(); }
    void send(const std::string& bytes) {
        out()->write(bytes.data(), static_cast<int>(bytes.size()));
        out()->flush();
    }
    // Everything the other end sent, once it closed.
    std::string received() {
        out()->flush();
        pair.client->close();
        std::string all;
        char c;
        while (in()->readByte(&c))
            all += c;
        return all;
    }
};

std::string attribute(HeaderField& f, int i) {
    char key[64] = "", value[256] = "";
    f.getAttributes()->getKey(i, key, sizeof key - 1);
    f.getAttributes()->getAtIndex(i, value, sizeof value - 1);
    return std::string(key) + "=" + value;
}

}  // namespace

// The value is the first word only; the rest splits into attributes at blanks and commas,
// except inside quotes; a word without "=" is numbered.
TEST(HeaderField, ParsesValueAndAttributes) {
    HeaderField type("Content-Type: text/html; charset=utf-8");
    EXPECT_STREQ(type.getName(), "Content-Type");
    EXPECT_STREQ(type.getValue(), "text/html;");
    ASSERT_EQ(type.getAttributes()->getCount(), 1);
    EXPECT_EQ(attribute(type, 0), "charset=utf-8");

    HeaderField accept("Accept: a, b");
    EXPECT_STREQ(accept.getValue(), "a,");
    EXPECT_EQ(attribute(accept, 0), "0=b");

    HeaderField auth("Authorization: Digest realm=\"a b, c\",, nonce=x  opaque=");
    EXPECT_STREQ(auth.getValue(), "Digest");
    ASSERT_EQ(auth.getAttributes()->getCount(), 3);
    EXPECT_EQ(attribute(auth, 0), "realm=\"a b, c\"") << "quotes kept, blank and comma inside";
    EXPECT_EQ(attribute(auth, 1), "nonce=x");
    EXPECT_EQ(attribute(auth, 2), "2=opaque=") << "a trailing '=' makes no pair";

    for (const char* nameless : {"no colon here", "Empty:   ", ":"}) {
        HeaderField f(nameless);
        EXPECT_EQ(f.getName(), nullptr) << nameless;
        EXPECT_EQ(f.getValue(), nullptr) << nameless;
    }
}

TEST(HeaderField, WritesNameValueAndAttributes) {
    Wire wire;
    ASSERT_TRUE(wire.pair.accepted);
    HeaderField f("Cache-Control: private max-age=0,no-store");
    HeaderField plain("Host", "localhost");
    EXPECT_TRUE(f.write(wire.out()));
    EXPECT_TRUE(plain.write(wire.out()));
    EXPECT_EQ(wire.received(),
              "Cache-Control: private max-age=0, 1=no-store\r\nHost: localhost\r\n");
}

// getField ignores case, getFieldInstance (and so setField) does not.
TEST(HttpMessage, TwoNameRulesTypedFieldsAndShouldClose) {
    HttpMessage m(nullptr, nullptr);
    m.addField("Content-Length", "12");
    m.setField("content-length", "99");
    EXPECT_STREQ(m.getField("CONTENT-LENGTH"), "12") << "the first field is found";
    EXPECT_STREQ(m.getFieldInstance("content-length")->getValue(), "99");
    m.setField("Content-Length", "13");
    EXPECT_STREQ(m.getField("content-length"), "13") << "exact name replaced in place";

    m.setFieldInt("Retries", 0);
    m.setFieldBoolean("Cached", true);
    m.addField("Count", "x12");
    EXPECT_EQ(m.getFieldInt("retries", 5), 0) << "a real zero";
    EXPECT_EQ(m.getFieldInt("count", 5), 5) << "no number";
    EXPECT_EQ(m.getFieldInt("missing", 7), 7);
    EXPECT_STREQ(m.getField("Cached"), "TRUE");
    EXPECT_TRUE(m.getFieldBoolean("cached", false));
    EXPECT_FALSE(m.getFieldBoolean("count", false));
    struct tm when = {};
    when.tm_mday = 1;
    when.tm_year = 126;
    m.setFieldTime("Date", &when);
    struct tm back;
    EXPECT_EQ(m.getFieldTime("date", &back), 0);
    EXPECT_EQ(back.tm_year, 126);

    EXPECT_FALSE(m.shouldClose()) << "known length, no Connection field";
    m.setField("Connection", "Close");
    EXPECT_TRUE(m.shouldClose());

    HttpMessage unknown(nullptr, nullptr);
    EXPECT_TRUE(unknown.shouldClose());
    EXPECT_STREQ(unknown.getField("connection"), "close") << "the field is added";

    m.setVersion("HTTP/1.0");
    EXPECT_EQ(m.getMajorVersion(), 1);
    EXPECT_EQ(m.getMinorVersion(), 0);
    m.setVersion("HTTP/1234.5");
    EXPECT_EQ(m.getMajorVersion(), 0) << "more than three digits";
}

// Header lines end in CR LF, stop at the empty line, and fail from 2080 characters on.
TEST(HttpMessage, ReadsHeadersUntilTheEmptyLine) {
    Wire wire;
    ASSERT_TRUE(wire.pair.accepted);
    std::string longest = "X-Long: " + std::string(2079 - 8, 'v');
    wire.send("Host: a\r\nno colon\r\n" + longest + "\r\n\r\nbody");
    HttpMessage m(nullptr, nullptr);
    ASSERT_TRUE(m.read(wire.in()));
    EXPECT_STREQ(m.getField("host"), "a");
    EXPECT_EQ(m.getFieldInstance("no colon"), nullptr) << "a line without name is dropped";
    EXPECT_EQ(std::string(m.getField("X-Long")).size(), 2079u - 8);
    char b;
    ASSERT_TRUE(wire.in()->readByte(&b));
    EXPECT_EQ(b, 'b') << "the body stays unread";

    Wire tooLong;
    tooLong.send("X-Long: " + std::string(2080 - 8, 'v') + "\r\n\r\n");
    HttpMessage failed(nullptr, nullptr);
    EXPECT_FALSE(failed.read(tooLong.in()));

    Wire bare;
    bare.send("Host: a\rX: b\r\n\r\n");
    HttpMessage noLf(nullptr, nullptr);
    EXPECT_FALSE(noLf.read(bare.in()));
}

// The body length as a reader limited to 1000 bytes sees it: lengths never wrap, and heads
// that two readers could frame differently are refused.
TEST(HttpMessage, BodyLengthIsExactOrRefused) {
    const struct {
        const char* head;
        HttpMessage::BodyLength kind;
        int64_t length;
    } cases[] = {
        {"Host: a\r\n", HttpMessage::kNoBody, 0},
        {"content-length: 17\r\n", HttpMessage::kLength, 17},
        {"Content-Length: 1000\r\n", HttpMessage::kLength, 1000},
        {"Content-Length: 0001000\r\n", HttpMessage::kLength, 1000},
        {"Content-Length: 1001\r\n", HttpMessage::kTooLarge, 0},
        {"Content-Length: 4294967301\r\n", HttpMessage::kTooLarge, 0},            // 2^32 + 5
        {"Content-Length: 18446744073709551621\r\n", HttpMessage::kTooLarge, 0},  // 2^64 + 5
        {"Content-Length: 5\r\nContent-Length: 005\r\n", HttpMessage::kLength, 5},
        {"Content-Length: 5\r\nContent-Length: 6\r\n", HttpMessage::kBadLength, 0},
        {"Content-Length: 5\r\nContent-Length: 4294967301\r\n", HttpMessage::kBadLength, 0},
        {"Content-Length: 5, 6\r\n", HttpMessage::kBadLength, 0},
        {"Content-Length: -5\r\n", HttpMessage::kBadLength, 0},
        {"Content-Length: 5x\r\n", HttpMessage::kBadLength, 0},
        {"Content-Length: 5\r\nTransfer-Encoding: chunked\r\n", HttpMessage::kBadLength, 0},
        {"Transfer-Encoding: chunked\r\n", HttpMessage::kTransferCoded, 0},
    };
    for (const auto& c : cases) {
        Wire wire;
        ASSERT_TRUE(wire.pair.accepted);
        wire.send(std::string(c.head) + "\r\n");
        HttpMessage m(nullptr, nullptr);
        ASSERT_TRUE(m.read(wire.in())) << c.head;
        int64_t length = -1;
        EXPECT_EQ(m.getBodyLength(1000, &length), c.kind) << c.head;
        EXPECT_EQ(length, c.length) << c.head;
    }
    HttpMessage none(nullptr, nullptr);
    int64_t length = -1;
    none.addField("Content-Length", "5");
    EXPECT_EQ(none.getBodyLength(0, &length), HttpMessage::kTooLarge) << "nothing fits in 0";
    none.addField("X", "y");
    none.addField(new HeaderField("no colon"));
    EXPECT_EQ(none.getFieldCount(), 3) << "what was added, named or not";
}

TEST(HttpRequest, RequestLineGivesMethodPathQueryAndVersion) {
    Wire wire;
    ASSERT_TRUE(wire.pair.accepted);
    wire.send("GET /a%20b?x=%41 HTTP/1.0\r\nHost: h\r\n\r\n");
    HttpRequest r(wire.in());
    ASSERT_TRUE(r.read(wire.in()));
    EXPECT_STREQ(r.getMethod(), "GET");
    EXPECT_STREQ(r.getDecodedURI(), "/a b");
    EXPECT_STREQ(r.getDecodedQuery(), "x=A");
    EXPECT_STREQ(r.getEncodedQuery(), "x=%41");
    EXPECT_STREQ(r.getEncodedURI(), "/a%20b");
    EXPECT_STREQ(r.getVersion(), "HTTP/1.0");
    EXPECT_STREQ(r.getField("HOST"), "h");

    Wire split;
    split.send("GET /a%3Fb HTTP/1.1\r\n\r\n");
    HttpRequest s(split.in());
    ASSERT_TRUE(s.read(split.in()));
    EXPECT_STREQ(s.getDecodedURI(), "/a") << "kept: %3F splits the decoded path";
    EXPECT_STREQ(s.getDecodedQuery(), "b");
    EXPECT_STREQ(s.getEncodedQuery(), "");

    Wire longMethod;
    longMethod.send(std::string(22, 'M') + " / HTTP/1.1\r\n\r\n");
    HttpRequest m(longMethod.in());
    EXPECT_FALSE(m.read(longMethod.in()));
    Wire longUri;
    longUri.send("GET /" + std::string(2111, 'u') + " HTTP/1.1\r\n\r\n");
    HttpRequest u(longUri.in());
    EXPECT_FALSE(u.read(longUri.in())) << "2112 characters";
}

// Status line, own fields, then the fixed ones: platform, constants, server, and close
// when the length is unknown.
TEST(HttpResponse, HeadCarriesFixedFieldsInOrder) {
    HttpResponse::addConstantHeaderField("X-Station", "7");
    Wire wire;
    ASSERT_TRUE(wire.pair.accepted);
    HttpResponse r(wire.out());
    r.setField("Content-Type", "text/plain");
    r.commit();
    r.commit();  // committed once
    EXPECT_EQ(wire.received(),
              "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nVelmora-Platform: NT\r\n"
              "X-Station: 7\r\nServer: Velmora Web Server/3.0\r\nConnection: close\r\n\r\n");
    HttpResponse::unload();

    Wire known;
    HttpResponse k(known.out());
    k.setVersion("HTTP/1.0");
    k.setStatus(201);
    k.setFieldInt("Content-Length", 0);
    k.commit();
    EXPECT_EQ(known.received(),
              "HTTP/1.0 201 Created\r\nContent-Length: 0\r\nVelmora-Platform: NT\r\n"
              "Server: Velmora Web Server/3.0\r\n\r\n");
}

// Kept: the error page's body goes out before the head.
TEST(HttpResponse, ErrorPagesBodyFirstHeadOnlyForHeadAndNoContent) {
    Wire wire;
    ASSERT_TRUE(wire.pair.accepted);
    HttpResponse r(wire.out());
    r.sendError(404);
    std::string body = "<html>\n<body>\n<h1>404: Not Found</h1>\n</body>\n</html>";
    EXPECT_EQ(wire.received(),
              body + "HTTP/1.1 404 Not Found\r\nConnection: close\r\nContent-Length: " +
                  std::to_string(body.size()) +
                  "\r\nContent-Type: text/html\r\nVelmora-Platform: NT\r\n"
                  "Server: Velmora Web Server/3.0\r\n\r\n");

    Wire head;
    HttpResponse h(head.out());
    h.setRequestMethod("HEAD");
    h.sendError(404, "gone fishing");
    EXPECT_EQ(head.received(),
              "HTTP/1.1 404 gone fishing\r\nConnection: close\r\nContent-Length: 0\r\n"
              "Velmora-Platform: NT\r\nServer: Velmora Web Server/3.0\r\n\r\n");

    Wire none;
    HttpResponse n(none.out());
    n.sendError(204);
    EXPECT_EQ(none.received(),
              "HTTP/1.1 204 No Content\r\nVelmora-Platform: NT\r\nServer: Velmora Web "
              "Server/3.0\r\n\r\n");
}

// The XML error page carries the bundle's own form; like the HTML page, body first (kept).
TEST(HttpResponse, XmlErrorPageCarriesTheBundle) {
    Wire wire;
    ASSERT_TRUE(wire.pair.accepted);
    HttpResponse r(wire.out());
    MessageBundle why("platform", "socket.unableToConnect", "db1", "no <route>");
    r.sendErrorXML(503, &why);
    std::string all = wire.received();
    size_t head = all.find("HTTP/1.1 503 Service Unavailable\r\n");
    ASSERT_NE(head, std::string::npos);
    std::string body = all.substr(0, head);
    EXPECT_EQ(body.rfind("<?xml", 0), 0u) << "the prolog opens the body";
    EXPECT_NE(
        body.find("<error code=\"503\">\n<message>\n<nonlocalized text=\"no &lt;route&gt;\"/>"),
        std::string::npos)
        << body;
    EXPECT_NE(body.find("<lexArg value=\"db1\"/>"), std::string::npos);
    EXPECT_EQ(body.substr(body.size() - 9), "</error>\n");
    EXPECT_NE(all.find("Content-Length: " + std::to_string(body.size()) + "\r\n"),
              std::string::npos);
    EXPECT_NE(all.find("Content-Type: text/xml\r\n"), std::string::npos);
}

// One document: the first entry opens it (and commits), each entry is wrapped in its
// level's element, the end of the log closes it.
TEST(HttpLog, StreamsEntriesAsOneDocument) {
    Wire wire;
    ASSERT_TRUE(wire.pair.accepted);
    HttpResponse r(wire.out());
    {
        HttpLog log(&r);
        log.message("step one");
        log.warning("step two");
        MessageBundle failed("platform", "demo.failed", 3, "step three failed");
        log.error(&failed);
        EXPECT_EQ(log.getEntryCount(), 3);
        EXPECT_TRUE(r.isCommitted());
    }
    std::string all = wire.received();
    size_t head = all.find("HTTP/1.1 200 OK\r\n");
    ASSERT_NE(head, std::string::npos);
    EXPECT_EQ(all.substr(0, head).find("<log>\n"), all.substr(0, head).size() - 6)
        << "kept: the prolog and <log> precede the head";
    std::string rest = all.substr(head);
    EXPECT_NE(rest.find("Content-Type: text/xml\r\nVelmora-Platform: NT"), std::string::npos);
    size_t one = rest.find("<message>\n<message>\n<nonlocalized text=\"step one\"/>");
    size_t two = rest.find("<warning>\n<message>\n<nonlocalized text=\"step two\"/>");
    size_t three = rest.find("<error>\n<message>\n<nonlocalized text=\"step three failed\"/>");
    ASSERT_NE(one, std::string::npos);
    EXPECT_LT(one, two);
    EXPECT_LT(two, three);
    EXPECT_NE(rest.find("<lexArg value=\"3\"/>"), std::string::npos);
    EXPECT_EQ(rest.substr(rest.size() - 7), "</log>\n");

    HttpLog silent(nullptr);
    silent.message("nowhere");  // no response: nothing written, nothing fails
    EXPECT_EQ(silent.getEntryCount(), 0);
}
