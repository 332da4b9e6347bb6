// The program as a CGI under a real lighttpd, with curl as the client.
#include <gtest/gtest.h>
#include <utime.h>

#include <memory>
#include <random>
#include <sstream>

#include "crypto/Copyright.h"
#include "tests/support/ImageQuery.h"
#include "tests/support/Lighttpd.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace {

const time_t JUNE_2026 = 1781000000;  // Tue, 09 Jun 2026 10:13:20 GMT
const std::string JUNE_2026_TEXT = "Tue, 09 Jun 2026 10:13:20 GMT";
const std::string PASSWORD = "end-to-end client";

struct Reply {
    std::string status;                // status line without CR LF
    std::vector<std::string> headers;  // in arrival order, without CR LF
    std::string body;

    std::string header(const std::string& name) const {
        for (const auto& line : headers)
            if (line.compare(0, name.size() + 2, name + ": ") == 0)
                return line.substr(name.size() + 2);
        return "<absent>";
    }
};

Reply curl(const std::string& url, const std::vector<std::string>& requestHeaders = {}) {
    std::vector<std::string> args = {"-sS", "-i", "--max-time", "30"};
    for (const auto& h : requestHeaders) {
        args.push_back("-H");
        args.push_back(h);
    }
    args.push_back(url);
    Process::Result r = Process::run("/usr/bin/curl", args, {});
    EXPECT_EQ(r.status, 0) << r.err;
    Reply reply;
    size_t end = r.out.find("\r\n\r\n");
    if (end == std::string::npos)
        return reply;
    std::istringstream head(r.out.substr(0, end));
    std::getline(head, reply.status);
    reply.status.pop_back();
    for (std::string line; std::getline(head, line);) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        reply.headers.push_back(line);
    }
    reply.body = r.out.substr(end + 4);
    return reply;
}

std::string randomBytes(size_t n, unsigned seed) {
    std::mt19937 generator(seed);
    std::string s(n, '\0');
    for (char& c : s)
        c = static_cast<char>(generator());
    return s;
}

std::string sha256(const std::string& path) {
    Process::Result r = Process::run("/usr/bin/sha256sum", {path}, {});
    return r.out.substr(0, 64);
}

class EndToEnd : public ::testing::Test {
  protected:
    void SetUp() override {
        Lighttpd::Options cgi;
        cgi.config = {
            "server.modules += (\"mod_alias\", \"mod_cgi\")",
            "alias.url = (\"/cgi-bin/tessavant\" => \"" + std::string(TESSAVANT_BIN) + "\")",
            "$HTTP[\"url\"] =~ \"^/cgi-bin/\" { cgi.assign = (\"\" => \"\") }"};
        server.reset(new Lighttpd(docs.path(), cgi));
    }

    std::string image(const std::string& reference) const {
        return server->url("/cgi-bin/tessavant?" + imageQuery(PASSWORD, reference));
    }

    std::string picture(const std::string& name, size_t size) const {
        std::string path = files.write(name, randomBytes(size, static_cast<unsigned>(size)));
        struct utimbuf times = {JUNE_2026, JUNE_2026};
        ::utime(path.c_str(), &times);
        return path;
    }

    TempDir docs, files;
    std::unique_ptr<Lighttpd> server;
};

// What the client sees of the program's image header block.
const std::vector<std::string> IMAGE_HEADERS = {"Connection",    "Content-Type",  "Accept-Ranges",
                                                "Last-Modified", "Etag",          "Cache-Control",
                                                "Expires",       "Content-Length"};

}  // namespace

TEST_F(EndToEnd, LocalImageThenItsConditionalRequests) {
    const std::string path = picture("photo.bin", 700001);
    Reply first = curl(image(path));
    EXPECT_EQ(first.status, "HTTP/1.1 200 OK");
    std::vector<std::string> seen;
    for (const auto& name : IMAGE_HEADERS)
        seen.push_back(first.header(name));
    // The server puts its own connection decision into the program's
    // Connection line: this test server closes after every response.
    EXPECT_EQ(seen, (std::vector<std::string>{"close", "application/octet-stream", "bytes",
                                              JUNE_2026_TEXT, "\"" + JUNE_2026_TEXT + "\"",
                                              "max-age=31536000, must-revalidate, public",
                                              "Fri, 31 Dec 2027 12:00:00 GMT", "700001"}));
    // The program's Content-Length frames the body: no chunked coding.
    EXPECT_EQ(first.header("Transfer-Encoding"), "<absent>");
    std::string received = files.write("received", first.body);
    EXPECT_EQ(sha256(received), sha256(path));

    Reply tagged = curl(image(path), {"If-None-Match: " + first.header("Etag")});
    EXPECT_EQ(tagged.status, "HTTP/1.1 304 Not Modified");
    EXPECT_EQ(tagged.body, "");
    EXPECT_EQ(tagged.header("Etag"), "<absent>");

    Reply dated = curl(image(path), {"If-Modified-Since: " + first.header("Last-Modified")});
    EXPECT_EQ(dated.status, "HTTP/1.1 304 Not Modified");
    EXPECT_EQ(dated.body, "");

    Reply older = curl(image(path), {"If-Modified-Since: Tue, 09 Jun 2026 10:13:19 GMT"});
    EXPECT_EQ(older.status, "HTTP/1.1 200 OK");
    EXPECT_EQ(older.body, first.body);
}

TEST_F(EndToEnd, RemoteImagesOverHttpAndHttps) {
    TempDir remoteDocs;
    const std::string bytes = randomBytes(1500000, 7);
    remoteDocs.write("pics/remote.bin", bytes);
    Lighttpd plain(remoteDocs.path());
    Lighttpd::Options tls;
    tls.tls = true;
    Lighttpd secure(remoteDocs.path(), tls);

    for (const Lighttpd* origin : {&plain, &secure}) {
        Reply r = curl(image(origin->url("/pics/remote.bin")));
        EXPECT_EQ(r.status, "HTTP/1.1 200 OK") << origin->url("/");
        EXPECT_EQ(r.header("Content-Length"), "1500000");
        EXPECT_EQ(r.header("Content-Type"), "application/octet-stream");
        EXPECT_TRUE(r.body == bytes) << "body of " << r.body.size() << " bytes differs";
        // The origin's own date, passed on as it came.
        Reply again =
            curl(image(origin->url("/pics/remote.bin")), {"If-None-Match: " + r.header("Etag")});
        EXPECT_EQ(again.status, "HTTP/1.1 304 Not Modified");
    }

    // The origin's whole response head is the message.
    Reply missing = curl(image(plain.url("/pics/none.bin")));
    EXPECT_EQ(missing.status, "HTTP/1.1 200 OK");
    const std::string start =
        "e=" + plain.url("/pics/none.bin") + " - HttpFile::HttpFile HTTP/1.1 404 Not Found\r\n";
    EXPECT_EQ(missing.body.compare(0, start.size(), start), 0) << missing.body;
    EXPECT_NE(missing.body.find("\r\nContent-Length: "), std::string::npos);
    EXPECT_EQ(missing.body.substr(missing.body.size() - 7), " (-1)\n\n");
}

TEST_F(EndToEnd, ErrorsAndTextCommandsAreTextReplies) {
    const std::string missing = files.path() + "/missing.gif";
    Reply r = curl(image(missing));
    EXPECT_EQ(r.status, "HTTP/1.1 200 OK");
    EXPECT_EQ(r.header("Content-type"), "text/plain");
    EXPECT_EQ(r.body, "e=" + missing + " - StdioFile::StdioFile  (2)\n\n");

    Reply version = curl(server->url("/cgi-bin/tessavant"));
    EXPECT_EQ(version.status, "HTTP/1.1 200 OK");
    EXPECT_EQ(version.body, "Tessavant 6.0\n\n");

    Reply svr = curl(server->url("/cgi-bin/tessavant?cmd=svr"));
    const std::string software = "lighttpd/";
    EXPECT_EQ(svr.body.compare(0, 2 + software.size(), "w=" + software), 0) << svr.body;
    const std::string rest =
        "&i=" + Copyright::get() + "&a=Tessavant&v=6.0&s=" + TESSAVANT_BIN + "\n\n";
    ASSERT_GE(svr.body.size(), rest.size());
    EXPECT_EQ(svr.body.substr(svr.body.size() - rest.size()), rest);

    Reply env = curl(server->url("/cgi-bin/tessavant?cmd=env"));
    EXPECT_NE(env.body.find("\nGATEWAY_INTERFACE=CGI/1.1\n"), std::string::npos) << env.body;
    EXPECT_NE(env.body.find("\nQUERY_STRING=cmd=env\n"), std::string::npos);
    EXPECT_EQ(env.body.substr(env.body.size() - 2), "\n\n");

    // The silent reply to an unknown command has no header block, which the
    // server turns into an error of its own.
    Reply unknown = curl(server->url("/cgi-bin/tessavant?cmd=nothing"));
    EXPECT_EQ(unknown.status, "HTTP/1.1 500 Internal Server Error");

    Process::Result posted = Process::run("/usr/bin/curl",
                                          {"-sS", "--max-time", "30", "--data-binary",
                                           "cmd=svr&x=1", server->url("/cgi-bin/tessavant")},
                                          {});
    EXPECT_EQ(posted.out.compare(0, 11, "w=lighttpd/"), 0) << posted.out;
}
