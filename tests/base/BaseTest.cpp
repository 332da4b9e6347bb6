#include <gtest/gtest.h>

#include <climits>

#include "base/Exception.h"
#include "base/Tokenizer.h"
#include "base/Util.h"

TEST(Base, ItoaSignsOnlyInBaseTenNoTokenIsEmptyAndWhereAndMessageTakeOneBlank) {
    const std::tuple<int, int, const char*> numbers[] = {
        {0, 10, "0"}, {-255, 16, "ff"}, {-5, 2, "101"},
        {10, 17, ""}, {10, 1, ""},      {INT_MIN, 10, "-2147483648"}};
    for (const auto& [value, base, text] : numbers)
        EXPECT_EQ(Util::itoa(value, base), text) << value << " in base " << base;
    std::string s = "\xC4/b/C";
    EXPECT_EQ(&Util::replace(s, '/', '_'), &s);
    EXPECT_EQ(s + Util::upper(s) + Util::lower(s), "\xC4_b_C\xC4_B_C\xC4_b_c");
    const std::pair<const char*, std::vector<std::string>> cases[] = {
        {",,a,,b,", {"a", "b"}}, {"a b\tc", {"a", "b", "c"}}, {",,,", {}}, {nullptr, {}}};
    for (const auto& [text, tokens] : cases)
        EXPECT_EQ(Tokenizer(text, ", \t"), tokens) << (text ? text : "null");
    const Exception located("StdioFile::StdioFile", "", 2), bare("socket", -24);
    EXPECT_EQ(located.getMessageCode() + bare.getMessage() + std::to_string(bare.getCode()),
              "StdioFile::StdioFile  (2)socket-24");
}
