#pragma once

#include <string>

// What a client sends for an image: the client password encrypted under the
// built-in password, the reference encrypted under the client password.
std::string encryptToHex(const std::string& password, const std::string& plain);
std::string imageQuery(const std::string& password, const std::string& reference);
