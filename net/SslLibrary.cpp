#include "net/SslLibrary.h"

#include <dlfcn.h>

#include <type_traits>

#include "base/Exception.h"

const char* const SslLibrary::NAME = "libssl.so.3";

SslLibrary::SslLibrary()
    : TLS_client_method(nullptr),
      SSL_CTX_new(nullptr),
      SSL_CTX_free(nullptr),
      SSL_new(nullptr),
      SSL_free(nullptr),
      SSL_set_fd(nullptr),
      SSL_connect(nullptr),
      SSL_read(nullptr),
      SSL_write(nullptr),
      SSL_shutdown(nullptr),
      SSL_ctrl(nullptr),
      SSL_CTX_set_verify(nullptr),
      SSL_CTX_set_default_verify_paths(nullptr),
      SSL_CTX_load_verify_locations(nullptr),
      SSL_set1_host(nullptr),
      SSL_get_verify_result(nullptr),
      X509_verify_cert_error_string(nullptr),
      OPENSSL_init_ssl(nullptr) {
    void* library = ::dlopen(NAME, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        failure = std::string(NAME) + " cannot be loaded: " + ::dlerror();
        return;
    }
    const char* missing = bind(library);
    // SSL_library_init() and SSL_load_error_strings() are macros for these.
    if (missing != nullptr)
        failure = std::string(NAME) + " has no " + missing;
    else if (OPENSSL_init_ssl(0, nullptr) != 1 ||
             OPENSSL_init_ssl(OPENSSL_INIT_LOAD_SSL_STRINGS | OPENSSL_INIT_LOAD_CRYPTO_STRINGS,
                              nullptr) != 1)
        failure = std::string(NAME) + " cannot be initialised";
    if (!failure.empty())
        ::dlclose(library);
}

const char* SslLibrary::bind(void* library) {
    const char* missing = nullptr;
    auto find = [&](const char* name, auto& function) {
        function =
            reinterpret_cast<std::remove_reference_t<decltype(function)>>(::dlsym(library, name));
        if (function == nullptr && missing == nullptr)
            missing = name;
    };
    find("OPENSSL_init_ssl", OPENSSL_init_ssl);
    find("TLS_client_method", TLS_client_method);
    find("SSL_CTX_new", SSL_CTX_new);
    find("SSL_CTX_free", SSL_CTX_free);
    find("SSL_new", SSL_new);
    find("SSL_free", SSL_free);
    find("SSL_set_fd", SSL_set_fd);
    find("SSL_connect", SSL_connect);
    find("SSL_read", SSL_read);
    find("SSL_write", SSL_write);
    find("SSL_shutdown", SSL_shutdown);
    find("SSL_ctrl", SSL_ctrl);
    find("SSL_CTX_set_verify", SSL_CTX_set_verify);
    find("SSL_CTX_set_default_verify_paths", SSL_CTX_set_default_verify_paths);
    find("SSL_CTX_load_verify_locations", SSL_CTX_load_verify_locations);
    find("SSL_set1_host", SSL_set1_host);
    find("SSL_get_verify_result", SSL_get_verify_result);
    // From libcrypto, which the handle's lookup reaches as libssl's dependency.
    find("X509_verify_cert_error_string", X509_verify_cert_error_string);
    return missing;
}

const SslLibrary& SslLibrary::load() {
    static const SslLibrary library;
    if (!library.failure.empty())
        throw Exception("SslLibrary::load", library.failure, -1);
    return library;
}
