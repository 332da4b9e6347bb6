#pragma once

#include <openssl/ssl.h>

#include <future>
#include <string>
#include <vector>

// A peer at a free port, plain or TLS: per connection it reads a request to its
// blank line, then sends its script's next exchange. Every wait is bounded.
class ScriptedServer {
  public:
    struct Exchange {
        std::vector<std::string> pieces;  // each after the first follows a pause
        bool reset = false;               // end with a reset instead of a close
    };

    explicit ScriptedServer(bool tls = false);
    ~ScriptedServer();
    std::string url() const;  // "http://127.0.0.1:<port>" or "https://..."
    void serve(std::vector<Exchange> script);
    bool finish();                                           // false when the script took too long
    static int freePort() { return ScriptedServer().port; }  // nothing listens there after

    int port = 0;
    std::vector<std::string> requests;  // what each client sent; read after finish()

  private:
    void run(std::vector<Exchange> script);

    SSL_CTX* context = nullptr;
    int listener = -1;
    std::future<void> worker;
};
