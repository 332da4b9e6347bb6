#pragma once

#include <arpa/inet.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

// A peer at a free port, plain or TLS: per connection it reads a request to its
// blank line, then sends its script's next exchange. Every wait is bounded.
class ScriptedServer {
  public:
    struct Exchange {
        std::vector<std::string> pieces;  // each after the first follows a pause
        bool reset = false;               // end with a reset instead of a close
    };

    explicit ScriptedServer(bool tls = false) : context(tls ? tlsContext() : nullptr) {
        sockaddr_in a = {AF_INET, 0, {::inet_addr(peer())}, {}};
        socklen_t length = sizeof a;
        const timeval limit = {10, 0};  // for each accept and each receive of what it accepts
        if (::setsockopt(listener, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) != 0 ||
            ::bind(listener, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 ||
            ::listen(listener, 16) != 0 ||
            ::getsockname(listener, reinterpret_cast<sockaddr*>(&a), &length) != 0)
            throw std::runtime_error(std::string("cannot listen on ") + peer());
        port = ntohs(a.sin_port);
    }
    ~ScriptedServer() {
        ::shutdown(listener, SHUT_RDWR);  // ends a waiting accept
        if (worker.valid())
            worker.wait();
        ::close(listener);
        SSL_CTX_free(context);
    }
    std::string url() const {  // "http://127.0.0.1:<port>" or "https://..."
        return (context ? "https://" : "http://") + (peer() + (":" + std::to_string(port)));
    }
    void serve(std::vector<Exchange> script) {
        worker = std::async(std::launch::async, &ScriptedServer::run, this, std::move(script));
    }
    bool finish() {  // false when the script took too long
        return worker.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    }
    static int freePort() { return ScriptedServer().port; }  // nothing listens there after

    int port = 0;
    std::vector<std::string> requests;  // what each client sent; read after finish()

  private:
    // A policy refuses loopback: run-policy-table's peers are in its namespace.
    static const char* peer() {
        return std::getenv("TESSAVANT_POLICY_BIN") ? "198.51.100.1" : "127.0.0.1";
    }

    static SSL_CTX* tlsContext() {
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

    void run(std::vector<Exchange> script) {
        sigset_t pipe;  // a write to a client that has gone fails with EPIPE, raising nothing
        sigemptyset(&pipe), sigaddset(&pipe, SIGPIPE), pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
        for (const auto& step : script) {
            const int client = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (client < 0)
                break;
            BIO* io = BIO_new_socket(client, BIO_CLOSE);
            io = context ? BIO_push(BIO_new_ssl(context, 0), io) : io;
            std::string& request = requests.emplace_back();
            char chunk[65536];
            auto take = [&] {  // false at the end of the stream
                const int n = BIO_read(io, chunk, sizeof chunk);
                request.append(chunk, n > 0 ? static_cast<size_t>(n) : 0);
                return n > 0;
            };
            // A TLS hello sent to the plain peer (0x16) is no request to wait for.
            while (request.find("\r\n\r\n") == request.npos && request[0] != '\x16' && take()) {
            }
            for (size_t i = 0; i < step.pieces.size(); ++i) {
                std::this_thread::sleep_for(std::chrono::milliseconds(i > 0 ? 50 : 0));
                BIO_write(io, step.pieces[i].data(), static_cast<int>(step.pieces[i].size()));
            }
            if (step.reset) {  // once the client has had time to read the reply
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
                linger abortive = {1, 0};
                ::setsockopt(client, SOL_SOCKET, SO_LINGER, &abortive, sizeof abortive);
            } else {  // read on until the client closes: an unread byte would reset
                BIO_ssl_shutdown(io);
                ::shutdown(client, SHUT_WR);
                while (take()) {
                }
            }
            BIO_free_all(io);
        }
    }

    SSL_CTX* context = nullptr;
    int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::future<void> worker;
};
