#pragma once

#include <string>

// The identification text and the built-in password cut from it. Both are
// assembled at run time from an alphabet and the build's picks, so the
// finished text never stands among the program's constants.
class Copyright {
  public:
    Copyright() {}
    ~Copyright() {}

    // The 35-character identification text.
    static std::string get();
    // Characters 5 to 34 of get(): the built-in password.
    static std::string getConstStr();
};
