// StringCrypto::cipher on arbitrary bytes: signed input is decrypted or
// refused with "Wrong size", anything else is encrypted and must come back.
#include <algorithm>

#include "base/Exception.h"
#include "crypto/StringCrypto.h"
#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 4096)
        return 0;  // the cipher is slow per block; long inputs add nothing
    static StringCrypto triple("a fuzzing password", true);
    static StringCrypto single("a fuzzing password", false);
    StringCrypto& crypto = size % 2 == 0 ? triple : single;
    try {
        counted_ptr<Bytes> out = crypto.cipher(data, static_cast<int>(size));
        fuzzCheck(out->data[out->length] == 0, "zero byte after the payload");
        if (out->length == static_cast<int>(size) + 17 + static_cast<int>(-size & 7)) {
            // It was encrypted: decrypting gives the bytes back.
            counted_ptr<Bytes> back = crypto.cipher(out);
            fuzzCheck(
                back->length == static_cast<int>(size) && std::equal(data, data + size, back->data),
                "decrypt inverts encrypt");
        }
    } catch (const Exception& e) {
        fuzzCheck(e.getMessageCode() == "StringCrypto::cipher Wrong size (-1)",
                  "the only failure is Wrong size", e.getMessageCode());
    }
    return 0;
}
