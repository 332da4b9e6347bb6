#pragma once

#include <openssl/ssl.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// A test peer on 127.0.0.1 (free port), plain or TLS with a certificate of
// its own, that serves one scripted exchange per connection, in order, from
// its own thread, and records the exact bytes each client sent. Every wait is
// bounded.
class ScriptedServer {
  public:
    struct Exchange {
        // Sent in order; each piece after the first follows a pause, so that
        // the client receives it on its own.
        std::vector<std::string> pieces;
        // Read the request (up to its blank line) before answering.
        bool readRequest = true;
        // End with a reset instead of an orderly close.
        bool reset = false;
    };

    explicit ScriptedServer(bool tls = false);
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    int port() const { return portNumber; }
    // "http://127.0.0.1:<port>" + path, or https.
    std::string url(const std::string& path) const;

    // Starts serving the script in the background; one call per server.
    void serve(std::vector<Exchange> script);
    // Each reply answers one connection after its request was read.
    void answer(const std::vector<std::string>& replies);
    // Waits until the whole script was served; false when that took too long.
    bool finish(int timeoutSeconds = 10);
    // What each served connection sent until it closed.
    std::vector<std::string> requests() const;

    // A port on 127.0.0.1 where nothing listens right now.
    static int freePort();

  private:
    void run(std::vector<Exchange> script);
    void exchange(int client, SSL* ssl, const Exchange& step);

    SSL_CTX* context = nullptr;
    int listener = -1;
    int portNumber = 0;
    std::thread worker;
    std::atomic<bool> stopping{false};
    std::atomic<bool> done{false};
    mutable std::mutex lock;
    std::vector<std::string> received;
};
