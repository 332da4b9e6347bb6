#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// A test peer on 127.0.0.1 (free port) that serves one scripted exchange per
// connection, in order, from its own thread, and records the exact bytes each
// client sent. Every wait is bounded.
class ScriptedServer {
  public:
    struct Exchange {
        // Sent in order, each piece with its own write.
        std::vector<std::string> pieces;
        // Read the request (up to its blank line) before answering.
        bool readRequest = true;
        // Send only the first piece, then wait for the client to close before
        // the rest, so the client's first receive cannot see the rest.
        bool restAfterClientClose = false;
        // Close the connection at once after accepting it: no read, no reply.
        bool closeAtOnce = false;
    };

    ScriptedServer();
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    int port() const { return portNumber; }
    // "http://127.0.0.1:<port>" + path
    std::string url(const std::string& path) const;

    // Starts serving the script in the background; one call per server.
    void serve(std::vector<Exchange> script);
    // Each reply answers one connection after its request was read.
    void answer(const std::vector<std::string>& replies);
    // Waits until the whole script was served; false when that took too long.
    bool finish(int timeoutSeconds = 10);

    // What each served connection sent: the request, and anything after it
    // until the client closed.
    std::vector<std::string> requests() const;

  private:
    void run(std::vector<Exchange> script);
    void exchange(int client, const Exchange& step);

    int listener = -1;
    int portNumber = 0;
    std::thread worker;
    std::atomic<bool> stopping{false};
    std::atomic<bool> done{false};
    mutable std::mutex lock;
    std::vector<std::string> received;
};
