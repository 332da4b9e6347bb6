#include "cgi/FastCgiExchange.h"

#include <signal.h>
#include <unistd.h>

#include <climits>
#include <cstring>

#include "base/Exception.h"
#include "cgi/Tessavant.h"

namespace {
volatile sig_atomic_t busy = 0;
volatile sig_atomic_t stopping = 0;

// Between requests the process ends at once; during one it finishes it first.
void onTerminate(int) {
    if (!busy)
        ::_exit(0);
    stopping = 1;
}

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

int FastCgiExchange::serve() {
    struct sigaction terminate = {};
    terminate.sa_handler = onTerminate;
    ::sigaction(SIGTERM, &terminate, nullptr);
    if (FCGX_Init() != 0)
        return 1;
    FCGX_Request request;
    FCGX_InitRequest(&request, 0, 0);
    while (!stopping && FCGX_Accept_r(&request) == 0) {
        busy = 1;
        FCGX_SetExitStatus(0, request.out);  // the library keeps the last one
        FastCgiExchange exchange(request);
        try {
            Tessavant(exchange).run();
        } catch (const Exception&) {
            // An intake failure ends this request only, with no output.
            FCGX_SetExitStatus(1, request.out);
        }
        FCGX_Finish_r(&request);
        busy = 0;
    }
    return 0;
}
