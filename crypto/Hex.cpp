#include "crypto/Hex.h"

#include <cstdio>

char Hex::b2h(unsigned char v) {
    return static_cast<char>(v > 9 ? v + 55 : v + 48);
}

int Hex::h2d(char c) {
    if (c >= '0' && c <= '9')
        return c - 48;
    if (c >= 'A' && c <= 'F')
        return c - 55;
    if (c >= 'a' && c <= 'f')
        return c - 87;
    return 0;
}

counted_ptr<Bytes> Hex::decode(const std::string& text) {
    const int n = static_cast<int>(text.size() >> 1);
    counted_ptr<Bytes> result(new Bytes(n));
    for (int i = 0; i < n; ++i)
        result->data[i] =
            static_cast<unsigned char>(((h2d(text[2 * i]) << 4) & 0xFF) | h2d(text[2 * i + 1]));
    return result;
}

std::string Hex::encode(int value) {
    char text[9];
    std::snprintf(text, sizeof text, "%08x", static_cast<unsigned>(value));
    return text;
}

std::string Hex::encode(const counted_ptr<Bytes>& bytes) {
    const int n = bytes->length;
    char* text = new char[2 * n + 1];
    text[2 * n] = 0;
    for (int i = 0; i < n; ++i) {
        text[2 * i] = b2h(bytes->data[i] >> 4);
        text[2 * i + 1] = b2h(bytes->data[i] & 15);
    }
    std::string result(text);
    delete[] text;
    return result;
}

std::string Hex::encode(const std::string& text) {
    return encode(counted_ptr<Bytes>(new Bytes(text.c_str())));
}
