#include <gtest/gtest.h>

#include "file/Date.h"

namespace {
std::vector<uint32_t> fields(const Date& d) {
    return {d.year, d.monthNumber, d.day, d.hour, d.minute, d.second};
}
const std::vector<uint32_t> ZERO{0, 0, 0, 0, 0, 0};
}  // namespace

TEST(Date, ParsesOnlyTheFixedWidthGmtLayout) {
    EXPECT_EQ(fields(Date("Sun, 06 Nov 1994 08:49:37 GMT")),
              (std::vector<uint32_t>{1994, 11, 6, 8, 49, 37}));
    EXPECT_EQ(fields(Date("Sun, 06 Nov 1994 08:49:37 GMT; length=1234")),
              (std::vector<uint32_t>{1994, 11, 6, 8, 49, 37}));
    EXPECT_EQ(fields(Date("Sun, 06 nov 1994 08:49:37 GMT")),
              (std::vector<uint32_t>{1994, 0, 6, 8, 49, 37}));
    EXPECT_EQ(fields(Date("Sunday, 06-Nov-94 08:49:37 GMT")), ZERO);
    EXPECT_EQ(fields(Date("Sun Nov  6 08:49:37 1994")), ZERO);
    EXPECT_EQ(fields(Date("Sun, 06 Nov 1994 08:49:37 UTC")), ZERO);
    EXPECT_EQ(fields(Date("Sun, 06 Nov 1994 08:49:37 GM")), ZERO);
    EXPECT_EQ(fields(Date("")), ZERO);
    EXPECT_EQ(fields(Date(nullptr)), ZERO);
    // Fields without digits read as 0; punctuation is skipped by position.
    EXPECT_EQ(fields(Date("XXXXXxxXDecXyyyyXhhXmmXssXGMT")),
              (std::vector<uint32_t>{0, 12, 0, 0, 0, 0}));
    EXPECT_EQ(Date::month("Dec"), 12u);
    EXPECT_EQ(Date::month("Dece"), 0u);
    EXPECT_EQ(Date::month("jan"), 0u);
}

TEST(Date, OrdersFieldByFieldAndOperatorsAgreeWithCompare) {
    const Date a("Sun, 06 Nov 1994 08:49:37 GMT");
    const Date same("Sun, 06 Nov 1994 08:49:37 GMT");
    EXPECT_TRUE(a == same && a <= same && a >= same);
    EXPECT_FALSE(a < same || a > same);
    EXPECT_EQ(a.compare(same), 0);

    const Date texts[] = {Date(""),
                          Date("Sun, 06 Nov 1994 08:49:37 GMT"),
                          Date("Sun, 06 Nov 1994 08:49:38 GMT"),
                          Date("Sun, 06 Nov 1994 23:59:59 GMT"),
                          Date("Mon, 07 Nov 1994 00:00:00 GMT"),
                          Date("Thu, 01 Dec 1994 00:00:00 GMT"),
                          Date("Sun, 01 Jan 1995 00:00:00 GMT")};
    const int n = sizeof texts / sizeof texts[0];
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) {
            const int expected = i < j ? -1 : (i > j ? 1 : 0);
            EXPECT_EQ(texts[i].compare(texts[j]), expected) << i << " " << j;
            EXPECT_EQ(texts[i] < texts[j], expected < 0);
            EXPECT_EQ(texts[i] <= texts[j], expected <= 0);
            EXPECT_EQ(texts[i] > texts[j], expected > 0);
            EXPECT_EQ(texts[i] >= texts[j], expected >= 0);
            EXPECT_EQ(texts[i] == texts[j], expected == 0);
        }
    EXPECT_TRUE(Date("garbage") == Date("other garbage"));
}
