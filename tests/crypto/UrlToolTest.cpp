#include <gtest/gtest.h>

#include <string>

#include "crypto/Decryptor.h"
#include "tests/support/Process.h"

namespace {
Process::Result url(const std::vector<std::string>& args) {
    return Process::run(TESSAVANT_URL, args, {}, std::string(), 30);
}

// p and i of a printed query.
void split(const std::string& out, std::string& p, std::string& i) {
    const size_t pAt = out.find("cmd=img&p="), iAt = out.find("&i=");
    ASSERT_TRUE(pAt != std::string::npos && iAt != std::string::npos && out.back() == '\n') << out;
    p = out.substr(pAt + 10, iAt - pAt - 10);
    i = out.substr(iAt + 3, out.size() - iAt - 4);
    const std::string hex = "0123456789ABCDEF";
    EXPECT_EQ((p + i).find_first_not_of(hex), std::string::npos) << out;
    EXPECT_FALSE(p.empty() || i.empty());
}
}  // namespace

TEST(UrlTool, QueriesDecryptThroughTheDecryptor) {
    const std::string references[] = {"https://h.test/a b.png?x=1&y=2", "\xC3\xA4\xE9\xFF.gif"};
    for (const std::string& reference : references) {
        Process::Result r = url({"client-pw", reference});
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.out.compare(0, 10, "cmd=img&p="), 0);
        std::string p, i;
        split(r.out, p, i);
        Decryptor decryptor(p);
        EXPECT_EQ(decryptor.decrypt(i), reference);

        // --decode undoes both, from the query or from a whole URL.
        for (const std::string& text :
             {r.out.substr(0, r.out.size() - 1),
              "http://h/cgi-bin/tessavant?" + r.out.substr(0, r.out.size() - 1)}) {
            Process::Result d = url({"--decode", text});
            EXPECT_EQ(d.status, 0) << d.err;
            EXPECT_EQ(d.out, "client-pw\n" + reference + "\n");
        }
    }

    Process::Result based = url({"--base", "http://h/cgi-bin/tessavant", "--", "-pw", "/a"});
    ASSERT_EQ(based.status, 0) << based.err;
    EXPECT_EQ(based.out.compare(0, 36, "http://h/cgi-bin/tessavant?cmd=img&p"), 0) << based.out;
    std::string p, i;
    split(based.out, p, i);
    EXPECT_EQ(Decryptor(p).decrypt(i), "/a");
    EXPECT_EQ(Decryptor::clientPassword(p), "-pw");
}

TEST(UrlTool, DecodeRejectsWhatIsNotACiphertext) {
    std::string p, i;
    split(url({"pw", "/img/a.png"}).out, p, i);
    std::string badPad = i;
    badPad.replace(32, 2, "09");
    const struct {
        std::string query, message;
    } cases[] = {
        {"p=" + p, "parameter i is missing"},
        {"i=" + i, "parameter p is missing"},
        {"p=" + p + "&i=" + i + "0", "parameter i is not hexadecimal text"},
        {"p=" + p + "&i=xy" + i, "parameter i is not hexadecimal text"},
        {"p=" + i.substr(2) + "00&i=" + i, "parameter p is not an encrypted value"},
        {"p=" + p + "&i=" + i.substr(0, i.size() - 2), "parameter i has the wrong size"},
        {"p=" + p.substr(0, p.size() - 16) + "&i=" + i, "parameter p has the wrong size"},
        {"p=" + p + "&i=" + badPad, "parameter i has the wrong size"},
    };
    for (const auto& c : cases) {
        Process::Result r = url({"--decode", c.query});
        EXPECT_EQ(r.status, 1) << c.query;
        EXPECT_EQ(r.out, "") << c.query;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << c.query << "\n" << r.err;
    }
}

TEST(UrlTool, HelpAndWrongArgumentLists) {
    Process::Result help = url({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.err, "");
    for (const char* word : {"usage:", "--base URL", "--decode", "PASSWORD REFERENCE", "48"})
        EXPECT_NE(help.out.find(word), std::string::npos) << word;

    const std::vector<std::string> wrong[] = {{},
                                              {"a", "b", "c"},
                                              {"--base", "http://h/", "pw"},
                                              {"--decode"},
                                              {"--help", "x"},
                                              {"--bogus", "pw", "ref"},
                                              {"-pw", "ref"}};
    for (const auto& args : wrong) {
        Process::Result r = url(args);
        EXPECT_EQ(r.status, 2) << args.size();
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err.compare(0, 6, "usage:"), 0) << r.err;
    }
}
