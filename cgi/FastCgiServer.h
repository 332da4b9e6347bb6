#pragma once

#include <fcgiapp.h>

// The FastCGI responder: one process that answers many requests at once on
// the listening socket that is its standard input. The main thread accepts
// connections and hands each to an idle thread of a pool, which reads its
// request into an FCGX_Request of its own and runs the same request code as a
// CGI run. SIGTERM stops it gracefully: no new connection is accepted, every
// request already accepted is answered, and the process exits 0; a second
// SIGTERM ends it at once. Connections not yet accepted stay in the
// listening socket for whoever listens on it next.
class FastCgiServer {
  public:
    // Requests in flight when TESSAVANT_THREADS does not say: enough to keep
    // a thousand remote fetches waiting on their origins at once.
    static constexpr int DEFAULT_THREADS = 1024;
    static constexpr int MAX_THREADS = 4096;

    // The pool's size for a TESSAVANT_THREADS value (may be null): a plain
    // decimal number from 1, at most MAX_THREADS; anything else gets the
    // default.
    static int threads(const char* value);

    // Serves until stopped; returns the exit status.
    static int serve();

  private:
    // Accepts while there is an idle thread to take the connection.
    static void acceptConnections();
    // The next connection, or -1 once the server stops.
    static int acceptOne();
    static void* work(void*);
    // Every request of one connection: one, or more while the web server
    // keeps it open.
    static void answer(FCGX_Request& request, int connection);
    // Waits until fd is readable (true) or the server stops (false; but a
    // kept connection's request that has arrived is still taken).
    static bool readable(int fd, bool kept);
    static void* watchSignals(void*);
    static void stop();
};
