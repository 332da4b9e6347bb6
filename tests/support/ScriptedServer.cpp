#include "tests/support/ScriptedServer.h"

#include <arpa/inet.h>
#include <openssl/x509.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>

#include "base/Policy.h"

namespace {
// A policy build refuses loopback: its peers are in run-policy-table's namespace.
const char* const PEER = Policy::ENABLED ? "198.51.100.1" : "127.0.0.1";

int listenOnLoopback(int& port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a = {AF_INET, 0, {::inet_addr(PEER)}, {}};
    socklen_t length = sizeof a;
    const timeval limit = {10, 0};  // for each accept and each receive of what it accepts
    if (::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) != 0 ||
        ::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || ::listen(fd, 16) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &length) != 0)
        throw std::runtime_error(std::string("cannot listen on ") + PEER);
    port = ntohs(a.sin_port);
    return fd;
}

SSL_CTX* tlsContext() {
    SSL_CTX* context = SSL_CTX_new(TLS_server_method());
    EVP_PKEY* key = EVP_EC_gen("P-256");
    X509* cert = X509_new();
    X509_gmtime_adj(X509_getm_notBefore(cert), -60);
    X509_gmtime_adj(X509_getm_notAfter(cert), 3600);
    X509_set_pubkey(cert, key);
    X509_sign(cert, key, EVP_sha256());
    SSL_CTX_use_certificate(context, cert);
    SSL_CTX_use_PrivateKey(context, key);
    X509_free(cert);
    EVP_PKEY_free(key);
    return context;
}
}  // namespace

ScriptedServer::ScriptedServer(bool tls)
    : context(tls ? tlsContext() : nullptr), listener(listenOnLoopback(port)) {}

ScriptedServer::~ScriptedServer() {
    ::shutdown(listener, SHUT_RDWR);  // ends a waiting accept
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

std::string ScriptedServer::url() const {
    return (context ? "https://" : "http://") + (PEER + (":" + std::to_string(port)));
}

void ScriptedServer::serve(std::vector<Exchange> script) {
    worker = std::thread(&ScriptedServer::run, this, std::move(script));
}

bool ScriptedServer::finish() {
    for (int i = 0; i < 1000 && !done; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return done;
}

// Appends what one receive gave; false at the end of the stream.
bool ScriptedServer::take(int client, SSL* ssl) {
    char chunk[65536];
    const int n = ssl ? SSL_read(ssl, chunk, sizeof chunk)
                      : static_cast<int>(::recv(client, chunk, sizeof chunk, 0));
    requests.back().append(chunk, n > 0 ? static_cast<size_t>(n) : 0);
    return n > 0;
}

void ScriptedServer::run(std::vector<Exchange> script) {
    for (const auto& step : script) {
        const int client = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0)
            break;
        requests.emplace_back();
        SSL* ssl = context ? SSL_new(context) : nullptr;
        if (ssl == nullptr || (SSL_set_fd(ssl, client) && SSL_accept(ssl) == 1)) {
            // A TLS hello sent to the plain peer (0x16) is no request to wait for.
            while (requests.back().find("\r\n\r\n") == std::string::npos &&
                   requests.back().find('\x16') != 0 && take(client, ssl)) {
            }
            for (size_t i = 0; i < step.pieces.size(); ++i) {
                std::this_thread::sleep_for(std::chrono::milliseconds(i > 0 ? 50 : 0));
                const std::string& piece = step.pieces[i];
                if (ssl)
                    SSL_write(ssl, piece.data(), static_cast<int>(piece.size()));
                else
                    ::send(client, piece.data(), piece.size(), MSG_NOSIGNAL);
            }
            if (step.reset) {  // once the client has had time to read the reply
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
                linger abortive = {1, 0};
                ::setsockopt(client, SOL_SOCKET, SO_LINGER, &abortive, sizeof abortive);
            } else {  // read on until the client closes: an unread byte would reset
                if (ssl)
                    SSL_shutdown(ssl);
                ::shutdown(client, SHUT_WR);
                while (take(client, ssl)) {
                }
            }
        }
        SSL_free(ssl);
        ::close(client);
    }
    done = true;
}
