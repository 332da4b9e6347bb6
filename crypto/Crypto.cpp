#include "crypto/Crypto.h"

#include "KeyMaterial.h"

const unsigned char Crypto::ENCRYPTION_SIGNATURE[16] = TESSAVANT_SIGNATURE;

Crypto::~Crypto() {
    delete blockCipher;
}

void Crypto::doCrypto(long length, bool encrypt) {
    unsigned char block[64];
    while (length > 0) {
        const int n = length < 8 ? static_cast<int>(length) : 8;
        const int fetched = encrypt ? n : 8;
        for (int i = 0; i < 8; ++i) {
            const unsigned char byte = i < fetched ? getNextByte() : 0;
            for (int b = 0; b < 8; ++b)
                block[8 * i + b] = (byte >> (7 - b)) & 1;
        }
        if (encrypt)
            blockCipher->encrypt(block);
        else
            blockCipher->decrypt(block);
        const int emitted = encrypt ? 8 : n;
        for (int i = 0; i < emitted; ++i) {
            unsigned char byte = 0;
            for (int b = 0; b < 8; ++b)
                byte = static_cast<unsigned char>(byte << 1 | block[8 * i + b]);
            putByte(byte);
        }
        length -= 8;
    }
}
