#include <velmora/net/InetAddress.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

using velmora::InetAddress;

// Only the shape counts; the mapped prefix must be all lower or all upper case.
TEST(InetAddress, ClassifiesByShapeOnly) {
    EXPECT_EQ(InetAddress::getAddressType("127.0.0.1"), 0);
    EXPECT_EQ(InetAddress::getAddressType("999.1.1.1"), 0) << "values are not checked";
    EXPECT_EQ(InetAddress::getAddressType("::1"), 1);
    EXPECT_EQ(InetAddress::getAddressType("fe80::1:abcd:EF01"), 1);
    EXPECT_EQ(InetAddress::getAddressType("::ffff:10.0.0.1"), 2);
    EXPECT_EQ(InetAddress::getAddressType("::FFFF:10.0.0.1"), 2);
    const char* others[] = {"::Ffff:10.0.0.1",
                            "1.2.3",
                            "1.2.3.4.",
                            "1.2.3.1234",
                            ".1.2.3",
                            "1..2.3",
                            "fe80::",
                            "a:b",
                            "1:2:3:4:5:6:7:8:9",
                            "::12345",
                            "::ffff:1.2.3",
                            "::fffe:1.2.3.4",
                            "localhost",
                            "",
                            "12"};
    for (const char* text : others)
        EXPECT_EQ(InetAddress::getAddressType(text), -1) << text;
}

TEST(InetAddress, ResolvesLiteralsAndNames) {
    std::unique_ptr<InetAddress> v4(InetAddress::getByName("127.0.0.1"));
    ASSERT_TRUE(v4);
    EXPECT_EQ(v4->getStructureSize(), 4);
    EXPECT_FALSE(v4->getIsIpv6());
    EXPECT_EQ(std::memcmp(v4->getAddress(), "\x7f\0\0\x01", 4), 0);
    EXPECT_STREQ(v4->getHostAddress(), "127.0.0.1");

    // A mapped literal gives an IPv6 address whose last four bytes are the IPv4 ones.
    std::unique_ptr<InetAddress> mapped(InetAddress::getByName("::FFFF:10.0.0.1"));
    ASSERT_TRUE(mapped);
    EXPECT_EQ(mapped->getStructureSize(), 16);
    EXPECT_TRUE(mapped->getIsIpv6());
    EXPECT_EQ(std::memcmp(mapped->getAddress(), "\0\0\0\0\0\0\0\0\0\0\xff\xff\x0a\0\0\x01", 16), 0);
    EXPECT_STREQ(mapped->getHostName(), "::FFFF:10.0.0.1");

    std::unique_ptr<InetAddress> name(InetAddress::getByName("localhost"));
    ASSERT_TRUE(name);
    EXPECT_STREQ(name->getHostName(), "localhost");
    EXPECT_EQ(name->getStructureSize(), 4) << "names try IPv4 first";

    // Kept: a literal that the resolver rejects still gives an address, all zeros.
    std::unique_ptr<InetAddress> wide(InetAddress::getByName("999.1.1.1"));
    ASSERT_TRUE(wide);
    EXPECT_EQ(std::memcmp(wide->getAddress(), "\0\0\0\0", 4), 0);

    testing::internal::CaptureStdout();
    std::unique_ptr<InetAddress> none(InetAddress::getByName("no-such-host.invalid"));
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_FALSE(none);
    EXPECT_EQ(printed.rfind("ERROR: inet_pton failed. (", 0), 0u) << printed;
    EXPECT_EQ(InetAddress::getByName(nullptr), nullptr);
}

TEST(InetAddress, OwnConversionsAndLocalHost) {
    unsigned char bytes[16] = {};
    EXPECT_EQ(InetAddress::inet_pton(InetAddress::getIpv6Family(), "::1", bytes), 1);
    EXPECT_EQ(bytes[15], 1);
    EXPECT_EQ(InetAddress::inet_pton(7, "::1", bytes), -1) << "unknown family";
    char text[65];
    EXPECT_STREQ(InetAddress::inet_ntop(InetAddress::getIpv6Family(), bytes, text, sizeof text),
                 "::1");
    const unsigned char v4[4] = {192, 0, 2, 255};
    EXPECT_STREQ(InetAddress::inet_ntop(InetAddress::getIpv4Family(), v4, text, 22), "192.0.2.255");
    EXPECT_EQ(InetAddress::inet_ntop(InetAddress::getIpv4Family(), v4, text, 4), nullptr)
        << "never more than the room given";

    std::unique_ptr<InetAddress> here4(InetAddress::getLocalHost(false));
    std::unique_ptr<InetAddress> here6(InetAddress::getLocalHost(true));
    ASSERT_TRUE(here4);
    ASSERT_TRUE(here6);
    EXPECT_EQ(here4->getStructureSize(), 4);
    EXPECT_EQ(here6->getStructureSize(), 16);
}
