#pragma once

#include <string>

#include "base/Exception.h"

// What an action fails with: the getMessageCode() of the Exception it throws,
// or "no failure".
template <typename F>
std::string failureOf(F action) {
    try {
        action();
    } catch (const Exception& e) {
        return e.getMessageCode();
    }
    return "no failure";
}
