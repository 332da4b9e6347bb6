#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstdint>
#include <memory>

#include "base/Exception.h"
#include "net/HttpConnection.h"
#include "net/HttpsConnection.h"
#include "tests/support/Failure.h"
#include "tests/support/Lighttpd.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

namespace {
const std::string AGENT = "Tessavant/6.0+(https://www.tessavant.org/)";

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

// Waits for the whole length, so the first block can fill the buffer.
class WholeBlockConnection : public HttpConnection {
  public:
    using HttpConnection::HttpConnection;
    int recv(char* b, int length) const override {
        return static_cast<int>(::recv(fd, b, static_cast<size_t>(length), MSG_WAITALL));
    }
    int left() const { return available; }
    // Makes the byte just past the buffer a line feed (the first byte of the
    // cursor that follows it), so a search running past the buffer would find
    // a blank line there. request() sets the cursor afresh.
    bool plantLineFeedAfterBuffer() {
        if (reinterpret_cast<char*>(&cursor) != buffer + BUFFER_SIZE)
            return false;
        for (int k = 0; k < 256; ++k) {
            if ((reinterpret_cast<uintptr_t>(buffer + k) & 0xff) == '\n') {
                cursor = buffer + k;
                return *reinterpret_cast<char*>(&cursor) == '\n';
            }
        }
        return false;
    }
};

// Every receive after the first fails as a broken TLS stream does.
class FailingConnection : public HttpConnection {
  public:
    using HttpConnection::HttpConnection;
    int recv(char* b, int length) const override {
        return calls++ == 0 ? HttpConnection::recv(b, length) : -1;
    }
    mutable int calls = 0;
};

// Runs one request against a server giving the scripted answer; returns the
// failure text, or "no failure".
std::string answer(const ScriptedServer::Exchange& step) {
    ScriptedServer server;
    server.serve({step});
    return failureOf([&] {
        std::unique_ptr<HttpConnection> c(new HttpConnection("127.0.0.1", server.port()));
        c->request("//x");
    });
}

std::string answer(const std::string& reply) {
    ScriptedServer::Exchange step;
    step.pieces.push_back(reply);
    return answer(step);
}
}  // namespace

TEST(HttpConnection, RequestIsNineWritesAndAlwaysNamesThePort) {
    ScriptedServer server;
    server.answer({"HTTP/1.0 200 OK\r\nContent-Length: 5\r\n\r\nhello"});
    std::unique_ptr<RecordingConnection> c(new RecordingConnection("127.0.0.1", server.port()));
    c->request("//a/b.gif");
    std::string hostLine = "\r\nHost: ";
    std::string hostValue = "127.0.0.1:" + std::to_string(server.port()) + "\r\n";
    EXPECT_EQ(c->writes, (std::vector<std::string>{"GET ", "//a/b.gif", " ", "HTTP/1.1", hostLine,
                                                   hostValue, "User-Agent: ", AGENT, "\r\n\r\n"}));
    EXPECT_EQ(c->status, 200);
    EXPECT_EQ(c->getProtocol(), "HTTP/1.0");
    EXPECT_EQ(c->getReason(), "OK");
    EXPECT_EQ(c->getHeaderText(), "HTTP/1.0 200 OK\r\nContent-Length: 5");
    EXPECT_EQ(c->getLength(), 5);
    EXPECT_EQ(c->getLastMidified(), "");
    EXPECT_FALSE(c->redirected());
    char b[8] = {};
    EXPECT_EQ(c->read(b, 5), 5);
    EXPECT_EQ(std::string(b, 5), "hello");
    EXPECT_EQ(c->read(b, 5), 0);  // the peer closed
    c.reset();
    ASSERT_TRUE(server.finish());
    EXPECT_EQ(server.requests(),
              std::vector<std::string>{
                  "GET //a/b.gif HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.port()) +
                  "\r\nUser-Agent: " + AGENT + "\r\n\r\n"});
}

TEST(HttpConnection, StatusLineAndHeaderFields) {
    ScriptedServer server;
    server.answer(
        {"http/1.1 301 Moved Permanently\nLocation: http://x/y\n"
         "Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\nContent-Length: abc\r\n"
         "location: http://second\r\n\r\nbody"});
    std::unique_ptr<HttpConnection> c(new HttpConnection("localhost", server.port()));
    c->request("/");
    EXPECT_EQ(c->getProtocol(), "HTTP/1.1");
    EXPECT_EQ(c->status, 301);
    EXPECT_EQ(c->getReason(), "MOVED");
    EXPECT_TRUE(c->redirected());
    EXPECT_EQ(c->redirection(), "http://x/y");
    EXPECT_EQ(c->getLastMidified(), "Sun, 06 Nov 1994 08:49:37 GMT");
    EXPECT_EQ(c->getLength(), 0);
    // The head text keeps the line ends as sent.
    EXPECT_EQ(c->getHeaderText(),
              "http/1.1 301 Moved Permanently\nLocation: http://x/y\n"
              "Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\nContent-Length: abc\r\n"
              "location: http://second");
    char b[8] = {};
    EXPECT_EQ(c->read(b, 8), 4);
    EXPECT_EQ(std::string(b, 4), "body");

    std::string line;
    auto parse = [&](const char* text) {
        line = text;
        c->parseStatus(&line[0]);
        return c->redirected();
    };
    EXPECT_TRUE(parse("HTTP/1.1 300 A"));
    EXPECT_TRUE(parse("HTTP/1.1\t399\t\tB extra words"));
    EXPECT_EQ(c->getReason(), "B");
    EXPECT_FALSE(parse("HTTP/1.1 299 C"));
    EXPECT_FALSE(parse("HTTP/1.1 400 D"));
    EXPECT_FALSE(parse("HTTP/1.1 abc E"));
    EXPECT_EQ(c->status, 0);
    EXPECT_EQ(failureOf([&] { parse("HTTP/1.1 200"); }),
              "HttpConnection::parseStatus Invalid response (-1)");

    // A redirection without a location is a clean failure.
    parse("HTTP/1.1 302 Found");
    c.reset();
    ScriptedServer bare;
    bare.answer({"HTTP/1.1 302 Found\r\nServer: s\r\n\r\n"});
    std::unique_ptr<HttpConnection> d(new HttpConnection("127.0.0.1", bare.port()));
    d->request("/");
    EXPECT_TRUE(d->redirected());
    EXPECT_EQ(failureOf([&] { d->redirection(); }),
              "HttpConnection::redirection No location header (-1)");
}

TEST(HttpConnection, HeadFailuresAndTheirOrder) {
    EXPECT_EQ(answer("HTTP/1.1 200\r\n\r\n"), "HttpConnection::parseStatus Invalid response (-1)");
    EXPECT_EQ(answer("\r\n\r\nbody"), "HttpConnection::parseStatus Invalid response (-1)");
    // A bad header line is reported before a bad status line.
    EXPECT_EQ(answer("HTTP/1.1 200\r\nno colon\r\n\r\n"), "Header::add No header name found (-1)");
    EXPECT_EQ(answer("HTTP/1.1 200 OK\r\n: v\r\n\r\n"), "Header::add No header name found (-1)");
    EXPECT_EQ(answer("HTTP/1.1 200 OK\r\n"), "HttpConnection::open Bad response (-1)");
    EXPECT_EQ(answer("HTTP/1.1 200 OK\n\n"), "HttpConnection::open Bad response (-1)");
    EXPECT_EQ(answer(""), "HttpConnection::open Bad response (-1)");
    // The head is searched as text: a zero byte ends it.
    EXPECT_EQ(answer(std::string("HTTP/1.1 200 OK\0\r\n\r\n", 21)),
              "HttpConnection::open Bad response (-1)");

    // The whole head must come in the first receive, even if the rest follows.
    ScriptedServer::Exchange split;
    split.pieces = {"HTTP/1.1 200 OK\r\n", "\r\nbody"};
    split.restAfterClientClose = true;
    EXPECT_EQ(answer(split), "HttpConnection::open Bad response (-1)");

    // A server that closes at once fails the request, whichever call notices.
    ScriptedServer::Exchange gone;
    gone.closeAtOnce = true;
    std::string message = answer(gone);
    EXPECT_TRUE(message == "HttpConnection::open Bad response (-1)" ||
                message.rfind("Socket::send send (", 0) == 0 ||
                message.rfind("Socket::recv recv (", 0) == 0)
        << message;
}

TEST(HttpConnection, BlankLineSearchStopsAtTheEndOfAFullBuffer) {
    const int size = HttpConnection::BUFFER_SIZE;
    // No blank line inside the buffer; the byte after it would complete one.
    std::string noBlank = "HTTP/1.1 200 OK\r\nX: " + std::string(size - 23, 'a') + "\r\n\r";
    ASSERT_EQ(noBlank.size(), static_cast<size_t>(size));
    ScriptedServer server;
    server.answer({noBlank + "\nbody"});
    std::unique_ptr<WholeBlockConnection> c(new WholeBlockConnection("127.0.0.1", server.port()));
    ASSERT_TRUE(c->plantLineFeedAfterBuffer());
    EXPECT_EQ(failureOf([&] { c->request("/"); }), "HttpConnection::open Bad response (-1)");
    c.reset();

    // A blank line in the buffer's last four bytes is found; no body byte is left.
    std::string exact = "HTTP/1.1 200 OK\r\nX: " + std::string(size - 24, 'a') + "\r\n\r\n";
    ASSERT_EQ(exact.size(), static_cast<size_t>(size));
    ScriptedServer second;
    second.answer({exact + "tail"});
    c.reset(new WholeBlockConnection("127.0.0.1", second.port()));
    c->request("/");
    EXPECT_EQ(c->status, 200);
    EXPECT_EQ(c->getHeaderText().size(), static_cast<size_t>(size - 4));
    EXPECT_EQ(c->left(), 0);
    char b[8] = {};
    EXPECT_EQ(c->read(b, 8), 4);
    EXPECT_EQ(std::string(b, 4), "tail");
}

TEST(HttpConnection, BodyIsReadAcrossBufferRefills) {
    std::string body;
    for (int i = 0; body.size() < 1300000; ++i)
        body += std::to_string(i) + ",";
    ScriptedServer server;
    server.answer(
        {"HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body});
    std::unique_ptr<HttpConnection> c(new HttpConnection("127.0.0.1", server.port()));
    c->request("/");
    EXPECT_EQ(c->getLength(), static_cast<int>(body.size()));
    std::string got(body.size() + 10, '\0');
    int first = c->read(&got[0], 7);
    ASSERT_EQ(first, 7);
    // One call larger than the buffer spans several receives.
    int second = c->read(&got[7], HttpConnection::BUFFER_SIZE * 2);
    ASSERT_EQ(second, HttpConnection::BUFFER_SIZE * 2);
    int rest = c->read(&got[7 + second], static_cast<int>(body.size()));
    EXPECT_EQ(7 + second + rest, static_cast<int>(body.size()));
    EXPECT_EQ(got.substr(0, body.size()), body);
    EXPECT_EQ(c->read(&got[0], 1), 0);
}

TEST(HttpConnection, FailedReceiveEndsTheBody) {
    ScriptedServer server;
    ScriptedServer::Exchange step;
    step.pieces = {"HTTP/1.1 200 OK\r\n\r\nabc"};
    server.serve({step});
    std::unique_ptr<FailingConnection> c(new FailingConnection("127.0.0.1", server.port()));
    c->request("/");
    char b[8] = {};
    EXPECT_EQ(c->read(b, 8), 3);
    EXPECT_EQ(std::string(b, 3), "abc");
    EXPECT_EQ(c->read(b, 8), 0);
    EXPECT_EQ(c->read(b, 8), 0);
}

TEST(HttpsConnection, HandshakeWithAPlainServerIsABadResponse) {
    ScriptedServer server;
    ScriptedServer::Exchange plain;
    plain.readRequest = false;
    plain.pieces = {"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok"};
    server.serve({plain});
    EXPECT_EQ(
        failureOf([&] {
            std::unique_ptr<HttpsConnection> c(new HttpsConnection("127.0.0.1", server.port()));
            c->request("/");
        }),
        "HttpConnection::open Bad response (-1)");
}

TEST(HttpsConnection, FetchesFromATlsServerWithoutVerifyingIt) {
    TempDir root;
    root.write("a.txt", "secret text");
    Lighttpd::Options tls;
    tls.tls = true;
    Lighttpd server(root.path(), tls);
    std::unique_ptr<HttpsConnection> c(new HttpsConnection("127.0.0.1", server.port()));
    c->request("/a.txt");
    ASSERT_EQ(c->status, 200) << c->getHeaderText();
    EXPECT_EQ(c->getProtocol(), "HTTP/1.1");
    EXPECT_EQ(c->getLength(), 11);
    char b[32] = {};
    EXPECT_EQ(c->read(b, sizeof b), 11);
    EXPECT_EQ(std::string(b), "secret text");
    EXPECT_EQ(c->read(b, sizeof b), 0);  // the server closed after its response
    // Writing after the peer closed neither throws nor raises SIGPIPE.
    for (int i = 0; i < 5; ++i)
        *c << "late";
}
