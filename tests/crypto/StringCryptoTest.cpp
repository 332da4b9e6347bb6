#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "base/Exception.h"
#include "crypto/Copyright.h"
#include "crypto/Decryptor.h"
#include "crypto/Hex.h"

namespace {
const std::string SIGNATURE(reinterpret_cast<const char*>(Crypto::ENCRYPTION_SIGNATURE), 16);
const std::string BUILT_IN = Copyright::getConstStr();

counted_ptr<Bytes> bytes(const std::string& s) {
    return counted_ptr<Bytes>(
        new Bytes(reinterpret_cast<const unsigned char*>(s.data()), static_cast<int>(s.size())));
}

std::string cipher(const std::string& password, const std::string& in, bool triple = true) {
    counted_ptr<Bytes> out = StringCrypto(password.c_str(), triple).cipher(bytes(in));
    EXPECT_EQ(out->data[out->length], 0);
    return std::string(reinterpret_cast<const char*>(out->data), out->length);
}

// What the client sends: hex of the value encrypted with the password.
std::string clientHex(const std::string& password, const std::string& value) {
    return Hex::encode(bytes(cipher(password, value)));
}

void expectWrongSize(const std::string& in) {
    try {
        cipher("pw", in);
        ADD_FAILURE() << "no exception for " << in.size() << " bytes";
    } catch (const Exception& e) {
        EXPECT_EQ(e.getMessageCode(), "StringCrypto::cipher Wrong size (-1)");
    }
}
}  // namespace

TEST(StringCrypto, SizesPadCountAndRoundTrips) {
    std::mt19937 rng(3);
    const int cases[][3] = {{0, 17, 0}, {1, 25, 7}, {7, 25, 1},
                            {8, 25, 0}, {9, 33, 7}, {200, 217, 0}};
    for (bool triple : {false, true})
        for (const auto& c : cases) {
            std::string plain;
            for (int i = 0; i < c[0]; ++i)
                plain += static_cast<char>(rng());
            const std::string e = cipher("secret", plain, triple);
            ASSERT_EQ(e.size(), size_t(c[1]));
            EXPECT_EQ(e.substr(0, 17), SIGNATURE + char(c[2]));
            EXPECT_EQ(cipher("secret", e, triple), plain) << c[0] << " " << triple;
        }
    // No chaining; the cipher and the password both change the blocks.
    const std::string block = "8 bytes!", e = cipher("pw", block + block);
    EXPECT_EQ(e.substr(17, 8), e.substr(25, 8));
    EXPECT_NE(cipher("pw", block, false).substr(17), e.substr(17, 8));
    EXPECT_NE(cipher("pw2", block).substr(17), e.substr(17, 8));
    // A wrong password decrypts silently to other bytes of the right length.
    EXPECT_EQ(cipher("other", e).size(), 16u);
    EXPECT_NE(cipher("other", e), block + block);
}

TEST(StringCrypto, TheSignatureChoosesTheDirection) {
    EXPECT_EQ(cipher("pw", SIGNATURE.substr(0, 15)).size(), 17u + 15 + 1);
    std::string lookalike = SIGNATURE + std::string(9, '\0');
    EXPECT_EQ(cipher("pw", lookalike).size(), 8u);  // taken as encrypted
    lookalike[15] ^= 1;
    EXPECT_EQ(cipher("pw", lookalike).size(), 17u + 25 + 7);
}

TEST(StringCrypto, WrongSizesAndPadBytesAreRejected) {
    const std::string e = cipher("pw", "twelve bytes");  // 33 bytes, pad 4
    for (const std::string& bad : {SIGNATURE, SIGNATURE + "12345678", e.substr(0, 32), e + "x",
                                   SIGNATURE + '\1', SIGNATURE + '\7'})
        expectWrongSize(bad);
    for (int pad : {8, 9, 0x80, 0xFF})
        expectWrongSize(e.substr(0, 16) + char(pad) + e.substr(17));
    // Any pad count up to 7 is taken as it stands: it only changes the length.
    std::string other = e;
    other[16] = 7;
    EXPECT_EQ(cipher("pw", other), "twelve by");
    other[16] = 0;
    EXPECT_EQ(cipher("pw", other), std::string("twelve bytes\0\0\0\0", 16));
    EXPECT_EQ(cipher("pw", SIGNATURE + '\0'), "");
}

TEST(StringCrypto, ResultOutlivesTheObject) {
    counted_ptr<Bytes> kept;
    {
        StringCrypto crypto("pw", true);
        kept = crypto.cipher(bytes("abc"));
        EXPECT_EQ(kept.useCount(), 2);
    }
    EXPECT_EQ(kept.useCount(), 1);
    EXPECT_EQ(cipher("pw", std::string(reinterpret_cast<char*>(kept->data), 25)), "abc");
}

TEST(Decryptor, DecryptsWhatTheClientSends) {
    const std::string references[] = {"/var/www/img/a.png", "http://h.test/x.jpg?a=1&b=2",
                                      "\xC3\xA4\xC3\xB6\xFF\x01 bild.gif", std::string(200, 'r')};
    for (const std::string password :
         {"client", "", "p23456789012345678901234567890123456789012345678"})
        for (const std::string& reference : references) {
            const std::string key = clientHex(BUILT_IN, password);
            const std::string value = clientHex(password, reference);
            EXPECT_EQ(Decryptor::clientPassword(key), password);
            Decryptor decryptor(key);
            EXPECT_EQ(decryptor.decrypt(value), reference);
            std::string lower = value;
            for (char& c : lower)
                c = static_cast<char>(std::tolower(c));
            EXPECT_EQ(decryptor.decrypt(lower), reference);  // and again, same object
        }
}

TEST(Decryptor, NulCutsAndMisshapenInput) {
    // Both the client password and the value end at their first NUL.
    Decryptor decryptor(clientHex(BUILT_IN, std::string("ab\0cd", 5)));
    EXPECT_EQ(decryptor.decrypt(clientHex("ab", std::string("img\0.png", 8))), "img");
    EXPECT_EQ(decryptor.decrypt(clientHex("ab", std::string("\0x", 2))), "");
    // An empty value is taken as plain and encrypted: the signature comes back.
    EXPECT_EQ(decryptor.decrypt(""), SIGNATURE.substr(0, std::strlen(SIGNATURE.c_str())));
    // A key without the signature raises nothing; the value just does not come back.
    const std::string value = clientHex("ab", "/img/a.png");
    EXPECT_NE(Decryptor(Hex::encode(std::string("not a key"))).decrypt(value), "/img/a.png");
    // Invalid digits read as 0: a damaged value keeps its size.
    EXPECT_NO_THROW(decryptor.decrypt(value.substr(0, 40) + "zz" + value.substr(42)));
    EXPECT_THROW(decryptor.decrypt(value.substr(0, value.size() - 2)), Exception);
    EXPECT_THROW(Decryptor(Hex::encode(bytes(SIGNATURE + "12345678"))), Exception);
}
