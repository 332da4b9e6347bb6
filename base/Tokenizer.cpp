#include "base/Tokenizer.h"

#include <cstring>

// Same rules as strtok, but re-entrant and without a writable copy.
Tokenizer::Tokenizer(const char* text, const char* delimiters) {
    if (text == nullptr)
        return;
    const char* p = text;
    while (*p != '\0') {
        p += std::strspn(p, delimiters);
        if (*p == '\0')
            break;
        size_t n = std::strcspn(p, delimiters);
        emplace_back(p, n);
        p += n;
    }
}
