// Every kind of request, run once under valgrind's memcheck: no memory
// error, nothing definitely or indirectly lost, and no descriptor of the
// program's own left open at exit beyond standard input, output and error.
// Memcheck cannot run a sanitized program; that build skips these.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utime.h>

#include <cstring>
#include <sstream>

#include "tests/support/ImageQuery.h"
#include "tests/support/Lighttpd.h"
#include "tests/support/Loopback.h"
#include "tests/support/Process.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

namespace {
const char* const VALGRIND = "/usr/bin/valgrind";
const std::string PASSWORD = "a client password";
const std::string NOV_1994_TEXT = "Sun, 06 Nov 1994 08:49:37 GMT";
const time_t NOV_1994 = 784111777;

struct Checked {
    Process::Result run;
    std::string log;
};

Checked memcheck(const Process::Environment& env, const std::vector<std::string>& args = {},
                 const std::string& input = "", const std::string& cwd = "") {
    TempDir dir;
    const std::string log = dir.path() + "/memcheck.log";
    std::vector<std::string> command = {"--error-exitcode=99",
                                        "--leak-check=full",
                                        "--show-leak-kinds=definite,indirect",
                                        "--errors-for-leak-kinds=definite,indirect",
                                        "--track-fds=yes",
                                        "--log-file=" + log,
                                        TESSAVANT_BIN};
    command.insert(command.end(), args.begin(), args.end());
    Checked c;
    c.run = Process::run(VALGRIND, command, env, input, 180, cwd);
    c.log = readFile(log);
    return c;
}

Checked image(const std::string& reference, Process::Environment env = {}) {
    env["REQUEST_METHOD"] = "GET";
    env["QUERY_STRING"] = imageQuery(PASSWORD, reference);
    return memcheck(env);
}

// The descriptors open at exit that the program itself opened: every one
// that valgrind lists, except those the program was started with.
std::vector<std::string> ownDescriptors(const std::string& log) {
    std::vector<std::string> own;
    std::istringstream lines(log);
    std::string line, open;
    while (std::getline(lines, line)) {
        const size_t text = line.find("== ");
        const std::string body = text == std::string::npos ? line : line.substr(text + 3);
        if (body.rfind("Open ", 0) == 0) {
            if (!open.empty())
                own.push_back(open);
            open = body;
        } else if (body.find("<inherited from parent>") != std::string::npos) {
            open.clear();
        } else if (body.empty() && !open.empty()) {
            own.push_back(open);
            open.clear();
        }
    }
    if (!open.empty())
        own.push_back(open);
    return own;
}

// Whether the leak summary counts lost bytes of that kind; it lists the
// kinds only when something is left at exit.
bool lost(const std::string& log, const std::string& kind) {
    const size_t at = log.find(kind + " lost: ");
    return at != std::string::npos && log.compare(at + kind.size() + 7, 8, "0 bytes ") != 0;
}

// Clean under memcheck; `signal` is the abnormal end that the case has by
// design (an intake failure), or 0 for exit status 0.
void expectClean(const Checked& c, int signal = 0) {
    ASSERT_FALSE(c.run.timedOut);
    EXPECT_EQ(c.run.err, "");
    if (signal == 0)
        EXPECT_EQ(c.run.status, 0) << c.log;
    else
        EXPECT_EQ(c.run.signal, signal) << c.log;
    EXPECT_NE(c.log.find("ERROR SUMMARY: 0 errors"), std::string::npos) << c.log;
    EXPECT_FALSE(lost(c.log, "definitely")) << c.log;
    EXPECT_FALSE(lost(c.log, "indirectly")) << c.log;
    EXPECT_NE(c.log.find("FILE DESCRIPTORS: "), std::string::npos) << c.log;
    EXPECT_EQ(ownDescriptors(c.log), std::vector<std::string>()) << c.log;
}

std::string failed(const std::string& reference, const std::string& messageCode) {
    return std::string(Process::TEXT) + "e=" + reference + " - " + messageCode + "\n\n";
}

std::string dated(const TempDir& dir, const std::string& name, const std::string& content) {
    const std::string path = dir.write(name, content);
    struct utimbuf times = {NOV_1994, NOV_1994};
    ::utime(path.c_str(), &times);
    return path;
}

// One image request for a scripted peer's URL, under memcheck.
Checked remote(const ScriptedServer::Exchange& step, std::string& url,
               const std::string& scheme = "http") {
    ScriptedServer server;
    server.serve({step});
    url = server.url("/a.gif");
    if (scheme != "http")
        url.replace(0, 4, scheme);
    Checked c = image(url);
    EXPECT_TRUE(server.finish());
    return c;
}

Checked remote(const std::string& reply, std::string& url) {
    ScriptedServer::Exchange step;
    step.pieces = {reply};
    return remote(step, url);
}

class Memcheck : public ::testing::Test {
  protected:
    void SetUp() override {
#ifdef TESSAVANT_SANITIZED
        GTEST_SKIP() << "memcheck cannot run a sanitized program";
#endif
        ASSERT_EQ(::access(VALGRIND, X_OK), 0) << "valgrind is not installed";
    }
};
}  // namespace

TEST_F(Memcheck, TextCommandsAndIntake) {
    Checked c = memcheck({{"REQUEST_METHOD", "GET"}});
    expectClean(c);
    EXPECT_EQ(c.run.out, std::string(Process::TEXT) + "Tessavant 6.0\n\n");
    expectClean(memcheck({{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", "cmd=env"}}));
    c = memcheck({{"REQUEST_METHOD", "GET"},
                  {"QUERY_STRING", "cmd=svr"},
                  {"SERVER_SOFTWARE", "lighttpd"},
                  {"SCRIPT_FILENAME", "/cgi-bin/t"}});
    expectClean(c);
    EXPECT_EQ(c.run.out.rfind(std::string(Process::TEXT) + "w=lighttpd&i=", 0), 0u);
    expectClean(memcheck({{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", "cmd=svr"}}));
    c = memcheck({{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", "cmd=bogus&&=x&\"q\""}});
    expectClean(c);
    EXPECT_EQ(c.run.out, "");
    expectClean(memcheck({{"REQUEST_METHOD", "HEAD"}}));
    expectClean(memcheck({}, {"/cgi-bin/tessavant?cmd=env"}));
    expectClean(memcheck({{"REQUEST_METHOD", "POST"}, {"CONTENT_LENGTH", "7"}}, {}, "cmd=env"));
    expectClean(memcheck({{"REQUEST_METHOD", "POST"}, {"CONTENT_LENGTH", "4000"}}, {}, "cmd="));
    // Intake failures end the process abnormally by design.
    expectClean(memcheck({{"REQUEST_METHOD", "POST"}}, {}, "cmd=env"), SIGABRT);
    expectClean(memcheck({{"REQUEST_METHOD", "POST"}, {"CONTENT_LENGTH", "abc"}}, {}, "cmd=env"),
                SIGABRT);
    expectClean(memcheck({{"REQUEST_METHOD", "POST"}, {"CONTENT_LENGTH", "9223372036854775807"}},
                         {}, "cmd=env"),
                SIGABRT);
}

TEST_F(Memcheck, LocalImagesAndConditionalRequests) {
    TempDir dir;
    std::string big(1048577, '\0');
    for (size_t i = 0; i < big.size(); ++i)
        big[i] = static_cast<char>(i * 7 + i / 4096);
    const std::string path = dated(dir, "big.bin", big);
    Checked c = image(path);
    expectClean(c);
    EXPECT_EQ(c.run.out.substr(c.run.out.size() - big.size()), big);
    c = image(path, {{"HTTP_IF_NONE_MATCH", "\"" + NOV_1994_TEXT + "\""}});
    expectClean(c);
    EXPECT_EQ(c.run.out, "Status: 304 Not Modified\n\n");
    c = image(path, {{"HTTP_IF_MODIFIED_SINCE", NOV_1994_TEXT}});
    expectClean(c);
    EXPECT_EQ(c.run.out, "Status: 304 Not Modified\n\n");
    expectClean(image(dated(dir, "empty.gif", "")));
    expectClean(image(dir.path()));  // a directory: headers, no body
}

TEST_F(Memcheck, LocalAndCipherErrorReplies) {
    TempDir dir;
    Checked c = image(dir.path() + "/missing.gif");
    expectClean(c);
    EXPECT_EQ(c.run.out, failed(dir.path() + "/missing.gif", "StdioFile::StdioFile  (2)"));
    c = memcheck({{"REQUEST_METHOD", "GET"},
                  {"QUERY_STRING", "cmd=img&p=3CA157E209D46B18F02E957AC341B86D0000&i=00"}});
    expectClean(c);
    EXPECT_EQ(c.run.out, failed("", "StringCrypto::cipher Wrong size (-1)"));
    expectClean(memcheck({{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", "cmd=img&p=zz&i=zz"}}));
    c = image("httpx://127.0.0.1/a.gif");
    expectClean(c);
    EXPECT_EQ(c.run.out,
              failed("httpx://127.0.0.1/a.gif",
                     "HttpFile::HttpFile httpx://127.0.0.1/a.gif is not supported (-1)"));
}

TEST_F(Memcheck, RemoteImagesOverHttpAndHttps) {
    std::string url;
    ScriptedServer::Exchange ok;
    ok.pieces = {
        "HTTP/1.1 200 OK\r\nContent-Length: 5\r\nLast-Modified: " + NOV_1994_TEXT + "\r\n\r\nhel",
        "lo"};
    Checked c = remote(ok, url);
    expectClean(c);
    EXPECT_EQ(c.run.out.substr(c.run.out.size() - 7), "\n\nhello");

    TempDir root;
    root.write("a.gif", "GIF89a over TLS");
    Lighttpd::Options tls;
    tls.tls = true;
    Lighttpd secure(root.path(), tls);
    c = image(secure.url("/a.gif"));
    expectClean(c);
    EXPECT_EQ(c.run.out.substr(c.run.out.size() - 17), "\n\nGIF89a over TLS");
    // Not modified, and a redirection from plain http to https.
    c = image(secure.url("/a.gif"), {{"HTTP_IF_MODIFIED_SINCE", "Fri, 31 Dec 2100 12:00:00 GMT"}});
    expectClean(c);
    EXPECT_EQ(c.run.out, "Status: 304 Not Modified\n\n");
    c = remote("HTTP/1.1 301 Moved Permanently\r\nLocation: " + secure.url("/a.gif") + "\r\n\r\n",
               url);
    expectClean(c);
    EXPECT_EQ(c.run.out.substr(c.run.out.size() - 17), "\n\nGIF89a over TLS");
}

TEST_F(Memcheck, RemoteErrorReplies) {
    std::string url;
    const std::string bad = "HttpConnection::open Bad response (-1)";

    ScriptedServer::Exchange silent;
    Checked c = remote(silent, url);
    expectClean(c);
    EXPECT_EQ(c.run.out, failed(url, bad));

    ScriptedServer::Exchange split;
    split.pieces = {"HTTP/1.1 200 OK\r\n", "\r\nok"};
    split.restAfterClientClose = true;
    c = remote(split, url);
    expectClean(c);
    EXPECT_EQ(c.run.out, failed(url, bad));

    std::string huge = "HTTP/1.1 200 OK\r\n";
    while (huge.size() < 600000)
        huge += "X-Filler: " + std::string(100, 'x') + "\r\n";
    c = remote(huge + "\r\n", url);
    expectClean(c);
    EXPECT_EQ(c.run.out, failed(url, bad));

    const std::pair<std::string, std::string> heads[] = {
        {"HTTP/1.1 200\r\n\r\n", "HttpConnection::parseStatus Invalid response (-1)"},
        {"HTTP/1.1 200 OK\r\nno colon\r\n\r\n", "Header::add No header name found (-1)"},
        {"HTTP/1.1 302 Found\r\n\r\n", "HttpConnection::redirection No location header (-1)"},
        {"HTTP/1.1 302 Found\r\nLocation: /b.gif\r\n\r\n",
         "HttpFile::HttpFile /b.gif is not supported (-1)"},
        {"HTTP/1.1 404 Not Found\r\n\r\n", "HttpFile::HttpFile HTTP/1.1 404 Not Found (-1)"},
    };
    for (const auto& head : heads) {
        c = remote(head.first, url);
        expectClean(c);
        EXPECT_EQ(c.run.out, failed(url, head.second));
    }

    const std::string refused = "http://127.0.0.1:" + std::to_string(freeLoopbackPort()) + "/a.gif";
    c = image(refused);
    expectClean(c);
    EXPECT_EQ(c.run.out, failed(refused, "Socket::connect connect (111)"));

    ScriptedServer::Exchange plain;
    plain.readRequest = false;
    plain.pieces = {"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok"};
    c = remote(plain, url, "https");
    expectClean(c);
    EXPECT_EQ(c.run.out, failed(url, bad));
}
