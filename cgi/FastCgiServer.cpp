#include "cgi/FastCgiServer.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <vector>

#include "base/Exception.h"
#include "cgi/FastCgiExchange.h"
#include "cgi/Tessavant.h"

// Last: its configuration defines macros (VERSION) that would clash above.
#include <fcgios.h>

namespace {
const int LISTENING = 0;  // the socket that a spawner hands over as standard input
// A request needs a few tens of KiB of stack (name lookup and TLS included);
// its large buffers are on the heap. Sanitized builds use far more.
#ifdef TESSAVANT_SANITIZED
const size_t STACK_SIZE = 1024 * 1024;
#else
const size_t STACK_SIZE = 256 * 1024;
#endif

int wake = -1;       // turns readable when the server stops
bool local = false;  // the web server connects over a unix socket

// A thread waiting for a connection to serve.
struct Idle {
    std::condition_variable called;
    bool given = false;
    int connection = -1;  // -1: the server stops
};
// The idle threads, the last to come on top, so that it is the next to
// serve: the threads that serve stay few, and the stacks and caches of the
// others stay untouched, so memory follows the requests in flight.
std::mutex pool;
std::condition_variable idleCame;
std::vector<Idle*> idle;
bool stopping = false;  // under pool

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
    // A connection that another process takes first must leave the main
    // thread waiting in poll, where a stop reaches it, not blocked in accept.
    ::fcntl(LISTENING, F_SETFL, ::fcntl(LISTENING, F_GETFL) | O_NONBLOCK);
    sockaddr_storage address;
    socklen_t size = sizeof address;
    local = ::getsockname(LISTENING, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
            address.ss_family == AF_UNIX;
}

// The library closes a connection by half-closing it and waiting for the
// web server to close first, so that bytes still to come cannot reset the
// reply. Over a unix socket, once the web server has sent the end of the
// request's body (some send it after the reply has begun) and nothing is left
// unread, a plain close is safe and spares the wait.
void closeAtOnceWhenSafe(FCGX_Request& request) {
    if (!local)
        return;
    char rest[4096];
    while (FCGX_GetStr(rest, sizeof rest, request.in) > 0) {
    }
    int unread = -1;
    request.detached = FCGX_HasSeenEOF(request.in) == EOF &&
                               ::ioctl(request.ipcFd, FIONREAD, &unread) == 0 && unread == 0
                           ? 1
                           : 0;
}

Idle* takeIdle() {  // null once the server stops
    std::unique_lock<std::mutex> lock(pool);
    idleCame.wait(lock, [] { return stopping || !idle.empty(); });
    if (stopping)
        return nullptr;
    Idle* next = idle.back();
    idle.pop_back();
    return next;
}

void give(Idle& thread, int connection) {
    std::lock_guard<std::mutex> lock(pool);
    thread.given = true;
    thread.connection = connection;
    thread.called.notify_one();
}

int nextConnection() {  // -1 once the server stops
    Idle self;
    std::unique_lock<std::mutex> lock(pool);
    if (stopping)
        return -1;
    idle.push_back(&self);
    idleCame.notify_one();
    self.called.wait(lock, [&] { return self.given; });
    return self.connection;
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
    std::vector<pthread_t> workers;
    const int count = threads(std::getenv("TESSAVANT_THREADS"));
    for (pthread_t thread; static_cast<int>(workers.size()) < count &&
                           ::pthread_create(&thread, &small, work, nullptr) == 0;)
        workers.push_back(thread);
    ::pthread_attr_destroy(&small);
    if (!workers.empty())
        acceptConnections();
    stop();
    for (pthread_t thread : workers)
        ::pthread_join(thread, nullptr);
    return workers.empty() ? 1 : 0;
}

void FastCgiServer::acceptConnections() {
    for (Idle* next; (next = takeIdle()) != nullptr;) {
        const int connection = acceptOne();
        give(*next, connection);
        if (connection < 0)
            return;
    }
}

int FastCgiServer::acceptOne() {
    // The library's accept, which also applies FCGI_WEB_SERVER_ADDRS.
    static const char* const webServers = std::getenv("FCGI_WEB_SERVER_ADDRS");
    // Under load a connection is waiting already: accept first, wait after.
    for (;;) {
        const int connection = OS_Accept(LISTENING, 0, webServers);
        if (connection >= 0)
            return connection;
        if (unusable(errno))
            return -1;
        if (exhausted(errno)) {
            pollfd pause = {wake, POLLIN, 0};
            ::poll(&pause, 1, 10);
        } else if (errno == EAGAIN && !readable(LISTENING, false)) {
            return -1;  // the server stops
        }
    }
}

void* FastCgiServer::work(void*) {
    FCGX_Request request;
    FCGX_InitRequest(&request, -1, 0);  // the main thread accepts, never this one
    for (int connection; (connection = nextConnection()) >= 0;)
        answer(request, connection);
    return nullptr;
}

void FastCgiServer::answer(FCGX_Request& request, int connection) {
    request.ipcFd = connection;
    request.keepConnection = 1;  // the library reads its request instead of closing it
    // A connection that brings no request is closed by the library, which
    // then fails to accept on no socket.
    while (FCGX_Accept_r(&request) == 0) {
        FCGX_SetExitStatus(0, request.out);  // the library keeps the last one
        FastCgiExchange exchange(request);
        try {
            Tessavant(exchange).run();
        } catch (const Exception&) {
            // An intake failure ends this request only, with no output.
            FCGX_SetExitStatus(1, request.out);
        }
        closeAtOnceWhenSafe(request);
        FCGX_Finish_r(&request);
        if (request.ipcFd < 0 || !readable(request.ipcFd, true))
            break;
    }
    FCGX_Free(&request, 1);  // a kept connection with no request of its own
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
    std::lock_guard<std::mutex> lock(pool);
    if (stopping)
        return;
    stopping = true;
    const uint64_t one = 1;
    const ssize_t written = ::write(wake, &one, sizeof one);
    (void)written;  // a new counter cannot overflow
    idleCame.notify_all();
    for (Idle* thread : idle) {
        thread->given = true;
        thread->called.notify_one();
    }
    idle.clear();
}
