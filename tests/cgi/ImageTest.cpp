// Exact bytes of the image command, run as a process without a web server.
#include <gtest/gtest.h>
#include <utime.h>

#include "tests/support/ImageQuery.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace {
const std::string PASSWORD = "a client password";
const time_t NOV_1994 = 784111777;  // Sun, 06 Nov 1994 08:49:37 GMT
const std::string NOV_1994_TEXT = "Sun, 06 Nov 1994 08:49:37 GMT";

std::string query(const std::string& reference) {
    return imageQuery(PASSWORD, reference);
}

Process::Result image(const std::string& reference, Process::Environment env = {},
                      const std::string& cwd = "") {
    env["REQUEST_METHOD"] = "GET";
    env["QUERY_STRING"] = query(reference);
    return Process::run(TESSAVANT_BIN, {}, env, "", 60, cwd);
}

std::string headers(const std::string& modified, int length) {
    return "Connection: keep-alive\n"
           "Content-Type: application/octet-stream\n"
           "Accept-Ranges: bytes\n"
           "Last-Modified: " +
           modified + "\nEtag: \"" + modified +
           "\"\n"
           "Cache-Control: max-age=31536000, must-revalidate, public\n"
           "Expires: Fri, 31 Dec 2027 12:00:00 GMT\n"
           "Content-Length: " +
           std::to_string(length) + "\n\n";
}

std::string dated(const TempDir& dir, const std::string& name, const std::string& content) {
    std::string path = dir.write(name, content);
    struct utimbuf times = {NOV_1994, NOV_1994};
    ::utime(path.c_str(), &times);
    return path;
}

void expectOk(const Process::Result& r, const std::string& out) {
    EXPECT_EQ(r.out, out);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);
}
}  // namespace

TEST(Image, SendsTheHeaderBlockAndTheBytes) {
    TempDir dir;
    std::string bytes("GIF89a\0\x01\x02\xff", 10);
    expectOk(image(dated(dir, "a.gif", bytes)), headers(NOV_1994_TEXT, 10) + bytes);
    expectOk(image(dated(dir, "empty.gif", "")), headers(NOV_1994_TEXT, 0));

    // Two full chunks and one byte, all of it, in order.
    std::string big(1048577, '\0');
    for (size_t i = 0; i < big.size(); ++i)
        big[i] = static_cast<char>(i * 7 + i / 4096);
    Process::Result r = image(dated(dir, "big.bin", big));
    expectOk(r, headers(NOV_1994_TEXT, 1048577) + big);

    // A POST request and a relative path resolved in the working directory.
    dated(dir, "htt", "local");
    expectOk(image("htt", {}, dir.path()), headers(NOV_1994_TEXT, 5) + "local");
    Process::Result post = Process::run(
        TESSAVANT_BIN, {},
        {{"REQUEST_METHOD", "POST"}, {"CONTENT_LENGTH", std::to_string(query("ht").size())}},
        query("ht"), 60, dir.path());
    EXPECT_EQ(post.out, std::string(Process::TEXT) + "e=ht - StdioFile::StdioFile  (2)\n\n");
}

TEST(Image, ConditionalRequestsGetOnly304) {
    TempDir dir;
    const std::string path = dated(dir, "a.gif", "abc");
    const std::string full = headers(NOV_1994_TEXT, 3) + "abc";
    const std::string notModified = "Status: 304 Not Modified\n\n";

    expectOk(image(path, {{"HTTP_IF_NONE_MATCH", "\"" + NOV_1994_TEXT + "\""}}), notModified);
    expectOk(image(path, {{"HTTP_IF_NONE_MATCH", NOV_1994_TEXT}}), full);  // quotes matter
    expectOk(image(path, {{"HTTP_IF_NONE_MATCH", "W/\"" + NOV_1994_TEXT + "\""}}), full);
    expectOk(image(path, {{"HTTP_IF_MODIFIED_SINCE", NOV_1994_TEXT}}), notModified);
    expectOk(image(path, {{"HTTP_IF_MODIFIED_SINCE", "Sun, 06 Nov 1994 08:49:36 GMT"}}), full);
    expectOk(image(path, {{"HTTP_IF_MODIFIED_SINCE", "Mon, 07 Nov 1994 00:00:00 GMT"}}),
             notModified);
    expectOk(image(path, {{"HTTP_IF_MODIFIED_SINCE", "Sunday, 06-Nov-94 08:49:37 GMT"}}), full);
    // A tag that does not match still lets the date decide.
    expectOk(image(path, {{"HTTP_IF_NONE_MATCH", "\"other\""},
                          {"HTTP_IF_MODIFIED_SINCE", NOV_1994_TEXT}}),
             notModified);
}

TEST(Image, FailuresAreReportedWithTheReference) {
    TempDir dir;
    const std::string missing = dir.path() + "/missing.gif";
    expectOk(image(missing),
             std::string(Process::TEXT) + "e=" + missing + " - StdioFile::StdioFile  (2)\n\n");

    // A client key of the wrong size fails in the decryptor: no reference yet.
    const std::string wrongSize = "3CA157E209D46B18F02E957AC341B86D0000";
    Process::Result r = Process::tessavant(
        {{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", "cmd=img&p=" + wrongSize + "&i=00"}});
    expectOk(r, std::string(Process::TEXT) + "e= - StringCrypto::cipher Wrong size (-1)\n\n");

    // Without p and i the empty values are taken as plain text and encrypted:
    // the reference becomes the signature bytes, which no file is named after.
    r = Process::tessavant({{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", "cmd=img"}});
    expectOk(r, std::string(Process::TEXT) +
                    "e=\x3c\xa1\x57\xe2\x09\xd4\x6b\x18\xf0\x2e\x95\x7a\xc3\x41\xb8\x6d"
                    " - StdioFile::StdioFile  (2)\n\n");

    // Any case of "http" goes to the remote source, which wants "://".
    expectOk(image("Http:x"), std::string(Process::TEXT) +
                                  "e=Http:x - HttpFile::HttpFile Http:x is not supported (-1)\n\n");
    expectOk(image("httpdocs/a.gif"),
             std::string(Process::TEXT) +
                 "e=httpdocs/a.gif - HttpFile::HttpFile httpdocs/a.gif is not supported (-1)\n\n");
    expectOk(image("ftp://h/a.gif", {}, dir.path()),
             std::string(Process::TEXT) + "e=ftp://h/a.gif - StdioFile::StdioFile  (2)\n\n");
}
