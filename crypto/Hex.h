#pragma once

#include <string>

#include "crypto/Bytes.h"
#include "crypto/counted_ptr.h"

// Hexadecimal text of byte buffers, as encrypted parameters travel. Bytes are
// written in upper case; both cases are read, and a non-digit reads as 0.
class Hex {
  public:
    Hex() {}
    ~Hex() {}

    // v is 0 to 15.
    static char b2h(unsigned char v);
    // 0 for a character that is not a hex digit.
    static int h2d(char c);
    // An odd last character is ignored.
    static counted_ptr<Bytes> decode(const std::string& text);
    // Eight lower-case digits.
    static std::string encode(int value);
    static std::string encode(const counted_ptr<Bytes>& bytes);
    // Stops at the first NUL of the text.
    static std::string encode(const std::string& text);
};
