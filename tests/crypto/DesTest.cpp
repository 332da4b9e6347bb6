#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "crypto/Des.h"
#include "crypto/Des3.h"

namespace {
using Block = std::vector<unsigned char>;

Block randomBits(std::mt19937& rng, int n) {
    Block bits(n);
    for (auto& b : bits)
        b = rng() & 1;
    return bits;
}

Block encrypted(DesIF& cipher, Block block) {
    cipher.encrypt(block.data());
    return block;
}

template <class Cipher>
Block encryptedUnder(const std::string& password, const Block& block) {
    Cipher cipher;
    cipher.password(password.c_str());
    return encrypted(cipher, block);
}
}  // namespace

TEST(Des, HalfKeyRotationAndMixingPosition) {
    unsigned char half[28];
    for (int i = 0; i < 28; ++i)
        half[i] = i;
    Des::shiftHalfKeyLeft(half);
    EXPECT_EQ(half[0], 1);
    EXPECT_EQ(half[26], 27);
    EXPECT_EQ(half[27], 0);

    // Eight characters per step; a short text stays on its NUL.
    Des des;
    unsigned char state[64] = {};
    const char* text = "0123456789";
    EXPECT_EQ(des.xmix(text, state, DesIF::MIXER1), text + 8);
    EXPECT_EQ(des.xmix(text + 8, state, DesIF::MIXER2), text + 10);
    EXPECT_EQ(des.xmix(text + 10, state, DesIF::MIXER3), text + 10);
}

TEST(Des, DecryptionInvertsEncryptionForBothCiphers) {
    std::mt19937 rng(7);
    for (int i = 0; i < 50; ++i) {
        const Block block = randomBits(rng, 64);
        Des des;
        des.initialize(randomBits(rng, 56).data());
        Block b = block;
        des.crypt(b.data(), true);
        EXPECT_NE(b, block);
        des.crypt(b.data(), false);
        EXPECT_EQ(b, block);

        Des3 des3;
        des3.password(std::to_string(i).c_str());
        b = encrypted(des3, block);
        des3.decrypt(b.data());
        EXPECT_EQ(b, block);
    }
}

TEST(Des, OnlyTheFirst32Or48PasswordCharactersCount) {
    std::mt19937 rng(11);
    const Block block = randomBits(rng, 64);
    const std::string base(48, 'k');
    // Single cipher: characters 33 on are ignored, character 32 is not.
    EXPECT_EQ(encryptedUnder<Des>(base.substr(0, 32), block),
              encryptedUnder<Des>(base.substr(0, 32) + "tail", block));
    EXPECT_NE(encryptedUnder<Des>(base.substr(0, 31) + "x", block),
              encryptedUnder<Des>(base.substr(0, 32), block));
    // Triple cipher: the limit is 48.
    EXPECT_EQ(encryptedUnder<Des3>(base, block), encryptedUnder<Des3>(base + "tail", block));
    EXPECT_NE(encryptedUnder<Des3>(base.substr(0, 47) + "x", block),
              encryptedUnder<Des3>(base, block));
    EXPECT_NE(encryptedUnder<Des3>(base.substr(0, 32) + "x", block),
              encryptedUnder<Des3>(base.substr(0, 32), block));
    // A missing character mixes as zero bits, like an explicit NUL would.
    EXPECT_NE(encryptedUnder<Des>("", block), encryptedUnder<Des>("a", block));
    EXPECT_NE(encryptedUnder<Des>("", block), block);
    EXPECT_NE(encryptedUnder<Des3>("", block), encryptedUnder<Des>("", block));
}
