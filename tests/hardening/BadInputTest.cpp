// What bad input gets, seen through the whole program: the exact reply (or
// the abnormal end) for each class of bad request and bad remote answer.
// The README's table "What bad input gets" names these tests.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utime.h>

#include <cstring>

#include "crypto/Copyright.h"
#include "crypto/Decryptor.h"
#include "tests/support/ImageQuery.h"
#include "tests/support/Loopback.h"
#include "tests/support/Process.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

namespace {
const std::string PASSWORD = "a client password";
const std::string SIGNATURE = "3CA157E209D46B18F02E957AC341B86D";
const time_t NOV_1994 = 784111777;  // Sun, 06 Nov 1994 08:49:37 GMT

Process::Result get(const std::string& query, const std::string& cwd = "") {
    return Process::run(TESSAVANT_BIN, {}, {{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", query}}, "",
                        60, cwd);
}

Process::Result image(const std::string& reference, const std::string& cwd = "") {
    return get(imageQuery(PASSWORD, reference), cwd);
}

// A text reply with exit status 0 and nothing on standard error.
void expectReply(const Process::Result& r, const std::string& body) {
    EXPECT_EQ(r.out, std::string(Process::TEXT) + body);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);
}

// The error reply for a reference that failed with the given text.
std::string failed(const std::string& reference, const std::string& messageCode) {
    return "e=" + reference + " - " + messageCode + "\n\n";
}

// Serves one scripted exchange to one image request for its URL.
Process::Result remote(const ScriptedServer::Exchange& step, const std::string& scheme = "http",
                       std::string* reference = nullptr) {
    ScriptedServer server;
    server.serve({step});
    std::string url = server.url("/a.gif");
    if (scheme != "http")
        url.replace(0, 4, scheme);
    if (reference != nullptr)
        *reference = url;
    Process::Result r = image(url);
    EXPECT_TRUE(server.finish());
    return r;
}

Process::Result remote(const std::string& reply, std::string* reference) {
    ScriptedServer::Exchange step;
    step.pieces = {reply};
    return remote(step, "http", reference);
}

}  // namespace

TEST(BadInput, MalformedQueriesAreNeverAnError) {
    const std::string version = "Tessavant 6.0\n\n";
    expectReply(get("&&=&="), version);
    expectReply(get("%"), version);
    expectReply(get("cmd"), version);
    expectReply(get("CMD=\"\"&x=%zz"), version);
    // One quote is taken from the start alone; no SERVER_SOFTWARE stops the reply.
    expectReply(get("cmd=\"svr"), "w=");
}

TEST(BadInput, BadHexIsReadAsZeroDigits) {
    TempDir dir;
    const std::string path = dir.write("a.gif", "abc");
    struct utimbuf times = {NOV_1994, NOV_1994};
    ::utime(path.c_str(), &times);

    // Lower-case digits and an odd last character change nothing.
    std::string query = imageQuery(PASSWORD, path);
    for (char& c : query)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    Process::Result r = get(query + "Z");
    EXPECT_EQ(r.out.substr(r.out.size() - 3), "abc");
    EXPECT_EQ(r.out.find("Content-Length: 3\n"), r.out.find("Content-Length"));

    // A client key that is not hex unwraps to a meaningless password, and the
    // reference decrypted with it names no file.
    const std::string i = encryptToHex(PASSWORD, path);
    const std::string reference = Decryptor("not hex at all!!").decrypt(i);
    expectReply(get("cmd=img&p=not hex at all!!&i=" + i),
                failed(reference, "StdioFile::StdioFile  (2)"));
}

TEST(BadInput, WrongKeysGiveAReferenceThatNamesNothing) {
    TempDir dir;
    const std::string path = dir.write("a.gif", "abc");
    const std::string i = encryptToHex(PASSWORD, path);

    // The client password wrapped with another built-in password.
    const std::string p = encryptToHex("not the built-in password at all", PASSWORD);
    std::string reference = Decryptor(p).decrypt(i);
    ASSERT_NE(reference, path);
    expectReply(get("cmd=img&p=" + p + "&i=" + i), failed(reference, "StdioFile::StdioFile  (2)"));

    // The reference encrypted with another client password.
    const std::string good = encryptToHex(Copyright::getConstStr(), PASSWORD);
    const std::string other = encryptToHex("another client password", path);
    reference = Decryptor(good).decrypt(other);
    ASSERT_NE(reference, path);
    expectReply(get("cmd=img&p=" + good + "&i=" + other),
                failed(reference, "StdioFile::StdioFile  (2)"));
}

TEST(BadInput, CiphertextsOfTheWrongSizeFailBeforeAnyReference) {
    const std::string p = encryptToHex(Copyright::getConstStr(), PASSWORD);
    const std::string wrongSize = failed("", "StringCrypto::cipher Wrong size (-1)");
    expectReply(get("cmd=img&p=" + SIGNATURE + "0000&i=00"), wrongSize);
    expectReply(get("cmd=img&p=" + p + "&i=" + SIGNATURE + "0000"), wrongSize);
    // The right size, but a pad count that no encryption makes.
    expectReply(get("cmd=img&p=" + p + "&i=" + SIGNATURE + "09" + std::string(16, '0')), wrongSize);
    expectReply(get("cmd=img&p=" + p + "&i=" + SIGNATURE + "FF" + std::string(16, '0')), wrongSize);
}

TEST(BadInput, FilesThatCannotBeReadGiveTheErrnoCode) {
    TempDir dir;
    const std::string file = dir.write("a.gif", "abc");
    expectReply(image(dir.path() + "/missing.gif"),
                failed(dir.path() + "/missing.gif", "StdioFile::StdioFile  (2)"));
    expectReply(image(file + "/b.gif"), failed(file + "/b.gif", "StdioFile::StdioFile  (20)"));
    expectReply(image(""), failed("", "StdioFile::StdioFile  (2)"));
    if (::geteuid() != 0) {
        ::chmod(file.c_str(), 0);
        expectReply(image(file), failed(file, "StdioFile::StdioFile  (13)"));
    }
    // A directory opens, but gives no bytes: the announced length, no body.
    Process::Result r = image(dir.path());
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_NE(r.out.find("Content-Type: application/octet-stream\n"), std::string::npos);
    EXPECT_EQ(r.out.substr(r.out.size() - 2), "\n\n");
}

TEST(BadInput, UnsupportedSchemesAndRelativeRedirections) {
    expectReply(image("httpx://127.0.0.1/a.gif"),
                failed("httpx://127.0.0.1/a.gif",
                       "HttpFile::HttpFile httpx://127.0.0.1/a.gif is not supported (-1)"));
    std::string url;
    Process::Result r =
        remote("HTTP/1.1 302 Found\r\nLocation: /b.gif\r\nContent-Length: 0\r\n\r\n", &url);
    expectReply(r, failed(url, "HttpFile::HttpFile /b.gif is not supported (-1)"));
    r = remote("HTTP/1.1 301 Moved Permanently\r\nLocation: ftp://h/b.gif\r\n\r\n", &url);
    expectReply(r, failed(url, "HttpFile::HttpFile ftp://h/b.gif is not supported (-1)"));
}

TEST(BadInput, RemoteHeadsThatCannotBeRead) {
    const std::string badResponse = "HttpConnection::open Bad response (-1)";
    std::string url;

    // The server reads the request and closes without a word.
    ScriptedServer::Exchange silent;
    Process::Result r = remote(silent, "http", &url);
    expectReply(r, failed(url, badResponse));

    // The head lacks its blank line in the first receive.
    ScriptedServer::Exchange split;
    split.pieces = {"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n", "\r\nok"};
    split.restAfterClientClose = true;
    r = remote(split, "http", &url);
    expectReply(r, failed(url, badResponse));

    // A head larger than the receive buffer.
    std::string huge = "HTTP/1.1 200 OK\r\n";
    while (huge.size() < 600000)
        huge += "X-Filler: " + std::string(100, 'x') + "\r\n";
    r = remote(huge + "Content-Length: 2\r\n\r\nok", &url);
    expectReply(r, failed(url, badResponse));
}

TEST(BadInput, RemoteHeadsThatAreMalformed) {
    std::string url;
    Process::Result r = remote("HTTP/1.1 200\r\nContent-Length: 2\r\n\r\nok", &url);
    expectReply(r, failed(url, "HttpConnection::parseStatus Invalid response (-1)"));

    r = remote("HTTP/1.1 200 OK\r\nno colon here\r\n\r\nok", &url);
    expectReply(r, failed(url, "Header::add No header name found (-1)"));
    // The header lines are checked before the status line.
    r = remote("HTTP/1.1 200\r\n: no name\r\n\r\n", &url);
    expectReply(r, failed(url, "Header::add No header name found (-1)"));

    r = remote("HTTP/1.1 302 Found\r\nContent-Length: 0\r\n\r\n", &url);
    expectReply(r, failed(url, "HttpConnection::redirection No location header (-1)"));

    r = remote("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n", &url);
    expectReply(r,
                failed(url, "HttpFile::HttpFile HTTP/1.1 404 Not Found\r\nContent-Length: 0 (-1)"));
}

TEST(BadInput, ConnectionsThatFail) {
    const std::string refused = "http://127.0.0.1:" + std::to_string(freeLoopbackPort()) + "/a.gif";
    expectReply(image(refused), failed(refused, "Socket::connect connect (111)"));

    // A plain server where TLS was expected: the handshake fails, and the
    // request sees no head.
    ScriptedServer::Exchange plain;
    plain.readRequest = false;
    plain.pieces = {"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok"};
    std::string url;
    Process::Result r = remote(plain, "https", &url);
    expectReply(r, failed(url, "HttpConnection::open Bad response (-1)"));
}
