#pragma once

// An owned byte buffer. One zero byte always follows the payload, so the
// buffer can also be read as a zero-terminated string. Never copied: it is
// shared through counted_ptr<Bytes>.
class Bytes {
  public:
    // The text without its NUL.
    explicit Bytes(const char* text);
    // size zero bytes; a negative size gives an empty buffer.
    explicit Bytes(int size);
    // A copy of length bytes.
    Bytes(const unsigned char* bytes, int length);
    ~Bytes();

    Bytes(const Bytes&) = delete;
    Bytes& operator=(const Bytes&) = delete;

    unsigned char* data;  // length + 1 bytes, data[length] == 0
    int length;
};
