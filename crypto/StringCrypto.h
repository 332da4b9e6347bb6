#pragma once

#include <string>

#include "crypto/Bytes.h"
#include "crypto/Crypto.h"
#include "crypto/counted_ptr.h"

// Encrypts or decrypts a whole buffer; the input tells which. Encrypted
// buffers are: the 16-byte signature, the pad count p in clear, then the
// plain bytes and p zero bytes enciphered block by block (so 17 + 8k bytes).
class StringCrypto : public Crypto {
  public:
    // triple selects Des3 over Des.
    StringCrypto(const char* password, bool triple);
    ~StringCrypto() override;

    // Decrypts input that starts with the signature, encrypts anything else.
    // Throws Exception "StringCrypto::cipher Wrong size" for signed input
    // that cannot be a ciphertext. The result stays valid after this object.
    counted_ptr<Bytes> cipher(const counted_ptr<Bytes>& in);
    counted_ptr<Bytes> cipher(const unsigned char* data, int length);
    // The cipher of text as upper-case hex, as request parameters travel.
    std::string cipherHex(const std::string& text);

    unsigned char getNextByte() override;
    void putByte(unsigned char byte) override;

  private:
    counted_ptr<Bytes> input;
    counted_ptr<Bytes> output;
    int readPosition;
    int writePosition;
    int payloadLength;
};
