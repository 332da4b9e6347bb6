#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The fuzzer's bytes as a string, zero bytes included.
inline std::string fuzzText(const uint8_t* data, size_t size) {
    return std::string(reinterpret_cast<const char*>(data), size);
}

// Ends the run as a finding when a property that must hold does not.
void fuzzCheck(bool holds, const char* what);
// The same, naming what was seen instead (an unexpected failure's text).
void fuzzCheck(bool holds, const char* what, const std::string& seen);
