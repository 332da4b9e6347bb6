#pragma once

// A 64-bit block cipher keyed by a password. Blocks are bit arrays: 64
// bytes, each 0 or 1, most significant bit of the first byte first.
class DesIF {
  public:
    virtual ~DesIF() {}

    // Derives and installs the key(s); must run before encrypt or decrypt.
    virtual void password(const char* text) = 0;
    virtual void encrypt(unsigned char* block) = 0;
    virtual void decrypt(unsigned char* block) = 0;

    // Key-mixing keys shared by the single and the triple cipher, each a
    // complete 56-bit key (C half, then D half).
    static const unsigned char MIXER1[56];
    static const unsigned char MIXER2[56];
    static const unsigned char MIXER3[56];
    static const unsigned char MIXER4[56];
};
