#include <gtest/gtest.h>
#include <unistd.h>

#include "file/Date.h"
#include "file/StdioFile.h"
#include "tests/support/Failure.h"
#include "tests/support/TempDir.h"

// Times and missing files are in the request table; these are not.
TEST(StdioFile, ReadsInPiecesKeepsTheLengthOfTheOpeningAndRefusesFilesPastIntMax) {
    TempDir dir;
    const std::string path = dir.write("ten", "0123456789");
    StdioFile file(path);
    dir.write("ten", "0123456789a");
    std::string pieces = std::to_string(file.length());
    char buffer[4];
    for (int size : {-1, 0, 4, 4, 4, 4})
        pieces += "|" + std::string(buffer, file.read(buffer, size));
    EXPECT_EQ(pieces, "10|||0123|4567|89a|");
    ASSERT_EQ(::truncate(path.c_str(), 1L << 31), 0);  // sparse, one byte past INT_MAX
    EXPECT_EQ(failureOf([&] { StdioFile f(path); }), "StdioFile::StdioFile  (27)");
}

// Each date is later than all before it: a non-GMT layout, fields by rank, every month.
TEST(Date, ParsesTheFixedWidthGmtLayoutAndOrdersFieldByField) {
    const Date d("Sun, 06 Nov 1994 08:49:37 GMT; rest");
    EXPECT_EQ((std::vector<uint32_t>{d.year, d.monthNumber, d.day, d.hour, d.minute, d.second}),
              (std::vector<uint32_t>{1994, 11, 6, 8, 49, 37}));
    std::vector<std::string> chain = {
        "Sat, 31 Dec 1994 23:59:59 UTC", "Sun, 20 Dec 1994 11:58:59 GMT",
        "Sun, 20 Dec 1994 11:59:00 GMT", "Sun, 20 Dec 1994 11:59:01 GMT",
        "Sun, 20 Dec 1994 12:00:00 GMT", "Mon, 21 Dec 1994 00:00:00 GMT",
        "Sat, 31 Dec 1994 23:59:59 GMT", "Sun, 31 jan 1995 00:00:00 GMT"};
    int day = 31;
    for (const char* month :
         {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"})
        chain.push_back("Sun, " + std::to_string(day--) + " " + month + " 1995 00:00:00 GMT");
    auto relation = [](const std::string& a, const std::string& b) {
        const Date x(a.c_str()), y(b.c_str());
        return std::to_string(x.compare(y)) + (x < y ? " <" : "") + (x <= y ? " <=" : "") +
               (x == y ? " ==" : "") + (x >= y ? " >=" : "") + (x > y ? " >" : "");
    };
    for (size_t i = 0; i < chain.size(); ++i)
        for (size_t j = i + 1; j < chain.size(); ++j)
            EXPECT_EQ(relation(chain[i], chain[j]) + " | " + relation(chain[j], chain[i]),
                      "-1 < <= | 1 >= >")
                << chain[i] << " / " << chain[j];
    EXPECT_EQ(relation("", chain[0]), "0 <= == >=");
    EXPECT_TRUE(Date(nullptr) == Date(""));
}
