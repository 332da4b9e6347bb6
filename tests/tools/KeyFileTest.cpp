#include <gtest/gtest.h>

#include "crypto/Copyright.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"
#include "tools/KeyFile.h"

namespace {
const std::string ALPHABET = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ .,";

std::string validText() {
    return readFile(TESSAVANT_SOURCE_DIR "/keys/default.keys");
}

std::string replaceLine(const std::string& text, const std::string& item, const std::string& line) {
    std::string r = text;
    size_t at = r.find("\n" + item + " ") + 1;
    size_t end = r.find('\n', at);
    r.replace(at, end - at, line);
    return r;
}

std::string lineOf(const std::string& text, const std::string& item) {
    size_t at = text.find("\n" + item + " ");
    return std::to_string(std::count(text.begin(), text.begin() + at + 1, '\n') + 1);
}

std::string errorOf(const std::string& text) {
    try {
        KeyFile::parse(text, "k.keys");
    } catch (const KeyFile::Error& e) {
        return e.what();
    }
    return "accepted";
}
}  // namespace

TEST(KeyFile, TheDefaultFileParsesAndGivesTheIdentificationText) {
    KeyFile keys = KeyFile::parse(validText(), "default.keys");
    EXPECT_EQ(keys.signature[0], 0x3c);
    EXPECT_EQ(keys.signature[15], 0x6d);
    std::string id;
    for (int pick : keys.picks)
        id += ALPHABET[pick];
    EXPECT_EQ(id, Copyright::get());
    EXPECT_EQ(Copyright::get(), "Tessavant 6.0, image server, Linux.");
    EXPECT_EQ(Copyright::getConstStr(), "vant 6.0, image server, Linux.");
    EXPECT_EQ(Copyright::getConstStr(), Copyright::get().substr(5));
    EXPECT_NE(keys.materialHeader().find("#define TESSAVANT_MIXER18 {"), std::string::npos);
    EXPECT_NE(keys.picksInclude().find("text[34] = alphabet[63];"), std::string::npos);
}

TEST(KeyFile, MalformedFilesNameTheLineAndTheFault) {
    const std::string text = validText();
    const std::string lines = std::to_string(std::count(text.begin(), text.end(), '\n'));
    const std::string sig = lineOf(text, "signature"), picks = lineOf(text, "picks"),
                      mixer = lineOf(text, "mixer7");
    EXPECT_EQ(errorOf(replaceLine(text, "signature", "signature 3ca1")),
              "k.keys:" + sig + ": wrong count: 'signature' has 4 hex digits, expected 32");
    EXPECT_EQ(errorOf(replaceLine(text, "signature", "signature 3ca157e209d46b18f02e957ac341b8xd")),
              "k.keys:" + sig + ": bad digit in 'signature' at position 31");
    EXPECT_EQ(errorOf(replaceLine(text, "signature", "#")),
              "k.keys:" + lines + ": missing item 'signature'");
    EXPECT_EQ(errorOf(replaceLine(text, "picks", "picks 1 2 3")),
              "k.keys:" + picks + ": wrong count: 'picks' has 3 values, expected 35");
    std::string bigPick = "picks 65" + std::string(34 * 2, ' ');
    for (int i = 0; i < 34; ++i)
        bigPick.replace(9 + 2 * i, 1, "1");
    EXPECT_EQ(errorOf(replaceLine(text, "picks", bigPick)),
              "k.keys:" + picks + ": value out of range: pick 1 is 65, expected 0 to 64");
    std::string badPick = bigPick;
    badPick.replace(6, 2, "-1");
    EXPECT_EQ(errorOf(replaceLine(text, "picks", badPick)),
              "k.keys:" + picks + ": bad digit in pick 1 '-1'");
    EXPECT_EQ(errorOf(replaceLine(text, "mixer7", "mixer7 0101")),
              "k.keys:" + mixer + ": wrong count: 'mixer7' has 4 bits, expected 56");
    EXPECT_EQ(errorOf(replaceLine(text, "mixer7", "mixer7 " + std::string(55, '0') + "2")),
              "k.keys:" + mixer + ": bad digit in 'mixer7' at position 56: expected 0 or 1");
    EXPECT_EQ(errorOf(replaceLine(text, "mixer7", "mixer1 " + std::string(56, '0'))),
              "k.keys:" + mixer + ": duplicate item 'mixer1'");
    EXPECT_EQ(errorOf(replaceLine(text, "mixer7", "mixer19 " + std::string(56, '0'))),
              "k.keys:" + mixer + ": unknown item 'mixer19'");
    EXPECT_EQ(errorOf(replaceLine(text, "mixer7", "# gone")),
              "k.keys:" + lines + ": missing item 'mixer7'");
}

TEST(KeyFile, TheGeneratorStopsTheBuildWithTheMessage) {
    TempDir dir;
    std::string bad = dir.write("bad.keys", replaceLine(validText(), "mixer7", "mixer7 01"));
    Process::Result r = Process::run(KEYS2CPP, {bad, dir.path()}, {});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "error: malformed key file: " + bad + ":" + lineOf(validText(), "mixer7") +
                         ": wrong count: 'mixer7' has 2 bits, expected 56\n");
    r = Process::run(KEYS2CPP, {dir.path() + "/none.keys", dir.path()}, {});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err,
              "error: malformed key file: " + dir.path() + "/none.keys: cannot open key file\n");
}

TEST(KeyFile, KeygenWritesFilesThatParse) {
    TempDir dir;
    const Process::Environment env{{"PATH", "/usr/bin:/bin"}};
    Process::Result r = Process::run(KEYGEN, {"-o", dir.path() + "/a.keys"}, env);
    ASSERT_EQ(r.status, 0) << r.err;
    KeyFile a = KeyFile::load(dir.path() + "/a.keys");
    r = Process::run(KEYGEN, {"--id", "Another deployment, 2026 edition.xy"}, env);
    ASSERT_EQ(r.status, 0) << r.err;
    KeyFile b = KeyFile::parse(r.out, "stdout");
    std::string id;
    for (int pick : b.picks)
        id += ALPHABET[pick];
    EXPECT_EQ(id, "Another deployment, 2026 edition.xy");
    EXPECT_NE(a.signature, b.signature);
    EXPECT_NE(a.mixers, b.mixers);

    EXPECT_EQ(Process::run(KEYGEN, {"--id", "too short"}, env).status, 1);
    EXPECT_EQ(Process::run(KEYGEN, {"--id", "Not in the alphabet: 35 characters!"}, env).status, 1);
    EXPECT_EQ(Process::run(KEYGEN, {"--bogus"}, env).status, 2);
    EXPECT_EQ(Process::run(KEYGEN, {"--help"}, env).status, 0);
}
