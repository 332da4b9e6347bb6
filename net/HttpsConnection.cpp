#include "net/HttpsConnection.h"

#include <signal.h>

#include <cerrno>
#include <ctime>

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

HttpsConnection::HttpsConnection(const char* host, int port)
    : HttpConnection(host, port), context(nullptr), ssl(nullptr) {
    // OpenSSL is touched here only, never at start-up, so requests that
    // stay on plain http or local files do not pay for it.
    SSL_library_init();
    SSL_load_error_strings();
    context = SSL_CTX_new(SSLv23_method());
    if (context == nullptr)
        return;
    ssl = SSL_new(context);
    if (ssl == nullptr)
        return;
    SSL_set_fd(ssl, fd);
    SigpipeGuard guard;
    SSL_connect(ssl);
}

HttpsConnection::~HttpsConnection() {
    if (ssl != nullptr) {
        SigpipeGuard guard;
        SSL_shutdown(ssl);
        SSL_free(ssl);
    }
    if (context != nullptr)
        SSL_CTX_free(context);
}

int HttpsConnection::recv(char*, int) const {
    if (ssl == nullptr)
        return 0;
    char* own = const_cast<char*>(buffer);
    return SSL_read(ssl, own, BUFFER_SIZE);
}

const Socket& HttpsConnection::operator<<(const std::string& text) const {
    if (ssl != nullptr) {
        SigpipeGuard guard;
        SSL_write(ssl, text.data(), static_cast<int>(text.length()));
    }
    return *this;
}
