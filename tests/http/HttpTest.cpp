#include <velmora/http/Http.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/TempDir.h"

using velmora::Http;

TEST(Http, ReasonPhrasesComeFromTheFixedTableOnly) {
    EXPECT_STREQ(Http::getReasonPhrase(100), "Continue");
    EXPECT_STREQ(Http::getReasonPhrase(206), "Partial Content");
    EXPECT_STREQ(Http::getReasonPhrase(302), "Moved Temporarily");
    EXPECT_STREQ(Http::getReasonPhrase(415), "Unsupported Media Type");
    EXPECT_STREQ(Http::getReasonPhrase(505), "HTTP Version Not Supported");
    for (int status : {0, 99, 102, 207, 306, 416, 506, 600, -200, 1000}) {
        EXPECT_STREQ(Http::getReasonPhrase(status), "Error") << status;
    }
}

TEST(Http, FormatTimeWritesTheHeaderDateAndParseTimeReadsItBack) {
    struct tm t = {};
    t.tm_wday = 0;
    t.tm_mday = 6;
    t.tm_mon = 10;
    t.tm_year = 94;
    t.tm_hour = 8;
    t.tm_min = 49;
    t.tm_sec = 37;
    char out[40];
    ASSERT_EQ(Http::formatTime(&t, nullptr, out, sizeof out), 0);
    EXPECT_STREQ(out, "Sun, 06 Nov 1994 08:49:37 GMT");
    EXPECT_EQ(Http::formatTime(&t, "CEST", out, sizeof out), 0);
    EXPECT_STREQ(out, "Sun, 06 Nov 1994 08:49:37 ???");
    EXPECT_EQ(Http::formatTime(&t, "", out, sizeof out), 0);
    EXPECT_STREQ(out, "Sun, 06 Nov 1994 08:49:37 ");
    EXPECT_EQ(Http::formatTime(&t, "UTC", out, 28), -1);
    EXPECT_EQ(Http::formatTime(&t, "UTC", out, 29), -1) << "no room for the terminator";
    t.tm_wday = 7;
    EXPECT_EQ(Http::formatTime(&t, nullptr, out, sizeof out), -1);
    t.tm_wday = 3;
    t.tm_mon = 12;
    EXPECT_EQ(Http::formatTime(&t, nullptr, out, sizeof out), -1);

    struct tm back;
    ASSERT_EQ(Http::parseTime("Wed, 29 Feb 2012 23:59:60 GMT", &back), 0);
    EXPECT_EQ(back.tm_wday, 3);
    EXPECT_EQ(back.tm_mday, 29);
    EXPECT_EQ(back.tm_mon, 1);
    EXPECT_EQ(back.tm_year, 112);
    EXPECT_EQ(back.tm_yday, 59);
    EXPECT_EQ(back.tm_sec, 60);
    EXPECT_EQ(Http::parseTime("Sun, 06 Nov 1994 08:49:37 ", &back), 0) << "empty zone";
    for (const char* bad : {"Sunday, 06-Nov-94 08:49:37 GMT", "Sun Nov  6 08:49:37 1994",
                            "Sun, 06 Nov 1994 08:49:37 GMT+1", "Sun, 6 Nov 1994 08:49:37 GMT",
                            "Sun, 06 Nov 1994 24:00:00 GMT", "Sun, 00 Nov 1994 08:49:37 GMT",
                            "Xyz, 06 Nov 1994 08:49:37 GMT", "Sun, 06 Nov 1994 08:49:37", ""}) {
        EXPECT_EQ(Http::parseTime(bad, &back), -1) << bad;
    }
    EXPECT_EQ(Http::parseTime(nullptr, &back), -1);
}

// Only upper-case hex counts; a lower-case digit is used as -1 (kept).
TEST(Http, DecodeUriKeepsItsUpperCaseOnlyHexAndEmptyResults) {
    char out[16];
    EXPECT_STREQ(Http::decodeUri("a+b%41", out, sizeof out), "a bA");
    EXPECT_STREQ(Http::decodeUri("abc%", out, sizeof out), "");
    EXPECT_STREQ(Http::decodeUri("abc%4", out, sizeof out), "");
    EXPECT_EQ(Http::decodeUri("%2f", out, sizeof out)[0], 31);
    EXPECT_STREQ(Http::decodeUri("%2F", out, sizeof out), "/");
    EXPECT_STREQ(Http::decodeUri("0123456789abcde", out, sizeof out), "0123456789abcde");
    EXPECT_STREQ(Http::decodeUri("0123456789abcdef", out, sizeof out), "") << "does not fit";
    EXPECT_STREQ(Http::decodeUri(nullptr, out, sizeof out), "");
    EXPECT_EQ(Http::fromHex('a'), -1);
    EXPECT_EQ(Http::fromHex('F'), 15);
    EXPECT_EQ(Http::fromHex('9'), 9);
    EXPECT_EQ(Http::fromHex('G'), -1);
}

TEST(Http, ServletNameIsTheFirstPathSegment) {
    char out[8];
    EXPECT_STREQ(Http::getServletName("/status/x", out, sizeof out), "status");
    EXPECT_STREQ(Http::getServletName("/ping", out, sizeof out), "ping");
    EXPECT_STREQ(Http::getServletName("/", out, sizeof out), "");
    EXPECT_STREQ(Http::getServletName("status", out, sizeof out), "") << "not a path";
    EXPECT_STREQ(Http::getServletName("/configuration", out, sizeof out), "configu");
    EXPECT_STREQ(Http::getServletName(nullptr, out, sizeof out), "");
}

// Extensions match without regard to case; anything unknown gets the default type.
TEST(Http, MimeTypesComeFromAPropertiesFileWithADefault) {
    velmora::test::TempDir tmp;
    ASSERT_TRUE(velmora::test::writeFile(tmp.file("mime.properties"),
                                         "# types\nhtml=text/html\nXML=text/xml\n"));
    char out[64];
    EXPECT_STREQ(Http::getMimeType("index.html", out, sizeof out), "application/octet-stream")
        << "no table yet";
    EXPECT_FALSE(Http::loadMimeTable(tmp.file("missing.properties").c_str()));
    ASSERT_TRUE(Http::loadMimeTable(tmp.file("mime.properties").c_str()));
    EXPECT_STREQ(Http::getMimeType("/docs/INDEX.HTML", out, sizeof out), "text/html");
    EXPECT_STREQ(Http::getMimeType("a.b/status.xml", out, sizeof out), "text/xml");
    EXPECT_STREQ(Http::getMimeType("archive.tar.gz", out, sizeof out), "application/octet-stream");
    EXPECT_STREQ(Http::getMimeType("README", out, sizeof out), "application/octet-stream");
    Http::addMimeType("css", "text/css");
    EXPECT_STREQ(Http::getMimeType("site.CSS", out, 5), "text") << "cut to the buffer";
    Http::setDefaultMimeType("text/plain");
    EXPECT_STREQ(Http::getMimeType("notes", out, sizeof out), "text/plain");
    Http::unload();
    EXPECT_STREQ(Http::getDefaultMimeType(), "application/octet-stream");
    EXPECT_STREQ(Http::getMimeType("index.html", out, sizeof out), "application/octet-stream");
}
