#include "cgi/FastCgiExchange.h"

#include <climits>
#include <cstring>

namespace {
bool put(const char* text, size_t length, FCGX_Stream* out) {
    for (size_t done = 0; done < length;) {
        const int piece = static_cast<int>(length - done < INT_MAX ? length - done : INT_MAX);
        if (FCGX_PutStr(text + done, piece, out) != piece)
            return false;
        done += static_cast<size_t>(piece);
    }
    return true;
}
}  // namespace

const char* FastCgiExchange::param(const char* name) const {
    return FCGX_GetParam(name, request.envp);
}

char** FastCgiExchange::params() const {
    // The library puts the role first; it is not one of the request's.
    char** first = request.envp;
    return first != nullptr && *first != nullptr && std::strncmp(*first, "FCGI_ROLE=", 10) == 0
               ? first + 1
               : first;
}

size_t FastCgiExchange::read(char* buffer, size_t size) {
    size_t done = 0;
    while (done < size) {
        const int piece = static_cast<int>(size - done < INT_MAX ? size - done : INT_MAX);
        const int n = FCGX_GetStr(buffer + done, piece, request.in);
        if (n <= 0)
            break;
        done += static_cast<size_t>(n);
    }
    return done;
}

bool FastCgiExchange::write(const char* first, size_t firstLength, const char* second,
                            size_t secondLength) {
    return put(first, firstLength, request.out) &&
           (second == nullptr || put(second, secondLength, request.out));
}
