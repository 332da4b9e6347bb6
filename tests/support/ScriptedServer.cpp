#include "tests/support/ScriptedServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <stdexcept>

#include "tests/support/Loopback.h"

namespace {
using Clock = std::chrono::steady_clock;

const int ACCEPT_SECONDS = 10;  // per connection of the script
const int READ_SECONDS = 5;     // silence that ends a read

// Waits for fd to become readable; false after the time limit or when the
// server stops.
bool readable(int fd, int seconds, const std::atomic<bool>& stopping) {
    const auto deadline = Clock::now() + std::chrono::seconds(seconds);
    while (!stopping && Clock::now() < deadline) {
        pollfd p = {fd, POLLIN, 0};
        if (::poll(&p, 1, 100) > 0)
            return true;
    }
    return false;
}
}  // namespace

ScriptedServer::ScriptedServer() {
    listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listener < 0)
        throw std::runtime_error("socket failed");
    portNumber = bindLoopback(listener);
    if (portNumber <= 0 || ::listen(listener, 16) != 0) {
        ::close(listener);
        throw std::runtime_error("cannot listen on 127.0.0.1");
    }
}

ScriptedServer::~ScriptedServer() {
    stopping = true;
    if (worker.joinable())
        worker.join();
    ::close(listener);
}

std::string ScriptedServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(portNumber) + path;
}

void ScriptedServer::serve(std::vector<Exchange> script) {
    if (worker.joinable())
        throw std::logic_error("ScriptedServer serves one script");
    worker = std::thread(&ScriptedServer::run, this, std::move(script));
}

void ScriptedServer::answer(const std::vector<std::string>& replies) {
    std::vector<Exchange> script;
    for (const auto& reply : replies) {
        Exchange step;
        step.pieces.push_back(reply);
        script.push_back(step);
    }
    serve(std::move(script));
}

bool ScriptedServer::finish(int timeoutSeconds) {
    const auto deadline = Clock::now() + std::chrono::seconds(timeoutSeconds);
    while (!done && Clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return done;
}

std::vector<std::string> ScriptedServer::requests() const {
    std::lock_guard<std::mutex> guard(lock);
    return received;
}

void ScriptedServer::run(std::vector<Exchange> script) {
    for (const auto& step : script) {
        if (!readable(listener, ACCEPT_SECONDS, stopping))
            break;
        int client = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0)
            break;
        {
            std::lock_guard<std::mutex> guard(lock);
            received.emplace_back();
        }
        exchange(client, step);
        ::close(client);
    }
    done = true;
}

void ScriptedServer::exchange(int client, const Exchange& step) {
    if (step.closeAtOnce)
        return;
    char chunk[65536];
    // Appends what one receive gave; false at the end of the stream.
    auto take = [&]() {
        if (!readable(client, READ_SECONDS, stopping))
            return false;
        ssize_t n = ::recv(client, chunk, sizeof chunk, 0);
        if (n <= 0)
            return false;
        std::lock_guard<std::mutex> guard(lock);
        received.back().append(chunk, static_cast<size_t>(n));
        return true;
    };
    auto requestComplete = [&]() {
        std::lock_guard<std::mutex> guard(lock);
        return received.back().find("\r\n\r\n") != std::string::npos;
    };
    if (step.readRequest)
        while (!requestComplete() && take()) {
        }
    for (size_t i = 0; i < step.pieces.size(); ++i) {
        if (i == 1 && step.restAfterClientClose)
            while (take()) {
            }
        const std::string& piece = step.pieces[i];
        ::send(client, piece.data(), piece.size(), MSG_NOSIGNAL);
    }
    // End the reply cleanly, then keep what else the client sends until it
    // closes, so no unread byte turns the close into a reset.
    ::shutdown(client, SHUT_WR);
    while (take()) {
    }
}
