#include "cgi/QueryString.h"

#include <cstdlib>
#include <cstring>
#include <vector>

#include "base/Util.h"

QueryString::QueryString(const char* text) {
    if (text == nullptr || *text == '\0')
        return;
    std::vector<char> buffer(text, text + std::strlen(text) + 1);
    char* start = buffer.data();
    for (;;) {
        char* amp = std::strchr(start, '&');
        if (amp != nullptr)
            *amp = '\0';
        setValue(start);
        // A trailing "&" adds no empty piece; "&&" and a leading "&" do.
        if (amp == nullptr || amp[1] == '\0')
            break;
        start = amp + 1;
    }
}

void QueryString::setValue(std::string pair) {
    size_t eq = pair.find('=');
    if (eq == std::string::npos) {
        (*this)[Util::lower(pair)] = std::string();
        return;
    }
    std::string value = removeQuote(pair.substr(eq + 1));
    (*this)[Util::lower(pair.substr(0, eq))] = value;
}

std::string QueryString::removeQuote(const std::string& s) {
    if (s.size() < 2)
        return s;
    std::string r = s;
    if (r.front() == '"')
        r.erase(0, 1);
    if (!r.empty() && r.back() == '"')
        r.pop_back();
    return r;
}

std::string QueryString::toString() const {
    std::string r;
    for (const auto& entry : *this)
        r += entry.first + "=" + entry.second + "&";
    return r;
}

char* QueryString::decode(char* s) {
    if (s == nullptr)
        return s;
    convert(s, '+', ' ');
    char* p = s;
    while ((p = std::strchr(p, '%')) != nullptr) {
        // Never look past the terminator: a "%" among the last two
        // characters takes only what is there.
        char hex[5] = {'0', 'x', 0, 0, 0};
        size_t taken = 0;
        while (taken < 2 && p[1 + taken] != '\0') {
            hex[2 + taken] = p[1 + taken];
            ++taken;
        }
        *p = static_cast<char>(std::strtol(hex, nullptr, 0) & 0xff);
        std::memmove(p + 1, p + 1 + taken, std::strlen(p + 1 + taken) + 1);
        if (*p == '\0')
            break;  // a decoded zero byte ends the text
        ++p;
    }
    return s;
}

char* QueryString::convert(char* s, char from, char to) {
    if (s == nullptr)
        return s;
    for (char* p = s; *p != '\0'; ++p)
        if (*p == from)
            *p = to;
    return s;
}
