#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "base/Exception.h"
#include "net/Socket.h"
#include "tests/support/Failure.h"
#include "tests/support/ScriptedServer.h"

namespace {

// Reaches the protected state; listens on the loopback address only, so the
// server side can be tried without opening a port to the network.
class LoopbackSocket : public Socket {
  public:
    LoopbackSocket() : Socket("", 0) {}
    void bind() override {
        std::memset(&address, 0, sizeof address);
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ASSERT_EQ(::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length), 0);
        port = ntohs(address.sin_port);
    }
    int boundPort() const { return port; }
    int descriptor() const { return fd; }
    std::string peer() const { return inet_ntoa(address.sin_addr); }
};
}  // namespace

TEST(Socket, NothingToSendOrReceiveMakesNoSystemCall) {
    Socket closed("127.0.0.1", 1);  // never opened: a system call would fail
    char b[4];
    EXPECT_EQ(failureOf([&] { closed.send(nullptr, 4); }), "no failure");
    EXPECT_EQ(failureOf([&] { closed.send("abc", 0); }), "no failure");
    EXPECT_EQ(failureOf([&] { closed.send("abc", -1); }), "no failure");
    EXPECT_EQ(failureOf([&] { closed << ""; }), "no failure");
    EXPECT_EQ(closed.recv(nullptr, 4), 0);
    EXPECT_EQ(closed.recv(b, 0), 0);
    EXPECT_EQ(closed.recv(b, -3), 0);
    closed.close();
    closed.close();
}

TEST(Socket, EveryFailedCallNamesItsOperationAndErrno) {
    Socket closed("127.0.0.1", 1);
    char b[4];
    EXPECT_EQ(failureOf([&] { closed.send("x", 1); }), "Socket::send send (9)");
    EXPECT_EQ(failureOf([&] { closed.recv(b, 4); }), "Socket::recv recv (9)");
    EXPECT_EQ(failureOf([&] { closed.connect(); }), "Socket::connect connect (9)");
    EXPECT_EQ(failureOf([&] { closed.bind(); }), "Socket::bind bind (9)");
    EXPECT_EQ(failureOf([&] { closed.listen(); }), "Socket::listen listen (9)");
    Socket client("", 0);
    EXPECT_EQ(failureOf([&] { closed.accept(client); }), "Socket::accept accept (9)");

    // A port that is bound but not listening refuses connections.
    LoopbackSocket bound;
    bound.create();
    bound.bind();
    Socket refused("127.0.0.1", bound.boundPort());
    EXPECT_EQ(failureOf([&] { refused.open(); }), "Socket::connect connect (111)");

    // Only IPv4 entries are asked for, so an IPv6-only name does not resolve
    // (forced into an IPv4 record it would have named a wrong address).
    Socket v6("::1", bound.boundPort());
    std::string message = failureOf([&] { v6.open(); });
    EXPECT_EQ(message.rfind("Socket::connect getaddrinfo (", 0), 0u) << message;
}

TEST(Socket, ConnectsByNameWritesAndReadsOneReceiveAtATime) {
    ScriptedServer server;
    std::string reply(2000, 'r');
    reply[1500] = '\0';
    server.answer({reply});
    Socket s("localhost", server.port());
    s.open();
    s << "PING\r\n\r\n";
    std::string text;
    s >> text;
    EXPECT_EQ(text, std::string(1024, 'r'));  // one receive, at most 1024 bytes
    s >> text;
    EXPECT_EQ(text, std::string(1500 - 1024, 'r'));  // cut at the zero byte
    char b[16];
    int n = 1;
    for (int i = 0; i < 100 && n > 0; ++i)
        n = s.recv(b, sizeof b);
    EXPECT_EQ(n, 0);  // the peer closed: end of stream, no failure
    s.close();
    ASSERT_TRUE(server.finish());
    EXPECT_EQ(server.requests(), std::vector<std::string>{"PING\r\n\r\n"});
}

TEST(Socket, PeerThatVanishedGivesAnErrorNotASignal) {
    ScriptedServer server;
    ScriptedServer::Exchange gone;
    gone.closeAtOnce = true;
    server.serve({gone});
    Socket s("127.0.0.1", server.port());
    s.open();
    ASSERT_TRUE(server.finish());
    std::string message = "no failure";
    for (int i = 0; i < 200 && message == "no failure"; ++i) {
        message = failureOf([&] { s.send("data", 4); });
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_TRUE(message == "Socket::send send (" + std::to_string(EPIPE) + ")" ||
                message == "Socket::send send (" + std::to_string(ECONNRESET) + ")")
        << message;
}

TEST(Socket, ServerSideAcceptsAConnection) {
    LoopbackSocket listener;
    listener.open(0);
    ASSERT_GT(listener.boundPort(), 0);
    Socket client("127.0.0.1", listener.boundPort());
    client.open();
    LoopbackSocket accepted;
    listener.accept(accepted);
    EXPECT_GE(accepted.descriptor(), 0);
    EXPECT_EQ(accepted.peer(), "127.0.0.1");
    accepted << "hello";
    char b[8] = {};
    EXPECT_EQ(client.recv(b, sizeof b), 5);
    EXPECT_STREQ(b, "hello");
    accepted.close();
    EXPECT_EQ(accepted.descriptor(), -1);
    EXPECT_EQ(client.recv(b, sizeof b), 0);
}
