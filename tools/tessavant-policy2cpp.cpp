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

// The rules as read; single values stay empty until defaults() fills them.
struct Rules {
    std::vector<std::string> roots, hosts, ranges;
    std::vector<std::pair<unsigned long, unsigned long>> allowed;  // address, mask
    std::string redirects, timeout, length, verify, caFile;
};

void once(std::string& slot, const std::string& name, const std::string& value) {
    if (!slot.empty())
        throw Fault{"'" + name + "' is given twice"};
    slot = value;
}

std::string hostPattern(std::string value) {
    for (char& c : value)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    const bool suffix = value.compare(0, 2, "*.") == 0 && value.size() > 2;
    if (value != "*" && value.find('*', suffix ? 1 : 0) != std::string::npos)
        throw Fault{"'" + value + "' is not a name, '*.suffix' or '*'"};
    return value;
}

void allowRange(Rules& rules, const std::string& value) {
    const size_t slash = value.find('/');
    const long bits = slash == std::string::npos ? 32 : number(value.substr(slash + 1), 0, 32);
    in_addr address;
    if (inet_pton(AF_INET, value.substr(0, slash).c_str(), &address) != 1)
        throw Fault{"'" + value + "' is not an IPv4 address or range (a.b.c.d/n)"};
    const unsigned long mask = bits == 0 ? 0 : (0xFFFFFFFFul << (32 - bits)) & 0xFFFFFFFFul;
    rules.allowed.emplace_back(ntohl(address.s_addr) & mask, mask);
    rules.ranges.push_back(value);
}

void apply(Rules& rules, const std::string& name, const std::string& value) {
    if (name == "local-root")
        rules.roots.push_back(absolutePath(value));
    else if (name == "remote-host")
        rules.hosts.push_back(hostPattern(value));
    else if (name == "allow-address")
        allowRange(rules, value);
    else if (name == "max-redirects")
        once(rules.redirects, name, std::to_string(number(value, 0, 100)));
    else if (name == "timeout")
        once(rules.timeout, name, std::to_string(number(value, 1, 3600)));
    else if (name == "max-length")
        once(rules.length, name, std::to_string(number(value, 0, INT_MAX)));
    else if (name == "tls-verify" && value != "on" && value != "off")
        throw Fault{"'tls-verify' is 'on' or 'off'"};
    else if (name == "tls-verify")
        once(rules.verify, name, value);
    else if (name == "tls-ca-file")
        once(rules.caFile, name, absolutePath(value));
    else
        throw Fault{"unknown directive '" + name + "'"};
}

// Throws the fault with the file and line in front of it.
Rules read(std::istream& in, const std::string& file) {
    Rules rules;
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
            apply(rules, name, value);
        } catch (const Fault& f) {
            throw Fault{file + ":" + std::to_string(lineNumber) + ": " + f.text};
        }
    }
    return rules;
}

// The defaults, in one place. An empty length means no limit, an empty CA file the system's store.
void defaults(Rules& rules) {
    for (auto [slot, value] :
         {std::pair{&rules.redirects, "5"}, {&rules.timeout, "10"}, {&rules.verify, "on"}})
        if (slot->empty())
            *slot = value;
}

// What tessavant-url --policy prints: every rule, defaults included.
std::string describe(const Rules& rules) {
    std::string text;
    for (const auto& r : rules.roots)
        text += "local-root " + r + "\n";
    if (rules.roots.empty())
        text += "# no local-root: every local reference is refused\n";
    for (const auto& h : rules.hosts)
        text += "remote-host " + h + "\n";
    if (rules.hosts.empty())
        text += "# no remote-host: every remote reference is refused\n";
    for (const auto& a : rules.ranges)
        text += "allow-address " + a + "\n";
    text += "max-redirects " + rules.redirects + "\n";
    text += "timeout " + rules.timeout + "\n";
    text += rules.length.empty() ? "# no max-length\n" : "max-length " + rules.length + "\n";
    text += "tls-verify " + rules.verify + "\n";
    text += rules.caFile.empty() ? "# tls-ca-file: the system's store\n"
                                 : "tls-ca-file " + rules.caFile + "\n";
    return text;
}

std::string header(const Rules& rules, const std::string& source) {
    std::ostringstream out;
    out << "// Generated by tessavant-policy2cpp from " << source << ".\n#pragma once\n"
        << "namespace {\nconst char* const POLICY_ROOTS[] = {";
    for (const auto& r : rules.roots)
        out << quote(r) << ", ";
    out << "nullptr};\nconst char* const POLICY_HOSTS[] = {";
    for (const auto& h : rules.hosts)
        out << quote(h) << ", ";
    out << "nullptr};\n// Address and mask, host byte order.\n"
        << "const unsigned long POLICY_ALLOWED[][2] = {";
    for (const auto& a : rules.allowed)
        out << "{" << a.first << "ul, " << a.second << "ul}, ";
    out << "{0, 0}};\nconst int POLICY_ALLOWED_COUNT = " << rules.allowed.size() << ";\n"
        << "const int POLICY_MAX_REDIRECTS = " << rules.redirects << ";\n"
        << "const int POLICY_TIMEOUT = " << rules.timeout << ";\n"
        << "const long POLICY_MAX_LENGTH = " << (rules.length.empty() ? "-1" : rules.length)
        << ";\nconst bool POLICY_TLS_VERIFY = " << (rules.verify == "on" ? "true" : "false")
        << ";\nconst char* const POLICY_CA_FILE = "
        << (rules.caFile.empty() ? "nullptr" : quote(rules.caFile))
        << ";\nconst char POLICY_TEXT[] = " << quote(describe(rules)) << ";\n}  // namespace\n";
    return out.str();
}

// An unchanged header keeps its time stamp, so nothing that includes it is rebuilt.
void writeIfChanged(const char* path, const std::string& content) {
    std::ifstream old(path, std::ios::binary);
    const std::string existing((std::istreambuf_iterator<char>(old)),
                               std::istreambuf_iterator<char>());
    if (!old || existing != content)
        std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
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
    try {
        Rules rules = read(in, argv[1]);
        defaults(rules);
        writeIfChanged(argv[2], header(rules, argv[1]));
    } catch (const Fault& f) {
        std::cerr << "error: malformed policy file: " << f.text << "\n";
        return 1;
    }
    return 0;
}
