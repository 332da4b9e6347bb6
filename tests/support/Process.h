#pragma once

#include <map>
#include <string>
#include <vector>

// Runs a program with exactly the given environment, arguments and standard
// input, and captures what it did. Every wait is bounded.
class Process {
  public:
    struct Result {
        std::string out;
        std::string err;
        int status = -1;  // exit status, or -1 when ended by a signal
        int signal = 0;   // the ending signal, or 0
        bool timedOut = false;
    };

    using Environment = std::map<std::string, std::string>;

    static Result run(const std::string& program, const std::vector<std::string>& args,
                      const Environment& env, const std::string& input = std::string(),
                      int timeoutSeconds = 60, const std::string& workingDirectory = "");

    // The program under test, with a CGI-like environment.
    static Result tessavant(const Environment& env, const std::vector<std::string>& args = {},
                            const std::string& input = std::string());

    // Text replies start with this header block.
    static const char* const TEXT;
};

// Ends the given process (that the test started) and waits for it, bounded.
void stopProcess(int pid);
