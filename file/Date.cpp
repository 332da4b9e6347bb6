#include "file/Date.h"

#include <cstdlib>
#include <cstring>
#include <string>

namespace {
uint32_t field(const std::string& s, size_t position, size_t count) {
    return static_cast<uint32_t>(std::strtol(s.substr(position, count).c_str(), nullptr, 10));
}
}  // namespace

Date::Date(const char* text) : year(0), monthNumber(0), day(0), hour(0), minute(0), second(0) {
    std::string s = text != nullptr ? text : "";
    if (s.size() <= 28 || s.compare(26, 3, "GMT") != 0)
        return;
    year = field(s, 12, 4);
    monthNumber = month(s.substr(8, 3).c_str());
    day = field(s, 5, 2);
    hour = field(s, 17, 2);
    minute = field(s, 20, 2);
    second = field(s, 23, 2);
}

uint32_t Date::month(const char* name) {
    static const char* const names[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    if (name == nullptr)
        return 0;
    for (uint32_t i = 0; i < 12; ++i)
        if (std::strcmp(name, names[i]) == 0)
            return i + 1;
    return 0;
}

int Date::compare(const Date& other) const {
    const uint32_t mine[] = {year, monthNumber, day, hour, minute, second};
    const uint32_t theirs[] = {other.year, other.monthNumber, other.day,
                               other.hour, other.minute,      other.second};
    for (int i = 0; i < 6; ++i) {
        if (mine[i] > theirs[i])
            return 1;
        if (mine[i] < theirs[i])
            return -1;
    }
    return 0;
}

bool Date::operator==(const Date& other) const {
    return compare(other) == 0;
}
bool Date::operator>=(const Date& other) const {
    return compare(other) >= 0;
}
bool Date::operator>(const Date& other) const {
    return compare(other) > 0;
}
bool Date::operator<=(const Date& other) const {
    return compare(other) <= 0;
}
bool Date::operator<(const Date& other) const {
    return compare(other) < 0;
}
