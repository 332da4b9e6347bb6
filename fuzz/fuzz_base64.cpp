// Base64::decode on arbitrary text, and the encoder's round trip.
#include <algorithm>

#include "crypto/Base64.h"
#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = fuzzText(data, size);
    counted_ptr<Bytes> bytes = Base64::decode(text);
    fuzzCheck(bytes->length == static_cast<int>(3 * size / 4), "fixed output size");
    fuzzCheck(bytes->data[bytes->length] == 0, "zero byte after the payload");

    const std::string encoded = Base64::encode(text);
    fuzzCheck(encoded.find('=') == std::string::npos, "no padding");
    counted_ptr<Bytes> back = Base64::decode(encoded);
    fuzzCheck(back->length >= static_cast<int>(size) && std::equal(data, data + size, back->data),
              "decode inverts encode");
    return 0;
}
