#include "cgi/CgiExchange.h"

#include <sys/sendfile.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

const char* CgiExchange::param(const char* name) const {
    return std::getenv(name);
}

size_t CgiExchange::read(char* buffer, size_t size) {
    return std::fread(buffer, 1, size, stdin);
}

bool CgiExchange::write(const char* first, size_t firstLength, const char* second,
                        size_t secondLength) {
    iovec pieces[2] = {{const_cast<char*>(first), firstLength},
                       {const_cast<char*>(second), second != nullptr ? secondLength : 0}};
    iovec* next = pieces;
    int count = 2;
    // Partial writes (a signal, a full pipe) continue where they stopped.
    while (count > 0) {
        if (next->iov_len == 0) {
            ++next;
            --count;
            continue;
        }
        const ssize_t n = ::writev(STDOUT_FILENO, next, count);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return false;
        size_t done = static_cast<size_t>(n);
        for (; count > 0 && done >= next->iov_len; ++next, --count)
            done -= next->iov_len;
        if (count > 0) {
            next->iov_base = static_cast<char*>(next->iov_base) + done;
            next->iov_len -= done;
        }
    }
    return true;
}

long CgiExchange::copy(int fd, size_t length, char* buffer) {
    size_t done = 0;
    while (done < length) {
        const ssize_t n = ::sendfile(STDOUT_FILENO, fd, nullptr, length - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && done == 0 && (errno == EINVAL || errno == ENOSYS))
            return Exchange::copy(fd, length, buffer);  // a source sendfile cannot read
        if (n < 0)
            return -1;
        if (n == 0)
            break;
        done += static_cast<size_t>(n);
    }
    return static_cast<long>(done);
}
