#include "crypto/Decryptor.h"

#include "crypto/Copyright.h"
#include "crypto/Hex.h"

Decryptor::Decryptor(std::string key) : StringCrypto(clientPassword(key).c_str(), true) {}

std::string Decryptor::clientPassword(const std::string& key) {
    counted_ptr<Bytes> k = Hex::decode(key);
    const std::string builtIn = Copyright::getConstStr();
    StringCrypto unwrap(builtIn.c_str(), true);
    counted_ptr<Bytes> clientBytes = unwrap.cipher(k);
    return reinterpret_cast<const char*>(clientBytes->data);
}

std::string Decryptor::decrypt(std::string value) {
    counted_ptr<Bytes> r = cipher(Hex::decode(value));
    return reinterpret_cast<const char*>(r->data);
}
