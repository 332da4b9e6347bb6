/* A FastCGI client for measurements: sends N GET requests with the given
 * QUERY_STRING to a responder, one connection each, one after another, and
 * checks that every reply is the same bytes as the first. Prints the reply
 * size; exits 1 on any difference or failure.
 *
 *   fcgi_load SOCKET_PATH N QUERY */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

static void record(char** at, int type, const char* content, size_t length) {
    unsigned char head[8] = {1, (unsigned char)type, 0, 1, (unsigned char)(length >> 8),
                             (unsigned char)length, 0, 0};
    memcpy(*at, head, 8);
    memcpy(*at + 8, content, length);
    *at += 8 + length;
}

/* A name of fewer than 128 bytes and a value in the four-byte length form. */
static void pair(char** at, const char* name, const char* value) {
    size_t n = strlen(name), v = strlen(value);
    unsigned char* p = (unsigned char*)*at;
    *p++ = (unsigned char)n;
    *p++ = (unsigned char)(0x80 | v >> 24);
    *p++ = (unsigned char)(v >> 16);
    *p++ = (unsigned char)(v >> 8);
    *p++ = (unsigned char)v;
    memcpy(p, name, n);
    memcpy(p + n, value, v);
    *at = (char*)p + n + v;
}

/* One request; the reply's standard output goes to out (grown as needed). */
static long exchange(const char* path, const char* query, char** out, size_t* size) {
    static char request[70000];
    char params[65000], *p = params, *r = request;
    pair(&p, "REQUEST_METHOD", "GET");
    pair(&p, "QUERY_STRING", query);
    const char begin[8] = {0, 1, 0, 0, 0, 0, 0, 0};
    record(&r, 1, begin, 8);
    record(&r, 4, params, (size_t)(p - params));
    record(&r, 4, "", 0);
    record(&r, 5, "", 0);
    struct sockaddr_un address = {AF_UNIX, {0}};
    strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0 || connect(fd, (struct sockaddr*)&address, sizeof address) != 0 ||
        write(fd, request, (size_t)(r - request)) != r - request)
        return -1;
    long got = 0;
    unsigned char head[8];
    static char content[65536 + 256];
    for (;;) {
        if (recv(fd, head, 8, MSG_WAITALL) != 8)
            break;
        size_t length = (size_t)head[4] << 8 | head[5], total = length + head[6];
        if (total > 0 && recv(fd, content, total, MSG_WAITALL) != (ssize_t)total)
            break;
        if (head[1] == 3) { /* the end of the request */
            close(fd);
            return got;
        }
        if (head[1] == 6) {
            if ((size_t)got + length > *size) {
                *size = ((size_t)got + length) * 2;
                *out = realloc(*out, *size);
            }
            memcpy(*out + got, content, length);
            got += (long)length;
        }
    }
    close(fd);
    return -1;
}

int main(int argc, char** argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: fcgi_load SOCKET_PATH N QUERY\n");
        return 2;
    }
    size_t firstSize = 0, size = 0;
    char *first = NULL, *reply = NULL;
    long expected = exchange(argv[1], argv[3], &first, &firstSize);
    for (long i = 1; expected >= 0 && i < atol(argv[2]); ++i) {
        long got = exchange(argv[1], argv[3], &reply, &size);
        if (got != expected || memcmp(reply, first, (size_t)got) != 0) {
            fprintf(stderr, "reply %ld differs from the first\n", i);
            return 1;
        }
    }
    if (expected < 0)
        return 1;
    printf("%ld\n", expected);
    return 0;
}
