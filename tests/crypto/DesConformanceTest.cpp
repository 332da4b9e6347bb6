// The block cipher against libcrypto's DES. Ours leaves out IP, its inverse and
// PC-1: for a standard key K and block x, Des(PC-1(K)) on IP(x) gives IP(DES_K(x)).
#define OPENSSL_SUPPRESS_DEPRECATED
#include <gtest/gtest.h>
#include <openssl/des.h>

#include <random>
#include <vector>

#include "crypto/Des.h"

namespace {
using Bits = std::vector<unsigned char>;
const int IP[64] = {58, 50, 42, 34, 26, 18, 10, 2, 60, 52, 44, 36, 28, 20, 12, 4,
                    62, 54, 46, 38, 30, 22, 14, 6, 64, 56, 48, 40, 32, 24, 16, 8,
                    57, 49, 41, 33, 25, 17, 9,  1, 59, 51, 43, 35, 27, 19, 11, 3,
                    61, 53, 45, 37, 29, 21, 13, 5, 63, 55, 47, 39, 31, 23, 15, 7};
const int PC1[56] = {57, 49, 41, 33, 25, 17, 9,  1,  58, 50, 42, 34, 26, 18, 10, 2,  59, 51, 43,
                     35, 27, 19, 11, 3,  60, 52, 44, 36, 63, 55, 47, 39, 31, 23, 15, 7,  62, 54,
                     46, 38, 30, 22, 14, 6,  61, 53, 45, 37, 29, 21, 13, 5,  28, 20, 12, 4};

// Bit i of the result is bit table[i] (1-based, most significant first) of bytes.
Bits select(const unsigned char* bytes, const int* table, int n) {
    Bits bits(n);
    for (int i = 0; i < n; ++i)
        bits[i] = bytes[(table[i] - 1) / 8] >> (7 - (table[i] - 1) % 8) & 1;
    return bits;
}

// Both directions of our cipher against libcrypto's; the standard encryption in e.
void expectStandard(DES_cblock& key, DES_cblock& x, DES_cblock& e) {
    DES_key_schedule schedule;
    DES_cblock d;
    DES_set_key_unchecked(&key, &schedule);
    DES_ecb_encrypt(&x, &e, &schedule, DES_ENCRYPT);
    DES_ecb_encrypt(&x, &d, &schedule, DES_DECRYPT);
    Des des;
    des.initialize(select(key, PC1, 56).data());
    Bits y = select(x, IP, 64), z = y;
    des.encrypt(y.data());
    des.decrypt(z.data());
    ASSERT_EQ(y, select(e, IP, 64));
    ASSERT_EQ(z, select(d, IP, 64));
}
}  // namespace

TEST(DesConformance, PublishedVectorAndRandomKeysAndBlocks) {
    DES_cblock key = {0x13, 0x34, 0x57, 0x79, 0x9B, 0xBC, 0xDF, 0xF1};
    DES_cblock x = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}, e;
    expectStandard(key, x, e);
    EXPECT_EQ(Bits(e, e + 8), (Bits{0x85, 0xE8, 0x13, 0x54, 0x0F, 0x0A, 0xB4, 0x05}));
    std::mt19937 rng(20240601);
    for (int i = 0; i < 3000 && !HasFatalFailure(); ++i) {
        for (int j = 0; j < 8; ++j)
            key[j] = rng(), x[j] = rng();
        SCOPED_TRACE(i);
        expectStandard(key, x, e);
    }
}
