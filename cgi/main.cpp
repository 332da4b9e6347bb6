#include <csignal>
#include <cstdlib>
#include <exception>

#include "cgi/Tessavant.h"

extern char** environ;

namespace {
// The run-time's default handler would describe the exception on standard
// error; the program must end abnormally without a word.
[[noreturn]] void silentTerminate() {
    std::abort();
}
}  // namespace

int main(int argc, char** argv) {
    std::set_terminate(silentTerminate);
    // A reader that goes away ends the copy through a failed write, not
    // through a signal.
    std::signal(SIGPIPE, SIG_IGN);
    Tessavant request(argc, argv, environ);
    return request.run();
}
