#include "cgi/FastCgiServer.h"

#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <vector>

#include "base/Exception.h"
#include "cgi/FastCgiExchange.h"
#include "cgi/Tessavant.h"

namespace {
const int LISTENING = 0;  // the socket that a spawner hands over as standard input
// A request needs a few tens of KiB of stack (name lookup and TLS included);
// its large buffers are on the heap. Sanitized builds use far more.
#ifdef TESSAVANT_SANITIZED
const size_t STACK_SIZE = 1024 * 1024;
#else
const size_t STACK_SIZE = 256 * 1024;
#endif

std::atomic<bool> stopping(false);
int wake = -1;  // turns readable when the server stops
// One thread at a time waits for a new connection; the others would only
// wake with it and find it taken.
std::mutex acceptor;

// SIGTERM is taken by one thread only; SIGUSR1 would make the library end
// the input of every request in flight. No request thread is interrupted.
sigset_t handledSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGUSR1);
    return set;
}

void prepare() {
    // Each request in flight holds two descriptors, its connection and its
    // origin's: the soft limit goes up to the hard one.
    rlimit files;
    if (::getrlimit(RLIMIT_NOFILE, &files) == 0 && files.rlim_cur < files.rlim_max) {
        files.rlim_cur = files.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &files);
    }
    // A request's large buffers (the copy buffer, a remote connection's
    // receive buffer) are mapped for it and go back to the system with it,
    // so that memory follows the requests in flight, not those served.
    ::mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    // A connection that another process takes first must leave this one
    // waiting in poll, where a stop reaches it, not blocked in accept.
    ::fcntl(LISTENING, F_SETFL, ::fcntl(LISTENING, F_GETFL) | O_NONBLOCK);
}

// Resource exhaustion leaves the connection waiting: retry a little later.
bool exhausted(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

// The listening socket itself is unusable: nothing more will come.
bool unusable(int error) {
    return error == EBADF || error == ENOTSOCK || error == EINVAL || error == EOPNOTSUPP;
}
}  // namespace

int FastCgiServer::threads(const char* value) {
    long count = 0;
    for (const char* c = value; c != nullptr && *c != '\0'; ++c) {
        if (*c < '0' || *c > '9')
            return DEFAULT_THREADS;
        count = std::min<long>(count * 10 + (*c - '0'), MAX_THREADS);
    }
    return count >= 1 ? static_cast<int>(count) : DEFAULT_THREADS;
}

int FastCgiServer::serve() {
    // Blocked before any thread starts, so every thread inherits the mask.
    const sigset_t handled = handledSignals();
    ::pthread_sigmask(SIG_BLOCK, &handled, nullptr);
    if (FCGX_Init() != 0 || (wake = ::eventfd(0, EFD_CLOEXEC)) < 0)
        return 1;
    prepare();
    pthread_attr_t small;
    ::pthread_attr_init(&small);
    ::pthread_attr_setstacksize(&small, STACK_SIZE);
    pthread_t watcher;
    if (::pthread_create(&watcher, &small, watchSignals, nullptr) != 0)
        return 1;
    std::vector<pthread_t> pool;
    const int count = threads(std::getenv("TESSAVANT_THREADS"));
    for (pthread_t thread; static_cast<int>(pool.size()) < count &&
                           ::pthread_create(&thread, &small, work, nullptr) == 0;)
        pool.push_back(thread);
    ::pthread_attr_destroy(&small);
    for (pthread_t thread : pool)
        ::pthread_join(thread, nullptr);
    return pool.empty() ? 1 : 0;
}

void* FastCgiServer::work(void*) {
    FCGX_Request request;
    FCGX_InitRequest(&request, LISTENING, 0);
    while (next(request)) {
        FCGX_SetExitStatus(0, request.out);  // the library keeps the last one
        FastCgiExchange exchange(request);
        try {
            Tessavant(exchange).run();
        } catch (const Exception&) {
            // An intake failure ends this request only, with no output.
            FCGX_SetExitStatus(1, request.out);
        }
        FCGX_Finish_r(&request);
    }
    FCGX_Free(&request, 1);  // a connection still kept open
    return nullptr;
}

bool FastCgiServer::next(FCGX_Request& request) {
    if (request.ipcFd >= 0) {
        // Without a listening socket, a kept connection that fails makes the
        // library give up instead of accepting a new one where no stop
        // reaches it.
        request.listen_sock = -1;
        const bool taken = readable(request.ipcFd, true) && FCGX_Accept_r(&request) == 0;
        request.listen_sock = LISTENING;
        if (taken)
            return true;
        FCGX_Free(&request, 1);
    }
    return acceptNext(request);
}

bool FastCgiServer::acceptNext(FCGX_Request& request) {
    std::lock_guard<std::mutex> one(acceptor);
    while (readable(LISTENING, false)) {
        // Fails with EAGAIN when another process took the connection first.
        const int error = -FCGX_Accept_r(&request);
        if (error == 0)
            return true;
        if (unusable(error))
            stop();
        if (exhausted(error)) {
            pollfd pause = {wake, POLLIN, 0};
            ::poll(&pause, 1, 10);
        }
    }
    return false;
}

bool FastCgiServer::readable(int fd, bool kept) {
    pollfd wait[2] = {{fd, POLLIN, 0}, {wake, POLLIN, 0}};
    while (::poll(wait, 2, -1) < 0)
        if (errno != EINTR)
            return false;
    return wait[0].revents != 0 && (kept || wait[1].revents == 0);
}

void* FastCgiServer::watchSignals(void*) {
    sigset_t terminate;
    sigemptyset(&terminate);
    sigaddset(&terminate, SIGTERM);
    int signal = 0;
    ::sigwait(&terminate, &signal);
    stop();
    ::sigwait(&terminate, &signal);
    // The second one ends the process at once, as SIGTERM does by default.
    ::signal(SIGTERM, SIG_DFL);
    ::pthread_sigmask(SIG_UNBLOCK, &terminate, nullptr);
    ::raise(SIGTERM);
    return nullptr;
}

void FastCgiServer::stop() {
    if (!stopping.exchange(true)) {
        const uint64_t one = 1;
        const ssize_t written = ::write(wake, &one, sizeof one);
        (void)written;  // a new counter cannot overflow
    }
}
