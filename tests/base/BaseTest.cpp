#include <gtest/gtest.h>

#include <climits>

#include "base/Exception.h"
#include "base/Tokenizer.h"
#include "base/Util.h"

TEST(Util, ItoaWritesTheSignOnlyInBaseTenAndTheStringOperationsTouchOnlyWhatTheyName) {
    const std::tuple<int, int, const char*> numbers[] = {
        {0, 10, "0"}, {255, 16, "ff"}, {-255, 16, "ff"}, {-5, 2, "101"}, {10, 17, ""}, {10, 1, ""}};
    for (const auto& [value, base, text] : numbers)
        EXPECT_EQ(Util::itoa(value, base), text) << value << " in base " << base;
    EXPECT_EQ(Util::itoa(INT_MIN, 10), "-2147483648");
    std::string s = "\xC4/b/C";
    EXPECT_EQ(&Util::replace(s, '/', '_'), &s);
    EXPECT_EQ(s + Util::upper(s) + Util::lower(s), "\xC4_b_C\xC4_B_C\xC4_b_c");
}

TEST(Tokenizer, RunsOfDelimitersSeparateAndNoTokenIsEmpty) {
    const std::pair<const char*, const char*> cases[] = {
        {",,a,,b,", "a|b|"}, {"a b\tc", "a|b|c|"}, {"a", "a|"}, {",,,", ""}, {"", ""},
        {nullptr, ""}};
    for (const auto& [text, tokens] : cases) {
        std::string joined;
        for (const std::string& token : Tokenizer(text, ", \t"))
            joined += token + "|";
        EXPECT_EQ(joined, tokens) << (text ? text : "null");
    }
}

TEST(Exception, JoinsWhereAndMessageWithOneBlankAndAppendsTheCode) {
    const Exception located("StdioFile::StdioFile", "", 2), bare("socket", -24);
    EXPECT_EQ(located.getMessageCode() + bare.getMessage() + std::to_string(bare.getCode()),
              "StdioFile::StdioFile  (2)socket-24");
}
