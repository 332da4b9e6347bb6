#include <gtest/gtest.h>

#include "net/Header.h"
#include "tests/support/Failure.h"

// The lines added, against the header's text or the failure.
TEST(Header, NamesAreLowerCasedAndValuesStartTwoBytesAfterTheColon) {
    const std::pair<std::vector<const char*>, const char*> cases[] = {
        {{"b: 2", "A: 1", "B: 3"}, "a: 1\nb: 2\nb: 3\n"},
        {{"Location:http://x", "A:bc", "C:b", "D: ", "E:  x "},
         "a: c\nc: \nd: \ne:  x \nlocation: ttp://x\n"},
        {{"Time: 08:49:37", "Length : 5"}, "length : 5\ntime: 08:49:37\n"},
        {{"a: 1", ": value"}, "Header::add No header name found (-1)"},
        {{"no colon here"}, "Header::add No header name found (-1)"}};
    for (const auto& [lines, expected] : cases) {
        Header h;
        const std::string failure = failureOf([&, lines = lines] {
            for (const char* line : lines)
                h.add(line);
        });
        EXPECT_EQ(failure == "no failure" ? h.toString() : failure, expected) << lines[0];
    }
    Header h;
    h.add("Set-Cookie: a"), h.add("set-cookie: b");
    EXPECT_EQ(*h.getFirstValue("set-cookie") + h.getValueList("set-cookie")->back(), "ab");
    EXPECT_TRUE(h.getFirstValue("Set-Cookie") == nullptr && h.getValueList("x") == nullptr);
}
