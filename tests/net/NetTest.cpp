// What the request table cannot say about references, header lines, sockets and connections.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>

#include "net/Header.h"
#include "net/HttpsConnection.h"
#include "net/Url.h"
#include "tests/support/Failure.h"
#include "tests/support/ScriptedServer.h"

// Header names are lower-cased, values start two bytes after the colon.
TEST(Url, SplitsReferencesAndDoublesTheSlashAndHeadersKeepTheirLines) {
    const std::pair<const char*, const char*> references[] = {
        {"https://h", "h|443|https://h/"},     {"HTTP://E:8080/x", "E|8080|http://E:8080//x"},
        {"ftp://h/f", "h|21|ftp://h//f"},      {"http://h?q=1", "h?q=1|80|http://h?q=1/"},
        {"gopher://h/x", "h|0|gopher://h//x"}, {"http://h:12ab/x", "h|12|http://h:12//x"}};
    for (const auto& [reference, parts] : references) {
        const Url u(reference);
        EXPECT_EQ(u.host + "|" + std::to_string(u.port) + "|" + u.toString(), parts);
    }
    Header h;
    for (const char* line : {"b: 2", "A: 1", "L : 5", "X:http://x", "A:bc", "C:b", "D: ", "E:  x "})
        h.add(line);
    EXPECT_EQ(h.toString(), "a: 1\na: c\nb: 2\nc: \nd: \ne:  x \nl : 5\nx: ttp://x\n");
    EXPECT_EQ(failureOf([] { Url("h/x"); }) + failureOf([] { Url("http://"); }),
              "Url::Url h/x is an invalid URL (-1)Url::Url http:// is an invalid URL (-1)");
}

TEST(Socket, ExchangesOneReceiveOfAtMost1024BytesCutAtAZeroAndNamesFailedCalls) {
    struct Paired : Socket {  // on one end of a stream pair, the test's own on the other
        explicit Paired(int end) : Socket("localhost", 0) { fd = end; }
    };
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    Paired client(ends[0]);
    std::string reply(2000, 'r'), first, second;
    reply[4] = reply[1500] = '\0';
    EXPECT_EQ(::send(ends[1], reply.data(), reply.size(), 0), 2000);
    ::close(ends[1]);
    client >> first >> second;
    EXPECT_EQ(first + "|" + second, "rrrr|" + std::string(1500 - 1024, 'r'));
    char b[4];
    EXPECT_EQ(client.recv(b, sizeof b) + client.recv(b, 0) + client.recv(nullptr, 4), 0);
    client.close();
    EXPECT_EQ(failureOf([&] { client.send("x", 1); }) + failureOf([&] { client.recv(b, 4); }),
              "Socket::send send (9)Socket::recv recv (9)");
}

namespace {
// Records its writes; receives fill the buffer, and with failLater fail as on a broken TLS stream.
class TestConnection : public HttpConnection {
  public:
    using HttpConnection::HttpConnection;
    const Socket& operator<<(const std::string& text) const override {
        writes.push_back(text);
        return HttpConnection::operator<<(text);
    }
    int recv(char* b, int length) const override {
        return calls++ > 0 && failLater
                   ? -1
                   : static_cast<int>(::recv(fd, b, static_cast<size_t>(length), MSG_WAITALL));
    }
    // Aims the cursor (just past the buffer) at a line feed; request() resets it.
    bool plantLineFeedAfterBuffer() {
        cursor = buffer + (('\n' - reinterpret_cast<uintptr_t>(buffer)) & 0xff);
        return reinterpret_cast<char*>(&cursor) == buffer + BUFFER_SIZE &&
               *reinterpret_cast<char*>(&cursor) == '\n';
    }
    mutable std::vector<std::string> writes;
    mutable int calls = 0;
    bool failLater = false;
};
}  // namespace

TEST(HttpConnection, RequestIsNineWritesAndAlwaysNamesThePort) {
    ScriptedServer server;
    server.serve({{{"HTTP/1.0 200 OK\r\nContent-Length: 5\r\n\r\nhello"}}});
    TestConnection c("127.0.0.1", server.port);
    c.request("//a/b.gif");
    EXPECT_EQ(c.writes,
              (std::vector<std::string>{
                  "GET ", "//a/b.gif", " ", "HTTP/1.1",
                  "\r\nHost: ", "127.0.0.1:" + std::to_string(server.port) + "\r\n",
                  "User-Agent: ", "Tessavant/6.0+(https://www.tessavant.org/)", "\r\n\r\n"}));
}

TEST(HttpConnection, BlankLineSearchStopsAtTheEndOfAFullBuffer) {
    const int size = HttpConnection::BUFFER_SIZE;
    ScriptedServer server, second;  // the byte after the first's full buffer would end the header
    server.serve({{{"HTTP/1.1 200 OK\r\nX: " + std::string(size - 23, 'a') + "\r\n\r\nbody"}}});
    TestConnection first("127.0.0.1", server.port);
    ASSERT_TRUE(first.plantLineFeedAfterBuffer());
    EXPECT_EQ(failureOf([&] { first.request("/"); }), "HttpConnection::open Bad response (-1)");

    // A blank line ending the buffer is found; the body is a refill; a failed receive ends it.
    second.serve({{{"HTTP/1.1 200 OK\r\nX: " + std::string(size - 24, 'a') + "\r\n\r\ntail"}}});
    TestConnection c("127.0.0.1", second.port);
    c.request("/");
    EXPECT_EQ(c.getHeaderText().size(), static_cast<size_t>(size - 4));
    char b[8] = {};
    EXPECT_EQ(std::string(b, c.read(b, 8)), "tail");
    c.failLater = true;
    EXPECT_EQ(c.read(b, 8) + c.read(b, 8), 0);
}
