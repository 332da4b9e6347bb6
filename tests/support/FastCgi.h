#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

inline sockaddr_un unixAddress(const std::string& path) {
    sockaddr_un address = {AF_UNIX, {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

// A listening unix socket at path, to hand to a responder as its standard input.
inline int listenAt(const std::string& path) {
    const sockaddr_un address = unixAddress(path);
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener, 64) != 0)
        throw std::runtime_error("cannot listen at " + path);
    return listener;
}

// One request to a responder, as a web server sends it: parameters and body, then the reply's
// records read back. Nothing throws: connecting, sending and each receive give up after ten
// seconds, and a reply that did not end says so.
class FastCgiClient {
  public:
    using Params = std::vector<std::pair<std::string, std::string>>;
    struct Reply {
        std::string out;
        bool ended = false;  // the responder ended the request
    };

    // keep: ask the responder to keep the connection for further requests.
    explicit FastCgiClient(const std::string& path, bool keep = false) : keep(keep) {
        const sockaddr_un address = unixAddress(path);
        const timeval limit = {10, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
        ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    ~FastCgiClient() { ::close(fd); }
    FastCgiClient(const FastCgiClient&) = delete;
    FastCgiClient& operator=(const FastCgiClient&) = delete;

    void send(const Params& params, const std::string& body = "") {
        std::string pairs;
        for (const auto& [name, value] : params)
            pairs += length(name.size()) + length(value.size()) + name + value;
        std::string all =
            record(1, std::string("\0\1", 2) + char(keep) + std::string(5, '\0'));  // a responder
        all += stream(4, pairs) + stream(5, body);
        ::send(fd, all.data(), all.size(), MSG_NOSIGNAL);
    }

    // Reads until the request ends, the connection does, or up to limit output bytes; a slow
    // reader pauses after each receive. Once the request has ended, it closes its side, as a web
    // server does that keeps no connection.
    Reply receive(size_t limit = std::string::npos, int pauseMs = 0) {
        Reply reply;
        while (!reply.ended && reply.out.size() < limit) {
            std::string head = take(8);
            if (head.size() < 8)
                break;
            const auto byte = [&](int i) { return static_cast<unsigned char>(head[i]); };
            const std::string content = take(byte(4) << 8 | byte(5));
            take(byte(6));     // padding
            if (byte(1) == 6)  // standard output
                reply.out += content;
            reply.ended = byte(1) == 3;  // the end of the request
            std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs));
        }
        if (reply.ended && !keep)
            ::shutdown(fd, SHUT_RDWR);
        return reply;
    }

  private:
    static std::string length(size_t n) {
        if (n < 128)
            return std::string(1, static_cast<char>(n));
        const uint32_t big = htonl(static_cast<uint32_t>(n) | 0x80000000u);
        return std::string(reinterpret_cast<const char*>(&big), 4);
    }
    static std::string record(int type, const std::string& content) {
        const char head[8] = {1,
                              static_cast<char>(type),
                              0,
                              1,
                              static_cast<char>(content.size() >> 8),
                              static_cast<char>(content.size() & 0xff),
                              0,
                              0};
        return std::string(head, 8) + content;
    }
    static std::string stream(int type, const std::string& content) {  // ended by an empty record
        std::string records;
        for (size_t at = 0; at < content.size(); at += 65535)
            records += record(type, content.substr(at, 65535));
        return records + record(type, "");
    }
    std::string take(size_t n) {  // fewer only at the end of the connection
        std::string bytes(n, '\0');
        size_t got = 0;
        for (ssize_t r = 1; got < n && r > 0; got += r > 0 ? static_cast<size_t>(r) : 0)
            r = ::recv(fd, &bytes[got], n - got, 0);
        bytes.resize(got);
        return bytes;
    }

    const bool keep;
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

template <typename F>
bool waitUntil(F done) {  // for ten seconds at most
    for (int i = 0; i < 200; ++i, ::usleep(50000))
        if (done())
            return true;
    return false;
}

// A responder with 16 threads on the test's listening socket; what it writes itself, a file.
class Responder {
  public:
    Responder(const TempDir& dir, int listener, const std::string& program = TESSAVANT_BIN)
        : log(dir.path() + "/responder.log") {
        const int out = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        const int standard[3] = {listener, out, out};
        pid = Process::start(program, {}, {{"TESSAVANT_THREADS", "16"}}, standard, dir.path());
        ::close(out);
        waitUntil([&] { return threads() >= 18; });  // its 16, the main one, the signal one
        started = threads();
    }
    long threads() const { return Process::count(pid, "task"); }
    int end() {  // its wait status, once it has ended by itself; -1 if it goes on
        int status = -1;
        if (waitUntil([&] { return ::waitpid(pid, &status, WNOHANG) == pid; }))
            pid = -1;
        return status;
    }
    ~Responder() {
        if (pid > 0)
            Process::stop(pid);
    }

    const std::string log;
    int pid = -1;
    long started;
};
