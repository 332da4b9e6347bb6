#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "base/Exception.h"
#include "crypto/Copyright.h"
#include "crypto/Decryptor.h"
#include "crypto/Hex.h"
#include "crypto/StringCrypto.h"

namespace {
const std::string SIGNATURE(reinterpret_cast<const char*>(Crypto::ENCRYPTION_SIGNATURE), 16);

std::string bytesOf(const counted_ptr<Bytes>& b) {
    return std::string(reinterpret_cast<const char*>(b->data), b->length);
}

counted_ptr<Bytes> bytes(const std::string& s) {
    return counted_ptr<Bytes>(
        new Bytes(reinterpret_cast<const unsigned char*>(s.data()), static_cast<int>(s.size())));
}

std::string cipher(const std::string& password, bool triple, const std::string& in) {
    StringCrypto crypto(password.c_str(), triple);
    return bytesOf(crypto.cipher(bytes(in)));
}

// What the client sends: hex of the value encrypted with the password.
std::string clientHex(const std::string& password, const std::string& value) {
    StringCrypto crypto(password.c_str(), true);
    return Hex::encode(crypto.cipher(bytes(value)));
}

void expectWrongSize(const std::string& in) {
    StringCrypto crypto("pw", true);
    try {
        crypto.cipher(bytes(in));
        ADD_FAILURE() << "no exception for " << in.size() << " bytes";
    } catch (const Exception& e) {
        EXPECT_EQ(e.getMessage(), "StringCrypto::cipher Wrong size");
        EXPECT_EQ(e.getCode(), -1);
    }
}
}  // namespace

TEST(StringCrypto, SizesPadCountAndRoundTrips) {
    std::mt19937 rng(3);
    const struct {
        int plain, encrypted, pad;
    } cases[] = {{0, 17, 0}, {1, 25, 7}, {7, 25, 1}, {8, 25, 0}, {9, 33, 7}, {200, 217, 0}};
    for (bool triple : {false, true}) {
        for (const auto& c : cases) {
            std::string plain;
            for (int i = 0; i < c.plain; ++i)
                plain += static_cast<char>(rng());
            StringCrypto crypto("secret", triple);
            counted_ptr<Bytes> encrypted = crypto.cipher(bytes(plain));
            ASSERT_EQ(encrypted->length, c.encrypted) << c.plain;
            EXPECT_EQ(bytesOf(encrypted).substr(0, 16), SIGNATURE);
            EXPECT_EQ(encrypted->data[16], c.pad);
            EXPECT_EQ(encrypted->data[encrypted->length], 0);
            counted_ptr<Bytes> decrypted = crypto.cipher(encrypted);
            EXPECT_EQ(bytesOf(decrypted), plain) << c.plain << (triple ? " triple" : " single");
            EXPECT_EQ(decrypted->data[decrypted->length], 0);
        }
    }
    // The pointer form copies its bytes.
    StringCrypto crypto("secret", true);
    const unsigned char raw[] = {0, 1, 2};
    counted_ptr<Bytes> e = crypto.cipher(raw, 3);
    EXPECT_EQ(bytesOf(crypto.cipher(e)), std::string("\0\1\2", 3));
}

TEST(StringCrypto, BlocksAreIndependentAndKeysMatter) {
    const std::string block = "8 bytes!";
    const std::string e = cipher("pw", true, block + block + block);
    EXPECT_EQ(e.substr(17, 8), e.substr(25, 8));
    EXPECT_EQ(e.substr(17, 8), e.substr(33, 8));
    EXPECT_EQ(cipher("pw", true, block).substr(17), e.substr(17, 8));

    const std::string single = cipher("pw", false, block);
    EXPECT_EQ(single.size(), e.size() - 16);
    EXPECT_NE(single, cipher("pw", true, block));
    EXPECT_NE(cipher("pw2", true, block), cipher("pw", true, block));
    // A wrong password decrypts silently to other bytes of the right length.
    const std::string wrong = cipher("other", true, cipher("pw", true, block));
    EXPECT_EQ(wrong.size(), block.size());
    EXPECT_NE(wrong, block);
}

TEST(StringCrypto, TheSignatureChoosesTheDirection) {
    // Shorter than the signature, even a prefix of it: plain.
    EXPECT_EQ(cipher("pw", true, SIGNATURE.substr(0, 15)).size(), 17u + 15 + 1);
    // Plain text that starts with the signature is taken as encrypted.
    const std::string lookalike = SIGNATURE + std::string(9, '\0');
    EXPECT_EQ(cipher("pw", true, lookalike).size(), 8u);
    // Signature with one byte changed: plain.
    std::string changed = lookalike;
    changed[15] ^= 1;
    EXPECT_EQ(cipher("pw", true, changed).size(), 17u + 25 + 7);
}

TEST(StringCrypto, WrongSizesAndPadBytesAreRejected) {
    const std::string e = cipher("pw", true, "twelve bytes");  // 33 bytes, pad 4
    ASSERT_EQ(e.size(), 33u);
    expectWrongSize(SIGNATURE);                        // 16
    expectWrongSize(SIGNATURE + std::string(8, 'x'));  // 24
    expectWrongSize(e.substr(0, 32));                  // one byte short
    expectWrongSize(e + "x");                          // one byte long
    for (int pad : {8, 9, 0x80, 0xFF})
        expectWrongSize(e.substr(0, 16) + char(pad) + e.substr(17));
    // Pad 7 on 17 bytes would make the payload negative.
    expectWrongSize(SIGNATURE + '\7');
    expectWrongSize(SIGNATURE + '\1');

    // Any pad count up to 7 is taken as it stands: it only shortens the result.
    std::string shortened = e;
    shortened[16] = 7;
    EXPECT_EQ(cipher("pw", true, shortened), std::string("twelve bytes").substr(0, 9));
    shortened[16] = 0;
    EXPECT_EQ(cipher("pw", true, shortened), std::string("twelve bytes\0\0\0\0", 16));
    // The empty ciphertext is valid.
    EXPECT_EQ(cipher("pw", true, SIGNATURE + '\0'), "");
}

TEST(StringCrypto, ResultOutlivesTheObjectAndTheNextCallReplacesIt) {
    counted_ptr<Bytes> first;
    {
        StringCrypto crypto("pw", true);
        first = crypto.cipher(bytes("abc"));
        EXPECT_EQ(first.useCount(), 2);  // the object keeps its own reference
        counted_ptr<Bytes> second = crypto.cipher(bytes("abc"));
        EXPECT_EQ(first.useCount(), 1);
        EXPECT_EQ(bytesOf(second), bytesOf(first));
        EXPECT_NE(second.get(), first.get());
    }
    EXPECT_EQ(first->length, 25);
    EXPECT_EQ(cipher("pw", true, bytesOf(first)), "abc");
}

TEST(Decryptor, DecryptsWhatTheClientSends) {
    const std::string builtIn = Copyright::getConstStr();
    const std::string references[] = {"/var/www/img/a.png", "http://example.test/x.jpg?a=1&b=2",
                                      "\xC3\xA4\xC3\xB6\xFF\x01 bild.gif", "x",
                                      std::string(200, 'r')};
    for (const std::string& password : {std::string("client"), std::string(48, 'p'), std::string()})
        for (const std::string& reference : references) {
            const std::string key = clientHex(builtIn, password);
            const std::string value = clientHex(password, reference);
            EXPECT_EQ(Decryptor::clientPassword(key), password);
            Decryptor decryptor(key);
            EXPECT_EQ(decryptor.decrypt(value), reference);
            // Lower-case hex too, and the same object decrypts again.
            std::string lower = value;
            for (char& c : lower)
                c = static_cast<char>(std::tolower(c));
            EXPECT_EQ(decryptor.decrypt(lower), reference);
        }
}

TEST(Decryptor, CutsAtTheFirstNul) {
    const std::string builtIn = Copyright::getConstStr();
    // The client password ends at its NUL...
    Decryptor decryptor(clientHex(builtIn, std::string("ab\0cd", 5)));
    EXPECT_EQ(Decryptor::clientPassword(clientHex(builtIn, std::string("ab\0cd", 5))), "ab");
    // ...and so does the value.
    EXPECT_EQ(decryptor.decrypt(clientHex("ab", std::string("img\0.png", 8))), "img");
    EXPECT_EQ(decryptor.decrypt(clientHex("ab", std::string("\0x", 2))), "");
}

TEST(Decryptor, UnsignedAndMisshapenInput) {
    const std::string builtIn = Copyright::getConstStr();
    Decryptor decryptor(clientHex(builtIn, "client"));
    // An empty value is taken as plain and encrypted: the signature comes back.
    EXPECT_EQ(decryptor.decrypt(""), SIGNATURE.substr(0, std::strlen(SIGNATURE.c_str())));
    // A wrong client key raises nothing; the value just does not come back.
    Decryptor wrong(Hex::encode(std::string("not a key")));
    EXPECT_NE(wrong.decrypt(clientHex("client", "/img/a.png")), "/img/a.png");

    const std::string value = clientHex("client", "/img/a.png");
    EXPECT_THROW(decryptor.decrypt(value.substr(0, value.size() - 2)), Exception);
    EXPECT_THROW(Decryptor(Hex::encode(bytes(SIGNATURE + std::string(8, 'k')))), Exception);
    // Invalid digits read as 0, so a damaged value still has the right size.
    std::string damaged = value;
    damaged[40] = 'z';
    EXPECT_NO_THROW(decryptor.decrypt(damaged));
}
