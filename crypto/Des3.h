#pragma once

#include "crypto/Des.h"

// Three independent single ciphers, encrypt-decrypt-encrypt.
class Des3 : public DesIF {
  public:
    ~Des3() override {}

    // Only the first 48 characters of the text count.
    void password(const char* text) override;
    void encrypt(unsigned char* block) override;
    void decrypt(unsigned char* block) override;

    static const unsigned char MIXER5[56];
    static const unsigned char MIXER6[56];
    static const unsigned char MIXER7[56];
    static const unsigned char MIXER8[56];
    static const unsigned char MIXER9[56];
    static const unsigned char MIXER10[56];
    static const unsigned char MIXER11[56];
    static const unsigned char MIXER12[56];
    static const unsigned char MIXER13[56];
    static const unsigned char MIXER14[56];
    static const unsigned char MIXER15[56];
    static const unsigned char MIXER16[56];
    static const unsigned char MIXER17[56];
    static const unsigned char MIXER18[56];

  private:
    Des first;
    Des second;
    Des third;
};
