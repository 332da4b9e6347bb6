// How the program finds its parameter text, seen through its replies.
#include <gtest/gtest.h>
#include <signal.h>

#include "tests/support/Process.h"

namespace {
const std::string VERSION_REPLY = std::string(Process::TEXT) + "Tessavant 6.0\n\n";
const std::string BANNER =
    "Tessavant 6.0\nCopyright (C) 2026 The Tessavant developers. All rights reserved.\n";

void expectReply(const Process::Result& r, const std::string& out) {
    EXPECT_EQ(r.out, out);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.signal, 0);
}

void expectSilentAbnormalEnd(const Process::Result& r) {
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.signal, SIGABRT);
}
}  // namespace

TEST(Intake, GetTakesTheQueryString) {
    expectReply(Process::tessavant({{"REQUEST_METHOD", "GET"}}), VERSION_REPLY);
    expectReply(Process::tessavant({{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", ""}}),
                VERSION_REPLY);
    expectReply(Process::tessavant({{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", "cmd="}}),
                VERSION_REPLY);
    expectReply(Process::tessavant({{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", "cmd&x=1"}}),
                VERSION_REPLY);
    expectReply(Process::tessavant({{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", "cmd=bogus"}}), "");
}

TEST(Intake, AnArgumentWinsOverTheMethodAndItsQueryStarts) {
    const std::string env = std::string(Process::TEXT) + "\n";
    expectReply(Process::tessavant({}, {"/cgi-bin/tessavant?cmd=env"}), env);
    expectReply(Process::tessavant({}, {"cmd=env"}), env);
    expectReply(Process::tessavant({}, {"a?x=1?cmd=env"}),
                VERSION_REPLY);  // only the first "?" counts
    expectReply(Process::tessavant({{"REQUEST_METHOD", "PUT"}}, {"cmd"}), VERSION_REPLY);
    expectReply(Process::tessavant({{"REQUEST_METHOD", "POST"}}, {"?"}), VERSION_REPLY);
}

TEST(Intake, PostReadsTheAnnouncedLengthOfTheBody) {
    const std::string env =
        std::string(Process::TEXT) + "CONTENT_LENGTH=7\nREQUEST_METHOD=POST\n\n";
    expectReply(Process::tessavant({{"REQUEST_METHOD", "POST"}, {"CONTENT_LENGTH", "7"}}, {},
                                   "cmd=envTRAILING"),
                env);
    // strtol rules: blanks and a sign before, anything after the digits.
    expectReply(Process::tessavant({{"REQUEST_METHOD", "POST"}, {"CONTENT_LENGTH", " +7abc"}}, {},
                                   "cmd=env"),
                std::string(Process::TEXT) + "CONTENT_LENGTH= +7abc\nREQUEST_METHOD=POST\n\n");
    // A body shorter than announced reads as the shorter text.
    expectReply(
        Process::tessavant({{"REQUEST_METHOD", "POST"}, {"CONTENT_LENGTH", "4000"}}, {}, "cmd="),
        VERSION_REPLY);
    expectReply(Process::tessavant({{"REQUEST_METHOD", "POST"}, {"CONTENT_LENGTH", "12"}}, {}, ""),
                VERSION_REPLY);
}

TEST(Intake, PostWithoutAUsableLengthEndsAbnormallyAndSilently) {
    expectSilentAbnormalEnd(Process::tessavant({{"REQUEST_METHOD", "POST"}}, {}, "cmd=env"));
    for (const char* bad : {"0", "-5", "abc", "", " "})
        expectSilentAbnormalEnd(Process::tessavant(
            {{"REQUEST_METHOD", "POST"}, {"CONTENT_LENGTH", bad}}, {}, "cmd=env"));
    // Too large to allocate.
    expectSilentAbnormalEnd(Process::tessavant(
        {{"REQUEST_METHOD", "POST"}, {"CONTENT_LENGTH", "9223372036854775807"}}, {}, "cmd=env"));
}

TEST(Intake, OtherMethodsGetTheBanner) {
    for (const char* method : {"HEAD", "PUT", "get", "post", ""})
        expectReply(Process::tessavant({{"REQUEST_METHOD", method}, {"QUERY_STRING", "cmd=env"}}),
                    BANNER);
    expectReply(Process::tessavant({}), BANNER);
}
