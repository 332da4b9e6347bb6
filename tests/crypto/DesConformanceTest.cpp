// The block cipher checked against libcrypto's standard DES, which nobody
// here wrote. Our cipher leaves out IP, IP inverse and PC-1, so for a key
// given as C and D and a block y:
//   Des::crypt(y, true) == IP(DES_K(IP^-1(y))), where PC-1(K) == C D.
// This pins the round function, the schedule and every table at once; the
// password derivation is then rebuilt on the same reference.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <gtest/gtest.h>
#include <openssl/des.h>

#include <random>
#include <string>
#include <vector>

#include "crypto/Des.h"
#include "crypto/Des3.h"

namespace {
using Bits = std::vector<unsigned char>;

const int IP[64] = {58, 50, 42, 34, 26, 18, 10, 2, 60, 52, 44, 36, 28, 20, 12, 4,
                    62, 54, 46, 38, 30, 22, 14, 6, 64, 56, 48, 40, 32, 24, 16, 8,
                    57, 49, 41, 33, 25, 17, 9,  1, 59, 51, 43, 35, 27, 19, 11, 3,
                    61, 53, 45, 37, 29, 21, 13, 5, 63, 55, 47, 39, 31, 23, 15, 7};
const int PC1[56] = {57, 49, 41, 33, 25, 17, 9,  1,  58, 50, 42, 34, 26, 18, 10, 2,  59, 51, 43,
                     35, 27, 19, 11, 3,  60, 52, 44, 36, 63, 55, 47, 39, 31, 23, 15, 7,  62, 54,
                     46, 38, 30, 22, 14, 6,  61, 53, 45, 37, 29, 21, 13, 5,  28, 20, 12, 4};

Bits ip(const Bits& x) {
    Bits y(64);
    for (int i = 0; i < 64; ++i)
        y[i] = x[IP[i] - 1];
    return y;
}

Bits ipInverse(const Bits& y) {
    Bits x(64);
    for (int i = 0; i < 64; ++i)
        x[IP[i] - 1] = y[i];
    return x;
}

Bits toBits(const unsigned char* bytes) {
    Bits bits(64);
    for (int i = 0; i < 64; ++i)
        bits[i] = (bytes[i / 8] >> (7 - i % 8)) & 1;
    return bits;
}

void toBytes(const Bits& bits, unsigned char* bytes) {
    for (int i = 0; i < 8; ++i)
        bytes[i] = 0;
    for (int i = 0; i < 64; ++i)
        bytes[i / 8] |= bits[i] << (7 - i % 8);
}

// The 64-bit key whose PC-1 selection is cd; parity bits are left 0.
void standardKey(const Bits& cd, DES_cblock& key) {
    Bits k(64, 0);
    for (int i = 0; i < 56; ++i)
        k[PC1[i] - 1] = cd[i];
    toBytes(k, key);
}

Bits cdOfStandardKey(const unsigned char* key) {
    const Bits k = toBits(key);
    Bits cd(56);
    for (int i = 0; i < 56; ++i)
        cd[i] = k[PC1[i] - 1];
    return cd;
}

// Our form of the cipher, computed by the reference.
Bits reference(const Bits& cd, const Bits& y, bool encrypt) {
    DES_cblock key, in, out;
    standardKey(cd, key);
    DES_key_schedule schedule;
    DES_set_key_unchecked(&key, &schedule);
    toBytes(ipInverse(y), in);
    DES_ecb_encrypt(&in, &out, &schedule, encrypt ? DES_ENCRYPT : DES_DECRYPT);
    return ip(toBits(out));
}

Bits ours(const Bits& cd, Bits y, bool encrypt) {
    Des des;
    des.initialize(cd.data());
    des.crypt(y.data(), encrypt);
    return y;
}

Bits randomBits(std::mt19937& rng, int n) {
    Bits bits(n);
    for (auto& b : bits)
        b = rng() & 1;
    return bits;
}

// The key derivation of one cipher, each mixing step done by the reference.
Bits derive(Bits& state, const char* text, const unsigned char* const* mixers, int count) {
    const char* p = text;
    for (int m = 0; m < count; ++m) {
        for (int g = 0; g < 8; ++g) {
            const unsigned char c = static_cast<unsigned char>(*p);
            for (int b = 0; b < 8; ++b)
                state[8 * g + b] ^= (c >> (7 - b)) & 1;
            if (c)
                ++p;
        }
        state = reference(Bits(mixers[m], mixers[m] + 56), state, true);
    }
    return Bits(state.begin(), state.begin() + 56);
}
}  // namespace

TEST(DesConformance, KnownAnswerVector) {
    const unsigned char key[8] = {0x13, 0x34, 0x57, 0x79, 0x9B, 0xBC, 0xDF, 0xF1};
    const unsigned char plain[8] = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
    const unsigned char cipher[8] = {0x85, 0xE8, 0x13, 0x54, 0x0F, 0x0A, 0xB4, 0x05};

    // The reference itself gives the published answer...
    DES_cblock k, in, out;
    std::copy(key, key + 8, k);
    std::copy(plain, plain + 8, in);
    DES_key_schedule schedule;
    DES_set_key_unchecked(&k, &schedule);
    DES_ecb_encrypt(&in, &out, &schedule, DES_ENCRYPT);
    EXPECT_EQ(Bits(out, out + 8), Bits(cipher, cipher + 8));

    // ...and so does our cipher through IP and PC-1.
    const Bits cd = cdOfStandardKey(key);
    EXPECT_EQ(ours(cd, ip(toBits(plain)), true), ip(toBits(cipher)));
    EXPECT_EQ(ours(cd, ip(toBits(cipher)), false), ip(toBits(plain)));
}

TEST(DesConformance, RandomKeysAndBlocksMatchStandardDes) {
    std::mt19937 rng(20240601);
    for (int i = 0; i < 3000; ++i) {
        const Bits cd = randomBits(rng, 56);
        const Bits y = randomBits(rng, 64);
        const Bits e = ours(cd, y, true);
        ASSERT_EQ(e, reference(cd, y, true)) << "case " << i;
        ASSERT_EQ(ours(cd, y, false), reference(cd, y, false)) << "case " << i;
        ASSERT_EQ(ours(cd, e, false), y) << "case " << i;
    }
}

TEST(DesConformance, PasswordDerivationMatchesTheReference) {
    const unsigned char* const single[] = {DesIF::MIXER1, DesIF::MIXER2, DesIF::MIXER3,
                                           DesIF::MIXER4};
    const unsigned char* const triple[3][6] = {
        {DesIF::MIXER1, DesIF::MIXER2, DesIF::MIXER3, DesIF::MIXER4, Des3::MIXER5, Des3::MIXER6},
        {Des3::MIXER7, Des3::MIXER8, Des3::MIXER9, Des3::MIXER10, Des3::MIXER11, Des3::MIXER12},
        {Des3::MIXER13, Des3::MIXER14, Des3::MIXER15, Des3::MIXER16, Des3::MIXER17, Des3::MIXER18}};
    std::mt19937 rng(99);
    const std::string passwords[] = {"", "a", "client-password", std::string(60, 'z'),
                                     "\xC3\xA4\xFF\x01 mixed"};
    for (const std::string& password : passwords) {
        const Bits y = randomBits(rng, 64);

        Bits state(64, 0);
        const Bits key = derive(state, password.c_str(), single, 4);
        Des des;
        des.password(password.c_str());
        Bits b = y;
        des.encrypt(b.data());
        EXPECT_EQ(b, reference(key, y, true)) << password;

        // One state runs through the three keys; encrypt-decrypt-encrypt.
        Bits state3(64, 0);
        Bits keys[3];
        for (int k = 0; k < 3; ++k)
            keys[k] = derive(state3, password.c_str(), triple[k], 6);
        EXPECT_NE(keys[0], keys[1]);
        EXPECT_NE(keys[1], keys[2]);
        Des3 des3;
        des3.password(password.c_str());
        b = y;
        des3.encrypt(b.data());
        EXPECT_EQ(b,
                  reference(keys[2], reference(keys[1], reference(keys[0], y, true), false), true))
            << password;
    }
}
