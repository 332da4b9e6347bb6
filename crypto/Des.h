#pragma once

#include <cstdint>

#include "crypto/DesIF.h"

// The DES round function and key schedule with their standard tables, but
// without the initial and final permutations and without PC-1: the key is
// the 56 bits of C and D as they stand. The client builds its cipher the
// same way, so these differences are part of the format.
class Des : public DesIF {
  public:
    Des();
    ~Des() override {}

    // Only the first 32 characters of the text count.
    void password(const char* text) override;
    void encrypt(unsigned char* block) override { crypt(block, true); }
    void decrypt(unsigned char* block) override { crypt(block, false); }

    // Builds the 16 subkeys from a 56-element bit array (C then D).
    void initialize(const unsigned char* key);
    // Rotates a 28-element half key left by one.
    static void shiftHalfKeyLeft(unsigned char* half);
    // The 16 rounds, in place on a 64-element bit array.
    void crypt(unsigned char* block, bool encrypt);
    // Mixes the next 8 characters of text into the 64-element state, then
    // encrypts the state under mixer; returns where the text continues.
    const char* xmix(const char* text, unsigned char* state, const unsigned char* mixer);

    static const unsigned char EXPANSION_PERMUTATION[48];
    static const unsigned char PBOX_PERMUTATION[32];
    static const unsigned char COMPRESSION_PERMUTATION[48];
    static const int KEY_SHIFT[16];
    // Entry row * 16 + column holds the four output bits of the S-box value.
    static const unsigned char MODIFIED_SBOX_1[64][4];
    static const unsigned char MODIFIED_SBOX_2[64][4];
    static const unsigned char MODIFIED_SBOX_3[64][4];
    static const unsigned char MODIFIED_SBOX_4[64][4];
    static const unsigned char MODIFIED_SBOX_5[64][4];
    static const unsigned char MODIFIED_SBOX_6[64][4];
    static const unsigned char MODIFIED_SBOX_7[64][4];
    static const unsigned char MODIFIED_SBOX_8[64][4];

  private:
    // The 16 rounds on a block as one word, the left half at the top.
    uint64_t rounds(uint64_t block, bool encrypt) const;

    // Subkey r as its eight 6-bit groups, one per S-box, each in the low
    // bits of a byte: schedule[r][0] holds the groups of S1, S3, S5 and S7
    // from the top byte down, schedule[r][1] those of S2, S4, S6 and S8.
    uint32_t schedule[16][2];
};
