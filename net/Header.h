#pragma once

#include <list>
#include <map>
#include <string>

// The header fields of one response: each lower-cased name maps to its
// values in the order they arrived.
class Header : public std::map<std::string, std::list<std::string>> {
  public:
    Header() = default;
    virtual ~Header() = default;

    // Takes "Name: value"; exactly one separator character after the colon
    // is assumed and nothing is trimmed.
    void add(const char* line);
    // Null when the name is absent; names are looked up as given.
    const std::string* getFirstValue(const std::string& name) const;
    const std::list<std::string>* getValueList(const std::string& name) const;
    // "name: value\n" per value, names in byte order.
    std::string toString() const;
};
