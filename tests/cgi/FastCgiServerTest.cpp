// One responder, many requests at once: each reply is the CGI program's for the same request, and
// a stop finishes every request it accepted and leaves the others to the next responder.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <filesystem>
#include <memory>
#include <thread>

#include "cgi/FastCgiServer.h"
#include "tests/support/FastCgi.h"
#include "tests/support/Process.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

namespace {
using Params = FastCgiClient::Params;

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

std::string cgi(const Params& params, const std::string& body = "",
                const char* program = TESSAVANT_BIN) {
    return Process::run(program, {}, params, body).out;
}

Params get(const std::string& reference, Params more = {}) {
    std::string query = Process::run(TESSAVANT_URL, {"pw", reference}, {}).out;
    query.pop_back();  // its line end
    more.insert(more.begin(), {{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", query}});
    return more;
}

// tests/support/slow-origin.py on a free port, for as long as the test runs.
class Origin {
  public:
    Origin(const char* delay, int size) : port(std::to_string(ScriptedServer::freePort())) {
        const int none = ::open("/dev/null", O_RDWR | O_CLOEXEC);
        const int standard[3] = {none, none, none};
        pid = Process::start("/usr/bin/python3",
                             {TESSAVANT_SOURCE_DIR "/tests/support/slow-origin.py", port, delay,
                              std::to_string(size)},
                             {}, standard, "");
        ::close(none);
        waitUntil([&] { return !ask("held").empty(); });
    }
    ~Origin() { Process::stop(pid); }
    std::string url() const { return "http://127.0.0.1:" + port + "/image.bin"; }
    std::string ask(const std::string& what) const {  // "peak" or "held"
        const std::string at = "http://127.0.0.1:" + port + "/" + what;
        return Process::run("/usr/bin/curl", {"-s", "--max-time", "5", at}, {}).out;
    }

  private:
    const std::string port;
    int pid;
};

// 32 clients at once, each sending every kind of request in turn; one of them goes away in the
// middle of each large image it asks for, another sends all of its requests on one connection. A
// failed intake (a POST without a length) ends only its own request.
TEST(FastCgiServer, ClientsAtOnceGetTheCgiProgramsReplies) {
    TempDir dir;
    Origin origin("0.2", 10240);
    const std::string small = dir.write("small.gif", std::string(1000, 'g')),
                      big = dir.write("big.bin",
                                      std::string(3 << 20, 'b'));  // more than sockets hold
    struct Request {
        Request(Params params, std::string body = "") : params(params), body(body) {}
        Params params;
        std::string body, reply;
    };
    std::vector<Request> mix = {
        {get(big)},
        {get(small)},
        {get(origin.url())},
        {get(origin.url())},
        {get(small, {{"HTTP_IF_MODIFIED_SINCE", "Mon, 07 Nov 2050 00:00:00 GMT"}})},
        {get(dir.path() + "/missing.gif")},
        {{{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", "cmd=svr"}, {"SERVER_SOFTWARE", "t"}}},
        {{{"REQUEST_METHOD", "POST"}, {"CONTENT_LENGTH", "7"}}, "cmd=env"},
        {{{"REQUEST_METHOD", "POST"}}, "cmd=env"},
        {{{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", "cmd=none"}}}};
    for (Request& r : mix)
        r.reply = cgi(r.params, r.body);
    const int listener = listenAt(dir.path() + "/socket");
    Responder responder(dir, listener);
    std::vector<std::thread> clients;
    for (size_t c = 0; c < 32; ++c)
        clients.emplace_back([&, c] {
            const std::string socket = dir.path() + "/socket";
            std::unique_ptr<FastCgiClient> kept(c == 1 ? new FastCgiClient(socket, true) : nullptr);
            for (size_t n = 0; n < 2 * mix.size(); ++n) {
                const size_t k = (c + n) % mix.size();
                const bool leaves = c == 0 && k == 0;
                std::unique_ptr<FastCgiClient> own(kept ? nullptr : new FastCgiClient(socket));
                FastCgiClient& client = kept ? *kept : *own;
                client.send(mix[k].params, mix[k].body);
                const auto reply = client.receive(leaves ? 65536 : std::string::npos);
                const bool right = leaves || (reply.ended && reply.out == mix[k].reply);
                EXPECT_TRUE(right) << "request " << k << ": " << reply.out;
                if (!right)
                    return;  // no more for a responder that has failed
            }
        });
    for (std::thread& client : clients)
        client.join();
    ::kill(responder.pid, SIGTERM);
    EXPECT_EQ(responder.end(), 0);
    EXPECT_EQ(readFile(responder.log), "");
    ::close(listener);
}

// SIGTERM amid remote requests waiting on their origin and a large image to a slow reader: each
// ends byte-exact and the responder exits 0. A connection made after it waits in the socket for
// the next responder (another file, which says so). A second SIGTERM ends that one at once.
TEST(FastCgiServer, AStopFinishesWhatItAcceptedAndLeavesTheRestWaiting) {
    TempDir dir;
    Origin origin("2", 10240);
    const Params remote = get(origin.url()),
                 large = get(dir.write("big.bin", std::string(4 << 20, 'b')));
    const Params svr = {
        {"REQUEST_METHOD", "GET"}, {"QUERY_STRING", "cmd=svr"}, {"SERVER_SOFTWARE", "t"}};
    const std::string fetched = cgi(remote), socket = dir.path() + "/socket",
                      next = dir.path() + "/next";
    std::filesystem::copy_file(TESSAVANT_BIN, next);
    const int listener = listenAt(socket);
    Responder first(dir, listener);
    std::vector<std::unique_ptr<FastCgiClient>> waiting;
    for (int i = 0; i < 8; ++i) {
        waiting.emplace_back(new FastCgiClient(socket));
        waiting.back()->send(remote);
    }
    FastCgiClient reader(socket);
    reader.send(large);
    std::string body = reader.receive(65536).out;
    ASSERT_TRUE(waitUntil([&] { return origin.ask("held") == "8"; }));
    ::kill(first.pid, SIGTERM);
    // The threads of the nine requests stay, the seven others end.
    ASSERT_TRUE(waitUntil([&] { return first.threads() == first.started - 7; }));
    FastCgiClient late(socket);
    late.send(svr);
    body += reader.receive(std::string::npos, 1).out;
    EXPECT_TRUE(body == cgi(large)) << body.size() << " bytes";
    for (auto& client : waiting)
        EXPECT_EQ(client->receive().out, fetched);
    EXPECT_EQ(first.end(), 0);

    Responder second(dir, listener, next);
    EXPECT_EQ(late.receive().out, cgi(svr, "", next.c_str()));
    FastCgiClient cut(socket);
    cut.send(remote);
    ASSERT_TRUE(waitUntil([&] { return origin.ask("held") == "1"; }));
    ::kill(second.pid, SIGTERM);
    ASSERT_TRUE(waitUntil([&] { return second.threads() == second.started - 15; }));
    ::kill(second.pid, SIGTERM);
    const int status = second.end();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
    EXPECT_FALSE(cut.receive().ended);
    EXPECT_EQ(readFile(first.log), "");
    ::close(listener);
}
}  // namespace
