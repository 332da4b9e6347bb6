#include <gtest/gtest.h>

#include "base/Exception.h"
#include "net/Header.h"
#include "tests/support/Failure.h"

namespace {
std::string firstValue(const char* line, const std::string& name) {
    Header h;
    h.add(line);
    const std::string* v = h.getFirstValue(name);
    return v == nullptr ? "<absent>" : "[" + *v + "]";
}

std::string failure(const char* line) {
    return failureOf([&] { Header().add(line); });
}
}  // namespace

TEST(Header, NamesAreLowerCasedAndValuesKeptInOrder) {
    Header h;
    h.add("Set-Cookie: a");
    h.add("set-cookie: b");
    h.add("SET-COOKIE: c");
    ASSERT_EQ(h.size(), 1u);
    EXPECT_EQ(*h.getFirstValue("set-cookie"), "a");
    const std::list<std::string>* all = h.getValueList("set-cookie");
    ASSERT_NE(all, nullptr);
    EXPECT_EQ(std::vector<std::string>(all->begin(), all->end()),
              (std::vector<std::string>{"a", "b", "c"}));
    // Lookups are exact: callers pass lower-case names.
    EXPECT_EQ(h.getFirstValue("Set-Cookie"), nullptr);
    EXPECT_EQ(h.getValueList("other"), nullptr);
}

TEST(Header, ValueStartsTwoBytesAfterTheColonAndIsNotTrimmed) {
    EXPECT_EQ(firstValue("Location:http://x", "location"), "[ttp://x]");
    EXPECT_EQ(firstValue("X-Empty:", "x-empty"), "[]");
    EXPECT_EQ(firstValue("X-Empty: ", "x-empty"), "[]");
    EXPECT_EQ(firstValue("A:b", "a"), "[]");
    EXPECT_EQ(firstValue("A:bc", "a"), "[c]");
    EXPECT_EQ(firstValue("A:  x ", "a"), "[ x ]");
    EXPECT_EQ(firstValue("Time: 08:49:37", "time"), "[08:49:37]");
    // Blanks before the colon stay part of the name.
    EXPECT_EQ(firstValue("Content-Length : 5", "content-length"), "<absent>");
    EXPECT_EQ(firstValue("Content-Length : 5", "content-length "), "[5]");
}

TEST(Header, LineWithoutNameIsRejected) {
    EXPECT_EQ(failure(": value"), "Header::add No header name found (-1)");
    EXPECT_EQ(failure("no colon here"), "Header::add No header name found (-1)");
    EXPECT_EQ(failure(""), "Header::add No header name found (-1)");
    EXPECT_EQ(failure("a:"), "no failure");
}

TEST(Header, TextIsOneLineFeedEndedLinePerValueInNameOrder) {
    Header h;
    EXPECT_EQ(h.toString(), "");
    h.add("b: 2");
    h.add("A: 1");
    h.add("b: 3");
    EXPECT_EQ(h.toString(), "a: 1\nb: 2\nb: 3\n");
}
