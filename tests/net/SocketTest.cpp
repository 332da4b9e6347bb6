#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "net/Socket.h"
#include "tests/support/Failure.h"

// A listener of the test's own on 127.0.0.1; the client is the product's.
TEST(Socket, ExchangesOneReceiveOfAtMost1024BytesCutAtAZeroAndNamesFailedCalls) {
    const int server = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a = {AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t n = sizeof a;
    ASSERT_EQ(::bind(server, reinterpret_cast<sockaddr*>(&a), n), 0);
    ASSERT_EQ(::getsockname(server, reinterpret_cast<sockaddr*>(&a), &n), 0);
    Socket refused("127.0.0.1", ntohs(a.sin_port)), client("localhost", ntohs(a.sin_port));
    EXPECT_EQ(failureOf([&] { refused.open(); }), "Socket::connect connect (111)");
    const timeval limit = {5, 0};  // no wait of the test's own is unbounded
    ASSERT_EQ(::setsockopt(server, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit), 0);
    ASSERT_EQ(::listen(server, 1), 0);
    client.open();
    const int peer = ::accept(server, nullptr, nullptr);
    ::setsockopt(peer, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    client << "PING";
    std::string reply(2000, 'r'), first, second;
    reply[4] = reply[1500] = '\0';
    EXPECT_EQ(::recv(peer, &reply[0], 4, 0), 4);
    EXPECT_EQ(::send(peer, reply.data(), reply.size(), 0), 2000);
    ::close(peer), ::close(server);
    client >> first >> second;
    EXPECT_EQ(first + "|" + second, "PING|" + std::string(1500 - 1024, 'r'));
    char b[4];
    EXPECT_EQ(client.recv(b, sizeof b) + client.recv(b, 0) + client.recv(nullptr, 4), 0);
    client.close();
    EXPECT_EQ(failureOf([&] { client.send("x", 1); }) + failureOf([&] { client.recv(b, 4); }),
              "Socket::send send (9)Socket::recv recv (9)");
}
