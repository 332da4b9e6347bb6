#include <gtest/gtest.h>

#include "cgi/QueryString.h"

TEST(QueryString, KeysAreLowerCasedValuesLoseOneQuoteAtEachEndAndDecodeWorksInPlace) {
    const std::pair<const char*, const char*> cases[] = {
        {"R=MiXeD&q=a+b", "q=a+b&r=MiXeD&"},   {"cmd=svr&CMD=env&flag", "cmd=env&flag=&"},
        {"a=\"&b=\"\"&c=\"x", "a=\"&b=&c=x&"}, {"a=1&", "a=1&"},
        {"d=x\"&e=\"\"x\"\"", "d=x&e=\"x\"&"}, {nullptr, ""},
        {"a=1&a&&b==c", "=&a=&b==c&"}};
    for (const auto& [query, pairs] : cases)
        EXPECT_EQ(QueryString(query).toString(), pairs) << (query ? query : "null");
    const std::pair<std::string, const char*> decoded[] = {
        {"a+b%2Bc%41", "a b+cA"}, {"%2541", "%41"}, {"x%4g", "x\x04"},
        {"x%g4yz", "x"},          {"ab%", "ab"},    {"ab%4", "ab\x04"}};
    for (auto [in, out] : decoded)  // a copy, decoded in place
        EXPECT_STREQ(QueryString::decode(&in[0]), out);
    EXPECT_EQ(QueryString::decode(nullptr), nullptr);
}
