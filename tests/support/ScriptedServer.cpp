#include "tests/support/ScriptedServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/x509.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>

namespace {
using Clock = std::chrono::steady_clock;

// Waits for fd to become readable; false after the limit or when stopping.
bool readable(int fd, int seconds, const std::atomic<bool>& stopping) {
    const auto deadline = Clock::now() + std::chrono::seconds(seconds);
    while (!stopping && Clock::now() < deadline) {
        pollfd p = {fd, POLLIN, 0};
        if (::poll(&p, 1, 100) > 0)
            return true;
    }
    return false;
}

// A listening socket on 127.0.0.1 at a port the system chose.
int listenOnLoopback(int& port) {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a = {};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof a;
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &length) != 0 || ::listen(fd, 16) != 0)
        throw std::runtime_error("cannot listen on 127.0.0.1");
    port = ntohs(a.sin_port);
    return fd;
}

// A throw-away self-signed certificate for 127.0.0.1.
SSL_CTX* tlsContext() {
    SSL_CTX* context = SSL_CTX_new(TLS_server_method());
    EVP_PKEY* key = EVP_EC_gen("P-256");
    X509* cert = X509_new();
    X509_gmtime_adj(X509_getm_notBefore(cert), -60);
    X509_gmtime_adj(X509_getm_notAfter(cert), 3600);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(cert), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("127.0.0.1"), -1, -1, 0);
    X509_set_issuer_name(cert, X509_get_subject_name(cert));
    X509_set_pubkey(cert, key);
    X509_sign(cert, key, EVP_sha256());
    SSL_CTX_use_certificate(context, cert);
    SSL_CTX_use_PrivateKey(context, key);
    X509_free(cert);
    EVP_PKEY_free(key);
    return context;
}
}  // namespace

ScriptedServer::ScriptedServer(bool tls) : context(tls ? tlsContext() : nullptr) {
    listener = listenOnLoopback(portNumber);
}

ScriptedServer::~ScriptedServer() {
    stopping = true;
    if (worker.joinable())
        worker.join();
    ::close(listener);
    SSL_CTX_free(context);
}

int ScriptedServer::freePort() {
    int port = 0;
    ::close(listenOnLoopback(port));
    return port;
}

std::string ScriptedServer::url(const std::string& path) const {
    return (context ? "https" : "http") + std::string("://127.0.0.1:") +
           std::to_string(portNumber) + path;
}

void ScriptedServer::serve(std::vector<Exchange> script) {
    worker = std::thread(&ScriptedServer::run, this, std::move(script));
}

void ScriptedServer::answer(const std::vector<std::string>& replies) {
    std::vector<Exchange> script;
    for (const auto& reply : replies)
        script.push_back({{reply}});
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
        if (!readable(listener, 10, stopping))
            break;
        int client = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0)
            break;
        {
            std::lock_guard<std::mutex> guard(lock);
            received.emplace_back();
        }
        SSL* ssl = nullptr;
        if (context != nullptr) {
            ssl = SSL_new(context);
            SSL_set_fd(ssl, client);
        }
        if (ssl == nullptr || SSL_accept(ssl) == 1)
            exchange(client, ssl, step);
        if (step.reset) {
            linger abortive = {1, 0};
            ::setsockopt(client, SOL_SOCKET, SO_LINGER, &abortive, sizeof abortive);
        }
        SSL_free(ssl);
        ::close(client);
    }
    done = true;
}

void ScriptedServer::exchange(int client, SSL* ssl, const Exchange& step) {
    // Appends what one receive gave; false at the end of the stream.
    auto take = [&]() {
        char chunk[65536];
        if (!readable(client, 5, stopping))
            return false;
        int n = ssl ? SSL_read(ssl, chunk, sizeof chunk)
                    : static_cast<int>(::recv(client, chunk, sizeof chunk, 0));
        if (n <= 0)
            return false;
        std::lock_guard<std::mutex> guard(lock);
        received.back().append(chunk, static_cast<size_t>(n));
        return true;
    };
    auto complete = [&]() {
        std::lock_guard<std::mutex> guard(lock);
        return received.back().find("\r\n\r\n") != std::string::npos;
    };
    if (step.readRequest)
        while (!complete() && take()) {
        }
    for (size_t i = 0; i < step.pieces.size(); ++i) {
        if (i > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        const std::string& piece = step.pieces[i];
        if (ssl)
            SSL_write(ssl, piece.data(), static_cast<int>(piece.size()));
        else
            ::send(client, piece.data(), piece.size(), MSG_NOSIGNAL);
    }
    if (step.reset) {  // once the client has had time to read the reply
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        return;
    }
    // End the reply, then keep what else the client sends until it closes,
    // so that no unread byte turns the close into a reset.
    if (ssl)
        SSL_shutdown(ssl);
    ::shutdown(client, SHUT_WR);
    while (take()) {
    }
}
