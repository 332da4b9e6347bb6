// Every row of requests.txt: exactly the expected bytes, nothing on standard error, the row's
// exit; under TESSAVANT_MEMCHECK, no memcheck error, leak or descriptor left open.
#include <gtest/gtest.h>
#include <utime.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <set>

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
const bool MEMCHECK = std::getenv("TESSAVANT_MEMCHECK") != nullptr;
const std::string PASSWORD = "a client password";
using Pairs = std::vector<std::pair<std::string, std::string>>;

struct Row {
    std::string where, name, text;  // file:line, the test's name, the row as written
    Pairs lines;                    // directive, text
    std::string ref = "{peer}/a.gif";
    bool has(const std::string& key) const {
        return std::any_of(lines.begin(), lines.end(), [&](auto& l) { return l.first == key; });
    }
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.where;
}

// "get REF [N=V ...]" is a GET of {q:REF} and more environment; " => TEXT" ends any line with
// the expected reply, a bare " =>" with the empty one.
void addLine(Row& row, std::string line) {
    row.text += line + "\n";
    const size_t arrow = (line + " ").find(" => ");
    const std::string out =
        arrow > line.size() ? "" : line.substr(std::min(arrow + 4, line.size()));
    line.resize(std::min(arrow, line.size()));
    const size_t space = std::min(line.find(' '), line.size());
    std::string key = line.substr(0, space), text = line.substr(std::min(space + 1, line.size()));
    if (key == "get") {
        const size_t end = std::min(text.find(' '), text.size());
        row.ref = text.substr(0, end);
        row.lines.emplace_back("get", "");
        key = "env";
        text = "REQUEST_METHOD=GET QUERY_STRING={q:" + row.ref + "}" + text.substr(end);
    }
    row.lines.emplace_back(key, text);
    if (arrow <= line.size())
        row.lines.emplace_back("out", out);
}

// The table's lines and their numbers, without comments; an indented line continues the one
// before it.
std::vector<std::pair<int, std::string>> logicalLines(std::istream& in) {
    std::vector<std::pair<int, std::string>> lines;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        const size_t start = line.find_first_not_of(' ');
        if (start == std::string::npos)
            lines.emplace_back(number, "");
        else if (start > 0 && !lines.empty() && !lines.back().second.empty())
            lines.back().second += line.substr(start);
        else if (line[0] != '#')
            lines.emplace_back(number, line);
    }
    return lines;
}

// A row's reference, or else its first line, as a test name may be written; with the hash of
// the row when an earlier row has the name.
std::string nameOf(const Row& row, std::set<std::string>& names) {
    std::string name;
    for (char c : row.has("get")
                      ? row.ref
                      : row.text.substr(0, std::min(row.text.find(" =>"), row.text.find('\n')))) {
        const bool alnum = std::isalnum(static_cast<unsigned char>(c));
        if (alnum || (!name.empty() && name.back() != '_'))
            name += alnum ? c : '_';
    }
    name.resize(std::min<size_t>(name.size(), 60));
    if (!names.insert(name).second)
        name += "_" + std::to_string(std::hash<std::string>()(row.text) % 1000000);
    return name;
}

// Rows run to a blank line.
std::vector<Row> load() {
    std::ifstream table(TESSAVANT_SOURCE_DIR "/tests/cgi/" + TABLE);
    std::vector<Row> rows;
    std::set<std::string> names;
    bool blank = true;
    for (const auto& [number, text] : logicalLines(table)) {
        if (!text.empty() && blank)
            rows.emplace_back().where = TABLE + ":" + std::to_string(number);
        blank = text.empty();
        if (!blank)
            addLine(rows.back(), text);
    }
    for (Row& row : rows)
        row.name = nameOf(row, names);
    return rows;
}

std::string encrypt(const std::string& password, const std::string& plain) {
    return StringCrypto(password.c_str(), true).cipherHex(plain);
}

std::string pattern(size_t size) {  // every byte value
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i * 7 + i / 4096);
    return bytes;
}

// The header block of a local image (or, with a date, of a remote one): {head:LENGTH[,DATE]}.
std::string head(const std::string& arg) {
    const size_t comma = std::min(arg.find(','), arg.size());
    const std::string date =
        comma < arg.size() ? arg.substr(comma + 1) : "Sun, 06 Nov 1994 08:49:37 GMT";
    return "Connection: keep-alive\nContent-Type: application/octet-stream\n"
           "Accept-Ranges: bytes\nLast-Modified: " +
           date + "\nEtag: \"" + date +
           "\"\nCache-Control: max-age=31536000, must-revalidate, public\n"
           "Expires: Fri, 31 Dec 2027 12:00:00 GMT\nContent-Length: " +
           arg.substr(0, comma) + "\n\n";
}

// {q:REF}, {file:@N} and {head:...}.
std::string generated(const std::string& name, const std::string& arg) {
    if (name == "q")
        return "cmd=img&p=" + encrypt(Copyright::getConstStr(), PASSWORD) +
               "&i=" + encrypt(PASSWORD, arg);
    if (name == "file")
        return pattern(std::stoul(arg.substr(1)));
    if (name == "head")
        return head(arg);
    throw std::invalid_argument("no such value {" + name + ":...}");
}

// \n \r \s (a space) \xHH, and a backslash before any other character: that character.
std::string unescape(const std::string& text) {
    std::string bytes;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            bytes += text[i];
            continue;
        }
        const char c = text[++i];
        if (c == 'x') {
            bytes += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            bytes += c == 'n' ? '\n' : c == 'r' ? '\r' : c == 's' ? ' ' : c;
        }
    }
    return bytes;
}

// A row's text as bytes: escapes, then names (in order: later ones expand earlier ones), then
// generated values.
std::string expand(const std::string& text, const Pairs& names) {
    std::string bytes = unescape(text);
    for (const auto& [name, value] : names)
        for (size_t at; (at = bytes.find("{" + name + "}")) != std::string::npos;)
            bytes.replace(at, name.size() + 2, value);
    for (size_t open, from = 0; (open = bytes.find('{', from)) != std::string::npos;) {
        const size_t colon = bytes.find(':', open), close = bytes.find('}', colon);
        if (close == std::string::npos)
            break;
        const std::string value = generated(bytes.substr(open + 1, colon - open - 1),
                                            bytes.substr(colon + 1, close - colon - 1));
        bytes.replace(open, close - open + 1, value);
        from = open + value.size();
    }
    return bytes;
}

// What a row's directives set up.
struct Setup {
    Process::Environment env;
    std::vector<std::string> args, sent;
    std::vector<ScriptedServer::Exchange> script;
    std::string in, out;
    int signal = 0, limit = 60;
    bool stop = false;
};

void makeFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
    const utimbuf times = {784111777, 784111777};  // Sun, 06 Nov 1994 08:49:37 GMT
    ::utime(path.c_str(), &times);
}

void apply(Setup& s, const std::string& key, const std::string& value, const std::string& dir) {
    const size_t space = value.find(' ');
    if ((key == "more" || key == "sent") && s.script.empty())
        ADD_FAILURE() << "\"" << key << "\" before any peer";
    else if (key == "arg")
        s.args.push_back(value);
    else if (key == "in")
        s.in += value;
    else if (key == "out")
        s.out += value;
    else if (key == "file")
        makeFile(dir + "/" + value.substr(0, space), value.substr(space + 1));
    else if (key == "link")
        ::symlink(value.substr(space + 1).c_str(), (dir + "/" + value.substr(0, space)).c_str());
    else if (key == "peer" || key == "tls")
        s.script.push_back({{value}}), s.sent.emplace_back();
    else if (key == "more")
        s.script.back().pieces.push_back(value);
    else if (key == "sent")
        s.sent.back() = value;
    else if (key == "signal")
        s.signal = std::stoi(value);
    else if (key == "silent")
        s.limit = std::stoi(value);
    else if (key != "stop" && key != "cgi" && key != "get")
        ADD_FAILURE() << "unknown directive \"" << key << "\"";
    s.stop = s.stop || key == "stop";
}

Setup setUp(const Row& row, const Pairs& names, const std::string& dir) {
    Setup s;
    s.limit = MEMCHECK ? 300 : 60;
    for (const auto& [key, text] : row.lines) {
        if (key != "env") {
            apply(s, key, expand(text, names), dir);
            continue;
        }
        std::istringstream items(text);  // expanded item by item: a value may hold a space
        for (std::string item; items >> item;) {
            item = expand(item, names);
            s.env.emplace_back(item.substr(0, item.find('=')), item.substr(item.find('=') + 1));
        }
    }
    if (s.env.empty() && s.args.empty())
        s.env = {{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", expand("{q:{ref}}", names)}};
    return s;
}

Pairs namesFor(const Row& row, const std::string& dir, const ScriptedServer* peer,
               const std::string& program) {
    return {{"e", "{T}e={ref} - "},
            {"ref", row.ref},
            {"dir", dir},
            {"peer", peer ? peer->url() : ""},
            {"port", peer ? std::to_string(peer->port) : ""},
            {"T", "Content-type: text/plain\n\n"},
            {"id", Copyright::get()},
            {"p", encrypt(Copyright::getConstStr(), PASSWORD)},
            {"bin", program},
            {"closed", std::to_string(ScriptedServer::freePort())}};
}

// Under memcheck, valgrind runs the program; through FastCGI, cgi-fcgi asks the responder.
Process::Result runProgram(const std::string& program, Setup& s, const std::string& dir,
                           const std::string& socket) {
    if (!socket.empty())
        return Process::run("/usr/bin/cgi-fcgi", {"-bind", "-connect", socket}, s.env, s.in,
                            s.limit, dir, s.stop);
    if (!MEMCHECK)
        return Process::run(program, s.args, s.env, s.in, s.limit, dir, s.stop);
    s.args.insert(s.args.begin(), {"--error-exitcode=99", "--leak-check=full", "--track-fds=yes",
                                   "--vgdb=no", "--errors-for-leak-kinds=definite,indirect",
                                   "--log-file=" + dir + "/vg.log", program});
    return Process::run("/usr/bin/valgrind", s.args, s.env, s.in, s.limit, dir, s.stop);
}

void check(const Process::Result& r, const Setup& s, ScriptedServer* peer, const std::string& dir,
           bool fastCgi) {
    const bool memcheck = MEMCHECK && !fastCgi;
    // valgrind adds to the environment; through FastCGI an intake failure ends with status 1.
    EXPECT_TRUE(memcheck || r.out == s.out) << r.out.size() << " bytes:\n" << r.out.substr(0, 999);
    const int status = s.signal == 0 ? 0 : fastCgi ? 1 : -1;
    EXPECT_EQ(std::make_tuple(r.err, r.status, r.signal),
              std::make_tuple("", status, fastCgi ? 0 : s.signal));
    EXPECT_TRUE(!peer || peer->finish());
    for (size_t i = 0; peer && i < s.sent.size(); ++i)
        EXPECT_EQ(peer->requests.at(i).substr(0, s.sent[i].size()), s.sent[i]);
    if (!memcheck)
        return;
    const std::string report = readFile(dir + "/vg.log");  // the log is the fourth descriptor
    EXPECT_TRUE(report.find(" 0 errors") != std::string::npos &&
                report.find(" 4 open (3 std)") != std::string::npos)
        << report;
}

// As a CGI program in dir, or through the FastCGI responder on socket.
void runRow(const Row& row, const std::string& dir, const std::string& socket = "") {
    SCOPED_TRACE(row.where);
    ASSERT_TRUE(row.has("out"))
        << "no expected reply (\"=>\" with nothing after it is the empty one)";
    if (!socket.empty() && (row.has("arg") || row.has("cgi")))
        return;
    std::unique_ptr<ScriptedServer> peer;
    if (row.has("peer") || row.has("tls") || row.has("silent"))
        peer.reset(new ScriptedServer(!row.has("peer") && row.has("tls")));
    const std::string program = std::filesystem::canonical(POLICY_BIN ? POLICY_BIN : TESSAVANT_BIN);
    Setup s = setUp(row, namesFor(row, dir, peer.get(), program), dir);
    if (peer)
        peer->serve(s.script);
    const Process::Result r = runProgram(program, s, dir, socket);
    check(r, s, peer.get(), dir, !socket.empty());
}

class Request : public testing::TestWithParam<Row> {};

TEST_P(Request, GetsItsExactReply) {
    TempDir dir;
    runRow(GetParam(), dir.path());
}

INSTANTIATE_TEST_SUITE_P(Table, Request, testing::ValuesIn(load()),
                         [](const testing::TestParamInfo<Row>& info) { return info.param.name; });

// sendfile cannot write to a file opened for appending: the image goes by reads and writes.
TEST(Cgi, AnImageToAnAppendingOutputArrivesWhole) {
    TempDir dir;
    makeFile(dir.path() + "/a.bin", pattern(100000));
    const Process::Result r = Process::run(
        "/bin/sh", {"-c", "\"$0\" >> reply && cat reply", TESSAVANT_BIN},
        {{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", generated("q", "a.bin")}}, "", 30, dir.path());
    EXPECT_TRUE(r.out == head("100000") + pattern(100000)) << r.out.size() << " bytes";
}

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
    for (const Row& row : load())
        runRow(row, dir.path(), socket);
    // The last connection may still be closing when its client has the reply.
    waitUntil([&] { return descriptors() == idle; });
    EXPECT_EQ(descriptors(), idle);
    ::kill(responder.pid, SIGTERM);
    EXPECT_EQ(responder.end(), 0);
    EXPECT_EQ(readFile(responder.log), "");
}
}  // namespace
