#include <gtest/gtest.h>

#include <sstream>

#include "crypto/Base64.h"
#include "crypto/Hex.h"
#include "crypto/StringCrypto.h"
#include "tests/support/Failure.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace {
std::string text(const counted_ptr<Bytes>& b) {
    EXPECT_EQ(b->data[b->length], 0);  // the zero byte after every payload
    return std::string(reinterpret_cast<const char*>(b->data), b->length);
}

counted_ptr<Bytes> bytes(const std::string& s) {
    return counted_ptr<Bytes>(
        new Bytes(reinterpret_cast<const unsigned char*>(s.data()), static_cast<int>(s.size())));
}

std::string url(const std::vector<std::string>& args) {
    return Process::run(TESSAVANT_URL, args, {}, std::string(), 30).out;
}

// Counts the bytes the cipher moves: all must land inside the buffers, where
// the bounds checks of getNextByte and putByte would hide a miss.
class Counting : public StringCrypto {
  public:
    explicit Counting(bool triple) : StringCrypto("pw", triple) {}
    unsigned char getNextByte() override { return ++read, StringCrypto::getNextByte(); }
    void putByte(unsigned char byte) override { ++written, StringCrypto::putByte(byte); }
    int read = 0, written = 0;
};
}  // namespace

// The known answers below pin both codecs' plain cases; these are the rest.
TEST(Encodings, HexAndBase64) {
    const std::string base64 =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/QUI";
    const std::tuple<counted_ptr<Bytes> (*)(const std::string&), std::string, std::string> cases[] =
        {{Hex::decode, "abcdef", "\xAB\xCD\xEF"},
         {Hex::decode, "ab1gz", "\xAB\x10"},
         {Base64::decode, "QQ== QJD", "\x41\x0F\xFF\xFD\x02\x43"},
         {Base64::decode, "QUJDQU I", std::string("ABCA\0\0", 6)},
         {Base64::decode, "QUJDR", "ABC"}};
    for (const auto& [decode, encoded, plain] : cases)
        EXPECT_EQ(text(decode(encoded)), plain) << encoded;
    const std::string plain =
        text(Hex::decode("00108310518720928B30D38F41149351559761969B71D79F8218A39259A7A29AABB2DBAFC"
                         "31CB3D35DB7E39EBBF3DFBF"));
    EXPECT_EQ(Base64::encode(plain + "AB") + "|" + text(Base64::decode(base64)),
              base64 + "|" + plain + "AB");
    EXPECT_EQ(Hex::encode(std::string("ab\0cd", 5)) + Hex::encode(255) + Hex::encode(-1),
              "6162000000ffffffffff");
}

TEST(StringCrypto, EveryByteLandsInsideTheBuffersAndDecryptionInvertsEncryption) {
    for (bool triple : {false, true})
        for (int n = 0; n <= 17; ++n) {
            const std::string plain(n, static_cast<char>(0x80 + n));
            Counting encrypt(triple), decrypt(triple);
            const counted_ptr<Bytes> e = encrypt.cipher(bytes(plain));
            EXPECT_EQ(text(decrypt.cipher(e)), plain);
            EXPECT_EQ(
                std::vector<int>({encrypt.read, encrypt.written, decrypt.read, decrypt.written}),
                std::vector<int>({n, e->length - 16, e->length - 16, n}))
                << n << (triple ? " triple" : " single");
        }
}

TEST(StringCrypto, SignedInputOfAWrongSizeOrPadIsRefused) {
    const std::string e = text(StringCrypto("pw", true).cipher(bytes("twelve bytes")));
    const std::string signature = e.substr(0, 16), wrong = "StringCrypto::cipher Wrong size (-1)";
    auto withPad = [&](char pad) { return signature + pad + e.substr(17); };
    const std::pair<std::string, std::string> cases[] = {
        {withPad(7), "twelve by"}, {withPad(0), std::string("twelve bytes\0\0\0\0", 16)},
        {signature + '\0', ""},    {signature, wrong},
        {e.substr(0, 24), wrong},  {e.substr(0, 32) + "xy", wrong},
        {signature + '\1', wrong}, {withPad(8), wrong},
        {withPad('\x80'), wrong}};
    ASSERT_EQ(e.size(), 33u);
    for (const auto& [in, out] : cases) {
        std::string result;
        const std::string failure =
            failureOf([&, in = in] { result = text(StringCrypto("pw", true).cipher(bytes(in))); });
        EXPECT_EQ(failure == "no failure" ? result : failure, out) << in.size();
    }
}

// The wire format, pinned by answers from an independent implementation under
// keys/default.keys. Every row goes through argv as it stands, the empty
// password and reference and the bytes 0x01 to 0xFF included.
TEST(KnownAnswers, ToolAndProgramSpeakTheWireFormat) {
    std::istringstream rows(readFile(TESSAVANT_SOURCE_DIR "/tests/crypto/known-answers.tsv"));
    TempDir empty;  // relative references name nothing here
    int count = 0;
    for (std::string row, password, reference, p, i; std::getline(rows, row);) {
        if (row[0] == '#')
            continue;
        std::istringstream f(row);
        std::getline(
            std::getline(std::getline(std::getline(f, password, '\t'), reference, '\t'), p, '\t'),
            i);
        password = text(Hex::decode(password)), reference = text(Hex::decode(reference));
        const std::string query = "cmd=img&p=" + p + "&i=" + i;
        EXPECT_EQ(url({password, reference}), query + "\n") << row;
        EXPECT_EQ(url({"--base", "http://h/t", "--", password, reference}),
                  "http://h/t?" + query + "\n");
        EXPECT_EQ(url({"--decode", "http://h/t?x=1&" + query}), password + "\n" + reference + "\n");
        // For the http(s) references: where only an unconfigured loopback
        // exists, no fetch can leave the machine.
        const Process::Result reply = Process::run(
            "/usr/bin/unshare", {"-n", TESSAVANT_BIN},
            {{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", query}}, "", 30, empty.path());
        const std::string expected = "Content-type: text/plain\n\ne=" + reference + " - ";
        EXPECT_EQ(reply.out.substr(0, expected.size()), expected) << row << "\n" << reply.err;
        ++count;
    }
    EXPECT_EQ(count, 12);
}
