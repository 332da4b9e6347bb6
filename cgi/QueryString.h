#pragma once

#include <map>
#include <string>

// The request's parameters: lower-cased names to values, taken as they stand
// (no percent or plus decoding; one surrounding quote removed at each end).
class QueryString : public std::map<std::string, std::string> {
  public:
    // A null or empty text gives an empty map.
    explicit QueryString(const char* text);
    virtual ~QueryString() = default;

    // Stores one name=value piece; a later name replaces an earlier one.
    void setValue(std::string pair);
    std::string removeQuote(const std::string& s);
    // Every pair followed by "&", in key order.
    std::string toString() const;

    // In place: plus to space, then %XX decoding.
    static char* decode(char* s);
    // In place: every `from` becomes `to`.
    static char* convert(char* s, char from, char to);
};
