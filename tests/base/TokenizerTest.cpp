#include <gtest/gtest.h>

#include "base/Tokenizer.h"

using Tokens = std::vector<std::string>;

TEST(Tokenizer, RunsOfDelimitersSeparateAndNoTokenIsEmpty) {
    EXPECT_EQ(Tokens(Tokenizer(",,a,,b,", ",")), (Tokens{"a", "b"}));
    EXPECT_EQ(Tokens(Tokenizer("a b\tc", " \t")), (Tokens{"a", "b", "c"}));
    EXPECT_EQ(Tokens(Tokenizer("HTTP/1.1 200 OK\r\nA: b\n\nC: d", "\r\n")),
              (Tokens{"HTTP/1.1 200 OK", "A: b", "C: d"}));
    EXPECT_TRUE(Tokenizer("", ",").empty());
    EXPECT_TRUE(Tokenizer(",,,", ",").empty());

    const char text[] = "x,y";
    Tokenizer t(text, ",");
    EXPECT_STREQ(text, "x,y");  // the caller's text is left alone
}
