#pragma once

#include <openssl/ssl.h>

#include <string>

// The few functions of the system's OpenSSL that HttpsConnection calls,
// looked up in libssl.so.3 (which brings libcrypto.so.3) when the first https
// reference is opened. The program does not link OpenSSL: requests that stay
// on local files or plain http never load it, and the system's updates of the
// library reach the program without a rebuild. Once loaded, it stays loaded.
class SslLibrary {
  public:
    static const char* const NAME;

    // The library, loaded and initialised once per process. Throws Exception
    // when it cannot be loaded or lacks one of the functions below.
    static const SslLibrary& load();

    decltype(&::TLS_client_method) TLS_client_method;
    decltype(&::SSL_CTX_new) SSL_CTX_new;
    decltype(&::SSL_CTX_free) SSL_CTX_free;
    decltype(&::SSL_new) SSL_new;
    decltype(&::SSL_free) SSL_free;
    decltype(&::SSL_set_fd) SSL_set_fd;
    decltype(&::SSL_connect) SSL_connect;
    decltype(&::SSL_read) SSL_read;
    decltype(&::SSL_write) SSL_write;
    decltype(&::SSL_shutdown) SSL_shutdown;
    // For a build whose policy verifies the peer.
    decltype(&::SSL_ctrl) SSL_ctrl;  // SSL_set_tlsext_host_name is a macro over it
    decltype(&::SSL_CTX_set_verify) SSL_CTX_set_verify;
    decltype(&::SSL_CTX_set_default_verify_paths) SSL_CTX_set_default_verify_paths;
    decltype(&::SSL_CTX_load_verify_locations) SSL_CTX_load_verify_locations;
    decltype(&::SSL_set1_host) SSL_set1_host;
    decltype(&::SSL_get_verify_result) SSL_get_verify_result;
    decltype(&::X509_verify_cert_error_string) X509_verify_cert_error_string;

  private:
    SslLibrary();
    // Looks up every function; the name of the first one missing, or null.
    const char* bind(void* library);

    decltype(&::OPENSSL_init_ssl) OPENSSL_init_ssl;
    SslLibrary(const SslLibrary&) = delete;
    SslLibrary& operator=(const SslLibrary&) = delete;

    // Why the library is unusable; empty once it is loaded.
    std::string failure;
};
