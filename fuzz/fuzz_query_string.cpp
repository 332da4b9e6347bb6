// Request text into QueryString: the map, its text form, and the in-place
// decoders, which the program keeps but does not call.
#include <cstring>
#include <vector>

#include "cgi/QueryString.h"
#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = fuzzText(data, size);
    QueryString q(text.c_str());
    const std::string serialised = q.toString();
    // Every pair, the last one too, ends with "&".
    fuzzCheck(q.empty() == serialised.empty(), "toString of a non-empty map is not empty");
    fuzzCheck(serialised.empty() || serialised.back() == '&', "toString ends with &");
    for (const auto& entry : q)
        fuzzCheck(q.removeQuote("\"" + entry.second + "\"") == entry.second,
                  "one quote is taken from each end");

    std::vector<char> copy(text.c_str(), text.c_str() + std::strlen(text.c_str()) + 1);
    const size_t before = std::strlen(copy.data());
    QueryString::decode(copy.data());
    fuzzCheck(std::strlen(copy.data()) <= before, "decoding never lengthens the text");
    QueryString::convert(copy.data(), ' ', '+');
    return 0;
}
