// Build-time tool: turns a site policy file into the header that base/Policy
// is built with; nothing reads the policy at run time.
//   tessavant-policy2cpp POLICYFILE OUTPUT
#include <arpa/inet.h>

#include <cctype>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {
struct Fault {
    std::string text;
};

std::string quote(const std::string& s) {
    std::string r = "\"";
    for (char c : s)
        r += c == '"' || c == '\\' ? std::string("\\") + c : c == '\n' ? "\\n" : std::string(1, c);
    return r + "\"";
}

long number(const std::string& value, long low, long high) {
    char* end = nullptr;
    const long n = value.empty() || value[0] == '-' ? -1 : std::strtol(value.c_str(), &end, 10);
    if (end == nullptr || *end != '\0' || n < low || n > high)
        throw Fault{"'" + value + "' is not a number from " + std::to_string(low) + " to " +
                    std::to_string(high)};
    return n;
}

std::string absolutePath(const std::string& value) {
    if (value.empty() || value[0] != '/' || ("/" + value + "/").find("/../") != std::string::npos ||
        ("/" + value + "/").find("/./") != std::string::npos)
        throw Fault{"'" + value + "' is not an absolute path without '.' or '..'"};
    std::string path = value;
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}
}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: tessavant-policy2cpp POLICYFILE OUTPUT\n";
        return 2;
    }
    std::ifstream in(argv[1]);
    if (!in) {
        std::cerr << "error: cannot read the policy file " << argv[1] << "\n";
        return 1;
    }
    std::vector<std::string> roots, hosts, ranges;
    std::vector<std::pair<unsigned long, unsigned long>> allowed;
    std::string redirects, timeout, length, verify, caFile;
    std::string line;
    for (int lineNumber = 1; std::getline(in, line); ++lineNumber) {
        std::istringstream words(line);
        std::string name, value, extra;
        words >> name >> value >> extra;
        if (name.empty() || name[0] == '#')
            continue;
        try {
            if (value.empty() || !extra.empty())
                throw Fault{"'" + name + "' takes exactly one value"};
            auto once = [&](std::string& slot, const std::string& text) {
                if (!slot.empty())
                    throw Fault{"'" + name + "' is given twice"};
                slot = text;
            };
            if (name == "local-root") {
                roots.push_back(absolutePath(value));
            } else if (name == "remote-host") {
                for (char& c : value)
                    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
                const bool suffix = value.compare(0, 2, "*.") == 0 && value.size() > 2;
                if (value != "*" && value.find('*', suffix ? 1 : 0) != std::string::npos)
                    throw Fault{"'" + value + "' is not a name, '*.suffix' or '*'"};
                hosts.push_back(value);
            } else if (name == "allow-address") {
                const size_t slash = value.find('/');
                const long bits =
                    slash == std::string::npos ? 32 : number(value.substr(slash + 1), 0, 32);
                in_addr address;
                if (inet_pton(AF_INET, value.substr(0, slash).c_str(), &address) != 1)
                    throw Fault{"'" + value + "' is not an IPv4 address or range (a.b.c.d/n)"};
                const unsigned long mask =
                    bits == 0 ? 0 : (0xFFFFFFFFul << (32 - bits)) & 0xFFFFFFFFul;
                allowed.emplace_back(ntohl(address.s_addr) & mask, mask);
                ranges.push_back(value);
            } else if (name == "max-redirects") {
                once(redirects, std::to_string(number(value, 0, 100)));
            } else if (name == "timeout") {
                once(timeout, std::to_string(number(value, 1, 3600)));
            } else if (name == "max-length") {
                once(length, std::to_string(number(value, 0, INT_MAX)));
            } else if (name == "tls-verify") {
                if (value != "on" && value != "off")
                    throw Fault{"'tls-verify' is 'on' or 'off'"};
                once(verify, value);
            } else if (name == "tls-ca-file") {
                once(caFile, absolutePath(value));
            } else {
                throw Fault{"unknown directive '" + name + "'"};
            }
        } catch (const Fault& f) {
            std::cerr << "error: malformed policy file: " << argv[1] << ":" << lineNumber << ": "
                      << f.text << "\n";
            return 1;
        }
    }

    // What tessavant-url --policy prints: every rule, defaults included.
    std::string text;
    for (const auto& r : roots)
        text += "local-root " + r + "\n";
    if (roots.empty())
        text += "# no local-root: every local reference is refused\n";
    for (const auto& h : hosts)
        text += "remote-host " + h + "\n";
    if (hosts.empty())
        text += "# no remote-host: every remote reference is refused\n";
    for (const auto& a : ranges)
        text += "allow-address " + a + "\n";
    text += "max-redirects " + (redirects.empty() ? "5" : redirects) + "\n";
    text += "timeout " + (timeout.empty() ? "10" : timeout) + "\n";
    text += length.empty() ? "# no max-length\n" : "max-length " + length + "\n";
    text += "tls-verify " + (verify.empty() ? "on" : verify) + "\n";
    text += caFile.empty() ? "# tls-ca-file: the system's store\n" : "tls-ca-file " + caFile + "\n";

    std::ostringstream out;
    out << "// Generated by tessavant-policy2cpp from " << argv[1] << ".\n#pragma once\n"
        << "namespace {\nconst char* const POLICY_ROOTS[] = {";
    for (const auto& r : roots)
        out << quote(r) << ", ";
    out << "nullptr};\nconst char* const POLICY_HOSTS[] = {";
    for (const auto& h : hosts)
        out << quote(h) << ", ";
    out << "nullptr};\n// Address and mask, host byte order.\n"
        << "const unsigned long POLICY_ALLOWED[][2] = {";
    for (const auto& a : allowed)
        out << "{" << a.first << "ul, " << a.second << "ul}, ";
    out << "{0, 0}};\nconst int POLICY_ALLOWED_COUNT = " << allowed.size() << ";\n"
        << "const int POLICY_MAX_REDIRECTS = " << (redirects.empty() ? "5" : redirects) << ";\n"
        << "const int POLICY_TIMEOUT = " << (timeout.empty() ? "10" : timeout) << ";\n"
        << "const long POLICY_MAX_LENGTH = " << (length.empty() ? "-1" : length) << ";\n"
        << "const bool POLICY_TLS_VERIFY = " << (verify == "off" ? "false" : "true") << ";\n"
        << "const char* const POLICY_CA_FILE = " << (caFile.empty() ? "nullptr" : quote(caFile))
        << ";\nconst char POLICY_TEXT[] = " << quote(text) << ";\n}  // namespace\n";

    const std::string content = out.str();
    {
        std::ifstream old(argv[2], std::ios::binary);
        std::string existing((std::istreambuf_iterator<char>(old)),
                             std::istreambuf_iterator<char>());
        if (old && existing == content)
            return 0;
    }
    std::ofstream(argv[2], std::ios::binary | std::ios::trunc) << content;
    return 0;
}
