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

Process::Result Process::run(const std::string& program, const std::vector<std::string>& args,
                             const Environment& env, const std::string& input, int timeoutSeconds,
                             const std::string& workingDirectory, bool stopWhileWriting) {
    // A child that ends before reading its input must not end the test.
    ::signal(SIGPIPE, SIG_IGN);
    int in[2], out[2], err[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe failed");
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

    const pid_t parent = ::getpid();
    const pid_t pid = ::fork();
    if (pid < 0)
        throw std::runtime_error("fork failed");
    if (pid == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent)
            ::_exit(125);
        ::signal(SIGPIPE, SIG_DFL);
        ::dup2(in[0], 0);
        ::dup2(out[1], 1);
        ::dup2(err[1], 2);
        ::close_range(3, ~0U, 0);  // only what the program is given
        if (!workingDirectory.empty() && ::chdir(workingDirectory.c_str()) != 0)
            ::_exit(126);
        ::execve(program.c_str(), argv.data(), envp.data());
        ::_exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    int fds[3] = {out[0], err[0], in[1]};
    if (input.empty()) {
        ::close(fds[2]);
        fds[2] = -1;
    }
    ::fcntl(in[1], F_SETFL, O_NONBLOCK);

    Result r;
    size_t written = 0;
    int stops = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
    char buffer[65536];
    while (fds[0] >= 0 || fds[1] >= 0) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                              deadline - std::chrono::steady_clock::now())
                              .count();
        if (left <= 0) {
            r.timedOut = true;
            ::kill(pid, SIGKILL);
            break;
        }
        pollfd p[3];
        for (int i = 0; i < 3; ++i)
            p[i] = {fds[i], static_cast<short>(i == 2 ? POLLOUT : POLLIN), 0};
        if (::poll(p, 3, static_cast<int>(left)) < 0 && errno != EINTR)
            break;
        for (int i = 0; i < 3; ++i) {
            if (fds[i] < 0 || p[i].revents == 0)
                continue;
            ssize_t n = i == 2 ? ::write(fds[2], input.data() + written, input.size() - written)
                               : ::read(fds[i], buffer, sizeof buffer);
            if (i == 2 && n > 0)
                written += static_cast<size_t>(n);
            else if (n > 0)
                (i == 0 ? r.out : r.err).append(buffer, static_cast<size_t>(n));
            if (n <= 0 || (i == 2 && written == input.size())) {
                ::close(fds[i]);
                fds[i] = -1;
            }
            if (i == 0 && n > 0 && stopWhileWriting && stops++ < 64) {
                ::kill(pid, SIGSTOP);
                ::usleep(1000);
                ::kill(pid, SIGCONT);
            }
        }
    }
    for (int fd : fds)
        if (fd >= 0)
            ::close(fd);
    int status = 0;
    ::waitpid(pid, &status, 0);
    if (WIFEXITED(status))
        r.status = WEXITSTATUS(status);
    else if (WIFSIGNALED(status))
        r.signal = WTERMSIG(status);
    return r;
}
