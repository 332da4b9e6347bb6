#include <gtest/gtest.h>

#include <climits>

#include "base/Util.h"

TEST(Util, ItoaWritesTheSignOnlyInBaseTen) {
    EXPECT_EQ(Util::itoa(0, 10), "0");
    EXPECT_EQ(Util::itoa(255, 16), "ff");
    EXPECT_EQ(Util::itoa(-255, 16), "ff");
    EXPECT_EQ(Util::itoa(-5, 2), "101");
    EXPECT_EQ(Util::itoa(-5, 10), "-5");
    EXPECT_EQ(Util::itoa(8080, 10), "8080");
    EXPECT_EQ(Util::itoa(INT_MIN, 10), "-2147483648");
    EXPECT_EQ(Util::itoa(INT_MIN, 16), "80000000");
    EXPECT_EQ(Util::itoa(INT_MAX, 2), std::string(31, '1'));
    EXPECT_EQ(Util::itoa(10, 1), "");
    EXPECT_EQ(Util::itoa(10, 17), "");
}

TEST(Util, CaseFoldingTouchesOnlyAsciiLettersAndReplaceWorksInPlace) {
    EXPECT_EQ(Util::lower("CMD=Img\xC4\xE4"), "cmd=img\xC4\xE4");
    EXPECT_EQ(Util::upper("http/1.1 ok\xE4"), "HTTP/1.1 OK\xE4");

    std::string path = "a/b/c";
    EXPECT_EQ(&Util::replace(path, '/', '_'), &path);
    EXPECT_EQ(path, "a_b_c");
    std::string none = "abc", empty;
    EXPECT_EQ(Util::replace(none, 'x', 'y'), "abc");
    EXPECT_EQ(Util::replace(empty, 'x', 'y'), "");
}
