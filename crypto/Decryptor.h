#pragma once

#include <string>

#include "crypto/StringCrypto.h"

// The cipher work of one request. The client password arrives as hex text,
// encrypted with the built-in password; parameter values arrive as hex text
// encrypted with the client password. Both levels use the triple cipher.
class Decryptor : public StringCrypto {
  public:
    explicit Decryptor(std::string key);
    ~Decryptor() override {}

    // The plain value, up to its first NUL byte.
    std::string decrypt(std::string value);

    // The client password unwrapped from the key text, up to its first NUL.
    // A key without the signature is encrypted instead, silently.
    static std::string clientPassword(const std::string& key);
};
