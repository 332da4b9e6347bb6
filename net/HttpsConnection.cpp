#include "net/HttpsConnection.h"

#include <signal.h>

#include <cerrno>
#include <ctime>

#include "net/SslLibrary.h"

namespace {
// OpenSSL writes to the socket with plain write(), so a peer that went away
// would raise SIGPIPE and end the process. Holds the signal back for the
// calling thread and discards one that the write raised.
class SigpipeGuard {
  public:
    SigpipeGuard() {
        sigset_t pipe;
        sigemptyset(&pipe);
        sigaddset(&pipe, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        alreadyPending = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &pipe, &previous);
    }
    ~SigpipeGuard() {
        if (!alreadyPending) {
            sigset_t pending;
            sigpending(&pending);
            if (sigismember(&pending, SIGPIPE) == 1) {
                sigset_t pipe;
                sigemptyset(&pipe);
                sigaddset(&pipe, SIGPIPE);
                const timespec none = {0, 0};
                int saved = errno;
                while (sigtimedwait(&pipe, nullptr, &none) == -1 && errno == EINTR) {
                }
                errno = saved;
            }
        }
        pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    }
    SigpipeGuard(const SigpipeGuard&) = delete;
    SigpipeGuard& operator=(const SigpipeGuard&) = delete;

  private:
    sigset_t previous;
    bool alreadyPending;
};
}  // namespace

// OpenSSL is loaded here, on the first https reference, and before the base
// class connects: where it cannot be loaded, nothing is connected.
HttpsConnection::HttpsConnection(const char* host, int port)
    : HttpsConnection(SslLibrary::load(), host, port) {}

HttpsConnection::HttpsConnection(const SslLibrary& library, const char* host, int port)
    : HttpConnection(host, port), library(library), context(nullptr), ssl(nullptr) {
    context = library.SSL_CTX_new(library.TLS_client_method());
    if (context == nullptr)
        return;
    ssl = library.SSL_new(context);
    if (ssl == nullptr)
        return;
    library.SSL_set_fd(ssl, fd);
    SigpipeGuard guard;
    library.SSL_connect(ssl);
}

HttpsConnection::~HttpsConnection() {
    if (ssl != nullptr) {
        SigpipeGuard guard;
        library.SSL_shutdown(ssl);
        library.SSL_free(ssl);
    }
    if (context != nullptr)
        library.SSL_CTX_free(context);
}

int HttpsConnection::recv(char*, int) const {
    if (ssl == nullptr)
        return 0;
    char* own = const_cast<char*>(buffer);
    return library.SSL_read(ssl, own, BUFFER_SIZE);
}

const Socket& HttpsConnection::operator<<(const std::string& text) const {
    if (ssl != nullptr) {
        SigpipeGuard guard;
        library.SSL_write(ssl, text.data(), static_cast<int>(text.length()));
    }
    return *this;
}
