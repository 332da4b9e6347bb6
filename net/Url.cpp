#include "net/Url.h"

#include <cstdio>
#include <cstdlib>

#include "base/Exception.h"
#include "base/Util.h"

Url::Url(const char* reference) : scheme("http"), host("localhost"), port(0) {
    create(reference);
}

Url::Url(const std::string& reference) : Url(reference.c_str()) {}

void Url::create(const char* reference) {
    std::string s(reference != nullptr ? reference : "");
    std::string::size_type mark = s.find("://");
    if (mark == std::string::npos)
        throw Exception("Url::Url", s + " is an invalid URL", -1);
    scheme = Util::lower(s.substr(0, mark));
    std::string::size_type start = mark + 3;
    if (start >= s.length())
        throw Exception("Url::Url", s + " is an invalid URL", -1);
    std::string::size_type slash = s.find('/', start);
    if (slash == std::string::npos)
        slash = s.length();
    host = s.substr(start, slash - start);
    std::string::size_type colon = host.find(':');
    if (colon != std::string::npos) {
        port = static_cast<int>(std::strtol(host.c_str() + colon + 1, nullptr, 10));
        host.erase(colon);
    } else if (scheme == "http") {
        port = 80;
    } else if (scheme == "https") {
        port = 443;
    } else if (scheme == "ftp") {
        port = 21;
    }
    // The leading "/" is added even before a path that has its own: the
    // request line carries "//a/b" for "http://h/a/b".
    path = "/" + s.substr(slash);
}

std::string Url::toString() const {
    std::string text = scheme + "://" + host;
    if (port != 80 && port != 443 && port != 21 && port != 0) {
        char number[16];
        std::snprintf(number, sizeof number, ":%d", port);
        text += number;
    }
    return text + path;
}
