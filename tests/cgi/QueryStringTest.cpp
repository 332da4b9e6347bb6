#include <gtest/gtest.h>

#include "cgi/QueryString.h"

// Each query against its pairs as toString lists them: keys lower-cased and
// sorted, values as they stand but for one quote at each end.
TEST(QueryString, KeysAreLowerCasedAndValuesKeptAsTheyStand) {
    const std::pair<const char*, const char*> cases[] = {
        {"cmd=svr&CMD=env&flag", "cmd=env&flag=&"},
        {"R=MiXeD&q=a+b&p=%41", "p=%41&q=a+b&r=MiXeD&"},
        {"a=1&a&&b==c", "=&a=&b==c&"},
        {"a=1&", "a=1&"},
        {"a=\"&b=\"\"&c=\"x&d=x\"&e=\"\"x\"\"&f=x\"y", "a=\"&b=&c=x&d=x&e=\"x\"&f=x\"y&"},
        {"", ""},
        {nullptr, ""}};
    for (const auto& [query, pairs] : cases)
        EXPECT_EQ(QueryString(query).toString(), pairs) << (query ? query : "null");
}

TEST(QueryString, DecodeWorksInPlaceAndStopsAtTheEnd) {
    const std::pair<std::string, const char*> cases[] = {{"a+b%2Bc%41", "a b+cA"},
                                                         {"x%4g", "x\x04"},
                                                         {"x%g4yz", "x"},
                                                         {"ab%", "ab"},
                                                         {"ab%4", "ab\x04"}};
    for (const auto& [in, out] : cases) {
        std::vector<char> text(in.c_str(), in.c_str() + in.size() + 1);
        EXPECT_STREQ(QueryString::decode(text.data()), out) << in;
    }
    EXPECT_EQ(QueryString::decode(nullptr), nullptr);
}
