#pragma once

#include <openssl/ssl.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// A test peer on 127.0.0.1 at a free port, plain or TLS with a certificate of
// its own, serving one scripted exchange per connection, in order, from its
// own thread, and recording what each client sent. Every wait is bounded.
class ScriptedServer {
  public:
    struct Exchange {
        // Sent in order; each piece after the first follows a pause, so that
        // the client receives it on its own.
        std::vector<std::string> pieces;
        bool readRequest = true;  // up to its blank line, before answering
        bool reset = false;       // end with a reset instead of a close
    };

    explicit ScriptedServer(bool tls = false);
    ~ScriptedServer();

    int port() const { return portNumber; }
    std::string url(const std::string& path) const;  // "http://127.0.0.1:<port>" + path
    void serve(std::vector<Exchange> script);        // once, in the background
    bool finish();                                   // false when the script took too long
    std::vector<std::string> requests() const;       // what each connection sent
    static int freePort();                           // where nothing listens now

  private:
    void run(std::vector<Exchange> script);
    bool take(int client, SSL* ssl);

    SSL_CTX* context = nullptr;
    int listener = -1, portNumber = 0;
    std::thread worker;
    std::atomic<bool> stopping{false}, done{false};
    mutable std::mutex lock;
    std::vector<std::string> received;
};
