/* The floor of a remote image: one GET over a plain blocking socket (or, built
 * with FETCH_TLS, over TLS with OpenSSL), the whole response copied to
 * standard output. No URL parsing, no name resolution, no header parsing.
 *
 *   fetch PORT PATH        connects to 127.0.0.1:PORT */
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>
#ifdef FETCH_TLS
#include <openssl/ssl.h>
#endif

#define CHUNK 524288

static char buffer[CHUNK];

static int writeAll(const char* data, size_t length) {
    while (length > 0) {
        ssize_t n = write(1, data, length);
        if (n <= 0)
            return -1;
        data += n;
        length -= (size_t)n;
    }
    return 0;
}

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: fetch PORT PATH\n");
        return 2;
    }
    int s = socket(AF_INET, SOCK_STREAM, 0);
    struct sockaddr_in address;
    memset(&address, 0, sizeof address);
    address.sin_family = AF_INET;
    address.sin_port = htons((unsigned short)atoi(argv[1]));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (s < 0 || connect(s, (struct sockaddr*)&address, sizeof address) != 0)
        return 1;
    char request[1024];
    int length = snprintf(request, sizeof request,
                          "GET %s HTTP/1.1\r\nHost: 127.0.0.1:%s\r\nConnection: close\r\n\r\n",
                          argv[2], argv[1]);
#ifdef FETCH_TLS
    SSL_CTX* context = SSL_CTX_new(TLS_client_method());
    SSL* ssl = context != NULL ? SSL_new(context) : NULL;
    if (ssl == NULL || !SSL_set_fd(ssl, s) || SSL_connect(ssl) != 1)
        return 1;
    if (SSL_write(ssl, request, length) != length)
        return 1;
    int n;
    while ((n = SSL_read(ssl, buffer, CHUNK)) > 0)
        if (writeAll(buffer, (size_t)n))
            return 1;
    SSL_free(ssl);
    SSL_CTX_free(context);
#else
    if (send(s, request, (size_t)length, 0) != length)
        return 1;
    ssize_t n;
    while ((n = recv(s, buffer, CHUNK, 0)) > 0)
        if (writeAll(buffer, (size_t)n))
            return 1;
#endif
    close(s);
    return 0;
}
