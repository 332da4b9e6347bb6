#pragma once

#include <string>

#include "base/Exception.h"

// The getMessageCode() of the Exception an action throws, or "no failure".
template <typename F>
std::string failureOf(F action) {
    try {
        action();
        return "no failure";
    } catch (const Exception& e) {
        return e.getMessageCode();
    }
}
