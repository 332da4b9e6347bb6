// Date on arbitrary texts; the operators must agree with compare.
#include "file/Date.h"
#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = fuzzText(data, size);
    const size_t half = text.size() / 2;
    const Date a(text.c_str());
    const Date b(text.substr(half).c_str());
    const Date reference("Sun, 06 Nov 1994 08:49:37 GMT");
    for (const Date* other : {&b, &reference, &a}) {
        const int c = a.compare(*other);
        fuzzCheck((a == *other) == (c == 0), "==");
        fuzzCheck((a <= *other) == (c <= 0), "<=");
        fuzzCheck((a >= *other) == (c >= 0), ">=");
        fuzzCheck((a < *other) == (c < 0), "<");
        fuzzCheck((a > *other) == (c > 0), ">");
        fuzzCheck(other->compare(a) == -c, "compare is antisymmetric");
    }
    fuzzCheck(a.monthNumber <= 12, "month");
    return 0;
}
