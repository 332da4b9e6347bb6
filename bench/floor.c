/* The floor of an image request: the least a process can do to send the same
 * header block and bytes. Linked with -static, it takes the path from its one
 * argument or, run as a CGI program, from QUERY_STRING as it stands, and
 * writes what the program writes for a local file: the header block followed
 * by the file, in chunks of 512 KiB, headers and first chunk in one writev.
 * No cipher, no C++ run time, no dynamic loader. */
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#define CHUNK 524288

static char buffer[CHUNK];

static int writeAll(struct iovec* pieces, int count) {
    while (count > 0) {
        ssize_t n = writev(1, pieces, count);
        if (n < 0)
            return -1;
        while (count > 0 && (size_t)n >= pieces->iov_len) {
            n -= (ssize_t)pieces->iov_len;
            ++pieces;
            --count;
        }
        if (count > 0) {
            pieces->iov_base = (char*)pieces->iov_base + n;
            pieces->iov_len -= (size_t)n;
        }
    }
    return 0;
}

int main(int argc, char** argv) {
    const char* path = argc > 1 ? argv[1] : getenv("QUERY_STRING");
    if (path == NULL)
        return 1;
    int fd = open(path, O_RDONLY);
    struct stat status;
    if (fd < 0 || fstat(fd, &status) != 0) {
        static const char failed[] = "Content-type: text/plain\n\ne=open failed\n\n";
        write(1, failed, sizeof failed - 1);
        return 0;
    }
    char date[64];
    struct tm broken;
    strftime(date, sizeof date, "%a, %d %b %Y %H:%M:%S GMT", gmtime_r(&status.st_mtime, &broken));
    char header[512];
    int headerLength = snprintf(header, sizeof header,
                                "Connection: keep-alive\n"
                                "Content-Type: application/octet-stream\n"
                                "Accept-Ranges: bytes\n"
                                "Last-Modified: %s\n"
                                "Etag: \"%s\"\n"
                                "Cache-Control: max-age=31536000, must-revalidate, public\n"
                                "Expires: Fri, 31 Dec 2027 12:00:00 GMT\n"
                                "Content-Length: %lld\n\n",
                                date, date, (long long)status.st_size);
    long long remaining = status.st_size;
    struct iovec pieces[2] = {{header, (size_t)headerLength}, {buffer, 0}};
    int first = 1;
    do {
        size_t want = remaining < CHUNK ? (size_t)remaining : CHUNK;
        ssize_t got = want > 0 ? read(fd, buffer, want) : 0;
        if (got < 0)
            got = 0;
        pieces[1].iov_base = buffer;
        pieces[1].iov_len = (size_t)got;
        if (first ? writeAll(pieces, 2) : writeAll(pieces + 1, 1))
            return 0;
        first = 0;
        remaining -= got;
        if ((size_t)got != want)
            break;
    } while (remaining > 0);
    return 0;
}
