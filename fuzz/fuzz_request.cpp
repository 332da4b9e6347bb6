// The whole intake and dispatch of one request, in-process. The input is
// what the web server hands the program:
//
//   REQUEST_METHOD=POST          environment lines, up to an empty line
//   CONTENT_LENGTH=20            (only the names below are taken; ARG=...
//   HTTP_IF_NONE_MATCH="..."      stands for the one command-line argument)
//
//   cmd=img&p=...&i=...          the rest is standard input
//
// Standard output goes to /dev/null. The working directory is a fresh one
// holding a.gif, the local reference of the seeds. Intake failures are
// thrown out of run() on purpose (the program then ends abnormally): they
// are caught here, and anything else escaping is a finding.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "base/Exception.h"
#include "cgi/CgiExchange.h"
#include "cgi/Tessavant.h"
#include "fuzz/FuzzSupport.h"

extern char** environ;

namespace {
const char* const NAMES[] = {"REQUEST_METHOD",     "QUERY_STRING",           "CONTENT_LENGTH",
                             "HTTP_IF_NONE_MATCH", "HTTP_IF_MODIFIED_SINCE", "SERVER_SOFTWARE",
                             "SCRIPT_FILENAME"};

int standardInput = -1;
char dir[] = "/tmp/tessavant-fuzz-XXXXXX";

// The image and its directory go when the fuzzer ends.
void tearDown() {
    ::unlink("a.gif");
    ::rmdir(dir);
}

void setUp() {
    if (::mkdtemp(dir) == nullptr || ::chdir(dir) != 0 || std::atexit(tearDown) != 0)
        std::abort();
    FILE* image = std::fopen("a.gif", "wb");
    if (image == nullptr)
        std::abort();
    std::fputs("GIF89a fuzzing image", image);
    std::fclose(image);
    int devNull = ::open("/dev/null", O_WRONLY);
    if (devNull < 0 || ::dup2(devNull, STDOUT_FILENO) < 0)
        std::abort();
    ::close(devNull);
    standardInput = ::memfd_create("stdin", 0);
    if (standardInput < 0 || ::dup2(standardInput, STDIN_FILENO) < 0)
        std::abort();
}
}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setUp();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = fuzzText(data, size);
    for (const char* name : NAMES)
        ::unsetenv(name);

    std::string argument;
    bool hasArgument = false;
    size_t position = 0;
    while (position < text.size()) {
        size_t end = text.find('\n', position);
        if (end == std::string::npos)
            end = text.size();
        const std::string line = text.substr(position, end - position);
        position = end + 1;
        if (line.empty())
            break;
        const size_t eq = line.find('=');
        if (eq == std::string::npos)
            continue;
        const std::string name = line.substr(0, eq);
        const std::string value = line.substr(eq + 1);
        if (name == "ARG") {
            argument = value;
            hasArgument = true;
            continue;
        }
        if (name == "CONTENT_LENGTH" && std::strtol(value.c_str(), nullptr, 10) > (1 << 20))
            return 0;  // the program allocates what is announced; a test covers the huge case
        for (const char* known : NAMES)
            if (name == known)
                ::setenv(known, value.c_str(), 1);
    }
    const std::string body = position < text.size() ? text.substr(position) : std::string();

    // Standard input holds exactly the body, read from its start.
    if (::ftruncate(STDIN_FILENO, 0) != 0 ||
        ::pwrite(STDIN_FILENO, body.data(), body.size(), 0) != static_cast<ssize_t>(body.size()))
        std::abort();
    std::clearerr(stdin);
    std::fseek(stdin, 0, SEEK_SET);

    std::vector<char> argumentText(argument.begin(), argument.end());
    argumentText.push_back('\0');
    CgiExchange exchange(environ);
    Tessavant request(exchange, hasArgument ? argumentText.data() : nullptr);
    try {
        fuzzCheck(request.run() == 0, "a handled request ends with status 0");
    } catch (const Exception& e) {
        const std::string message = e.getMessageCode();
        fuzzCheck(message == "Tessavant CONTENT_LENGTH not found (-1)" ||
                      message == "Tessavant CONTENT_LENGTH invalid (-1)",
                  "only intake failures leave run()", e.getMessageCode());
    }
    std::fflush(stdout);
    return 0;
}
