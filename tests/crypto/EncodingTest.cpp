#include <gtest/gtest.h>

#include <string>

#include "crypto/Base64.h"
#include "crypto/Bytes.h"
#include "crypto/Hex.h"
#include "crypto/counted_ptr.h"

namespace {
std::string bytesOf(const counted_ptr<Bytes>& b) {
    return std::string(reinterpret_cast<const char*>(b->data), b->length);
}

// Every buffer keeps a zero byte after its payload.
void expectTerminated(const counted_ptr<Bytes>& b) {
    EXPECT_EQ(b->data[b->length], 0);
}
}  // namespace

TEST(Bytes, EveryConstructorAddsTheZeroByteAndCopies) {
    const unsigned char raw[] = {0xFF, 0x00, 0x7F};
    counted_ptr<Bytes> copy(new Bytes(raw, 3));
    EXPECT_EQ(copy->length, 3);
    EXPECT_NE(copy->data, raw);
    EXPECT_EQ(bytesOf(copy), std::string("\xFF\x00\x7F", 3));
    expectTerminated(copy);

    counted_ptr<Bytes> text(new Bytes("ab\0cd"));
    EXPECT_EQ(text->length, 2);
    expectTerminated(text);

    counted_ptr<Bytes> zeros(new Bytes(5));
    EXPECT_EQ(bytesOf(zeros), std::string(5, '\0'));
    expectTerminated(zeros);
    counted_ptr<Bytes> none(new Bytes(-4));
    EXPECT_EQ(none->length, 0);
    expectTerminated(none);
}

TEST(CountedPtr, SharesAndDeletesWithTheLastHolder) {
    counted_ptr<Bytes> empty;
    EXPECT_EQ(empty.get(), nullptr);
    EXPECT_EQ(empty.useCount(), 0);

    counted_ptr<Bytes> a(new Bytes("x"));
    {
        counted_ptr<Bytes> b(a);
        EXPECT_EQ(a.useCount(), 2);
        counted_ptr<Bytes> c;
        c = b;
        EXPECT_EQ(a.useCount(), 3);
        c = c;  // sharing with oneself changes nothing
        EXPECT_EQ(a.useCount(), 3);
        EXPECT_EQ(c->data, a->data);
    }
    EXPECT_EQ(a.useCount(), 1);
    counted_ptr<Bytes> other(new Bytes("y"));
    a = other;  // frees "x"; the sanitizer build would see a leak or a double free
    EXPECT_EQ(other.useCount(), 2);
    EXPECT_EQ(bytesOf(a), "y");
    a = counted_ptr<Bytes>();
    EXPECT_EQ(other.useCount(), 1);
}

TEST(Hex, DigitsAndInvalidCharacters) {
    EXPECT_EQ(Hex::b2h(0), '0');
    EXPECT_EQ(Hex::b2h(9), '9');
    EXPECT_EQ(Hex::b2h(10), 'A');
    EXPECT_EQ(Hex::b2h(15), 'F');
    EXPECT_EQ(Hex::h2d('7'), 7);
    EXPECT_EQ(Hex::h2d('c'), 12);
    EXPECT_EQ(Hex::h2d('C'), 12);
    for (char c : std::string("gG/:@`z \xFF", 9))
        EXPECT_EQ(Hex::h2d(c), 0) << int(c);
}

TEST(Hex, DecodeCornerCases) {
    EXPECT_EQ(bytesOf(Hex::decode("0aFf")), "\x0A\xFF");
    EXPECT_EQ(bytesOf(Hex::decode("abc")), "\xAB");  // odd last digit dropped
    EXPECT_EQ(bytesOf(Hex::decode("zz")), std::string(1, '\0'));
    EXPECT_EQ(bytesOf(Hex::decode("1z")), "\x10");
    for (const char* text : {"", "7"}) {
        counted_ptr<Bytes> b = Hex::decode(text);
        EXPECT_EQ(b->length, 0);
        expectTerminated(b);
    }
    expectTerminated(Hex::decode("ffff"));
}

TEST(Hex, EncodeCasesAndTheNulCut) {
    const unsigned char raw[] = {0x0A, 0xFF, 0x00, 0x10};
    EXPECT_EQ(Hex::encode(counted_ptr<Bytes>(new Bytes(raw, 4))), "0AFF0010");
    EXPECT_EQ(Hex::encode(counted_ptr<Bytes>(new Bytes(0))), "");
    EXPECT_EQ(Hex::encode(255), "000000ff");
    EXPECT_EQ(Hex::encode(-1), "ffffffff");
    EXPECT_EQ(Hex::encode(std::string("A\xE4", 2)), "41E4");
    EXPECT_EQ(Hex::encode(std::string("ab\0cd", 5)), "6162");

    std::string all;
    for (int i = 0; i < 256; ++i)
        all += static_cast<char>(i);
    counted_ptr<Bytes> b(new Bytes(reinterpret_cast<const unsigned char*>(all.data()), 256));
    const std::string text = Hex::encode(b);
    EXPECT_EQ(text.substr(0, 6), "000102");
    EXPECT_EQ(text.substr(504), "FCFDFEFF");
    EXPECT_EQ(bytesOf(Hex::decode(text)), all);
}

TEST(Base64, EncodeHasNoPadding) {
    EXPECT_EQ(Base64::encode(std::string("A")), "QQ");
    EXPECT_EQ(Base64::encode(std::string("AB")), "QUI");
    EXPECT_EQ(Base64::encode(std::string("ABC")), "QUJD");
    EXPECT_EQ(Base64::encode(std::string("")), "");
    EXPECT_EQ(Base64::encode("\xFB\xFF\xBF", 3), "+/+/");
    const unsigned char raw[] = {0x00, 0x10, 0x83};
    EXPECT_EQ(Base64::encode(counted_ptr<Bytes>(new Bytes(raw, 3))), "ABCD");
}

TEST(Base64, DecodeRulesForPaddingSpacesAndShortGroups) {
    EXPECT_EQ(bytesOf(Base64::decode("QQ")), "A");
    EXPECT_EQ(bytesOf(Base64::decode("QUI")), "AB");
    EXPECT_EQ(bytesOf(Base64::decode("QUJD")), "ABC");
    EXPECT_EQ(bytesOf(Base64::decode("QQ==")), "\x41\x0F\xFF");  // "=" is not padding
    EXPECT_EQ(bytesOf(Base64::decode("QU I")), std::string("A\0\0", 3));
    EXPECT_EQ(bytesOf(Base64::decode("QUJ ")), std::string("AB\0", 3));
    // A space in the first two places is an ordinary invalid character.
    EXPECT_EQ(bytesOf(Base64::decode(" QJD")), "\xFD\x02\x43");
    EXPECT_EQ(Base64::decode("")->length, 0);

    // Short last groups compute bytes that land on the terminating zero.
    for (const char* text : {"Q", "QUJDR", "/", "////////", "/////////"}) {
        counted_ptr<Bytes> b = Base64::decode(text);
        EXPECT_EQ(b->length, 3 * static_cast<int>(std::string(text).size()) / 4) << text;
        expectTerminated(b);
    }
    EXPECT_EQ(bytesOf(Base64::decode("QUJDRA")), "ABCD");
}

TEST(Base64, RoundTripsEveryLength) {
    std::string data;
    for (int n = 0; n < 70; ++n) {
        EXPECT_EQ(bytesOf(Base64::decode(Base64::encode(data))), data) << n;
        data += static_cast<char>(n * 37 + 200);
    }
}
