#include <dirent.h>
#include <gtest/gtest.h>
#include <utime.h>

#include <memory>
#include <random>

#include "base/Exception.h"
#include "file/HttpFile.h"
#include "tests/support/Failure.h"
#include "tests/support/Lighttpd.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

namespace {
std::string failure(const std::string& reference) {
    return failureOf([&] { HttpFile f(reference); });
}

std::string readAll(File& f, int chunk) {
    std::string all;
    std::string buffer(static_cast<size_t>(chunk), '\0');
    for (int i = 0; i < 100000; ++i) {  // bounded: ends long before on any sane body
        int n = f.read(&buffer[0], chunk);
        if (n <= 0)
            break;
        all.append(buffer, 0, static_cast<size_t>(n));
    }
    return all;
}

int openDescriptors() {
    int count = 0;
    DIR* d = ::opendir("/proc/self/fd");
    if (d == nullptr)
        return -1;
    while (dirent* e = ::readdir(d))
        if (e->d_name[0] != '.')
            ++count;
    ::closedir(d);
    return count;
}

std::string redirect(int code, const std::string& location) {
    return "HTTP/1.1 " + std::to_string(code) + " Moved\r\nLocation: " + location +
           "\r\nContent-Length: 0\r\n\r\n";
}

std::string firstLine(const std::string& request) {
    return request.substr(0, request.find('\r'));
}

std::string randomBytes(size_t size) {
    std::mt19937 generator(6);
    std::string bytes(size, '\0');
    for (auto& c : bytes)
        c = static_cast<char>(generator());
    return bytes;
}
}  // namespace

TEST(HttpFile, ReferencesThatAreNotRemoteAreRefusedBeforeAnyConnection) {
    EXPECT_EQ(failure("/b.gif"), "HttpFile::HttpFile /b.gif is not supported (-1)");
    EXPECT_EQ(failure("httpdocs/x"), "HttpFile::HttpFile httpdocs/x is not supported (-1)");
    EXPECT_EQ(failure("ftp://host/a.gif"),
              "HttpFile::HttpFile ftp://host/a.gif is not supported (-1)");
    EXPECT_EQ(failure("http://"), "Url::Url http:// is an invalid URL (-1)");
}

TEST(HttpFile, LengthAndTimeComeFromTheResponseAsSent) {
    ScriptedServer server;
    server.answer(
        {"HTTP/1.1 200 OK\r\nContent-Length:  12\r\nLast-Modified: yesterday, late\r\n"
         "\r\nhello, world",
         "HTTP/1.1 200 OK\r\n\r\nno headers"});
    {
        HttpFile f(server.url("/a.gif"));
        EXPECT_EQ(f.length(), 12);
        EXPECT_EQ(f.modifiedTime(), "yesterday, late");
        EXPECT_EQ(readAll(f, 5), "hello, world");
    }
    {
        HttpFile f(server.url(""));
        EXPECT_EQ(f.length(), 0);
        EXPECT_EQ(f.modifiedTime(), "");
        EXPECT_EQ(readAll(f, 100), "no headers");
    }
    ASSERT_TRUE(server.finish());
    std::vector<std::string> requests = server.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(firstLine(requests[0]), "GET //a.gif HTTP/1.1");
    EXPECT_EQ(firstLine(requests[1]), "GET / HTTP/1.1");
}

TEST(HttpFile, RedirectionsAreFollowedAsTheyStand) {
    ScriptedServer server;
    server.answer({redirect(301, server.url("/2")), redirect(302, server.url("/3")),
                   redirect(399, server.url("/4?q")), "HTTP/1.1 200 OK\r\n\r\nend"});
    {
        HttpFile f(server.url("/1"));
        EXPECT_EQ(readAll(f, 2), "end");
    }
    ASSERT_TRUE(server.finish());
    std::vector<std::string> lines;
    for (const auto& r : server.requests())
        lines.push_back(firstLine(r));
    EXPECT_EQ(lines, (std::vector<std::string>{"GET //1 HTTP/1.1", "GET //2 HTTP/1.1",
                                               "GET //3 HTTP/1.1", "GET //4?q HTTP/1.1"}));

    ScriptedServer relative;
    relative.answer({redirect(302, "/b.gif")});
    EXPECT_EQ(failure(relative.url("/a.gif")), "HttpFile::HttpFile /b.gif is not supported (-1)");

    ScriptedServer elsewhere;
    elsewhere.answer({redirect(301, "ftp://host/a.gif")});
    EXPECT_EQ(failure(elsewhere.url("/a.gif")),
              "HttpFile::HttpFile ftp://host/a.gif is not supported (-1)");

    ScriptedServer bare;
    bare.answer({"HTTP/1.1 307 Temporary\r\n\r\n"});
    EXPECT_EQ(failure(bare.url("/a.gif")), "HttpConnection::redirection No location header (-1)");
}

TEST(HttpFile, EveryOtherStatusFailsWithTheResponseHead) {
    ScriptedServer server;
    server.answer({"HTTP/1.1 404 Not Found\r\nServer: test\nX: y\r\n\r\n<html>",
                   "HTTP/1.1 204 No Content\r\n\r\n", "HTTP/1.1 500 Oops\r\n\r\n"});
    EXPECT_EQ(failure(server.url("/a")),
              "HttpFile::HttpFile HTTP/1.1 404 Not Found\r\nServer: test\nX: y (-1)");
    EXPECT_EQ(failure(server.url("/b")), "HttpFile::HttpFile HTTP/1.1 204 No Content (-1)");
    EXPECT_EQ(failure(server.url("/c")), "HttpFile::HttpFile HTTP/1.1 500 Oops (-1)");
}

class HttpFileServers : public ::testing::Test {
  protected:
    void SetUp() override {
        content = randomBytes(6 * 1024 * 1024 + 12345);
        std::string path = root.write("big.bin", content);
        struct utimbuf times = {784111777, 784111777};
        ASSERT_EQ(::utime(path.c_str(), &times), 0);
        Lighttpd::Options tlsOptions;
        tlsOptions.tls = true;
        tls.reset(new Lighttpd(root.path(), tlsOptions));
        Lighttpd::Options redirecting;
        redirecting.config = {
            "server.modules += (\"mod_redirect\")",
            "url.redirect = (\"^/redirect/(.*)$\" => \"" + tls->url("/") + "$1\")"};
        plain.reset(new Lighttpd(root.path(), redirecting));
    }

    void expectWhole(const std::string& reference) {
        HttpFile f(reference);
        EXPECT_EQ(f.length(), static_cast<int>(content.size()));
        EXPECT_EQ(f.modifiedTime(), "Sun, 06 Nov 1994 08:49:37 GMT");
        std::string got = readAll(f, 100000);
        EXPECT_EQ(got.size(), content.size());
        EXPECT_TRUE(got == content) << reference << " differs";
    }

    TempDir root;
    std::string content;
    std::unique_ptr<Lighttpd> tls;
    std::unique_ptr<Lighttpd> plain;
};

TEST_F(HttpFileServers, LargeFileArrivesWholeOverHttpAndHttps) {
    expectWhole(plain->url("/big.bin"));
    expectWhole(tls->url("/big.bin"));
    expectWhole(plain->url("/redirect/big.bin"));
    EXPECT_EQ(failure(plain->url("/missing.bin"))
                  .rfind("HttpFile::HttpFile HTTP/1.1 404 Not Found\r\n", 0),
              0u);
}

TEST_F(HttpFileServers, RedirectionsReleaseEveryDescriptor) {
    expectWhole(tls->url("/big.bin"));  // lets the TLS library settle first
    ScriptedServer server, failing;
    server.answer(
        {redirect(301, server.url("/2")), redirect(302, plain->url("/redirect/big.bin"))});
    failing.answer({redirect(301, tls->url("/missing.bin"))});
    int before = openDescriptors();
    {
        HttpFile f(server.url("/1"));
        char b[16];
        EXPECT_EQ(f.read(b, sizeof b), 16);
        EXPECT_EQ(std::string(b, 16), content.substr(0, 16));
    }
    ASSERT_TRUE(server.finish());
    EXPECT_EQ(openDescriptors(), before);
    // A failing chain releases its connections too.
    EXPECT_EQ(failure(failing.url("/1")).rfind("HttpFile::HttpFile HTTP/1.1 404 Not Found\r\n", 0),
              0u);
    ASSERT_TRUE(failing.finish());
    EXPECT_EQ(openDescriptors(), before);
}
