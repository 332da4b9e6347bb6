#include <sys/socket.h>

#include <csignal>
#include <cstdlib>
#include <exception>

#include "cgi/CgiExchange.h"
#include "cgi/FastCgiServer.h"
#include "cgi/Tessavant.h"

extern char** environ;

namespace {
// The run-time's default handler would describe the exception on standard
// error; the program must end abnormally without a word.
[[noreturn]] void silentTerminate() {
    std::abort();
}

// A listening socket as standard input is how FastCGI spawners start a
// responder.
bool listeningOnStandardInput() {
    int listening = 0;
    socklen_t size = sizeof listening;
    return ::getsockopt(0, SOL_SOCKET, SO_ACCEPTCONN, &listening, &size) == 0 && listening != 0;
}
}  // namespace

int main(int argc, char** argv) {
    std::set_terminate(silentTerminate);
    // A reader that goes away ends the copy through a failed write, not
    // through a signal; so does a remote peer, also under TLS, whose library
    // writes with plain write().
    std::signal(SIGPIPE, SIG_IGN);
    // A command-line argument is always the request text of one run.
    if (argc < 2 && listeningOnStandardInput())
        return FastCgiServer::serve();
    CgiExchange exchange(environ);
    return Tessavant(exchange, argc >= 2 ? argv[1] : nullptr).run();
}
