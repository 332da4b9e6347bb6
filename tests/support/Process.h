#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/TempDir.h"

// Runs a program with exactly this environment, in order; children die with the test process.
class Process {
  public:
    struct Result {
        std::string out, err;
        int status = -1, signal = 0;  // the exit status or -1; the ending signal or 0
    };
    using Environment = std::vector<std::pair<std::string, std::string>>;

    static int start(const std::string& program, const std::vector<std::string>& args,
                     const Environment& env, const int standard[3], const std::string& directory) {
        std::vector<std::string> strings{program};
        strings.insert(strings.end(), args.begin(), args.end());
        for (const auto& [name, value] : env)
            strings.push_back(name + "=" + value);
        std::vector<char*> argv, envp;
        for (size_t i = 0; i < strings.size(); ++i)
            (i <= args.size() ? argv : envp).push_back(&strings[i][0]);
        argv.push_back(nullptr), envp.push_back(nullptr);
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

    // How many descriptors ("fd") or threads ("task") the process has.
    static long count(int pid, const char* of) {
        using std::filesystem::directory_iterator;
        return std::distance(directory_iterator("/proc/" + std::to_string(pid) + "/" + of), {});
    }

    static int stop(int pid) {  // SIGTERM, then SIGKILL after five seconds; the wait status
        int status = -1;
        ::kill(pid, SIGTERM);
        for (int i = 0; i < 100 && ::waitpid(pid, &status, WNOHANG) == 0; ++i)
            ::usleep(50000);
        if (::kill(pid, SIGKILL) == 0)
            ::waitpid(pid, &status, 0);
        return status;
    }

    // timeout in seconds; stopWhileWriting stops and resumes the child, breaking up its writes.
    static Result run(const std::string& program, const std::vector<std::string>& args,
                      const Environment& env, const std::string& input = "", int timeout = 60,
                      const std::string& directory = "", bool stopWhileWriting = false) {
        // Input and errors go through files: only the output is read while it runs.
        TempDir files;
        const int in = ::open(files.write("in", input).c_str(), O_RDONLY | O_CLOEXEC),
                  err = ::open(files.write("err", "").c_str(), O_WRONLY | O_CLOEXEC);
        int out[2];
        std::string output;
        if (in < 0 || err < 0 || ::pipe2(out, O_CLOEXEC) != 0)
            throw std::runtime_error("cannot make the standard descriptors");
        const int standard[3] = {in, out[1], err};
        const int pid = start(program, args, env, standard, directory);
        ::close(in), ::close(out[1]), ::close(err);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeout);
        char buffer[65536];
        for (ssize_t n = 1, stops = 0; n > 0 && std::chrono::steady_clock::now() < deadline;) {
            if (pollfd p = {out[0], POLLIN, 0}; ::poll(&p, 1, 100) != 1)
                continue;
            if ((n = ::read(out[0], buffer, sizeof buffer)) > 0)
                output.append(buffer, static_cast<size_t>(n));
            if (n > 0 && stopWhileWriting && stops++ < 64)
                ::kill(pid, SIGSTOP), ::usleep(1000), ::kill(pid, SIGCONT);
        }
        ::close(out[0]);
        const int status = stop(pid);  // at once when it has ended already
        return {output, readFile(files.path() + "/err"),
                WIFEXITED(status) ? WEXITSTATUS(status) : -1,
                WIFSIGNALED(status) ? WTERMSIG(status) : 0};
    }
};
