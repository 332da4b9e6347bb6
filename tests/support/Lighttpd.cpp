#include "tests/support/Lighttpd.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "tests/support/Loopback.h"
#include "tests/support/Process.h"

const char* const Lighttpd::BINARY = "/usr/sbin/lighttpd";

namespace {
const char* const MODULES = "/usr/lib/lighttpd";

std::string quoted(const std::string& text) {
    return "\"" + text + "\"";
}
}  // namespace

bool Lighttpd::installed() {
    return ::access(BINARY, X_OK) == 0;
}

Lighttpd::Lighttpd(const std::string& documentRoot) : Lighttpd(documentRoot, Options()) {}

Lighttpd::Lighttpd(const std::string& documentRoot, const Options& options) : tls(options.tls) {
    if (!installed())
        throw std::runtime_error(std::string("lighttpd is not installed (") + BINARY +
                                 "); scripts/test installs it");
    if (tls) {
        Process::Result made = Process::run(
            "/usr/bin/openssl",
            {"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
             "-keyout", dir.path() + "/key.pem", "-out", dir.path() + "/cert.pem", "-days", "2",
             "-subj", "/CN=127.0.0.1"},
            {{"PATH", "/usr/bin:/bin"}}, "", 60);
        if (made.status != 0)
            throw std::runtime_error("openssl could not make a certificate: " + made.err);
    }
    // Another process may take the chosen port before the server binds it.
    std::string why;
    for (int attempt = 0; attempt < 3; ++attempt)
        if (start(documentRoot, options, why))
            return;
    throw std::runtime_error("lighttpd did not start: " + why);
}

Lighttpd::~Lighttpd() {
    stop();
}

std::string Lighttpd::url(const std::string& path) const {
    return std::string(tls ? "https" : "http") + "://127.0.0.1:" + std::to_string(portNumber) +
           path;
}

std::string Lighttpd::errorLog() const {
    try {
        return readFile(dir.path() + "/error.log") + readFile(dir.path() + "/stderr.log");
    } catch (const std::exception&) {
        return "";
    }
}

void Lighttpd::stop() {
    if (processId > 0)
        stopProcess(processId);
    processId = -1;
}

bool Lighttpd::start(const std::string& documentRoot, const Options& options, std::string& why) {
    portNumber = freeLoopbackPort();
    std::string config;
    config += "server.document-root = " + quoted(documentRoot) + "\n";
    config += "server.bind = \"127.0.0.1\"\n";
    config += "server.port = " + std::to_string(portNumber) + "\n";
    config += "server.pid-file = " + quoted(dir.path() + "/lighttpd.pid") + "\n";
    config += "server.errorlog = " + quoted(dir.path() + "/error.log") + "\n";
    config += "server.max-keep-alive-requests = 0\n";
    config +=
        "mimetype.assign = (\".gif\" => \"image/gif\", \".png\" => \"image/png\", "
        "\".jpg\" => \"image/jpeg\", \".txt\" => \"text/plain\", "
        "\"\" => \"application/octet-stream\")\n";
    if (tls) {
        config += "server.modules += (\"mod_openssl\")\n";
        config += "ssl.engine = \"enable\"\n";
        config += "ssl.pemfile = " + quoted(dir.path() + "/cert.pem") + "\n";
        config += "ssl.privkey = " + quoted(dir.path() + "/key.pem") + "\n";
    }
    for (const auto& line : options.config)
        config += line + "\n";
    std::string configPath = dir.write("lighttpd.conf", config);
    std::string stderrPath = dir.path() + "/stderr.log";

    // Everything the child needs is made before fork: the test process may
    // have threads, so the child does nothing but redirect and exec.
    std::vector<std::string> args = {BINARY, "-D", "-f", configPath, "-m", MODULES};
    std::vector<char*> argv;
    for (auto& a : args)
        argv.push_back(&a[0]);
    argv.push_back(nullptr);
    char pathVariable[] = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
    char* envp[] = {pathVariable, nullptr};
    int maxFd = static_cast<int>(::sysconf(_SC_OPEN_MAX));
    if (maxFd < 0 || maxFd > 65536)
        maxFd = 65536;

    pid_t pid = ::fork();
    if (pid < 0)
        throw std::runtime_error("fork failed");
    if (pid == 0) {
        int null = ::open("/dev/null", O_RDWR);
        int err = ::open(stderrPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        ::dup2(null, 0);
        ::dup2(null, 1);
        ::dup2(err >= 0 ? err : null, 2);
        // The server must not hold the test's sockets open.
        if (::syscall(SYS_close_range, 3U, ~0U, 0U) != 0)
            for (int fd = 3; fd < maxFd; ++fd)
                ::close(fd);
        ::execve(BINARY, argv.data(), envp);
        ::_exit(127);
    }
    processId = pid;

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
        if (::waitpid(pid, nullptr, WNOHANG) == pid) {
            processId = -1;
            why = errorLog();
            return false;
        }
        if (acceptsOnLoopback(portNumber))
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    stop();
    why = "no connection accepted within 10 seconds; " + errorLog();
    return false;
}
