#pragma once

#include <cstdint>

// An HTTP date in the fixed-width RFC 1123 form, as six fields ordered
// field by field; anything else parses as the all-zero date.
class Date {
  public:
    explicit Date(const char* text);
    virtual ~Date() = default;

    // 1..12 for "Jan".."Dec" exactly, 0 otherwise.
    static uint32_t month(const char* name);
    // 1 if this is later, -1 if earlier, 0 if equal.
    int compare(const Date& other) const;

    bool operator==(const Date& other) const;
    bool operator>=(const Date& other) const;
    bool operator>(const Date& other) const;
    bool operator<=(const Date& other) const;
    bool operator<(const Date& other) const;

    uint32_t year, monthNumber, day, hour, minute, second;
};
