#include <gtest/gtest.h>

#include <string>

#include "crypto/Base64.h"
#include "crypto/Hex.h"

namespace {
std::string bytesOf(const counted_ptr<Bytes>& b) {
    EXPECT_EQ(b->data[b->length], 0);  // the zero byte after every payload
    return std::string(reinterpret_cast<const char*>(b->data), b->length);
}
}  // namespace

TEST(Bytes, ConstructorsAndSharing) {
    EXPECT_EQ(bytesOf(counted_ptr<Bytes>(new Bytes("ab\0cd"))), "ab");
    EXPECT_EQ(bytesOf(counted_ptr<Bytes>(new Bytes(3))), std::string(3, '\0'));
    EXPECT_EQ(bytesOf(counted_ptr<Bytes>(new Bytes(-4))), "");

    counted_ptr<Bytes> a(new Bytes(reinterpret_cast<const unsigned char*>("\xFF\0\x7F"), 3));
    EXPECT_EQ(bytesOf(a), std::string("\xFF\0\x7F", 3));
    counted_ptr<Bytes> b(a), none;
    b = b;  // sharing with oneself changes nothing
    EXPECT_EQ(a.useCount(), 2);
    EXPECT_EQ(none.get(), nullptr);
    b = none;  // the sanitizer build checks that "x" is freed exactly once
    EXPECT_EQ(a.useCount(), 1);
}

TEST(Hex, DecodeAndEncodeCornerCases) {
    EXPECT_EQ(bytesOf(Hex::decode("0aFf")), "\x0A\xFF");
    EXPECT_EQ(bytesOf(Hex::decode("abc")), "\xAB");  // odd last digit dropped
    EXPECT_EQ(bytesOf(Hex::decode("zz")), std::string(1, '\0'));
    EXPECT_EQ(bytesOf(Hex::decode("1g")), "\x10");
    EXPECT_EQ(bytesOf(Hex::decode("7")), "");

    EXPECT_EQ(Hex::encode(255), "000000ff");
    EXPECT_EQ(Hex::encode(-1), "ffffffff");
    EXPECT_EQ(Hex::encode(std::string("A\xE4", 2)), "41E4");
    EXPECT_EQ(Hex::encode(std::string("ab\0cd", 5)), "6162");
    std::string all;
    for (int i = 0; i < 256; ++i)
        all += static_cast<char>(i);
    const std::string text = Hex::encode(
        counted_ptr<Bytes>(new Bytes(reinterpret_cast<const unsigned char*>(all.data()), 256)));
    EXPECT_EQ(text.substr(0, 6) + text.substr(504), "000102FCFDFEFF");
    EXPECT_EQ(bytesOf(Hex::decode(text)), all);
}

TEST(Base64, EncodeWithoutPaddingAndRoundTrips) {
    EXPECT_EQ(Base64::encode(std::string("A")), "QQ");
    EXPECT_EQ(Base64::encode(std::string("AB")), "QUI");
    EXPECT_EQ(Base64::encode(std::string("ABC")), "QUJD");
    EXPECT_EQ(Base64::encode("\xFB\xFF\xBF", 3), "+/+/");
    std::string data;
    for (int n = 0; n < 40; ++n, data += static_cast<char>(n * 37 + 200))
        EXPECT_EQ(bytesOf(Base64::decode(Base64::encode(data))), data) << n;
}

TEST(Base64, DecodeRulesForPaddingSpacesAndShortGroups) {
    EXPECT_EQ(bytesOf(Base64::decode("QQ==")), "\x41\x0F\xFF");  // "=" is not padding
    EXPECT_EQ(bytesOf(Base64::decode("QU I")), std::string("A\0\0", 3));
    EXPECT_EQ(bytesOf(Base64::decode("QUJ ")), std::string("AB\0", 3));
    // A space in the first two places is an ordinary invalid character.
    EXPECT_EQ(bytesOf(Base64::decode(" QJD")), "\xFD\x02\x43");
    // Short last groups compute bytes that would land on the zero byte.
    for (const std::string text : {"", "/", "QUJDR", "/////////"})
        EXPECT_EQ(bytesOf(Base64::decode(text)).size(), 3 * text.size() / 4) << text;
}
