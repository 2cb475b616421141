#include <velmora/text/CharUtil.h>
#include <velmora/vre/Vre.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using namespace velmora;

namespace {

std::vector<unsigned char> decode(const std::string& text) {
    std::vector<unsigned char> out(CharUtil::base64DecodeSize(static_cast<int>(text.size())) + 8,
                                   0xEE);
    const int n = CharUtil::base64Decode(text.data(), static_cast<int>(text.size()), out.data());
    EXPECT_LT(n, CharUtil::base64DecodeSize(static_cast<int>(text.size())));
    for (size_t i = static_cast<size_t>(n); i < out.size(); ++i)
        EXPECT_EQ(out[i], 0xEE) << "written past the decoded bytes at " << i;
    out.resize(static_cast<size_t>(n));
    return out;
}

using Bytes = std::vector<unsigned char>;

// A core of an embedding process, answering a fixed digest or none.
class FixedDigestCore : public VreCore {
public:
    explicit FixedDigestCore(bool works) : works_(works) {}
    bool digestMD5(const unsigned char*, int, unsigned char digest[16]) override {
        for (int i = 0; i < 16; ++i)
            digest[i] = static_cast<unsigned char>(0xF0 + i);
        return works_;
    }

private:
    bool works_;
};

}  // namespace

// Encoding writes exactly base64EncodeSize bytes (the last one the terminator), pads the
// final group, and round-trips every byte value at every length modulo 3.
TEST(CharUtil, Base64EncodeFillsExactlyTheAnnouncedSize) {
    EXPECT_EQ(CharUtil::base64EncodeSize(0), 1);
    EXPECT_EQ(CharUtil::base64EncodeSize(1), 5);
    EXPECT_EQ(CharUtil::base64EncodeSize(3), 5);
    EXPECT_EQ(CharUtil::base64EncodeSize(4), 9);
    EXPECT_EQ(CharUtil::base64EncodeSize(-1), 0);
    EXPECT_EQ(CharUtil::base64EncodeSize(2000000000), 0) << "would not fit in an int";

    const unsigned char ma[] = {0x4D, 0x61, 0x6E};
    char out[16];
    std::memset(out, '#', sizeof out);
    EXPECT_EQ(CharUtil::base64Encode(ma, 2, out), 4);
    EXPECT_STREQ(out, "TWE=");
    EXPECT_EQ(out[5], '#');
    EXPECT_EQ(CharUtil::base64Encode(ma, 1, out), 4);
    EXPECT_STREQ(out, "TQ==");
    std::memset(out, '#', sizeof out);
    EXPECT_EQ(CharUtil::base64Encode(ma, 0, out), 0);
    EXPECT_EQ(out[0], '\0');
    EXPECT_EQ(out[1], '#');

    Bytes all;
    for (int i = 0; i < 256; ++i)
        all.push_back(static_cast<unsigned char>(255 - i));
    for (int n : {254, 255, 256}) {
        std::string text(CharUtil::base64EncodeSize(n) + 4, '#');
        const int written = CharUtil::base64Encode(all.data(), n, &text[0]);
        EXPECT_EQ(written + 1, CharUtil::base64EncodeSize(n));
        EXPECT_EQ(text[written], '\0');
        EXPECT_EQ(text[written + 1], '#');
        EXPECT_EQ(decode(text.substr(0, written)), Bytes(all.begin(), all.begin() + n));
    }
}

// The decoder skips whatever is not in the alphabet (padding, line breaks, bytes above
// 127, a NUL inside the given length) and turns a cut final group into its whole bytes.
TEST(CharUtil, Base64DecodeIsLenient) {
    EXPECT_EQ(decode("TW\nFu"), (Bytes{0x4D, 0x61, 0x6E}));
    EXPECT_EQ(decode("TQ"), (Bytes{0x4D}));
    EXPECT_EQ(decode("TWE"), (Bytes{0x4D, 0x61}));
    EXPECT_EQ(decode("T"), Bytes{});
    EXPECT_EQ(decode("TQ==TQ=="), (Bytes{0x4D, 0x04, 0xD0}))
        << "padding is skipped, not an end: the values run on";
    EXPECT_EQ(decode(std::string("T\xC3\xA9W\0F u\r\n", 10)), (Bytes{0x4D, 0x61, 0x6E}));
    EXPECT_EQ(decode("!!!!"), Bytes{});
    EXPECT_EQ(decode("/+9z"), (Bytes{0xFF, 0xEF, 0x73}));

    EXPECT_EQ(CharUtil::base64DecodeSize(4), 4);
    EXPECT_EQ(CharUtil::base64DecodeSize(3), 3);
    EXPECT_EQ(CharUtil::base64DecodeSize(0), 1);
    unsigned char out[4] = {7, 7, 7, 7};
    EXPECT_EQ(CharUtil::base64Decode("TWFu", 2, out), 1) << "only the given length is read";
    EXPECT_EQ(CharUtil::base64Decode("TWFu", -4, out), 0);
    EXPECT_EQ(CharUtil::base64Decode(nullptr, 4, out), 0);
    EXPECT_EQ(out[1], 7);
}

TEST(CharUtil, HexEncodeIsLowercaseHighNibbleFirst) {
    const unsigned char bytes[] = {0x00, 0xAB, 0xFF, 0x1E};
    char out[16];
    std::memset(out, '#', sizeof out);
    EXPECT_EQ(CharUtil::hexEncodeSize(3), 7);
    CharUtil::hexEncode(bytes, 3, out);
    EXPECT_STREQ(out, "00abff");
    CharUtil::hexEncode(bytes + 3, 1, out);
    EXPECT_STREQ(out, "1e");
    CharUtil::hexEncode(bytes, 0, out);
    EXPECT_STREQ(out, "");
}

// hexMD5 writes exactly 32 digits and no terminator, and takes the digest from whichever
// core is installed.
TEST(CharUtil, HexMd5WritesThirtyTwoDigitsUnterminated) {
    char out[40];
    std::memset(out, '#', sizeof out);
    ASSERT_TRUE(CharUtil::hexMD5(reinterpret_cast<const unsigned char*>("abc"), 3, out));
    EXPECT_EQ(std::string(out, 32), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(out[32], '#');

    VreCore* original = Vre::setInstance(new FixedDigestCore(true));
    EXPECT_TRUE(CharUtil::hexMD5(reinterpret_cast<const unsigned char*>("abc"), 3, out));
    EXPECT_EQ(std::string(out, 32), "f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff");
    delete Vre::setInstance(new FixedDigestCore(false));
    std::memset(out, '#', sizeof out);
    EXPECT_FALSE(CharUtil::hexMD5(reinterpret_cast<const unsigned char*>("abc"), 3, out));
    EXPECT_EQ(out[0], '#');
    delete Vre::setInstance(original);
}
