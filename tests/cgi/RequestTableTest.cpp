// Every row of requests.txt: exactly the expected bytes, nothing on standard error, the row's
// exit; under TESSAVANT_MEMCHECK, no memcheck error, leak or descriptor left open.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <utime.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>

#include "crypto/Copyright.h"
#include "crypto/StringCrypto.h"
#include "tests/support/FastCgi.h"
#include "tests/support/Process.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

namespace {
// run-policy-table names a program built with policy.conf, for policy.txt.
const char* const POLICY_BIN = std::getenv("TESSAVANT_POLICY_BIN");
const std::string TABLE = POLICY_BIN ? "policy.txt" : "requests.txt";
using Pairs = std::vector<std::pair<std::string, std::string>>;
struct Row {
    int line = 0;
    Pairs lines;  // directive, text
    std::string ref = "{peer}/a.gif";
};

std::vector<Row> load() {
    std::vector<Row> rows;
    std::ifstream table(TESSAVANT_SOURCE_DIR "/tests/cgi/" + TABLE);
    std::string line;
    for (int number = 1, blank = 1; std::getline(table, line); ++number) {
        blank = blank || line.empty();
        if (line.empty() || line[0] == '#')
            continue;
        if (blank)
            rows.push_back({number, {}}), blank = 0;
        // "=> OUT" ends a line with the expected reply; a bare "=>", with the empty one.
        const size_t arrow = (line + " ").find(" => ");
        if (arrow != std::string::npos) {
            rows.back().lines.emplace_back("out", line.substr(std::min(arrow + 4, line.size())));
            line.resize(arrow);
        }
        const size_t space = std::min(line.find(' '), line.size());
        std::string key = line.substr(0, space), text = line.substr(space + (space < line.size()));
        if (key == "get") {  // get REF [N=V ...]
            const size_t end = std::min(text.find(' '), text.size());
            rows.back().ref = text.substr(0, end);
            key = "env", text = "REQUEST_METHOD=GET QUERY_STRING={q:" + text.substr(0, end) + "}" +
                                text.substr(end);
        }
        rows.back().lines.emplace_back(key, text);
    }
    return rows;
}

void PrintTo(const Row& row, std::ostream* out) {
    *out << TABLE << ":" << row.line;
}

const std::string PASSWORD = "a client password";

std::string pattern(size_t size) {  // every byte value
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i * 7 + i / 4096);
    return bytes;
}

std::string encrypt(const std::string& password, const std::string& plain) {
    return StringCrypto(password.c_str(), true).cipherHex(plain);
}

std::string expand(const std::string& escaped, const Pairs& names) {
    std::string text;
    for (size_t i = 0; i < escaped.size(); ++i) {
        const char c = escaped[i] == '\\' && i + 1 < escaped.size() ? escaped[++i] : 0;
        if (c == 'x')
            text += static_cast<char>(std::stoi(escaped.substr(i + 1, 2), nullptr, 16)), i += 2;
        else
            text += c == 0 ? escaped[i] : c == 'n' ? '\n' : c == 'r' ? '\r' : c == 's' ? ' ' : c;
    }
    for (const auto& n : names)
        for (size_t at; (at = text.find("{" + n.first + "}")) != std::string::npos;)
            text.replace(at, n.first.size() + 2, n.second);
    for (size_t open, colon, close, from = 0;
         (open = text.find('{', from)) != std::string::npos &&
         (colon = text.find(':', open)) != std::string::npos &&
         (close = text.find('}', colon)) != std::string::npos;) {
        const std::string name = text.substr(open + 1, colon - open - 1);
        const std::string arg = text.substr(colon + 1, close - colon - 1);
        const size_t comma = std::min(arg.find(','), arg.size());
        const std::string date =
            comma < arg.size() ? arg.substr(comma + 1) : "Sun, 06 Nov 1994 08:49:37 GMT";
        std::string value =
            name == "q" ? "cmd=img&p=" + encrypt(Copyright::getConstStr(), PASSWORD) +
                              "&i=" + encrypt(PASSWORD, arg)
            : name == "file" ? pattern(std::stoul(arg.substr(1)))
                             : "Connection: keep-alive\nContent-Type: application/octet-stream\n"
                               "Accept-Ranges: bytes\nLast-Modified: " +
                                   date + "\nEtag: \"" + date +
                                   "\"\n"
                                   "Cache-Control: max-age=31536000, must-revalidate, public\n"
                                   "Expires: Fri, 31 Dec 2027 12:00:00 GMT\nContent-Length: " +
                                   arg.substr(0, comma) + "\n\n";
        text.replace(open, close - open + 1, value);
        from = open + value.size();
    }
    return text;
}

// As a CGI program in dir, or through the FastCGI responder on socket.
void runRow(const Row& row, const std::string& dir, const std::string& socket = "") {
    std::unique_ptr<ScriptedServer> peer;
    for (const auto& l : row.lines) {
        if (!socket.empty() && (l.first == "arg" || l.first == "cgi"))
            return;
        if (!peer && (l.first == "peer" || l.first == "tls" || l.first == "silent"))
            peer.reset(new ScriptedServer(l.first == "tls"));
    }
    const std::string program = std::filesystem::canonical(POLICY_BIN ? POLICY_BIN : TESSAVANT_BIN);
    const Pairs names = {{"e", "{T}e={ref} - "},  // in this order: later names expand earlier ones
                         {"ref", row.ref},
                         {"dir", dir},
                         {"peer", peer ? peer->url() : ""},
                         {"port", peer ? std::to_string(peer->port) : ""},
                         {"T", "Content-type: text/plain\n\n"},
                         {"id", Copyright::get()},
                         {"p", encrypt(Copyright::getConstStr(), PASSWORD)},
                         {"bin", program},
                         {"closed", std::to_string(ScriptedServer::freePort())}};
    Process::Environment env;
    std::vector<std::string> args, sent;
    std::vector<ScriptedServer::Exchange> script;
    std::string in, out;
    const bool memcheck = std::getenv("TESSAVANT_MEMCHECK") != nullptr;
    int signal = 0, limit = memcheck ? 300 : 60;
    bool stop = false;
    for (const auto& [key, text] : row.lines) {
        const std::string value = key == "env" ? "" : expand(text, names);  // env: item by item
        for (size_t at = 0, end; key == "env" && at < text.size(); at = end + 1) {
            end = std::min(text.find(' ', at), text.size());
            const std::string item = expand(text.substr(at, end - at), names);
            env.emplace_back(item.substr(0, item.find('=')), item.substr(item.find('=') + 1));
        }
        const size_t space = value.find(' ');
        if (key == "arg")
            args.push_back(value);
        else if (key == "in" || key == "out")
            (key == "in" ? in : out) += value;
        else if (key == "file") {
            const std::string path = dir + "/" + value.substr(0, space);
            std::ofstream(path, std::ios::binary) << value.substr(space + 1);
            const utimbuf times = {784111777, 784111777};  // Sun, 06 Nov 1994 08:49:37 GMT
            ::utime(path.c_str(), &times);
        } else if (key == "link")
            ::symlink(value.substr(space + 1).c_str(),
                      (dir + "/" + value.substr(0, space)).c_str());
        else if (key == "peer" || key == "tls")
            script.push_back({{value}}), sent.emplace_back();
        else if (key == "more")
            script.back().pieces.push_back(value);
        else if (key == "sent")
            sent.back() = value;
        else if (key == "signal" || key == "silent")
            (key == "signal" ? signal : limit) = std::stoi(value);
        else if (key != "stop" && key != "cgi" && key != "env")
            ADD_FAILURE() << "unknown directive \"" << key << "\"";
        stop = stop || key == "stop";
    }
    const auto said = [&](const char* what) {
        return std::any_of(row.lines.begin(), row.lines.end(),
                           [&](auto& l) { return l.first == what; });
    };
    EXPECT_TRUE(said("out")) << "no expected reply (a bare \"=>\" says it is empty)";
    if (env.empty() && args.empty())
        env = {{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", expand("{q:{ref}}", names)}};
    if (peer)
        peer->serve(script);
    const std::string log = dir + "/memcheck.log";
    std::string run = program;
    // Through FastCGI an intake failure ends the request with status 1.
    int status = signal == 0 ? 0 : socket.empty() ? -1 : 1;
    if (!socket.empty())
        run = "/usr/bin/cgi-fcgi", args = {"-bind", "-connect", socket}, signal = 0;
    else if (memcheck) {
        run = "/usr/bin/valgrind";
        args.insert(args.begin(),
                    {"--error-exitcode=99", "--leak-check=full", "--track-fds=yes", "--vgdb=no",
                     "--errors-for-leak-kinds=definite,indirect", "--log-file=" + log, program});
    }
    Process::Result r = Process::run(run, args, env, in, limit, dir, stop);
    // valgrind adds to the environment.
    EXPECT_TRUE(memcheck || r.out == out) << r.out.size() << " bytes:\n" << r.out.substr(0, 999);
    EXPECT_EQ(std::make_tuple(r.err, r.status, r.signal), std::make_tuple("", status, signal));
    EXPECT_TRUE(!peer || peer->finish());
    for (size_t i = 0; peer && i < sent.size(); ++i)
        EXPECT_EQ(i < peer->requests.size() ? peer->requests[i].substr(0, sent[i].size()) : "",
                  sent[i]);
    const std::string report = memcheck ? readFile(log) : " 0 errors 4 open (3 std)";
    EXPECT_TRUE(report.find(" 0 errors") != std::string::npos &&
                report.find(" 4 open (3 std)") != std::string::npos)
        << report;
}

class Request : public testing::TestWithParam<Row> {};

TEST_P(Request, GetsItsExactReply) {
    TempDir dir;
    runRow(GetParam(), dir.path());
}

INSTANTIATE_TEST_SUITE_P(Table, Request, testing::ValuesIn(load()),
                         [](const testing::TestParamInfo<Row>& info) {
                             return "line" + std::to_string(info.param.line);
                         });

// Every row through one responder with a listening socket as standard input:
// nothing carries over, nothing of its own on output, SIGTERM ends it with 0.
TEST(FastCgi, EveryRowThroughOneResponder) {
    TempDir dir;
    const std::string socket = dir.path() + "/socket";
    const int listener = listenAt(socket);
    Responder responder(dir, listener);
    ::close(listener);
    const auto descriptors = [&] { return Process::count(responder.pid, "fd"); };
    const long idle = descriptors();  // its own, which no request may add to
    for (const Row& row : load()) {
        SCOPED_TRACE(testing::PrintToString(row));
        runRow(row, dir.path(), socket);
    }
    // The last connection may still be closing when its client has the reply.
    waitUntil([&] { return descriptors() == idle; });
    EXPECT_EQ(descriptors(), idle);
    ::kill(responder.pid, SIGTERM);
    EXPECT_EQ(responder.end(), 0);
    EXPECT_EQ(readFile(responder.log), "");
}
}  // namespace
