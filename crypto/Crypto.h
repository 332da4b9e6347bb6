#pragma once

#include "crypto/DesIF.h"

// Pulls bytes from a source, runs them through the block cipher eight at a
// time, each block on its own, and pushes the result to a sink. Subclasses
// supply the source, the sink and the cipher.
class Crypto {
  public:
    Crypto() : blockCipher(nullptr) {}
    virtual ~Crypto();

    Crypto(const Crypto&) = delete;
    Crypto& operator=(const Crypto&) = delete;

    // length plain bytes. Encrypting pads the last block with zero bytes and
    // emits whole blocks; decrypting reads whole blocks and emits only the
    // plain bytes.
    virtual void doCrypto(long length, bool encrypt);
    virtual unsigned char getNextByte() = 0;
    virtual void putByte(unsigned char byte) = 0;

    // The marker that starts every encrypted buffer, shared with the client.
    static const unsigned char ENCRYPTION_SIGNATURE[16];

  protected:
    DesIF* blockCipher;  // owned
};
