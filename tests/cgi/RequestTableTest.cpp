// Every row of requests.txt (of policy.txt under run-policy-table): exactly the expected bytes,
// nothing on standard error, the row's exit; under memcheck, no error, leak or open descriptor.
#include <gtest/gtest.h>
#include <utime.h>

#include <filesystem>
#include <optional>
#include <set>

#include "crypto/Copyright.h"
#include "crypto/StringCrypto.h"
#include "tests/support/FastCgi.h"
#include "tests/support/ScriptedServer.h"

namespace {
const char* const POLICY_BIN = std::getenv("TESSAVANT_POLICY_BIN");
const std::string TABLE = POLICY_BIN ? "policy.txt" : "requests.txt";
const bool MEMCHECK = std::getenv("TESSAVANT_MEMCHECK") != nullptr;
const std::string PASSWORD = "a client password";
using Pairs = std::vector<std::pair<std::string, std::string>>;

struct Row {
    std::string where, name, text, ref = "{peer}/a.gif";  // file:line, test name, as written
    Pairs lines;                                          // directive, text
    bool has(const std::string& key) const {
        return std::any_of(lines.begin(), lines.end(), [&](auto& l) { return l.first == key; });
    }
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.where;
}

std::string before(const std::string& text, const std::string& end) {
    return text.substr(0, text.find(end));
}

std::string after(const std::string& text, const std::string& start) {
    const size_t at = text.find(start);
    return at == text.npos ? "" : text.substr(at + start.size());
}

// "get REF N=V..." is the environment of a GET of {q:REF}; " => TEXT" adds the expected reply.
void addLine(Row& row, const std::string& line) {
    row.text += line + "\n";
    const size_t arrow = (line + " ").find(" => ");
    std::string text = line.substr(0, arrow), key = before(text, " ");
    text = after(text, " ");
    if (key == "get") {
        row.ref = before(text, " ");
        row.lines.emplace_back(key, "");
        text = "REQUEST_METHOD=GET QUERY_STRING={q:" + row.ref + "} " + after(text, " ");
        key = "env";
    }
    row.lines.emplace_back(key, text);
    if (arrow != line.npos)
        row.lines.emplace_back("out", line.substr(std::min(arrow + 4, line.size())));
}

// The test's name: the reference, or else the first line, made of letters, digits and '_';
// with the row's hash when an earlier row has it.
std::string nameOf(const Row& row, std::set<std::string>& names) {
    std::string name;
    for (char c : row.has("get") ? row.ref : before(before(row.text, "\n"), " =>"))
        if (std::isalnum(static_cast<unsigned char>(c)) || (!name.empty() && name.back() != '_'))
            name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    name.resize(std::min<size_t>(name.size(), 60));
    if (!names.insert(name).second)
        name += "_" + std::to_string(std::hash<std::string>()(row.text) % 1000000);
    return name;
}

// Rows end at a blank line; an indented line continues the one before; '#' starts a comment.
std::vector<Row> load() {
    std::istringstream table(readFile(TESSAVANT_SOURCE_DIR "/tests/cgi/" + TABLE));
    std::vector<Row> rows;
    std::vector<std::pair<int, std::string>> lines{{0, ""}};  // number and text
    std::string line;
    for (int number = 1; std::getline(table, line); ++number) {
        const size_t start = line.find_first_not_of(' ');
        if (start != line.npos && start > 0 && !lines.back().second.empty())
            lines.back().second += line.substr(start);
        else if (line[0] != '#')
            lines.emplace_back(number, start == line.npos ? "" : line);
    }
    std::set<std::string> names;
    for (size_t i = 1; i < lines.size(); ++i) {
        if (!lines[i].second.empty() && lines[i - 1].second.empty())
            rows.emplace_back().where = TABLE + ":" + std::to_string(lines[i].first);
        if (!lines[i].second.empty())
            addLine(rows.back(), lines[i].second);
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
    const std::string date =
        arg.find(',') == arg.npos ? "Sun, 06 Nov 1994 08:49:37 GMT" : after(arg, ",");
    return "Connection: keep-alive\nContent-Type: application/octet-stream\nAccept-Ranges: bytes"
           "\nLast-Modified: " +
           date + "\nEtag: \"" + date +
           "\"\nCache-Control: max-age=31536000, must-revalidate, public\n"
           "Expires: Fri, 31 Dec 2027 12:00:00 GMT\nContent-Length: " +
           before(arg, ",") + "\n\n";
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

// Escapes, then names (in order: a later one may hold an earlier one), then generated values.
std::string expand(const std::string& text, const Pairs& names) {
    std::string bytes = unescape(text);
    for (const auto& [name, value] : names)
        for (size_t at; (at = bytes.find("{" + name + "}")) != bytes.npos;)
            bytes.replace(at, name.size() + 2, value);
    for (size_t open, from = 0; (open = bytes.find('{', from)) != bytes.npos;) {
        const size_t colon = bytes.find(':', open), close = bytes.find('}', colon);
        if (close == bytes.npos)
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
    int signal = 0, limit = MEMCHECK ? 300 : 60;
    bool stop = false;
};

void makeFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
    const utimbuf times = {784111777, 784111777};  // Sun, 06 Nov 1994 08:49:37 GMT
    ::utime(path.c_str(), &times);
}

void apply(Setup& s, const std::string& key, const std::string& value, const std::string& dir) {
    const std::string name = dir + "/" + before(value, " "), rest = after(value, " ");
    if ((key == "more" || key == "sent") && s.script.empty())
        ADD_FAILURE() << "\"" << key << "\" before any peer";
    else if (key == "arg")
        s.args.push_back(value);
    else if (key == "in")
        s.in += value;
    else if (key == "out")
        s.out += value;
    else if (key == "file")
        makeFile(name, rest);
    else if (key == "link")
        ::symlink(rest.c_str(), name.c_str());
    else if (key == "peer" || key == "tls") {
        s.script.push_back({{value}});
        s.sent.emplace_back();
    } else if (key == "more")
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
    for (const auto& [key, text] : row.lines) {
        std::istringstream items(text);  // env is expanded item by item: a value may hold a space
        for (std::string item; key == "env" && items >> item;) {
            item = expand(item, names);
            s.env.emplace_back(before(item, "="), after(item, "="));
        }
        if (key != "env")
            apply(s, key, expand(text, names), dir);
    }
    if (s.env.empty() && s.args.empty())
        s.env = {{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", expand("{q:{ref}}", names)}};
    return s;
}

Pairs namesFor(const Row& row, const std::string& dir, const std::optional<ScriptedServer>& peer,
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
Process::Result runProgram(std::string program, Setup& s, const std::string& dir,
                           const std::string& socket) {
    const std::vector<std::string> valgrind = {"--error-exitcode=99",
                                               "--leak-check=full",
                                               "--track-fds=yes",
                                               "--vgdb=no",
                                               "--errors-for-leak-kinds=definite,indirect",
                                               "--log-file=" + dir + "/vg",
                                               program};
    if (!socket.empty()) {
        program = "/usr/bin/cgi-fcgi";
        s.args = {"-bind", "-connect", socket};
    } else if (MEMCHECK) {
        program = "/usr/bin/valgrind";
        s.args.insert(s.args.begin(), valgrind.begin(), valgrind.end());
    }
    return Process::run(program, s.args, s.env, s.in, s.limit, dir, s.stop);
}

void check(const Process::Result& r, const Setup& s, std::optional<ScriptedServer>& peer,
           const std::string& dir, bool fastCgi) {
    const bool memcheck = MEMCHECK && !fastCgi;
    // valgrind adds to the environment; through FastCGI an intake failure ends with status 1.
    EXPECT_TRUE(memcheck || r.out == s.out) << r.out.size() << " bytes:\n" << r.out.substr(0, 999);
    const int status = s.signal == 0 ? 0 : fastCgi ? 1 : -1;
    EXPECT_EQ(std::make_tuple(r.err, r.status, r.signal),
              std::make_tuple("", status, fastCgi ? 0 : s.signal));
    EXPECT_TRUE(!peer || peer->finish());
    for (size_t i = 0; peer && i < s.sent.size(); ++i)
        EXPECT_EQ(peer->requests.at(i).substr(0, s.sent[i].size()), s.sent[i]);
    const std::string report = readFile(dir + "/vg");  // the log is the fourth descriptor
    EXPECT_TRUE(!memcheck || (report.find(" 0 errors") != report.npos &&
                              report.find(" 4 open (3 std)") != report.npos))
        << report;
}

// As a CGI program in dir, or through the FastCGI responder on socket.
void runRow(const Row& row, const std::string& dir, const std::string& socket = "") {
    SCOPED_TRACE(row.where);
    ASSERT_TRUE(row.has("out")) << "no expected reply (\"=>\" alone is the empty one)";
    if (!socket.empty() && (row.has("arg") || row.has("cgi")))
        return;
    std::optional<ScriptedServer> peer;
    if (row.has("peer") || row.has("tls") || row.has("silent"))
        peer.emplace(!row.has("peer") && row.has("tls"));
    const std::string program = std::filesystem::canonical(POLICY_BIN ? POLICY_BIN : TESSAVANT_BIN);
    Setup s = setUp(row, namesFor(row, dir, peer, program), dir);
    if (peer)
        peer->serve(s.script);
    check(runProgram(program, s, dir, socket), s, peer, dir, !socket.empty());
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
    const int listener = unixSocket(socket, true);
    Responder responder(dir, listener);
    ::close(listener);
    const auto descriptors = [&] { return Process::count(responder.pid, "fd"); };
    const long idle = descriptors();  // its own, which no request may add to
    for (const Row& row : load())
        runRow(row, dir.path(), socket);
    // The last connection may still be closing when its client has the reply.
    EXPECT_TRUE(waitUntil([&] { return descriptors() == idle; }));
    ::kill(responder.pid, SIGTERM);
    EXPECT_EQ(responder.end(), 0);
    EXPECT_EQ(readFile(responder.log), "");
}
}  // namespace
