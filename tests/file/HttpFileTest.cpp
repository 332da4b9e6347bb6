// The HTTP client's replies to scripted peers, seen through HttpFile: each row
// is what the peer sends on each connection and what the client makes of it,
// "length|modification time|body" or the failure.
#include <dirent.h>
#include <gtest/gtest.h>

#include "file/HttpFile.h"
#include "tests/support/Failure.h"
#include "tests/support/ScriptedServer.h"

namespace {
enum Scheme { HTTP, HTTPS, HTTPS_TO_PLAIN };

struct Reply {
    std::vector<std::vector<std::string>> connections;  // the pieces sent on each
    std::string expected;
    Scheme scheme = HTTP;
};

// Runs the row against a scripted peer; {peer} in the pieces and in the
// expected text stands for the peer's URL root.
void expectReply(Reply row, std::vector<std::string>* requests = nullptr) {
    ScriptedServer server(row.scheme == HTTPS);
    auto expand = [&](std::string& text) {
        for (size_t at; (at = text.find("{peer}")) != std::string::npos;)
            text.replace(at, 6, server.url(""));
    };
    std::vector<ScriptedServer::Exchange> script;
    for (auto& pieces : row.connections) {
        for (auto& piece : pieces)
            expand(piece);
        script.push_back({pieces, row.scheme != HTTPS_TO_PLAIN});
    }
    expand(row.expected);
    server.serve(script);
    std::string url = server.url("/a.gif"), got;
    if (row.scheme == HTTPS_TO_PLAIN)
        url.replace(0, 4, "https");
    const std::string failure = failureOf([&] {
        HttpFile f(url);
        got = std::to_string(f.length()) + "|" + f.modifiedTime() + "|";
        char b[4096];
        for (int i = 0, n; i < 10000 && (n = f.read(b, sizeof b)) > 0; ++i)
            got.append(b, static_cast<size_t>(n));
    });
    EXPECT_EQ(failure == "no failure" ? got : failure, row.expected) << row.connections[0][0];
    EXPECT_TRUE(server.finish());
    if (requests != nullptr)
        *requests = server.requests();
}

int openDescriptors() {
    int count = 0;
    DIR* d = ::opendir("/proc/self/fd");
    while (dirent* e = ::readdir(d))
        count += e->d_name[0] != '.';
    ::closedir(d);
    return count;
}
}  // namespace

TEST(HttpFile, RepliesTable) {
    const std::string invalid = "HttpConnection::parseStatus Invalid response (-1)";
    const std::string noName = "Header::add No header name found (-1)";
    const std::string bad = "HttpConnection::open Bad response (-1)";
    const std::string ok = "HTTP/1.1 200 OK\r\n\r\nend";
    std::string huge = "HTTP/1.1 200 OK\r\n";
    while (huge.size() < 600000)
        huge += "X-Filler: " + std::string(100, 'x') + "\r\n";
    const Reply rows[] = {
        {{{"HTTP/1.1 200 OK\r\nContent-Length:  12\r\nLast-Modified: yesterday, late\r\n\r\nhello, "
           "world"}},
         "12|yesterday, late|hello, world"},
        {{{"HTTP/1.0 200 OK\r\n\r\nno headers"}}, "0||no headers"},
        {{{"HTTP/1.1 200 OK\r\nContent-Length: 010\r\n\r\nab", "c", "de"}}, "10||abcde"},
        {{{"HTTP/1.1 200 OK\nContent-Length: 2\r\n\r\nok"}}, "2||ok"},
        {{{"http/1.1\t200\t\tok extra words\r\n\r\nx"}}, "0||x"},
        {{{"HTTP/1.1 200 OK\r\n\r\nab", "c"}}, "0||abc", HTTPS},
        {{{"HTTP/1.1 200\r\n\r\n"}}, invalid},
        {{{"\r\n\r\nbody"}}, invalid},
        {{{"HTTP/1.1 200\r\nno colon\r\n\r\n"}}, noName},  // lines before the status
        {{{"HTTP/1.1 200 OK\r\n: v\r\n\r\n"}}, noName},
        {{{"HTTP/1.1 200 OK\r\n"}}, bad},
        {{{"HTTP/1.1 200 OK\n\n"}}, bad},
        {{{""}}, bad},
        {{{std::string("HTTP/1.1 200 OK\0\r\n\r\n", 21)}}, bad},
        {{{"HTTP/1.1 200 OK\r\n", "\r\nbody"}}, bad},  // the head must come in one receive
        {{{huge + "\r\nok"}}, bad},
        {{{"HTTP/1.1 200 OK\r\n\r\nok"}}, bad, HTTPS_TO_PLAIN},
        {{{"HTTP/1.1 302 Found\r\n\r\n"}}, "HttpConnection::redirection No location header (-1)"},
        {{{"HTTP/1.1 302 Found\r\nLocation: /b.gif\r\n\r\n"}},
         "HttpFile::HttpFile /b.gif is not supported (-1)"},
        {{{"HTTP/1.1 301 Moved\r\nLocation: ftp://h/b.gif\r\n\r\n"}},
         "HttpFile::HttpFile ftp://h/b.gif is not supported (-1)"},
        {{{"HTTP/1.1 300 A\r\nlocation: {peer}/2\r\nLocation: {peer}/x\r\n\r\n"}, {ok}}, "0||end"},
        {{{"HTTP/1.1 399 B\r\nLocation: {peer}/2\r\n\r\n"}, {ok}}, "0||end"},
        {{{"HTTP/1.1 404 Not Found\r\nServer: test\nX: y\r\n\r\n<html>"}},
         "HttpFile::HttpFile HTTP/1.1 404 Not Found\r\nServer: test\nX: y (-1)"},
        {{{"HTTP/1.1 299 C\r\n\r\n"}}, "HttpFile::HttpFile HTTP/1.1 299 C (-1)"},
        {{{"HTTP/1.1 400 D\r\nLocation: {peer}/2\r\n\r\n"}},
         "HttpFile::HttpFile HTTP/1.1 400 D\r\nLocation: {peer}/2 (-1)"},
        {{{"HTTP/1.1 abc E\r\n\r\n"}}, "HttpFile::HttpFile HTTP/1.1 abc E (-1)"},
    };
    for (const Reply& row : rows)
        expectReply(row);
}

TEST(HttpFile, RedirectionsAreFollowedAsTheyStandAndReleaseEveryDescriptor) {
    const int before = openDescriptors();
    std::vector<std::string> requests;
    expectReply({{{"HTTP/1.1 301 Moved\r\nLocation: {peer}/2\r\n\r\n"},
                  {"HTTP/1.1 302 Found\r\nLocation: {peer}/3?q\r\n\r\n"},
                  {"HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nend"}},
                 "3||end"},
                &requests);
    EXPECT_EQ(openDescriptors(), before);
    ASSERT_EQ(requests.size(), 3u);
    for (size_t i = 0; i < 3; ++i)
        EXPECT_EQ(requests[i].substr(0, requests[i].find('\r')),
                  std::vector<std::string>(
                      {"GET //a.gif HTTP/1.1", "GET //2 HTTP/1.1", "GET //3?q HTTP/1.1"})[i]);
    // A failing chain releases its connections too.
    expectReply(
        {{{"HTTP/1.1 301 Moved\r\nLocation: {peer}/2\r\n\r\n"}, {"HTTP/1.1 404 No\r\n\r\n"}},
         "HttpFile::HttpFile HTTP/1.1 404 No (-1)"});
    EXPECT_EQ(openDescriptors(), before);
}
