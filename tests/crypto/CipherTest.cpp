#include <gtest/gtest.h>

#include "base/Exception.h"
#include "crypto/Base64.h"
#include "crypto/Hex.h"
#include "crypto/StringCrypto.h"

namespace {
std::string text(const counted_ptr<Bytes>& b) {
    EXPECT_EQ(b->data[b->length], 0);  // the zero byte after every payload
    return std::string(reinterpret_cast<const char*>(b->data), b->length);
}

// Counts the bytes moved, where the bounds checks of the base would hide a miss.
struct Counting : StringCrypto {
    Counting() : StringCrypto("pw", true) {}
    unsigned char getNextByte() override { return ++read, StringCrypto::getNextByte(); }
    void putByte(unsigned char byte) override { ++written, StringCrypto::putByte(byte); }
    std::string operator()(const std::string& s) {
        return text(cipher(reinterpret_cast<const unsigned char*>(s.data()), s.size()));
    }
    int read = 0, written = 0;
};

}  // namespace

// The Base64 alphabet both ways; hex takes pairs and reads a foreign digit as 0.
TEST(Encodings, HexAndBase64) {
    const std::string abc = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    EXPECT_EQ(Base64::encode(Base64::decode(abc)) + Base64::encode("\xFB\xF0"), abc + "+/A");
    EXPECT_EQ(Hex::encode(Hex::decode("abcdef1gz")) + Hex::encode(255) + Hex::encode(-1),
              "ABCDEF10000000ffffffffff");
}

TEST(Cipher, EveryByteLandsInsideTheBuffersAndASignedInputOfAWrongSizeOrPadIsRefused) {
    for (int n = 0; n <= 17; ++n) {
        const std::string plain(n, static_cast<char>(0x80 + n));
        Counting encrypt, decrypt;
        const std::string e = encrypt(plain), d = decrypt(e);
        EXPECT_EQ(std::make_tuple(d, encrypt.read, encrypt.written, decrypt.read, decrypt.written),
                  std::make_tuple(plain, n, e.size() - 16, e.size() - 16, n));
    }
    const std::string e = Counting()("twelve bytes"), signature = e.substr(0, 16);
    EXPECT_EQ(Counting()(signature + '\7' + e.substr(17)) + "|" + Counting()(signature + '\0'),
              "twelve by|");
    for (const std::string& in : {signature, signature + '\1', signature + '\10' + e.substr(17)})
        EXPECT_THROW(Counting()(in), Exception) << in.size();
}
