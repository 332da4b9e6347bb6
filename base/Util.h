#pragma once

#include <string>

// Static string operations shared by every subsystem.
class Util {
  public:
    Util() = default;
    ~Util() = default;

    // Replaces every `from` by `to` in place; returns s.
    static std::string& replace(std::string& s, char from, char to);
    static std::string upper(const std::string& s);
    static std::string lower(const std::string& s);
    // Digits above 9 are lower case; the sign is written only for base 10.
    static std::string itoa(int value, int base);
    // The running program's path, or "" when it cannot be told.
    static std::string getModuleFilename();
};
