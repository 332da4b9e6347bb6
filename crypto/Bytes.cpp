#include "crypto/Bytes.h"

#include <cstring>

Bytes::Bytes(const char* text) : data(nullptr), length(static_cast<int>(std::strlen(text))) {
    data = new unsigned char[length + 1];
    std::memcpy(data, text, length + 1);
}

Bytes::Bytes(int size) : data(nullptr), length(size < 0 ? 0 : size) {
    data = new unsigned char[length + 1]();
}

Bytes::Bytes(const unsigned char* bytes, int length)
    : data(nullptr), length(length < 0 ? 0 : length) {
    data = new unsigned char[this->length + 1];
    if (this->length > 0)
        std::memcpy(data, bytes, this->length);
    data[this->length] = 0;
}

Bytes::~Bytes() {
    delete[] data;
}
