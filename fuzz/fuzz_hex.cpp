// Hex::decode on arbitrary text, and the encoder's round trip.
#include <algorithm>

#include "crypto/Hex.h"
#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = fuzzText(data, size);
    counted_ptr<Bytes> bytes = Hex::decode(text);
    fuzzCheck(bytes->length == static_cast<int>(size / 2), "one byte per two characters");
    fuzzCheck(bytes->data[bytes->length] == 0, "zero byte after the payload");
    const std::string hex = Hex::encode(bytes);
    fuzzCheck(hex.size() == 2 * static_cast<size_t>(bytes->length), "two digits per byte");
    counted_ptr<Bytes> again = Hex::decode(hex);
    fuzzCheck(again->length == bytes->length &&
                  std::equal(again->data, again->data + again->length, bytes->data),
              "decode inverts encode");
    Hex::encode(text);
    return 0;
}
