/* A FastCGI client for measurements: sends N GET requests to a responder
 * over its unix socket, a new connection each (as nginx does), CONCURRENCY
 * of them in flight at once (default 1), cycling through the REQUESTs given:
 * request i is REQUEST number i modulo their count. Every reply to the same
 * REQUEST must be the same bytes as the first one that arrived (its standard
 * output and its end-request record); N must be at least the number of
 * REQUESTs. Prints the size of each REQUEST's reply, one a line; with -o,
 * also writes the reply of REQUEST k (from 0) to PREFIXk. Exits 1 on any
 * difference, failure, or a reply that takes longer than 60 seconds.
 *
 *   fcgi_load [-c CONCURRENCY] [-o PREFIX] SOCKET_PATH N REQUEST...
 *
 * A REQUEST is a QUERY_STRING, optionally followed by lines NAME=VALUE of
 * further parameters (HTTP_IF_NONE_MATCH="...", SERVER_SOFTWARE=...);
 * REQUEST_METHOD is GET. */
#define _GNU_SOURCE
#include <pthread.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

struct reply {
    char* bytes; /* standard output, then the 8 bytes of the end-request body */
    size_t length, capacity;
};

/* Each REQUEST's records, built once; its first reply, kept once it is set. */
struct request {
    char* records;
    size_t length;
    struct reply first;
    int set;
};

static const char* socketPath;
static struct request* requests;
static long requestCount, total;
static atomic_long next;
static atomic_int failed;
static pthread_mutex_t firstLock = PTHREAD_MUTEX_INITIALIZER;

static void* grow(void* memory, size_t size) {
    void* grown = realloc(memory, size);
    if (grown == NULL) {
        fprintf(stderr, "fcgi_load: out of memory\n");
        exit(1);
    }
    return grown;
}

static void append(struct reply* r, const void* bytes, size_t length) {
    if (r->length + length > r->capacity) {
        r->capacity = (r->length + length) * 2;
        r->bytes = grow(r->bytes, r->capacity);
    }
    memcpy(r->bytes + r->length, bytes, length);
    r->length += length;
}

static void record(struct reply* to, int type, const char* content, size_t length) {
    do {
        size_t piece = length > 65535 ? 65535 : length;
        unsigned char head[8] = {1, (unsigned char)type, 0, 1, (unsigned char)(piece >> 8),
                                 (unsigned char)piece, 0, 0};
        append(to, head, 8);
        append(to, content, piece);
        content += piece;
        length -= piece;
    } while (length > 0);
}

/* A length below 128 in one byte, as nginx sends it; a longer one in four. */
static void length(struct reply* to, size_t n) {
    unsigned char b[4] = {(unsigned char)(0x80 | n >> 24), (unsigned char)(n >> 16),
                          (unsigned char)(n >> 8), (unsigned char)n};
    if (n < 128)
        append(to, b + 3, 1);
    else
        append(to, b, 4);
}

static void pair(struct reply* to, const char* name, size_t n, const char* value, size_t v) {
    length(to, n);
    length(to, v);
    append(to, name, n);
    append(to, value, v);
}

static void build(struct request* request, const char* text) {
    struct reply params = {0}, records = {0};
    const char* line = strchr(text, '\n');
    size_t queryLength = line != NULL ? (size_t)(line - text) : strlen(text);
    pair(&params, "REQUEST_METHOD", 14, "GET", 3);
    pair(&params, "QUERY_STRING", 12, text, queryLength);
    while (line != NULL) {
        const char* start = line + 1;
        line = strchr(start, '\n');
        size_t all = line != NULL ? (size_t)(line - start) : strlen(start);
        const char* equals = memchr(start, '=', all);
        if (equals == NULL) {
            fprintf(stderr, "fcgi_load: a parameter without '=': %.*s\n", (int)all, start);
            exit(2);
        }
        pair(&params, start, (size_t)(equals - start), equals + 1, all - (size_t)(equals - start) - 1);
    }
    const char begin[8] = {0, 1, 0, 0, 0, 0, 0, 0};
    record(&records, 1, begin, 8);
    record(&records, 4, params.bytes, params.length);
    record(&records, 4, "", 0);
    record(&records, 5, "", 0);
    free(params.bytes);
    request->records = records.bytes;
    request->length = records.length;
}

static int receive(int fd, void* to, size_t size) {
    return size == 0 || recv(fd, to, size, MSG_WAITALL) == (ssize_t)size;
}

/* One request on a new connection; its reply into *r. */
static int exchange(const struct request* request, struct reply* r, char* content) {
    r->length = 0;
    struct sockaddr_un address = {AF_UNIX, {0}};
    strncpy(address.sun_path, socketPath, sizeof address.sun_path - 1);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return 0;
    struct timeval limit = {60, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    int ok = connect(fd, (struct sockaddr*)&address, sizeof address) == 0 &&
             send(fd, request->records, request->length, MSG_NOSIGNAL) == (ssize_t)request->length;
    unsigned char head[8];
    while (ok && (ok = receive(fd, head, 8))) {
        size_t n = (size_t)head[4] << 8 | head[5];
        if (!(ok = receive(fd, content, n + head[6])))
            break;
        if (head[1] == 6)
            append(r, content, n);
        if (head[1] == 3) { /* the end of the request: its status after the output */
            if (n != 8)
                break;
            append(r, content, n);
            close(fd);
            return 1;
        }
    }
    close(fd);
    return 0;
}

static void* work(void* unused) {
    (void)unused;
    struct reply r = {0};
    char* content = grow(NULL, 65536 + 256);
    for (long i; !atomic_load(&failed) && (i = atomic_fetch_add(&next, 1)) < total;) {
        struct request* request = &requests[i % requestCount];
        if (!exchange(request, &r, content)) {
            fprintf(stderr, "fcgi_load: request %ld (REQUEST %ld) failed\n", i, i % requestCount);
            atomic_store(&failed, 1);
            break;
        }
        pthread_mutex_lock(&firstLock);
        int set = request->set;
        if (!set) {
            append(&request->first, r.bytes, r.length);
            request->set = 1;
        }
        pthread_mutex_unlock(&firstLock);
        if (set && (r.length != request->first.length || memcmp(r.bytes, request->first.bytes, r.length) != 0)) {
            fprintf(stderr, "fcgi_load: reply %ld (REQUEST %ld) differs from the first\n", i,
                    i % requestCount);
            atomic_store(&failed, 1);
        }
    }
    free(r.bytes);
    free(content);
    return NULL;
}

int main(int argc, char** argv) {
    long concurrency = 1;
    const char* prefix = NULL;
    int option;
    while ((option = getopt(argc, argv, "+c:o:")) != -1) {
        if (option == 'c')
            concurrency = atol(optarg);
        else if (option == 'o')
            prefix = optarg;
        else
            optind = argc + 1;
    }
    if (argc - optind < 3 || concurrency < 1 || (total = atol(argv[optind + 1])) < argc - optind - 2) {
        fprintf(stderr, "usage: fcgi_load [-c CONCURRENCY] [-o PREFIX] SOCKET_PATH N REQUEST...\n");
        return 2;
    }
    socketPath = argv[optind];
    requestCount = argc - optind - 2;
    requests = grow(NULL, (size_t)requestCount * sizeof *requests);
    memset(requests, 0, (size_t)requestCount * sizeof *requests);
    for (long k = 0; k < requestCount; ++k)
        build(&requests[k], argv[optind + 2 + k]);
    if (concurrency > total)
        concurrency = total;
    pthread_t* threads = grow(NULL, (size_t)concurrency * sizeof *threads);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 256 * 1024);
    long started = 0;
    for (; started < concurrency; ++started)
        if (pthread_create(&threads[started], &attributes, work, NULL) != 0) {
            fprintf(stderr, "fcgi_load: could not start thread %ld\n", started);
            atomic_store(&failed, 1);
            break;
        }
    for (long t = 0; t < started; ++t)
        pthread_join(threads[t], NULL);
    if (atomic_load(&failed))
        return 1;
    for (long k = 0; k < requestCount; ++k) {
        const struct reply* first = &requests[k].first;
        /* The size of the standard output, without the end-request body. */
        printf("%zu\n", first->length >= 8 ? first->length - 8 : 0);
        if (prefix != NULL) {
            char path[4096];
            snprintf(path, sizeof path, "%s%ld", prefix, k);
            FILE* file = fopen(path, "wb");
            if (file == NULL || fwrite(first->bytes, 1, first->length - 8, file) != first->length - 8 ||
                fclose(file) != 0) {
                fprintf(stderr, "fcgi_load: could not write %s\n", path);
                return 1;
            }
        }
    }
    return 0;
}
