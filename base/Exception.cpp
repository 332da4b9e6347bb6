#include "base/Exception.h"

#include <utility>

Exception::Exception(std::string message, int code) : code(code), message(std::move(message)) {}

Exception::Exception(std::string where, std::string message, int code)
    : code(code), message(std::move(where) + " " + message) {}

std::string Exception::getMessageCode() const {
    return message + " (" + std::to_string(code) + ")";
}
