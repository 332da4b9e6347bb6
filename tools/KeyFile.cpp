#include "tools/KeyFile.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <vector>

namespace {

using Words = std::vector<std::string>;

Words words(const std::string& line) {
    Words r;
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

// Makes the error for the line being read.
struct Where {
    const std::string& name;
    int line = 0;
    KeyFile::Error operator()(const std::string& what) const {
        return KeyFile::Error(name + ":" + std::to_string(line) + ": " + what);
    }
};

void readSignature(const Words& w, KeyFile& keys, const Where& fail) {
    if (w.size() != 2)
        throw fail("'signature' takes one value of 32 hex digits");
    const std::string& v = w[1];
    if (v.size() != 2 * KeyFile::SIGNATURE_BYTES)
        throw fail("wrong count: 'signature' has " + std::to_string(v.size()) +
                   " hex digits, expected 32");
    for (int i = 0; i < KeyFile::SIGNATURE_BYTES; ++i) {
        const int hi = hexDigit(v[2 * i]), lo = hexDigit(v[2 * i + 1]);
        if (hi < 0 || lo < 0)
            throw fail("bad digit in 'signature' at position " +
                       std::to_string(hi < 0 ? 2 * i + 1 : 2 * i + 2));
        keys.signature[i] = static_cast<unsigned char>(hi * 16 + lo);
    }
}

void readPicks(const Words& w, KeyFile& keys, const Where& fail) {
    if (w.size() - 1 != KeyFile::PICKS)
        throw fail("wrong count: 'picks' has " + std::to_string(w.size() - 1) +
                   " values, expected 35");
    for (int i = 0; i < KeyFile::PICKS; ++i) {
        const std::string& v = w[i + 1];
        if (v.find_first_not_of("0123456789") != std::string::npos)
            throw fail("bad digit in pick " + std::to_string(i + 1) + " '" + v + "'");
        const long value = v.size() > 3 ? 1000 : std::strtol(v.c_str(), nullptr, 10);
        if (value > 64)
            throw fail("value out of range: pick " + std::to_string(i + 1) + " is " + v +
                       ", expected 0 to 64");
        keys.picks[i] = static_cast<int>(value);
    }
}

// 1 to 18 for "mixer1" .. "mixer18", written without leading zeros; 0 otherwise.
int mixerNumber(const std::string& item) {
    if (item.compare(0, 5, "mixer") != 0 || item.size() < 6 || item.size() > 7 || item[5] == '0' ||
        item.find_first_not_of("0123456789", 5) != std::string::npos)
        return 0;
    const int n = std::atoi(item.c_str() + 5);
    return n <= KeyFile::MIXERS ? n : 0;
}

void readMixer(const Words& w, std::array<unsigned char, KeyFile::MIXER_BITS>& mixer,
               const Where& fail) {
    const std::string& item = w[0];
    if (w.size() != 2)
        throw fail("'" + item + "' takes one value of 56 bits");
    const std::string& v = w[1];
    if (v.size() != KeyFile::MIXER_BITS)
        throw fail("wrong count: '" + item + "' has " + std::to_string(v.size()) +
                   " bits, expected 56");
    for (int i = 0; i < KeyFile::MIXER_BITS; ++i) {
        if (v[i] != '0' && v[i] != '1')
            throw fail("bad digit in '" + item + "' at position " + std::to_string(i + 1) +
                       ": expected 0 or 1");
        mixer[i] = static_cast<unsigned char>(v[i] - '0');
    }
}

std::string itemName(int item) {
    return item == 0 ? "signature" : item == 1 ? "picks" : "mixer" + std::to_string(item - 1);
}

}  // namespace

KeyFile KeyFile::parse(const std::string& text, const std::string& name) {
    KeyFile keys;
    // Items in file order: signature, picks, mixer1 .. mixer18.
    bool seen[2 + MIXERS] = {};
    Where fail{name};
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        ++fail.line;
        const Words w = words(line);
        if (w.empty() || w[0][0] == '#')
            continue;
        const int mixer = mixerNumber(w[0]);
        int item = mixer ? 1 + mixer : -1;
        if (w[0] == "signature" || w[0] == "picks")
            item = w[0] == "picks";
        if (item < 0)
            throw fail("unknown item '" + w[0] + "'");
        if (seen[item])
            throw fail("duplicate item '" + w[0] + "'");
        seen[item] = true;
        if (item == 0)
            readSignature(w, keys, fail);
        else if (item == 1)
            readPicks(w, keys, fail);
        else
            readMixer(w, keys.mixers[mixer - 1], fail);
    }
    // Missing items are reported at the end of the file.
    for (int i = 0; i < 2 + MIXERS; ++i)
        if (!seen[i])
            throw fail("missing item '" + itemName(i) + "'");
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
