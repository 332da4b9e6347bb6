#pragma once

#include <array>
#include <stdexcept>
#include <string>

// The deployment's shared secrets as read from a key file:
//   signature <32 hex digits>
//   picks <35 integers 0..64>
//   mixer1 .. mixer18 <56 characters 0 or 1>
// '#' starts a comment line; blank lines are ignored.
class KeyFile {
  public:
    // Thrown with "<file>:<line>: <what is wrong>".
    class Error : public std::runtime_error {
      public:
        using std::runtime_error::runtime_error;
    };

    static constexpr int PICKS = 35;
    static constexpr int MIXERS = 18;
    static constexpr int MIXER_BITS = 56;
    static constexpr int SIGNATURE_BYTES = 16;

    // name is used in messages only.
    static KeyFile parse(const std::string& text, const std::string& name);
    static KeyFile load(const std::string& path);

    // The generated header with the signature and mixer keys as macros.
    std::string materialHeader() const;
    // The 35 assignments that build the identification text.
    std::string picksInclude() const;

    std::array<unsigned char, SIGNATURE_BYTES> signature{};
    std::array<int, PICKS> picks{};
    std::array<std::array<unsigned char, MIXER_BITS>, MIXERS> mixers{};
};
