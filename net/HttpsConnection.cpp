#include "net/HttpsConnection.h"

#include <arpa/inet.h>

#include <cerrno>

#include "base/Exception.h"
#include "base/Policy.h"
#include "net/SslLibrary.h"

// OpenSSL is loaded here, on the first https reference, and before the base
// class connects: where it cannot be loaded, nothing is connected.
HttpsConnection::HttpsConnection(const char* host, int port)
    : HttpsConnection(SslLibrary::load(), host, port) {}

HttpsConnection::HttpsConnection(const SslLibrary& library, const char* host, int port)
    : HttpConnection(host, port), library(library), context(nullptr), ssl(nullptr) {
    context = library.SSL_CTX_new(library.TLS_client_method());
    if (context == nullptr)
        return;
    try {
        const bool verify = Policy::ENABLED && Policy::tlsVerify();
        if (verify)
            trust();
        ssl = library.SSL_new(context);
        if (ssl == nullptr)
            return;
        library.SSL_set_fd(ssl, fd);
        if (verify) {
            // The name goes out for servers that hold several; an address is
            // never sent as a name. Either is checked against the certificate.
            in_addr numeric;
            if (::inet_pton(AF_INET, this->host.c_str(), &numeric) != 1)
                library.SSL_ctrl(ssl, SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name,
                                 const_cast<char*>(this->host.c_str()));
            library.SSL_set1_host(ssl, this->host.c_str());
        }
        errno = 0;
        if (library.SSL_connect(ssl) != 1 && Policy::ENABLED)
            refuse(verify);
    } catch (...) {
        release();
        throw;
    }
}

HttpsConnection::~HttpsConnection() {
    release();
}

void HttpsConnection::trust() {
    const char* ca = Policy::caFile();
    if ((ca != nullptr ? library.SSL_CTX_load_verify_locations(context, ca, nullptr)
                       : library.SSL_CTX_set_default_verify_paths(context)) != 1)
        throw Exception("Policy::tls",
                        std::string(ca != nullptr ? ca : "the system's store") +
                            " cannot be loaded as trusted certificates",
                        -1);
    library.SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
}

// A failed handshake under a policy: a time-out, or, when the peer is
// verified, an untrusted certificate or another fault. Without verification
// it shows as "Bad response", as it does without a policy.
void HttpsConnection::refuse(bool verify) {
    const long result = library.SSL_get_verify_result(ssl);
    if (verify && result != X509_V_OK)
        throw Exception("Policy::tls",
                        host + " has no certificate that this build trusts: " +
                            library.X509_verify_cert_error_string(result),
                        -1);
    if (errno == EAGAIN || errno == EINPROGRESS)
        Policy::timedOut(host);
    if (verify)
        throw Exception("Policy::tls", "the TLS handshake with " + host + " failed", -1);
}

void HttpsConnection::release() {
    if (ssl != nullptr) {
        library.SSL_shutdown(ssl);
        library.SSL_free(ssl);
        ssl = nullptr;
    }
    if (context != nullptr)
        library.SSL_CTX_free(context);
    context = nullptr;
}

int HttpsConnection::recv(char*, int) const {
    if (ssl == nullptr)
        return 0;
    char* own = const_cast<char*>(buffer);
    const int n = library.SSL_read(ssl, own, BUFFER_SIZE);
    if (Policy::ENABLED && n < 0 && errno == EAGAIN)
        Policy::timedOut(host);
    return n;
}

const Socket& HttpsConnection::operator<<(const std::string& text) const {
    if (ssl != nullptr) {
        library.SSL_write(ssl, text.data(), static_cast<int>(text.length()));
    }
    return *this;
}
