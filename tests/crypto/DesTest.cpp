#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "crypto/Des.h"
#include "crypto/Des3.h"

namespace {
template <class Cipher>
std::vector<unsigned char> encryptedUnder(const std::string& password) {
    std::vector<unsigned char> block(64);
    for (int i = 0; i < 64; ++i)
        block[i] = (i * 7 + i / 5) & 1;
    Cipher cipher;
    cipher.password(password.c_str());
    cipher.encrypt(block.data());
    return block;
}
}  // namespace

TEST(Des, OnlyTheFirst32Or48PasswordCharactersCount) {
    const std::string k32(32, 'k'), k48(48, 'k');
    EXPECT_EQ(encryptedUnder<Des>(k32), encryptedUnder<Des>(k32 + "tail"));
    EXPECT_NE(encryptedUnder<Des>(k32.substr(0, 31) + "x"), encryptedUnder<Des>(k32));
    EXPECT_EQ(encryptedUnder<Des3>(k48), encryptedUnder<Des3>(k48 + "tail"));
    EXPECT_NE(encryptedUnder<Des3>(k48.substr(0, 47) + "x"), encryptedUnder<Des3>(k48));
    EXPECT_NE(encryptedUnder<Des3>(k32 + "x"), encryptedUnder<Des3>(k32));
    // The empty password is a key too, and a different one.
    EXPECT_NE(encryptedUnder<Des>(""), encryptedUnder<Des>("a"));
    EXPECT_NE(encryptedUnder<Des3>(""), encryptedUnder<Des>(""));
}
