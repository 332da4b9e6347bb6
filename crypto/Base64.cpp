#include "crypto/Base64.h"

const std::string Base64Table = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

namespace {
// Alphabet position of each byte value, -1 for everything else.
const int DecodeTable[256] = {
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  //
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  //
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 62, -1, -1, -1, 63,  //
    52, 53, 54, 55, 56, 57, 58, 59, 60, 61, -1, -1, -1, -1, -1, -1,  //
    -1, 0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14,  //
    15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, -1, -1, -1, -1, -1,  //
    -1, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40,  //
    41, 42, 43, 44, 45, 46, 47, 48, 49, 50, 51, -1, -1, -1, -1, -1,  //
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  //
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  //
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  //
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  //
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  //
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  //
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  //
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  //
};

// The low 8 bits of the table entry: a foreign character is all ones.
int value(const std::string& text, int i) {
    return DecodeTable[static_cast<unsigned char>(text[i])] & 0xFF;
}
}  // namespace

std::string Base64::encode(const char* p, int n) {
    std::string out;
    out.reserve(n > 0 ? 2 * static_cast<size_t>(n) : 0);
    const unsigned char* b = reinterpret_cast<const unsigned char*>(p);
    for (int i = 0; i < n; i += 3) {
        out += Base64Table[b[i] >> 2];
        int c = (b[i] << 4) & 63;
        if (i + 1 < n)
            c |= b[i + 1] >> 4;
        out += Base64Table[c];
        if (i + 1 < n) {
            c = (b[i + 1] << 2) & 63;
            if (i + 2 < n)
                c |= b[i + 2] >> 6;
            out += Base64Table[c];
        }
        if (i + 2 < n)
            out += Base64Table[b[i + 2] & 63];
    }
    return out;
}

std::string Base64::encode(counted_ptr<Bytes> bytes) {
    return encode(reinterpret_cast<const char*>(bytes->data), bytes->length);
}

std::string Base64::encode(const std::string& text) {
    return encode(text.data(), static_cast<int>(text.size()));
}

counted_ptr<Bytes> Base64::decode(const std::string& text) {
    const int L = static_cast<int>(text.size());
    counted_ptr<Bytes> result(new Bytes(3 * L / 4));
    Bytes& out = *result;
    // A last group of one or two characters computes bytes that have no room
    // in the buffer (its size is fixed by 3 * L / 4): they are dropped, so the
    // terminating zero stays in place. text[L] reads the string's own NUL.
    auto put = [&out](int o, int v) {
        if (o < out.length)
            out.data[o] = static_cast<unsigned char>(v);
    };
    for (int i = 0, o = 0; i < L; i += 4, o += 3) {
        put(o, (value(text, i) << 2) | ((value(text, i + 1) >> 4) & 3));
        if (i + 2 < L) {
            if (text[i + 2] == ' ')
                break;
            put(o + 1, (value(text, i + 1) << 4) | ((value(text, i + 2) >> 2) & 15));
        }
        if (i + 3 < L) {
            if (text[i + 3] == ' ')
                break;
            put(o + 2, (value(text, i + 2) << 6) | value(text, i + 3));
        }
    }
    return result;
}
