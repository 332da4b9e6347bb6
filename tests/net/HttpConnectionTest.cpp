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
// Records each write of the request as it is made.
class RecordingConnection : public HttpConnection {
  public:
    using HttpConnection::HttpConnection;
    const Socket& operator<<(const std::string& text) const override {
        writes.push_back(text);
        return HttpConnection::operator<<(text);
    }
    mutable std::vector<std::string> writes;
};

// Waits for the whole length, so that the first receive can fill the buffer;
// a later receive fails as a broken TLS stream does.
class WholeBlockConnection : public HttpConnection {
  public:
    using HttpConnection::HttpConnection;
    int recv(char* b, int length) const override {
        return calls++ > 0 && failLater
                   ? -1
                   : static_cast<int>(::recv(fd, b, static_cast<size_t>(length), MSG_WAITALL));
    }
    // Makes the byte just past the buffer (the first of the cursor that
    // follows it) a line feed, so that a search running past the buffer
    // would find a blank line there. request() sets the cursor afresh.
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
    std::unique_ptr<RecordingConnection> c(new RecordingConnection("127.0.0.1", server.port));
    c->request("//a/b.gif");
    const std::string port = std::to_string(server.port);
    const std::string agent = "Tessavant/6.0+(https://www.tessavant.org/)";
    EXPECT_EQ(c->writes, (std::vector<std::string>{"GET ", "//a/b.gif", " ", "HTTP/1.1",
                                                   "\r\nHost: ", "127.0.0.1:" + port + "\r\n",
                                                   "User-Agent: ", agent, "\r\n\r\n"}));
    c.reset();
    ASSERT_TRUE(server.finish());
    EXPECT_EQ(server.requests,
              std::vector<std::string>{"GET //a/b.gif HTTP/1.1\r\nHost: 127.0.0.1:" + port +
                                       "\r\nUser-Agent: " + agent + "\r\n\r\n"});
}

TEST(HttpConnection, BlankLineSearchStopsAtTheEndOfAFullBuffer) {
    const int size = HttpConnection::BUFFER_SIZE;
    // No blank line inside the buffer; the byte after it would complete one.
    ScriptedServer server;
    server.serve({{{"HTTP/1.1 200 OK\r\nX: " + std::string(size - 23, 'a') + "\r\n\r\nbody"}}});
    std::unique_ptr<WholeBlockConnection> c(new WholeBlockConnection("127.0.0.1", server.port));
    ASSERT_TRUE(c->plantLineFeedAfterBuffer());
    EXPECT_EQ(failureOf([&] { c->request("/"); }), "HttpConnection::open Bad response (-1)");

    // A blank line in the buffer's last four bytes is found; the body follows
    // in the next receive, and a failed receive ends it.
    ScriptedServer second;
    second.serve({{{"HTTP/1.1 200 OK\r\nX: " + std::string(size - 24, 'a') + "\r\n\r\ntail"}}});
    c.reset(new WholeBlockConnection("127.0.0.1", second.port));
    c->request("/");
    EXPECT_EQ(c->getHeaderText().size(), static_cast<size_t>(size - 4));
    char b[8] = {};
    EXPECT_EQ(c->read(b, 8), 4);
    EXPECT_EQ(std::string(b, 4), "tail");
    c->failLater = true;
    EXPECT_EQ(c->read(b, 8), 0);
    EXPECT_EQ(c->read(b, 8), 0);
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
