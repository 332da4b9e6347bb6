#pragma once

#include <string>

// An absolute reference split as scheme "://" host [":" port] [path]. No
// user information, query, fragment or percent-decoding is interpreted.
class Url {
  public:
    explicit Url(const char* reference);
    explicit Url(const std::string& reference);
    virtual ~Url() = default;

    // Parses reference into the fields; may be called again.
    void create(const char* reference);

    bool isHttp() const { return scheme == "http"; }
    bool isHttps() const { return scheme == "https"; }
    bool isFtp() const { return scheme == "ftp"; }
    // Any of the three well-known ports, whatever the scheme.
    bool isPortDefault() const { return port == 80 || port == 443 || port == 21; }
    std::string toString() const;

    std::string scheme;  // lower case
    std::string host;    // as written
    int port;            // 0 when neither written nor known for the scheme
    std::string path;    // "/" + everything from the first "/" after the host
};
