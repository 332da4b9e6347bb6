#include "crypto/StringCrypto.h"

#include <cstring>

#include "base/Exception.h"
#include "crypto/Des.h"
#include "crypto/Des3.h"
#include "crypto/Hex.h"

StringCrypto::StringCrypto(const char* password, bool triple)
    : readPosition(0), writePosition(0), payloadLength(0) {
    if (triple)
        blockCipher = new Des3;
    else
        blockCipher = new Des;
    blockCipher->password(password);
}

StringCrypto::~StringCrypto() {
    output = counted_ptr<Bytes>();
    input = counted_ptr<Bytes>();
}

counted_ptr<Bytes> StringCrypto::cipher(const counted_ptr<Bytes>& in) {
    input = in;
    const int L = input->length;
    const bool signedInput =
        L >= 16 && std::memcmp(input->data, ENCRYPTION_SIGNATURE, sizeof ENCRYPTION_SIGNATURE) == 0;
    if (!signedInput) {
        const int pad = -L & 7;
        output = counted_ptr<Bytes>(new Bytes(L + 17 + pad));
        std::memcpy(output->data, ENCRYPTION_SIGNATURE, sizeof ENCRYPTION_SIGNATURE);
        readPosition = 0;
        writePosition = 16;
        putByte(static_cast<unsigned char>(pad));
        payloadLength = L;
        doCrypto(L, true);
    } else {
        if ((L & 7) != 1)
            throw Exception("StringCrypto::cipher", "Wrong size", -1);
        readPosition = 16;
        writePosition = 0;
        const int pad = getNextByte();
        // The pad count travels in clear and unchecked by the sender; one that
        // no encryption produces would make the payload length wrong or negative.
        if (pad > 7 || pad > L - 17)
            throw Exception("StringCrypto::cipher", "Wrong size", -1);
        payloadLength = L - pad - 17;
        output = counted_ptr<Bytes>(new Bytes(payloadLength));
        doCrypto(payloadLength, false);
    }
    return output;
}

counted_ptr<Bytes> StringCrypto::cipher(const unsigned char* data, int length) {
    return cipher(counted_ptr<Bytes>(new Bytes(data, length)));
}

std::string StringCrypto::cipherHex(const std::string& text) {
    return Hex::encode(
        cipher(reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size())));
}

// The size checks in cipher keep both positions inside their buffers; the
// guards below only make sure a mistake there cannot touch foreign memory.
unsigned char StringCrypto::getNextByte() {
    if (!input.get() || readPosition < 0 || readPosition >= input->length)
        return 0;
    return input->data[readPosition++];
}

void StringCrypto::putByte(unsigned char byte) {
    if (!output.get() || writePosition < 0 || writePosition >= output->length)
        return;
    output->data[writePosition++] = byte;
}
