// Exact replies of the text commands.
#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>

#include "crypto/Copyright.h"
#include "tests/support/Process.h"

namespace {
Process::Result get(const std::string& query, Process::Environment env = {}) {
    env["REQUEST_METHOD"] = "GET";
    env["QUERY_STRING"] = query;
    return Process::tessavant(env);
}
}  // namespace

TEST(Command, EnvListsTheEnvironmentInItsOwnOrder) {
    Process::Result r = get("cmd=env", {{"B", "2"}, {"A", "x=y"}, {"EMPTY", ""}});
    // The runner hands the environment over sorted by name.
    EXPECT_EQ(r.out, std::string(Process::TEXT) +
                         "A=x=y\nB=2\nEMPTY=\nQUERY_STRING=cmd=env\nREQUEST_METHOD=GET\n\n");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(get("cmd=\"env\"").out.substr(0, 26), Process::TEXT);
    EXPECT_EQ(get("CMD=env").out.substr(0, 26), Process::TEXT);
}

TEST(Command, SvrDescribesTheServerAndTheProgram) {
    const std::string id = Copyright::get();
    Process::Result r = get("cmd=svr", {{"SERVER_SOFTWARE", "lighttpd/1.4.69"},
                                        {"SCRIPT_FILENAME", "/usr/lib/cgi-bin/tessavant"}});
    EXPECT_EQ(r.out, std::string(Process::TEXT) + "w=lighttpd/1.4.69&i=" + id +
                         "&a=Tessavant&v=6.0&s=/usr/lib/cgi-bin/tessavant\n\n");
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(get("CMD=svr", {{"SERVER_SOFTWARE", "x"}, {"SCRIPT_FILENAME", "s"}}).out,
              std::string(Process::TEXT) + "w=x&i=" + id + "&a=Tessavant&v=6.0&s=s\n\n");
}

TEST(Command, SvrFallsBackToTheProgramPathAndStopsWithoutServerSoftware) {
    char real[PATH_MAX];
    ASSERT_NE(::realpath(TESSAVANT_BIN, real), nullptr);
    const std::string id = Copyright::get();
    EXPECT_EQ(get("cmd=svr", {{"SERVER_SOFTWARE", ""}}).out,
              std::string(Process::TEXT) + "w=&i=" + id + "&a=Tessavant&v=6.0&s=" + real + "\n\n");

    Process::Result r = get("cmd=svr", {{"SCRIPT_FILENAME", "/x"}});
    EXPECT_EQ(r.out, std::string(Process::TEXT) + "w=");
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);
}

TEST(Command, UnknownCommandsAreAnsweredWithSilence) {
    for (const char* query : {"cmd=SVR", "cmd=Env", "cmd=foo", "cmd=env ", "cmd=%65nv"}) {
        Process::Result r = get(query);
        EXPECT_EQ(r.out, "") << query;
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
    }
}
