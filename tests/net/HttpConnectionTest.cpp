// What the request table cannot say: the request as written, the receive
// buffer's edge, and the TLS connection's writes to a peer that went away.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>

#include <cstdint>
#include <memory>

#include "net/HttpsConnection.h"
#include "tests/support/Failure.h"
#include "tests/support/ScriptedServer.h"

namespace {
class RecordingConnection : public HttpConnection {
  public:
    using HttpConnection::HttpConnection;
    const Socket& operator<<(const std::string& text) const override {
        writes.push_back(text);
        return HttpConnection::operator<<(text);
    }
    mutable std::vector<std::string> writes;
};

// Its first receive fills the buffer; with failLater, later ones fail as on a broken TLS stream.
class WholeBlockConnection : public HttpConnection {
  public:
    using HttpConnection::HttpConnection;
    int recv(char* b, int length) const override {
        return calls++ > 0 && failLater
                   ? -1
                   : static_cast<int>(::recv(fd, b, static_cast<size_t>(length), MSG_WAITALL));
    }
    // Aims the cursor (just past the buffer) at a line feed; request() resets it.
    bool plantLineFeedAfterBuffer() {
        if (reinterpret_cast<char*>(&cursor) != buffer + BUFFER_SIZE)
            return false;
        for (int k = 0; k < 256; ++k)
            if ((reinterpret_cast<uintptr_t>(buffer + k) & 0xff) == '\n')
                cursor = buffer + k;
        return *reinterpret_cast<char*>(&cursor) == '\n';
    }
    mutable int calls = 0;
    bool failLater = false;
};
}  // namespace

TEST(HttpConnection, RequestIsNineWritesAndAlwaysNamesThePort) {
    ScriptedServer server;
    server.serve({{{"HTTP/1.0 200 OK\r\nContent-Length: 5\r\n\r\nhello"}}});
    RecordingConnection c("127.0.0.1", server.port);
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
    std::unique_ptr<WholeBlockConnection> c(new WholeBlockConnection("127.0.0.1", server.port));
    ASSERT_TRUE(c->plantLineFeedAfterBuffer());
    EXPECT_EQ(failureOf([&] { c->request("/"); }), "HttpConnection::open Bad response (-1)");

    // A blank line ending the buffer is found; the body is a refill; a failed receive ends it.
    second.serve({{{"HTTP/1.1 200 OK\r\nX: " + std::string(size - 24, 'a') + "\r\n\r\ntail"}}});
    c.reset(new WholeBlockConnection("127.0.0.1", second.port));
    c->request("/");
    EXPECT_EQ(c->getHeaderText().size(), static_cast<size_t>(size - 4));
    char b[8] = {};
    EXPECT_EQ(c->read(b, 8), 4);
    EXPECT_EQ(std::string(b, 4), "tail");
    c->failLater = true;
    EXPECT_EQ(c->read(b, 8) + c->read(b, 8), 0);
}

TEST(HttpsConnection, WritesToAPeerThatWentAwayRaiseNoSignal) {
    ::signal(SIGPIPE, SIG_DFL);  // as in a program that does not ignore it
    ScriptedServer server(true);
    server.serve({{{"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok"}, true}});
    std::unique_ptr<HttpsConnection> c(new HttpsConnection("127.0.0.1", server.port));
    c->request("/");
    char b[8];
    EXPECT_EQ(c->read(b, 8), 2);
    ASSERT_TRUE(server.finish());
    for (int i = 0; i < 5; ++i)
        *c << "late";
    c.reset();  // its close is a write too
}
