#pragma once

#include <string>
#include <vector>

// Splits a text at any of a set of delimiter characters; runs of delimiters
// count as one, so no token is ever empty.
class Tokenizer : public std::vector<std::string> {
  public:
    Tokenizer(const char* text, const char* delimiters);
    virtual ~Tokenizer() = default;
};
