#include <velmora/text/CharUtil.h>
#include <velmora/vre/Vre.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using namespace velmora;

namespace {

std::string md5Hex(const std::string& data) {
    unsigned char digest[16];
    EXPECT_TRUE(Vre::getInstance()->digestMD5(reinterpret_cast<const unsigned char*>(data.data()),
                                              static_cast<int>(data.size()), digest));
    char text[33];
    CharUtil::hexEncode(digest, 16, text);
    return text;
}

}  // namespace

// The RFC 1321 suite, plus lengths around the padding limits (55/56 bytes need one or two
// final blocks, 64/65 start a new block), where a wrong length or marker position shows.
TEST(VreCore, Md5MatchesReferenceVectors) {
    EXPECT_EQ(md5Hex(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(md5Hex("a"), "0cc175b9c0f1b6a831c399e269772661");
    EXPECT_EQ(md5Hex("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(md5Hex("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(md5Hex("abcdefghijklmnopqrstuvwxyz"), "c3fcd3d76192e4007dfb496cca67e13b");
    EXPECT_EQ(md5Hex("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
              "d174ab98d277d9f5a5611c2c9f419d9f");
    std::string digits;
    for (int i = 0; i < 8; ++i)
        digits += "1234567890";
    EXPECT_EQ(md5Hex(digits), "57edf4a22be3c955ac49da2e2107b67a");

    const struct {
        int length;
        const char* hex;
    } boundaries[] = {
        {55, "8c3eb046bcdb1f0ffe75fdbaf890cf13"},  {56, "d5e0fa3122448ddd3d843a9c5ed9e839"},
        {63, "1dd0d6ddeb881b118518c2881555f34b"},  {64, "7b412e00d38c31b0845a4f502d39d5e3"},
        {65, "ba03b626aceb7b09c86c2d544afe1dce"},  {119, "dac58560b386c3d5b29ebbdec5197e10"},
        {120, "6818845a0494b5fade3155f6a8e47b15"}, {1000, "7874d3c13d4ed33f057def947e0621ef"}};
    for (const auto& b : boundaries) {
        std::string data;
        for (int i = 0; i < b.length; ++i)
            data += static_cast<char>((i * 7 + 1) & 255);
        EXPECT_EQ(md5Hex(data), b.hex) << b.length << " bytes";
    }

    unsigned char digest[16] = {};
    EXPECT_FALSE(Vre::getInstance()->digestMD5(nullptr, 5, digest));
    EXPECT_FALSE(Vre::getInstance()->digestMD5(digest, -1, digest));
}

// The host-name queries either give a terminated name that fits, or -1 with an empty text;
// a buffer too small for the name is a failure, never a cut name.
TEST(VreCore, HostNameQueriesFillTheBufferOrFail) {
    for (bool ipv6 : {false, true}) {
        char name[128];
        std::memset(name, 'x', sizeof name);
        VreCore* core = Vre::getInstance();
        const int rc = ipv6 ? core->getHostNameIpv6(name, sizeof name)
                            : core->getHostNameIpv4(name, sizeof name);
        ASSERT_TRUE(rc == 0 || rc == -1);
        ASSERT_NE(std::memchr(name, '\0', sizeof name), nullptr);
        if (rc == -1) {
            EXPECT_STREQ(name, "");
            continue;
        }
        EXPECT_GT(std::strlen(name), 0u);
        const size_t length = std::strlen(name);
        std::memset(name, 'x', sizeof name);
        EXPECT_EQ(ipv6 ? core->getHostNameIpv6(name, static_cast<int>(length))
                       : core->getHostNameIpv4(name, static_cast<int>(length)),
                  -1);
        EXPECT_EQ(name[length], 'x') << "nothing written past the given size";
    }
    EXPECT_EQ(Vre::getInstance()->getHostNameIpv4(nullptr, 128), -1);
}
