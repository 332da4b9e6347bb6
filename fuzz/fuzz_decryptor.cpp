// Decryptor on arbitrary "p" and "i" texts: the first line is p, the rest i.
#include "base/Exception.h"
#include "crypto/Decryptor.h"
#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 8192)
        return 0;
    const std::string text = fuzzText(data, size);
    const size_t newline = text.find('\n');
    const std::string p = text.substr(0, newline);
    const std::string i = newline == std::string::npos ? "" : text.substr(newline + 1);
    try {
        Decryptor decryptor(p);
        const std::string reference = decryptor.decrypt(i);
        fuzzCheck(reference.find('\0') == std::string::npos, "cut at the first zero byte");
    } catch (const Exception& e) {
        fuzzCheck(e.getMessageCode() == "StringCrypto::cipher Wrong size (-1)",
                  "the only failure is Wrong size", e.getMessageCode());
    }
    return 0;
}
