#include "tests/support/Process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>

const char* const Process::TEXT = "Content-type: text/plain\n\n";

namespace {
void closeIfOpen(int& fd) {
    if (fd >= 0)
        ::close(fd);
    fd = -1;
}
}  // namespace

Process::Result Process::run(const std::string& program, const std::vector<std::string>& args,
                             const Environment& env, const std::string& input, int timeoutSeconds,
                             const std::string& workingDirectory) {
    // A child that ends before reading its input must not take the test
    // process down with it.
    ::signal(SIGPIPE, SIG_IGN);
    int in[2], out[2], err[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe failed");

    std::vector<std::string> argStrings{program};
    argStrings.insert(argStrings.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (auto& a : argStrings)
        argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    std::vector<std::string> envStrings;
    for (const auto& e : env)
        envStrings.push_back(e.first + "=" + e.second);
    std::vector<char*> envp;
    for (auto& e : envStrings)
        envp.push_back(const_cast<char*>(e.c_str()));
    envp.push_back(nullptr);

    pid_t pid = ::fork();
    if (pid < 0)
        throw std::runtime_error("fork failed");
    if (pid == 0) {
        ::dup2(in[0], 0);
        ::dup2(out[1], 1);
        ::dup2(err[1], 2);
        if (!workingDirectory.empty() && ::chdir(workingDirectory.c_str()) != 0)
            ::_exit(126);
        ::execve(program.c_str(), argv.data(), envp.data());
        ::_exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    int inFd = in[1], outFd = out[0], errFd = err[0];
    if (input.empty())
        closeIfOpen(inFd);
    ::fcntl(inFd, F_SETFL, O_NONBLOCK);

    Result r;
    size_t written = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
    char buffer[65536];
    while (outFd >= 0 || errFd >= 0) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                        deadline - std::chrono::steady_clock::now())
                        .count();
        if (left <= 0) {
            r.timedOut = true;
            ::kill(pid, SIGKILL);
            break;
        }
        pollfd fds[3];
        int n = 0;
        if (outFd >= 0)
            fds[n++] = {outFd, POLLIN, 0};
        if (errFd >= 0)
            fds[n++] = {errFd, POLLIN, 0};
        if (inFd >= 0)
            fds[n++] = {inFd, POLLOUT, 0};
        if (::poll(fds, n, static_cast<int>(left)) < 0 && errno != EINTR)
            break;
        for (int i = 0; i < n; ++i) {
            if (fds[i].revents == 0)
                continue;
            if (fds[i].fd == inFd) {
                ssize_t w = ::write(inFd, input.data() + written, input.size() - written);
                if (w > 0)
                    written += static_cast<size_t>(w);
                if (w < 0 || written == input.size())
                    closeIfOpen(inFd);
                continue;
            }
            ssize_t got = ::read(fds[i].fd, buffer, sizeof buffer);
            if (got > 0) {
                (fds[i].fd == outFd ? r.out : r.err).append(buffer, static_cast<size_t>(got));
            } else {
                closeIfOpen(fds[i].fd == outFd ? outFd : errFd);
            }
        }
    }
    closeIfOpen(inFd);
    closeIfOpen(outFd);
    closeIfOpen(errFd);

    int status = 0;
    ::waitpid(pid, &status, 0);
    if (WIFEXITED(status)) {
        r.status = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
        r.signal = WTERMSIG(status);
    }
    return r;
}

Process::Result Process::tessavant(const Environment& env, const std::vector<std::string>& args,
                                   const std::string& input) {
    return run(TESSAVANT_BIN, args, env, input);
}

void stopProcess(int pid) {
    if (pid <= 0)
        return;
    ::kill(pid, SIGTERM);
    for (int i = 0; i < 100; ++i) {
        if (::waitpid(pid, nullptr, WNOHANG) == pid)
            return;
        ::usleep(50000);
    }
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
}
