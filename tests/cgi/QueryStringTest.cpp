#include <gtest/gtest.h>

#include "cgi/QueryString.h"

using Map = std::map<std::string, std::string>;

TEST(QueryString, KeysAreLowerCasedAndValuesKeptAsTheyStand) {
    EXPECT_EQ(Map(QueryString("cmd=svr&CMD=env")), (Map{{"cmd", "env"}}));
    EXPECT_EQ(Map(QueryString("cmd=svr&flag")), (Map{{"cmd", "svr"}, {"flag", ""}}));
    EXPECT_EQ(Map(QueryString("a=1&a")), (Map{{"a", ""}}));
    EXPECT_EQ(Map(QueryString("a=1&&b=2")), (Map{{"", ""}, {"a", "1"}, {"b", "2"}}));
    EXPECT_EQ(Map(QueryString("&a=1")), (Map{{"", ""}, {"a", "1"}}));
    EXPECT_EQ(Map(QueryString("a=1&")), (Map{{"a", "1"}}));
    EXPECT_EQ(Map(QueryString("i=\"x=y\"")), (Map{{"i", "x=y"}}));
    EXPECT_EQ(Map(QueryString("p=%41&q=a+b&R=MiXeD")),
              (Map{{"p", "%41"}, {"q", "a+b"}, {"r", "MiXeD"}}));
    EXPECT_EQ(Map(QueryString("a=&b==c")), (Map{{"a", ""}, {"b", "=c"}}));
    EXPECT_TRUE(QueryString(nullptr).empty());
    EXPECT_TRUE(QueryString("").empty());
}

TEST(QueryString, RemoveQuoteTakesOneQuoteFromEachEnd) {
    QueryString q(nullptr);
    EXPECT_EQ(q.removeQuote("\""), "\"");
    EXPECT_EQ(q.removeQuote("\"\""), "");
    EXPECT_EQ(q.removeQuote("\"a"), "a");
    EXPECT_EQ(q.removeQuote("a\""), "a");
    EXPECT_EQ(q.removeQuote("\"\"a\"\""), "\"a\"");
    EXPECT_EQ(q.removeQuote("a\"b"), "a\"b");
    EXPECT_EQ(q.removeQuote(""), "");
}

TEST(QueryString, ToStringEndsEveryPairWithAnAmpersand) {
    EXPECT_EQ(QueryString("b=2&a=1").toString(), "a=1&b=2&");
    EXPECT_EQ(QueryString("").toString(), "");
}

TEST(QueryString, DecodeAndConvertWorkInPlaceWithoutReadingPastTheEnd) {
    char plus[] = "a+b%2Bc%41";
    EXPECT_EQ(QueryString::decode(plus), plus);
    EXPECT_STREQ(plus, "a b+cA");
    char partial[] = "x%4g";
    EXPECT_STREQ(QueryString::decode(partial), "x\x04");
    char stops[] = "x%g4yz";
    EXPECT_STREQ(QueryString::decode(stops), "x");
    char tail1[] = "ab%";
    EXPECT_STREQ(QueryString::decode(tail1), "ab");
    char tail2[] = "ab%4";
    EXPECT_STREQ(QueryString::decode(tail2), "ab\x04");
    EXPECT_EQ(QueryString::decode(nullptr), nullptr);

    char path[] = "a/b/c";
    EXPECT_STREQ(QueryString::convert(path, '/', '_'), "a_b_c");
    char empty[] = "";
    EXPECT_STREQ(QueryString::convert(empty, 'a', 'b'), "");
}
