#include <gtest/gtest.h>
#include <unistd.h>
#include <utime.h>

#include "file/StdioFile.h"
#include "tests/support/Failure.h"
#include "tests/support/TempDir.h"

TEST(StdioFile, ReadsInPiecesKeepsTheLengthOfTheOpeningAndTellsTheTimeOrTheErrno) {
    TempDir dir;
    const std::string path = dir.write("ten", "0123456789");
    StdioFile file(path);
    dir.write("ten", "0123456789a");
    std::string pieces = std::to_string(file.length());
    char buffer[4];
    for (int size : {-1, 0, 4, 4, 4, 4}) {
        const int n = file.read(buffer, size);
        pieces += " " + std::to_string(n) + ":" + std::string(buffer, n > 0 ? n : 0);
    }
    EXPECT_EQ(pieces, "10 0: 0: 4:0123 4:4567 3:89a 0:");
    const std::pair<time_t, const char*> times[] = {{784111777, "Sun, 06 Nov 1994 08:49:37 GMT"},
                                                    {1798761599, "Thu, 31 Dec 2026 23:59:59 GMT"}};
    for (const auto& [when, text] : times) {
        const utimbuf stamp = {when, when};
        ASSERT_EQ(::utime(path.c_str(), &stamp), 0);
        EXPECT_EQ(StdioFile(path).modifiedTime(), text);
    }
    ASSERT_EQ(::truncate(path.c_str(), 1L << 31), 0);  // sparse, one byte past INT_MAX
    EXPECT_EQ(failureOf([&] { StdioFile f(path); }) + failureOf([&] { StdioFile f(path + "/x"); }),
              "StdioFile::StdioFile  (27)StdioFile::StdioFile  (20)");
}
