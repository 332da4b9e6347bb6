#include "tools/KeyFile.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <vector>

namespace {

std::vector<std::string> words(const std::string& line) {
    std::vector<std::string> r;
    std::istringstream in(line);
    std::string w;
    while (in >> w)
        r.push_back(w);
    return r;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

}  // namespace

KeyFile KeyFile::parse(const std::string& text, const std::string& name) {
    KeyFile keys;
    bool seenSignature = false, seenPicks = false;
    bool seenMixer[MIXERS] = {};
    int lineNumber = 0;
    auto fail = [&](const std::string& what) -> Error {
        return Error(name + ":" + std::to_string(lineNumber) + ": " + what);
    };

    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        ++lineNumber;
        std::vector<std::string> w = words(line);
        if (w.empty() || w[0][0] == '#')
            continue;
        const std::string& item = w[0];
        const size_t values = w.size() - 1;

        if (item == "signature") {
            if (seenSignature)
                throw fail("duplicate item 'signature'");
            if (values != 1)
                throw fail("'signature' takes one value of 32 hex digits");
            const std::string& v = w[1];
            if (v.size() != 2 * SIGNATURE_BYTES)
                throw fail("wrong count: 'signature' has " + std::to_string(v.size()) +
                           " hex digits, expected 32");
            for (int i = 0; i < SIGNATURE_BYTES; ++i) {
                int hi = hexDigit(v[2 * i]), lo = hexDigit(v[2 * i + 1]);
                if (hi < 0 || lo < 0)
                    throw fail("bad digit in 'signature' at position " +
                               std::to_string(hi < 0 ? 2 * i + 1 : 2 * i + 2));
                keys.signature[i] = static_cast<unsigned char>(hi * 16 + lo);
            }
            seenSignature = true;
        } else if (item == "picks") {
            if (seenPicks)
                throw fail("duplicate item 'picks'");
            if (values != PICKS)
                throw fail("wrong count: 'picks' has " + std::to_string(values) +
                           " values, expected 35");
            for (int i = 0; i < PICKS; ++i) {
                const std::string& v = w[i + 1];
                if (v.find_first_not_of("0123456789") != std::string::npos)
                    throw fail("bad digit in pick " + std::to_string(i + 1) + " '" + v + "'");
                long value = v.size() > 3 ? 1000 : std::strtol(v.c_str(), nullptr, 10);
                if (value > 64)
                    throw fail("value out of range: pick " + std::to_string(i + 1) + " is " + v +
                               ", expected 0 to 64");
                keys.picks[i] = static_cast<int>(value);
            }
            seenPicks = true;
        } else if (item.compare(0, 5, "mixer") == 0 && item.size() > 5 &&
                   item.find_first_not_of("0123456789", 5) == std::string::npos && item[5] != '0' &&
                   std::atoi(item.c_str() + 5) >= 1 && std::atoi(item.c_str() + 5) <= MIXERS &&
                   item.size() <= 7) {
            const int n = std::atoi(item.c_str() + 5);
            if (seenMixer[n - 1])
                throw fail("duplicate item '" + item + "'");
            if (values != 1)
                throw fail("'" + item + "' takes one value of 56 bits");
            const std::string& v = w[1];
            if (v.size() != MIXER_BITS)
                throw fail("wrong count: '" + item + "' has " + std::to_string(v.size()) +
                           " bits, expected 56");
            for (int i = 0; i < MIXER_BITS; ++i) {
                if (v[i] != '0' && v[i] != '1')
                    throw fail("bad digit in '" + item + "' at position " + std::to_string(i + 1) +
                               ": expected 0 or 1");
                keys.mixers[n - 1][i] = static_cast<unsigned char>(v[i] - '0');
            }
            seenMixer[n - 1] = true;
        } else {
            throw fail("unknown item '" + item + "'");
        }
    }

    // Missing items are reported at the end of the file.
    if (!seenSignature)
        throw fail("missing item 'signature'");
    if (!seenPicks)
        throw fail("missing item 'picks'");
    for (int i = 0; i < MIXERS; ++i)
        if (!seenMixer[i])
            throw fail("missing item 'mixer" + std::to_string(i + 1) + "'");
    return keys;
}

KeyFile KeyFile::load(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw Error(path + ": cannot open key file");
    std::ostringstream text;
    text << in.rdbuf();
    return parse(text.str(), path);
}

std::string KeyFile::materialHeader() const {
    std::ostringstream out;
    out << "// Generated from the key file at build time. Do not edit.\n#pragma once\n\n";
    out << "#define TESSAVANT_SIGNATURE {";
    for (int i = 0; i < SIGNATURE_BYTES; ++i)
        out << (i ? ", " : "") << int(signature[i]);
    out << "}\n";
    for (int m = 0; m < MIXERS; ++m) {
        out << "#define TESSAVANT_MIXER" << m + 1 << " {";
        for (int i = 0; i < MIXER_BITS; ++i)
            out << (i ? "," : "") << int(mixers[m][i]);
        out << "}\n";
    }
    return out.str();
}

std::string KeyFile::picksInclude() const {
    std::ostringstream out;
    out << "// Generated from the key file at build time. Do not edit.\n";
    for (int i = 0; i < PICKS; ++i)
        out << "text[" << i << "] = alphabet[" << picks[i] << "];\n";
    return out.str();
}
