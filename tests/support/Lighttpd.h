#pragma once

#include <string>
#include <vector>

#include "tests/support/TempDir.h"

// A real web server for tests: lighttpd in the foreground on 127.0.0.1, on a
// free port, serving a document root, with its configuration, pid file and
// logs in a temporary directory. It closes every connection after one
// response, so a client reading to the end of the stream does not wait.
// Construction throws std::runtime_error with the reason when the server
// cannot be started (for example when lighttpd is not installed), which
// fails the calling test with that message.
class Lighttpd {
  public:
    struct Options {
        // Serve https with a self-signed certificate made for 127.0.0.1.
        bool tls = false;
        // Further configuration lines, for example
        //   url.redirect = ("^/(.*)$" => "https://127.0.0.1:4443/$1")
        //   server.modules += ("mod_cgi")
        //   cgi.assign = (".cgi" => "")
        std::vector<std::string> config;
    };

    static const char* const BINARY;  // /usr/sbin/lighttpd
    static bool installed();

    explicit Lighttpd(const std::string& documentRoot);
    Lighttpd(const std::string& documentRoot, const Options& options);
    // Stops the server.
    ~Lighttpd();
    Lighttpd(const Lighttpd&) = delete;
    Lighttpd& operator=(const Lighttpd&) = delete;

    int port() const { return portNumber; }
    int pid() const { return processId; }
    // "http://127.0.0.1:<port>" + path, or "https://..." with tls.
    std::string url(const std::string& path) const;
    // The server's error log so far, for failure messages.
    std::string errorLog() const;
    // Ends the server (SIGTERM, then SIGKILL), bounded; harmless when repeated.
    void stop();

  private:
    bool start(const std::string& documentRoot, const Options& options, std::string& why);

    TempDir dir;
    bool tls = false;
    int portNumber = 0;
    int processId = -1;
};
