#include "tests/support/ImageQuery.h"

#include "crypto/Copyright.h"
#include "crypto/Hex.h"
#include "crypto/StringCrypto.h"

std::string encryptToHex(const std::string& password, const std::string& plain) {
    StringCrypto crypto(password.c_str(), true);
    return Hex::encode(crypto.cipher(reinterpret_cast<const unsigned char*>(plain.data()),
                                     static_cast<int>(plain.size())));
}

std::string imageQuery(const std::string& password, const std::string& reference) {
    return "cmd=img&p=" + encryptToHex(Copyright::getConstStr(), password) +
           "&i=" + encryptToHex(password, reference);
}
