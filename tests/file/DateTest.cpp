#include <gtest/gtest.h>

#include "file/Date.h"

TEST(Date, ParsesOnlyTheFixedWidthGmtLayout) {
    const std::pair<const char*, std::vector<uint32_t>> cases[] = {
        {"Sun, 06 Nov 1994 08:49:37 GMT; rest", {1994, 11, 6, 8, 49, 37}},
        {"Sun, 06 nov 1994 08:49:37 GMT", {1994, 0, 6, 8, 49, 37}},
        {"Sun, 06 Nov 1994 08:49:37 UTC", {0, 0, 0, 0, 0, 0}},
        {nullptr, {0, 0, 0, 0, 0, 0}}};
    for (const auto& [text, fields] : cases) {
        const Date d(text);
        EXPECT_EQ((std::vector<uint32_t>{d.year, d.monthNumber, d.day, d.hour, d.minute, d.second}),
                  fields)
            << (text ? text : "null");
    }
}

// Each later than all before: unknown month, every month, each field outranking the next.
TEST(Date, OrdersFieldByFieldAndTheOperatorsAgree) {
    std::vector<std::string> chain = {"Sat, 31 Dec 1994 23:59:59 GMT",
                                      "Sun, 31 Jam 1995 00:00:00 GMT"};
    int day = 31;
    for (const char* month :
         {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"})
        chain.push_back("Sun, " + std::to_string(day--) + " " + month + " 1995 00:00:00 GMT");
    chain.insert(chain.end(), {"Sun, 20 Dec 1995 11:58:59 GMT", "Sun, 20 Dec 1995 11:59:00 GMT",
                               "Sun, 20 Dec 1995 11:59:01 GMT", "Sun, 20 Dec 1995 12:00:00 GMT",
                               "Mon, 21 Dec 1995 00:00:00 GMT"});
    auto relation = [](const std::string& a, const std::string& b) {
        const Date x(a.c_str()), y(b.c_str());
        return std::to_string(x.compare(y)) + (x < y ? " <" : "") + (x <= y ? " <=" : "") +
               (x == y ? " ==" : "") + (x >= y ? " >=" : "") + (x > y ? " >" : "");
    };
    for (size_t i = 0; i < chain.size(); ++i)
        for (size_t j = i + 1; j < chain.size(); ++j) {
            EXPECT_EQ(relation(chain[i], chain[j]), "-1 < <=") << chain[i] << " / " << chain[j];
            EXPECT_EQ(relation(chain[j], chain[i]), "1 >= >") << chain[j] << " / " << chain[i];
        }
    EXPECT_EQ(relation(chain[5], "Sun, 28 Apr 1995 00:00:00 GMT"), "0 <= == >=");
}
