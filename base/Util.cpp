#include "base/Util.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <climits>

std::string& Util::replace(std::string& s, char from, char to) {
    std::replace(s.begin(), s.end(), from, to);
    return s;
}

std::string Util::upper(const std::string& s) {
    std::string r(s);
    for (char& c : r)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return r;
}

std::string Util::lower(const std::string& s) {
    std::string r(s);
    for (char& c : r)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return r;
}

std::string Util::itoa(int value, int base) {
    static const char digits[] = "0123456789abcdef";
    std::string r;
    r.reserve(35);
    if (base < 2 || base > 16)
        return r;
    const bool negative = value < 0;
    // Taking the absolute value of each remainder (never of the value) keeps
    // INT_MIN free of overflow.
    do {
        int remainder = value % base;
        r += digits[remainder < 0 ? -remainder : remainder];
        value /= base;
    } while (value != 0);
    if (negative && base == 10)
        r += '-';
    std::reverse(r.begin(), r.end());
    return r;
}

std::string Util::getModuleFilename() {
    char path[4096];
    ssize_t n = ::readlink("/proc/self/exe", path, sizeof path - 1);
    if (n <= 0)
        return std::string();
    return std::string(path, static_cast<size_t>(n));
}
