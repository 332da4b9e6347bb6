#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "net/Header.h"
#include "net/Socket.h"
#include "net/Url.h"
#include "tests/support/Failure.h"

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
    client << "PING";
    std::string reply(2000, 'r'), first, second;
    reply[4] = reply[1500] = '\0';
    EXPECT_EQ(::recv(ends[1], &reply[0], 4, MSG_DONTWAIT), 4);
    EXPECT_EQ(::send(ends[1], reply.data(), reply.size(), 0), 2000);
    ::close(ends[1]);
    client >> first >> second;
    EXPECT_EQ(first + "|" + second, "PING|" + std::string(1500 - 1024, 'r'));
    char b[4];
    EXPECT_EQ(client.recv(b, sizeof b) + client.recv(b, 0) + client.recv(nullptr, 4), 0);
    client.close();
    EXPECT_EQ(failureOf([&] { client.send("x", 1); }) + failureOf([&] { client.recv(b, 4); }),
              "Socket::send send (9)Socket::recv recv (9)");
}
