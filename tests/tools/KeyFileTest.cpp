#include <gtest/gtest.h>

#include <sstream>

#include "crypto/Copyright.h"
#include "tests/support/TempDir.h"
#include "tools/KeyFile.h"

namespace {
const std::string KEYS = readFile(TESSAVANT_SOURCE_DIR "/keys/default.keys");
}

TEST(KeyFile, TheHeaderCarriesTheSignatureAndEveryMixerBitAndThePicksSpellTheText) {
    const KeyFile keys = KeyFile::parse(KEYS, "default.keys");
    std::string expected =
        "// Generated from the key file at build time. Do not edit.\n#pragma once\n\n"
        "#define TESSAVANT_SIGNATURE {60, 161, 87, 226, 9, 212, 107, 24, 240, 46, 149, 122, 195, "
        "65, 184, 109}\n";
    std::istringstream lines(KEYS);
    for (std::string item, bits; lines >> item;)
        if (item.compare(0, 5, "mixer") == 0 && lines >> bits) {
            expected += "#define TESSAVANT_MIXER" + item.substr(5) + " {";
            for (char bit : bits)
                expected += std::string(1, bit) + ",";
            expected.back() = '}';
            expected += "\n";
        }
    EXPECT_EQ(keys.materialHeader(), expected);
    EXPECT_EQ(Copyright::get(), "Tessavant 6.0, image server, Linux.");
    EXPECT_EQ(Copyright::getConstStr(), "vant 6.0, image server, Linux.");
}

// The line replaced, its new text, and the message; missing items are
// reported at the end of the file, line 23.
TEST(KeyFile, MalformedFilesNameTheLineAndTheFault) {
    const std::string zeros(55, '0'),
        picks = " 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1";
    const std::tuple<int, std::string, std::string> cases[] = {
        {4, "signature 3ca1", "4: wrong count: 'signature' has 4 hex digits, expected 32"},
        {4, "signature 3ca157e209d46b18f02e957ac341b8xd",
         "4: bad digit in 'signature' at position 31"},
        {4, "", "23: missing item 'signature'"},
        {5, "picks 1 2 3", "5: wrong count: 'picks' has 3 values, expected 35"},
        {5, "picks 65" + picks, "5: value out of range: pick 1 is 65, expected 0 to 64"},
        {5, "picks -1" + picks, "5: bad digit in pick 1 '-1'"},
        {12, "mixer7 0101", "12: wrong count: 'mixer7' has 4 bits, expected 56"},
        {12, "mixer7 " + zeros + "2", "12: bad digit in 'mixer7' at position 56: expected 0 or 1"},
        {12, "mixer1 0" + zeros, "12: duplicate item 'mixer1'"},
        {12, "mixer19 0" + zeros, "12: unknown item 'mixer19'"},
        {12, "mixer07 0" + zeros, "12: unknown item 'mixer07'"},
        {12, "", "23: missing item 'mixer7'"}};
    for (const auto& [number, line, message] : cases) {
        std::istringstream in(KEYS);
        std::string text, each;
        for (int n = 1; std::getline(in, each); ++n)
            text += (n == number ? line : each) + "\n";
        std::string what = "accepted";
        try {
            KeyFile::parse(text, "k.keys");
        } catch (const KeyFile::Error& e) {
            what = e.what();
        }
        EXPECT_EQ(what, "k.keys:" + message);
    }
}
