#include <gtest/gtest.h>

#include <sstream>

#include "base/Exception.h"
#include "crypto/Base64.h"
#include "crypto/Copyright.h"
#include "crypto/Hex.h"
#include "crypto/StringCrypto.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"
#include "tools/KeyFile.h"

namespace {
std::string text(const counted_ptr<Bytes>& b) {
    EXPECT_EQ(b->data[b->length], 0);  // the zero byte after every payload
    return std::string(reinterpret_cast<const char*>(b->data), b->length);
}

// Counts the bytes moved, where the bounds checks of the base would hide a miss.
struct Counting : StringCrypto {
    Counting() : StringCrypto("pw", true) {}
    unsigned char getNextByte() override { return ++read, StringCrypto::getNextByte(); }
    void putByte(unsigned char byte) override { ++written, StringCrypto::putByte(byte); }
    std::string operator()(const std::string& s) {
        return text(cipher(reinterpret_cast<const unsigned char*>(s.data()), s.size()));
    }
    int read = 0, written = 0;
};

}  // namespace

// The Base64 alphabet both ways; hex takes pairs and reads a foreign digit as 0.
TEST(Encodings, HexAndBase64) {
    const std::string abc = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    EXPECT_EQ(Base64::encode(Base64::decode(abc)) + Base64::encode("\xFB\xF0"), abc + "+/A");
    EXPECT_EQ(Hex::encode(Hex::decode("abcdef1gz")) + Hex::encode(255) + Hex::encode(-1),
              "ABCDEF10000000ffffffffff");
}

TEST(Cipher, EveryByteLandsInsideTheBuffersAndASignedInputOfAWrongSizeOrPadIsRefused) {
    for (int n = 0; n <= 17; ++n) {
        const std::string plain(n, static_cast<char>(0x80 + n));
        Counting encrypt, decrypt;
        const std::string e = encrypt(plain), d = decrypt(e);
        EXPECT_EQ(std::make_tuple(d, encrypt.read, encrypt.written, decrypt.read, decrypt.written),
                  std::make_tuple(plain, n, e.size() - 16, e.size() - 16, n));
    }
    const std::string e = Counting()("twelve bytes"), signature = e.substr(0, 16);
    EXPECT_EQ(Counting()(signature + '\7' + e.substr(17)) + "|" + Counting()(signature + '\0'),
              "twelve by|");
    for (const std::string& in : {signature, signature + '\1', signature + '\10' + e.substr(17)})
        EXPECT_THROW(Counting()(in), Exception) << in.size();
}

// An independent implementation's answers under keys/default.keys. The program runs in a network
// namespace of its own; where it can have none (a user in a chroot), only on local references.
TEST(KnownAnswers, ToolAndProgramSpeakTheWireFormat) {
    std::istringstream rows(readFile(TESSAVANT_SOURCE_DIR "/tests/crypto/known-answers.tsv"));
    auto url = [](const std::vector<std::string>& args) {
        return Process::run(TESSAVANT_URL, args, {}, "", 30).out;
    };
    TempDir empty;  // relative references name nothing here
    std::string net = "-n";
    if (Process::run("/usr/bin/unshare", {net, "true"}, {}).status != 0)
        net = Process::run("/usr/bin/unshare", {"-rn", "true"}, {}).status == 0 ? "-rn" : "";
    // The same rows through one --batch process, after bad lines that it reports and goes on.
    std::string batchIn = "no tab\n\t/a.gif\npw\t\n";
    std::string batchOut =
        "error: line 1: no tab between password and reference\n"
        "error: line 2: empty password\nerror: line 3: empty reference\n";
    int count = 0, lines = 3;
    for (std::string row; std::getline(rows, row);) {
        const size_t a = row.find('\t'), b = row.find('\t', a + 1), c = row.rfind('\t');
        if (row[0] == '#')
            continue;
        const std::string password = text(Hex::decode(row.substr(0, a))),
                          reference = text(Hex::decode(row.substr(a + 1, b - a - 1))),
                          query = "cmd=img&p=" + row.substr(b + 1, c - b - 1) +
                                  "&i=" + row.substr(c + 1);
        EXPECT_EQ(url({"--", password, reference}), query + "\n") << row;
        if (reference.find('\n') == std::string::npos) {  // a line feed would end the line
            batchIn += password + "\t" + reference + "\n", ++lines;
            batchOut += password.empty()
                            ? "error: line " + std::to_string(lines) + ": empty password\n"
                            : query + "\n";
        }
        EXPECT_EQ(url({"--decode", "http://h/t?x=1&" + query}), password + "\n" + reference + "\n");
        if (++count, net.empty() && reference.find("://") != std::string::npos)
            continue;
        const Process::Result reply = Process::run(
            net.empty() ? TESSAVANT_BIN : "/usr/bin/unshare",
            net.empty() ? std::vector<std::string>{} : std::vector<std::string>{net, TESSAVANT_BIN},
            {{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", query}}, "", 30, empty.path());
        const std::string expected = "Content-type: text/plain\n\ne=" + reference + " - ";
        EXPECT_EQ(reply.out.substr(0, expected.size()), expected) << row << "\n" << reply.err;
    }
    EXPECT_EQ(count, 12);
    EXPECT_EQ(Process::run(TESSAVANT_URL, {"--batch"}, {}, batchIn, 30).out, batchOut);
}

// One line replaced, against the fault named (the header itself: the known answers).
TEST(KeyFile, MalformedFilesNameTheLineAndTheFault) {
    const std::string keys = readFile(TESSAVANT_SOURCE_DIR "/keys/default.keys"), zeros(55, '0');
    const std::string ones = " 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1";
    const std::tuple<int, std::string, std::string> cases[] = {
        {4, "signature 3ca1", "4: wrong count: 'signature' has 4 hex digits, expected 32"},
        {4, "signature " + zeros.substr(24) + "x", "4: bad digit in 'signature' at position 32"},
        {4, "", "23: missing item 'signature'"},
        {5, "picks 1 2 3", "5: wrong count: 'picks' has 3 values, expected 35"},
        {5, "picks 65" + ones, "5: value out of range: pick 1 is 65, expected 0 to 64"},
        {5, "picks -1" + ones, "5: bad digit in pick 1 '-1'"},
        {12, "mixer7 0101", "12: wrong count: 'mixer7' has 4 bits, expected 56"},
        {12, "mixer7 2" + zeros, "12: bad digit in 'mixer7' at position 1: expected 0 or 1"},
        {12, "mixer1 0" + zeros, "12: duplicate item 'mixer1'"},
        {12, "mixer19 0" + zeros, "12: unknown item 'mixer19'"},
        {12, "mixer07 0" + zeros, "12: unknown item 'mixer07'"},
        {12, "", "23: missing item 'mixer7'"}};
    for (const auto& [number, line, message] : cases) {
        std::istringstream in(keys);
        std::string file, each, what = "accepted";
        for (int n = 1; std::getline(in, each); ++n)
            file += (n == number ? line : each) + "\n";
        try {
            KeyFile::parse(file, "k");
        } catch (const KeyFile::Error& e) {
            what = e.what();
        }
        EXPECT_EQ(what, "k:" + message);
    }
    EXPECT_EQ(Copyright::get(), "Tessavant 6.0, image server, Linux.");
}

// The URL tool's forms; a wrong argument list gets the usage and status 2, and --decode names
// the first parameter that cannot be a ciphertext, and why.
TEST(Tool, TakesEachOptionOnlyInItsPlace) {
    const auto run = [](const std::vector<std::string>& args) {
        const Process::Result r = Process::run(TESSAVANT_URL, args, {}, "", 30);
        const auto first = [](const std::string& s) { return s.substr(0, s.find('\n')); };
        return std::to_string(r.status) + " " + first(r.out) + "|" + first(r.err);
    };
    const std::string usage = "|usage: tessavant-url [--base URL] [--] PASSWORD REFERENCE";
    const std::string query = run({"--", "-p", "r"}), p = query.substr(10, 52);
    const std::string sig = "3CA157E209D46B18F02E957AC341B86D",
                      decode = "1 |tessavant-url: parameter ";
    const std::string size =
        " has the wrong size for an encrypted value (StringCrypto::cipher Wrong size)";
    const std::pair<std::vector<std::string>, std::string> rows[] = {
        {{"--help"}, "0 " + usage.substr(1) + "|"},
        {{"--policy"},
         "0 # no policy: every local path and every http or https URL that a valid "
         "reference names is opened|"},
        {{"--base", "B", "--", "-p", "r"}, "0 B?" + query.substr(2)},
        {{"-p", "r"}, "2 " + usage},
        {{"p"}, "2 " + usage},
        {{"--base", "B", "p"}, "2 " + usage},
        {{"--batch", "x"}, "2 " + usage},
        {{"--decode"}, "2 " + usage},
        {{"--decode", "h?p=zz&i=" + sig}, decode + "p is not hexadecimal text"},
        {{"--decode", "h?i=" + sig}, decode + "p is missing"},
        {{"--decode", "h?" + p + "&i=00"}, decode + "i is not an encrypted value (no signature)"},
        {{"--decode", "h?p=" + sig + "0000&i=" + sig}, decode + "p" + size},
        {{"--decode", "h?" + p + "&i=" + sig + "0900000000000000"}, decode + "i" + size}};
    for (const auto& [args, expected] : rows)
        EXPECT_EQ(run(args), expected) << args.back();
}
