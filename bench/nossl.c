/* Stands in for OpenSSL in a bench-only build of the program, to show what
 * OpenSSL's presence costs a request that never uses it. Any https request
 * of this build fails its handshake. */
#include <stddef.h>

#define STUB(name)     \
    void* name(void) { \
        return NULL;   \
    }
STUB(OPENSSL_init_ssl)
STUB(SSL_CTX_free)
STUB(SSL_CTX_new)
STUB(SSL_connect)
STUB(SSL_free)
STUB(SSL_new)
STUB(SSL_read)
STUB(SSL_set_fd)
STUB(SSL_shutdown)
STUB(SSL_write)
STUB(TLS_method)
