#include <gtest/gtest.h>

#include "cgi/FastCgiServer.h"
#include "tests/support/FastCgi.h"
#include "tests/support/ScriptedServer.h"

namespace {
using Params = Process::Environment;

// A web server's end, connected at its first request: an unused one holds no thread.
struct Client {
    ~Client() { ::close(fd); }

    void send(const std::string& socket, const Params& params, bool keep = false) {
        const timeval limit = {10, 0};
        if (fd < 0)
            fd = unixSocket(socket, false);
        ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        std::string all = record(1, {0, 1, keep, 0, 0, 0, 0, 0}), pairs;
        for (const auto& [name, value] : params)  // any length may take four bytes
            pairs += length(name) + length(value) + name + value;
        all += record(4, pairs) + record(4, "") + record(5, "cmd=env") + record(5, "");
        ::send(fd, all.data(), all.size(), MSG_NOSIGNAL);
    }

    // Output up to the end of the request or connection, or limit bytes.
    std::string receive(size_t limit = -1) {
        std::string out;
        uint8_t head[8];
        char content[1 << 17];
        for (ended = false; !ended && out.size() < limit && take(head, 8);) {
            const int size = head[4] << 8 | head[5];
            if (!take(content, size + head[6]))  // and the padding
                break;
            out.append(content, head[1] == 6 ? size : 0);
            ended = head[1] == 3;
        }
        return out;
    }
    bool take(void* to, size_t n) {  // recv would wait for a byte of none
        return !n || ::recv(fd, to, n, MSG_WAITALL) == ssize_t(n);
    }
    static std::string length(const std::string& s) {
        return {'\x80', 0, char(s.size() >> 8), char(s.size())};
    }
    static std::string record(char type, const std::string& s) {
        return std::string{1, type, 0, 1, char(s.size() >> 8), char(s.size()), 0, 0} + s;
    }

    int fd = -1;
    bool ended = false;
};

TEST(FastCgiServer, ThreadsComeFromAPlainNumberUpToTheLimit) {
    const std::pair<const char*, int> values[] = {{nullptr, 1024}, {"", 1024},
                                                  {"1", 1},        {"64", 64},
                                                  {"0", 1024},     {"-4", 1024},
                                                  {"8x", 1024},    {" 8", 1024},
                                                  {"4096", 4096},  {"4097", 4096},
                                                  {"0016", 16},    {"1e3", 1024},
                                                  {"+8", 1024},    {"99999999999999999999", 4096}};
    for (const auto& [value, count] : values)
        EXPECT_EQ(FastCgiServer::threads(value), count) << (value ? value : "null");
}

std::string cgi(const Params& params) {
    return Process::run(TESSAVANT_BIN, {}, params, "cmd=env").out;
}

Params get(const std::string& reference) {
    std::string query = Process::run(TESSAVANT_URL, {"pw", reference}, {}).out;
    query.pop_back();  // its line end
    return {{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", query}};
}

const Params svr = {
    {"REQUEST_METHOD", "GET"}, {"QUERY_STRING", "cmd=svr"}, {"SERVER_SOFTWARE", "t"}};

struct Origin {
    Origin(const char* delay) {
        const int standard[3] = {0, 1, 2};
        pid = Process::start(TESSAVANT_SOURCE_DIR "/tests/support/slow-origin.py",
                             {port, delay, "9999"}, {}, standard, "");
        holds("0");
    }
    ~Origin() { Process::stop(pid); }
    bool holds(const char* requests) const {
        return waitUntil([&] {
            return Process::run("/usr/bin/curl", {"-sm5", url + "held"}, {}).out == requests;
        });
    }

    const std::string port = std::to_string(ScriptedServer::freePort()),
                      url = "http://127.0.0.1:" + port + "/";
    int pid;
};

// 32 clients at once; one keeps its connection throughout.
void clientsAtOnce(const TempDir& dir, const std::string& socket, const Params& large) {
    Origin origin("0.2");
    const std::string small = dir.write("s.gif", std::string(1000, 'g'));
    Params since = get(small);
    since.push_back({"HTTP_IF_MODIFIED_SINCE", "Mon, 07 Nov 2050 00:00:00 GMT"});
    std::vector<std::pair<Params, std::string>> mix;
    for (const Params& params :
         std::vector<Params>{large,
                             get(small),
                             get(origin.url),
                             since,
                             get(dir.path() + "/none.gif"),
                             svr,
                             {{"REQUEST_METHOD", "POST"}, {"CONTENT_LENGTH", "7"}},
                             {{"REQUEST_METHOD", "POST"}},  // a failed intake ends it alone
                             {{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", "cmd=none"}}})
        mix.push_back({params, cgi(params)});
    std::vector<std::thread> clients;
    for (size_t c = 0; c < 32; ++c)
        clients.emplace_back([&, c] {
            Client kept;
            for (size_t n = c; n < c + mix.size(); ++n) {
                const auto& [params, reply] = mix[n % mix.size()];
                Client own, &client = c == 1 ? kept : own;
                client.send(socket, params, c == 1);
                if (n == 0)  // client 0 leaves amid the large image
                    client.receive(65536);
                else
                    ASSERT_TRUE(client.receive() == reply && client.ended) << n;
            }
        });
    for (auto& client : clients)
        client.join();
}

// A stop finishes what it accepted and leaves the rest to the next responder; a second one
// ends it at once.
TEST(FastCgiServer, ClientsAtOnceThenAStop) {
    TempDir dir;
    Origin slow("2");
    const Params remote = get(slow.url), large = get(dir.write("big", std::string(4 << 20, 'b')));
    const std::string fetched = cgi(remote), socket = dir.path() + "/socket",
                      next = dir.path() + "/next";
    std::filesystem::copy_file(TESSAVANT_BIN, next);
    const int listener = unixSocket(socket, true);
    Responder first(dir, listener);
    clientsAtOnce(dir, socket, large);
    Client reader, waiting[8], late, cut;
    reader.send(socket, large);  // accepted before the next ones
    for (auto& client : waiting)
        client.send(socket, remote);
    ASSERT_TRUE(slow.holds("8"));
    ::kill(first.pid, SIGTERM);
    // Once its idle threads end, it takes no more.
    ASSERT_TRUE(waitUntil([&] { return first.threads() < first.started; }));
    late.send(socket, svr);
    EXPECT_TRUE(reader.receive() == cgi(large));
    for (auto& client : waiting)
        EXPECT_TRUE(client.receive() == fetched);
    EXPECT_EQ(first.end(), 0);

    Responder second(dir, listener, next);
    EXPECT_EQ(late.receive(), Process::run(next, {}, svr).out);
    cut.send(socket, large);
    cut.receive(65536);
    ::kill(second.pid, SIGTERM);
    ASSERT_TRUE(waitUntil([&] { return second.threads() < second.started; }));
    ::kill(second.pid, SIGTERM);
    EXPECT_EQ(second.end(), SIGTERM);  // killed by it
    cut.receive();
    EXPECT_FALSE(cut.ended);
    EXPECT_EQ(readFile(first.log), "");
    ::close(listener);
}
}  // namespace
