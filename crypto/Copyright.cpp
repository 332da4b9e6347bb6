#include "crypto/Copyright.h"

#include <cstring>

namespace {
const char ALPHABET[] = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ .,";
}

std::string Copyright::get() {
    char alphabet[sizeof ALPHABET];
    std::memcpy(alphabet, ALPHABET, sizeof ALPHABET);
    char text[36];
#include "CopyrightPicks.inc"
    text[35] = '\0';
    return text;
}

std::string Copyright::getConstStr() {
    return get().substr(5, 30);
}
