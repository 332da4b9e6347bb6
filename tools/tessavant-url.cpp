// The client side of the parameter cipher, for operators and tests: builds
// the query of an image request from a client password and a reference, and
// takes such a query apart again.
#include <cstring>
#include <iostream>
#include <memory>
#include <string>

#include "base/Exception.h"
#include "base/Policy.h"
#include "crypto/Copyright.h"
#include "crypto/Decryptor.h"
#include "crypto/Hex.h"
#include "crypto/StringCrypto.h"

namespace {
const char USAGE[] =
    "usage: tessavant-url [--base URL] [--] PASSWORD REFERENCE\n"
    "       tessavant-url [--base URL] --batch\n"
    "       tessavant-url --decode QUERY_OR_URL\n"
    "       tessavant-url --policy\n"
    "       tessavant-url --help\n";

const char HELP[] =
    "\n"
    "Without an option, prints the query of an image request:\n"
    "    cmd=img&p=<HEX>&i=<HEX>\n"
    "p is PASSWORD (the client password) encrypted with the built-in password,\n"
    "i is REFERENCE (a local path or an http or https URL) encrypted with PASSWORD,\n"
    "both with the triple cipher, as upper-case hex. Only the first 48 characters\n"
    "of PASSWORD count.\n"
    "\n"
    "--base URL       prints URL?cmd=img&p=...&i=... instead.\n"
    "--batch          reads PASSWORD<TAB>REFERENCE lines on standard input and\n"
    "                 writes one query (or URL) a line, flushed line by line; a\n"
    "                 line that cannot be encrypted gets \"error: line N: WHY\".\n"
    "--decode QUERY   takes a query, or a URL with one, and prints the client\n"
    "                 password on line 1 and the reference on line 2.\n"
    "--policy         prints the site policy that this build carries.\n"
    "--               ends the options, for a PASSWORD that starts with '-'.\n"
    "\n"
    "Exit status: 0 done, 1 a value that cannot be encrypted or decrypted,\n"
    "2 a wrong argument list.\n";

int usage() {
    std::cerr << USAGE;
    return 2;
}

bool startsWithSignature(const std::string& text) {
    return text.size() >= sizeof Crypto::ENCRYPTION_SIGNATURE &&
           std::memcmp(text.data(), Crypto::ENCRYPTION_SIGNATURE,
                       sizeof Crypto::ENCRYPTION_SIGNATURE) == 0;
}

// Encrypting text that happens to start with the signature would decrypt it.
std::string encryptHex(const std::string& password, const std::string& text) {
    return StringCrypto(password.c_str(), true).cipherHex(text);
}

// base is null without --base.
int encode(const char* base, const std::string& password, const std::string& reference) {
    if (startsWithSignature(password) || startsWithSignature(reference)) {
        std::cerr << "tessavant-url: a value that starts with the signature bytes cannot be "
                     "encrypted\n";
        return 1;
    }
    const std::string query = "cmd=img&p=" + encryptHex(Copyright::getConstStr(), password) +
                              "&i=" + encryptHex(password, reference);
    std::cout << (base ? base + ("?" + query) : query) << "\n";
    return 0;
}

// Why a batch line cannot become a query, or "" when it can.
std::string checkBatchLine(const std::string& line, size_t tab) {
    if (tab == std::string::npos)
        return "no tab between password and reference";
    if (tab == 0)
        return "empty password";
    if (tab + 1 == line.size())
        return "empty reference";
    if (line.find('\0') != std::string::npos)
        return "a NUL byte, which the program would cut the value at";
    if (startsWithSignature(line.substr(0, tab)) || startsWithSignature(line.substr(tab + 1)))
        return "a value that starts with the signature bytes cannot be encrypted";
    return std::string();
}

// One query a line for a caller that keeps the tool as a co-process: every
// answer is flushed at once, and a bad line gets an error line of its own so
// that answers stay in step with questions. Setting up the keys of a password
// is most of the work, so the built-in one is set up once and the last
// client password's keys and p are kept for the lines that repeat it.
int batch(const char* base) {
    std::ios::sync_with_stdio(false);
    StringCrypto builtIn(Copyright::getConstStr().c_str(), true);
    std::unique_ptr<StringCrypto> client;
    std::string line, password, p, prefix = base ? base + std::string("?") : std::string();
    for (unsigned long number = 1; std::getline(std::cin, line); ++number) {
        const size_t tab = line.find('\t');
        const std::string fault = checkBatchLine(line, tab);
        if (!fault.empty()) {
            std::cout << "error: line " << number << ": " << fault << std::endl;
            continue;
        }
        if (!client || line.compare(0, tab, password) != 0) {
            password = line.substr(0, tab);
            client.reset(new StringCrypto(password.c_str(), true));
            p = builtIn.cipherHex(password);
        }
        const std::string i = client->cipherHex(line.substr(tab + 1));
        std::cout << prefix << "cmd=img&p=" << p << "&i=" << i << std::endl;
    }
    return 0;
}

// The value of name in the query part of text, found is false when absent.
std::string parameter(const std::string& text, const std::string& name, bool& found) {
    const size_t question = text.find('?');
    const std::string query = question == std::string::npos ? text : text.substr(question + 1);
    size_t start = 0;
    while (start <= query.size()) {
        size_t end = query.find('&', start);
        if (end == std::string::npos)
            end = query.size();
        const std::string pair = query.substr(start, end - start);
        if (pair.compare(0, name.size() + 1, name + "=") == 0) {
            found = true;
            return pair.substr(name.size() + 1);
        }
        start = end + 1;
    }
    found = false;
    return std::string();
}

// Why value cannot be a ciphertext, or "" when it can.
std::string checkCiphertext(const std::string& value) {
    if (value.size() % 2 != 0 ||
        value.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        return "is not hexadecimal text";
    if (!startsWithSignature(
            std::string(reinterpret_cast<const char*>(Hex::decode(value)->data), value.size() / 2)))
        return "is not an encrypted value (no signature)";
    return std::string();
}

int decode(const std::string& text) {
    std::string values[2];
    const char* const names[2] = {"p", "i"};
    for (int n = 0; n < 2; ++n) {
        bool found = false;
        values[n] = parameter(text, names[n], found);
        const std::string fault = found ? checkCiphertext(values[n]) : "is missing";
        if (!fault.empty()) {
            std::cerr << "tessavant-url: parameter " << names[n] << " " << fault << "\n";
            return 1;
        }
    }
    int n = 0;
    try {
        const std::string password = Decryptor::clientPassword(values[0]);
        n = 1;
        Decryptor decryptor(values[0]);
        const std::string reference = decryptor.decrypt(values[1]);
        std::cout << password << "\n" << reference << "\n";
    } catch (const Exception& e) {
        std::cerr << "tessavant-url: parameter " << names[n]
                  << " has the wrong size for an encrypted value (" << e.getMessage() << ")\n";
        return 1;
    }
    return 0;
}
}  // namespace

int main(int argc, char** argv) {
    const std::string first = argc > 1 ? argv[1] : "";
    if (argc == 2 && first == "--help") {
        std::cout << USAGE << HELP;
        return 0;
    }
    if (argc == 2 && first == "--policy") {
        std::cout << (Policy::text() != nullptr
                          ? Policy::text()
                          : "# no policy: every local path and every http or https URL that a "
                            "valid reference names is opened\n");
        return 0;
    }
    if (argc == 3 && first == "--decode")
        return decode(argv[2]);
    // What is left after the options must be exactly PASSWORD REFERENCE.
    int next = 1;
    const char* base = nullptr;
    if (next + 1 < argc && std::strcmp(argv[next], "--base") == 0) {
        base = argv[next + 1];
        next += 2;
    }
    if (argc - next == 1 && std::strcmp(argv[next], "--batch") == 0)
        return batch(base);
    if (next < argc && std::strcmp(argv[next], "--") == 0)
        ++next;
    else if (next < argc && argv[next][0] == '-')
        return usage();
    if (argc - next != 2)
        return usage();
    return encode(base, argv[next], argv[next + 1]);
}
