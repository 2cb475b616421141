#include <velmora/text/UnicodeText.h>

#include <gtest/gtest.h>

#include <cwchar>

using namespace velmora;

// Both forms hold the same text, supplementary characters included (a surrogate pair in
// UTF-16), whichever form the text was made from.
TEST(UnicodeText, HoldsTheSameTextInBothForms) {
    const char* utf8 = "h\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
    const wchar_t* wide = L"h\u00e9\u20ac\U0001F600";
    UnicodeText fromUtf8(utf8);
    EXPECT_STREQ(fromUtf8.getUtf8(), utf8);
    EXPECT_STREQ(fromUtf8.getWide(), wide);
    UnicodeText fromWide(wide);
    EXPECT_STREQ(fromWide.getUtf8(), utf8);
    EXPECT_STREQ(fromWide.getWide(), wide);

    // The edges of the valid ranges pass: U+D7FF, U+E000, U+FFFF, U+10FFFF.
    UnicodeText edges("\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF\xF4\x8F\xBF\xBF");
    EXPECT_STREQ(edges.getWide(), L"\ud7ff\ue000\uffff\U0010FFFF");

    const wchar_t lone[] = {L'a', static_cast<wchar_t>(0xD800), L'b', 0};
    EXPECT_STREQ(UnicodeText(lone).getUtf8(),
                 "a\xEF\xBF\xBD"
                 "b");
    EXPECT_STREQ(UnicodeText(static_cast<const char*>(nullptr)).getWide(), L"");
    EXPECT_STREQ(UnicodeText(static_cast<const wchar_t*>(nullptr)).getUtf8(), "");
}

// Malformed UTF-8 leaves the wide form empty and writes one error line; the UTF-8 form
// keeps the bytes as given.
TEST(UnicodeText, MalformedUtf8IsRefusedWithOneErrorLine) {
    const char* malformed[] = {
        "\xC0\xAF",          // overlong '/'
        "\xE0\x80\xAF",      // overlong, three bytes
        "\xF0\x80\x80\xAF",  // overlong, four bytes
        "\xED\xA0\x80",      // an encoded surrogate
        "\xF4\x90\x80\x80",  // above U+10FFFF
        "ok\x80",            // a stray continuation byte
        "\xE2\x82",          // cut before the end
        "\xE2\x82z",         // cut by an ASCII byte
        "\xFE",
    };
    for (const char* s : malformed) {
        testing::internal::CaptureStderr();
        UnicodeText t(s);
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "Encoding error - No unicode translation\n")
            << s;
        EXPECT_STREQ(t.getWide(), L"");
        EXPECT_STREQ(t.getUtf8(), s);
    }
}
