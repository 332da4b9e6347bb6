#pragma once

#include <string>

#include "crypto/Bytes.h"
#include "crypto/counted_ptr.h"

// The alphabet "A".."Z", "a".."z", "0".."9", "+", "/".
extern const std::string Base64Table;

// Base64 text of byte buffers, without "=" padding and without line breaks.
// Decoding takes "=" and other foreign characters as all-ones bits and ends
// at a space in the third or fourth place of a group.
class Base64 {
  public:
    Base64() {}
    ~Base64() {}

    static std::string encode(const char* p, int n);
    static std::string encode(counted_ptr<Bytes> bytes);
    static std::string encode(const std::string& text);
    // The result always holds 3 * size / 4 bytes, whatever was decoded.
    static counted_ptr<Bytes> decode(const std::string& text);
};
