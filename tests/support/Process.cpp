#include "tests/support/Process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <stdexcept>

int Process::start(const std::string& program, const std::vector<std::string>& args,
                   const Environment& env, const int standard[3], const std::string& directory) {
    std::vector<std::string> strings{program};
    strings.insert(strings.end(), args.begin(), args.end());
    const size_t argc = strings.size();
    for (const auto& e : env)
        strings.push_back(e.first + "=" + e.second);
    std::vector<char*> argv, envp;
    for (size_t i = 0; i < strings.size(); ++i)
        (i < argc ? argv : envp).push_back(&strings[i][0]);
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    const pid_t parent = ::getpid(), pid = ::fork();
    if (pid < 0)
        throw std::runtime_error("fork failed");
    if (pid == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::signal(SIGPIPE, SIG_DFL);
        for (int fd = 0; fd < 3; ++fd)
            ::dup2(standard[fd], fd);
        ::close_range(3, ~0U, 0);  // only what the program is given
        if (::getppid() == parent && (directory.empty() || ::chdir(directory.c_str()) == 0))
            ::execve(program.c_str(), argv.data(), envp.data());
        ::_exit(127);
    }
    return pid;
}

int Process::stop(int pid) {
    int status = -1;
    ::kill(pid, SIGTERM);
    for (int i = 0; i < 100 && ::waitpid(pid, &status, WNOHANG) == 0; ++i)
        ::usleep(50000);
    if (::kill(pid, SIGKILL) == 0)
        ::waitpid(pid, &status, 0);
    return status;
}

Process::Result Process::run(const std::string& program, const std::vector<std::string>& args,
                             const Environment& env, const std::string& input, int timeoutSeconds,
                             const std::string& directory, bool stopWhileWriting) {
    ::signal(SIGPIPE, SIG_IGN);  // a child that reads no input must not end the test
    int in[2], out[2], err[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe failed");
    const int standard[3] = {in[0], out[1], err[1]};
    const int pid = start(program, args, env, standard, directory);
    int fds[3] = {out[0], err[0], in[1]};
    ::close(in[0]), ::close(out[1]), ::close(err[1]);
    ::fcntl(in[1], F_SETFL, O_NONBLOCK);
    if (input.empty())
        ::close(fds[2]), fds[2] = -1;
    Result r;
    size_t written = 0;
    int stops = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
    char buffer[65536];
    while (fds[0] >= 0 || fds[1] >= 0) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                              deadline - std::chrono::steady_clock::now())
                              .count();
        pollfd p[3];
        for (int i = 0; i < 3; ++i)
            p[i] = {fds[i], static_cast<short>(i == 2 ? POLLOUT : POLLIN), 0};
        if (left <= 0 || (::poll(p, 3, static_cast<int>(left)) < 0 && errno != EINTR))
            break;
        for (int i = 0; i < 3; ++i) {
            if (p[i].fd < 0 || p[i].revents == 0)
                continue;
            const ssize_t n = i == 2
                                  ? ::write(fds[2], input.data() + written, input.size() - written)
                                  : ::read(fds[i], buffer, sizeof buffer);
            if (n > 0 && i == 2)
                written += static_cast<size_t>(n);
            else if (n > 0)
                (i == 0 ? r.out : r.err).append(buffer, static_cast<size_t>(n));
            if (n <= 0 || (i == 2 && written == input.size()))
                ::close(fds[i]), fds[i] = -1;
            if (i == 0 && n > 0 && stopWhileWriting && stops++ < 64)
                ::kill(pid, SIGSTOP), ::usleep(1000), ::kill(pid, SIGCONT);
        }
    }
    for (int fd : fds)
        if (fd >= 0)
            ::close(fd);
    const int status = stop(pid);  // at once when it has ended already
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    return r;
}
