#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include "tests/support/Process.h"

// Listening at path, or connected to it.
inline int unixSocket(const std::string& path, bool listening) {
    sockaddr_un address = {AF_UNIX, {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const auto at = reinterpret_cast<const sockaddr*>(&address);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listening ? ::bind(fd, at, sizeof address) || ::listen(fd, 64)
                  : ::connect(fd, at, sizeof address))
        throw std::runtime_error(path);
    return fd;
}

template <typename F>
bool waitUntil(F done) {  // for ten seconds at most
    for (int i = 0; i < 200; ++i, ::usleep(50000))
        if (done())
            return true;
    return false;
}

// A responder with 16 threads; what it writes itself goes to log.
struct Responder {
    Responder(const TempDir& dir, int listener, const std::string& program = TESSAVANT_BIN)
        : log(dir.path() + "/responder.log") {
        const int out = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        const int standard[3] = {listener, out, out};
        pid = Process::start(program, {}, {{"TESSAVANT_THREADS", "16"}}, standard, dir.path());
        ::close(out);
        waitUntil([&] { return threads() >= 18; });  // its 16, the main one, the signal one
        started = threads();
    }
    ~Responder() {
        if (pid > 0)
            Process::stop(pid);
    }
    long threads() const { return Process::count(pid, "task"); }
    int end() {  // its wait status once it ends by itself, else -1
        int status = -1;
        if (waitUntil([&] { return ::waitpid(pid, &status, WNOHANG) == pid; }))
            pid = -1;
        return status;
    }

    const std::string log;
    int pid = -1;
    long started;
};
