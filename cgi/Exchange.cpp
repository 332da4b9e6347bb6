#include "cgi/Exchange.h"

#include <unistd.h>

#include <cerrno>

long Exchange::copy(int fd, size_t length, char* buffer) {
    size_t got = 0;
    while (got < length) {
        const ssize_t n = ::read(fd, buffer + got, length - got);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        got += static_cast<size_t>(n);
    }
    return write(buffer, got) ? static_cast<long>(got) : -1;
}
