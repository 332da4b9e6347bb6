#pragma once

#include <string>
#include <utility>
#include <vector>

// Runs a program with exactly the given environment (in this order), arguments
// and input. Children die with the test process; every wait is bounded.
class Process {
  public:
    struct Result {
        std::string out, err;
        int status = -1, signal = 0;  // the exit status or -1; the ending signal or 0
    };
    using Environment = std::vector<std::pair<std::string, std::string>>;

    // stopWhileWriting stops and resumes the child often, to break up its large writes.
    static Result run(const std::string& program, const std::vector<std::string>& args,
                      const Environment& env, const std::string& input = "",
                      int timeoutSeconds = 60, const std::string& directory = "",
                      bool stopWhileWriting = false);
    static int start(const std::string& program, const std::vector<std::string>& args,
                     const Environment& env, const int standard[3], const std::string& directory);
    static int stop(int pid);  // SIGTERM, then SIGKILL after five seconds; the wait status
};
