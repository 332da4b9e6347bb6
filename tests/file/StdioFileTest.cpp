#include <gtest/gtest.h>
#include <sys/stat.h>
#include <utime.h>

#include <clocale>
#include <cstdlib>
#include <ctime>

#include "base/Exception.h"
#include "file/StdioFile.h"
#include "tests/support/Failure.h"
#include "tests/support/TempDir.h"

namespace {
void setModified(const std::string& path, time_t when) {
    struct utimbuf times = {when, when};
    ASSERT_EQ(::utime(path.c_str(), &times), 0);
}

std::string openFailure(const std::string& path) {
    return failureOf([&] { StdioFile f(path); });
}
}  // namespace

TEST(StdioFile, ReadsInPiecesUntilAShortCountThenZero) {
    TempDir dir;
    StdioFile ten(dir.write("ten", "0123456789"));
    EXPECT_EQ(ten.length(), 10);
    char buffer[8] = {};
    EXPECT_EQ(ten.read(buffer, 4), 4);
    EXPECT_EQ(std::string(buffer, 4), "0123");
    EXPECT_EQ(ten.read(buffer, 4), 4);
    EXPECT_EQ(ten.read(buffer, 4), 2);
    EXPECT_EQ(std::string(buffer, 2), "89");
    EXPECT_EQ(ten.read(buffer, 4), 0);

    StdioFile empty(dir.write("empty", ""));
    EXPECT_EQ(empty.length(), 0);
    EXPECT_EQ(empty.read(buffer, 8), 0);
}

TEST(StdioFile, LengthIsTakenAtOpening) {
    TempDir dir;
    std::string path = dir.write("grows", "abc");
    StdioFile f(path);
    dir.write("grows", "abcdef");
    EXPECT_EQ(f.length(), 3);
}

TEST(StdioFile, OpenFailuresCarryOnlyTheErrnoCode) {
    TempDir dir;
    EXPECT_EQ(openFailure(dir.path() + "/missing"), "StdioFile::StdioFile  (2)");
    EXPECT_EQ(openFailure(dir.path() + "/missing/deeper"), "StdioFile::StdioFile  (2)");
    if (::geteuid() != 0) {  // root reads anything
        std::string secret = dir.write("secret", "x");
        ::chmod(secret.c_str(), 0);
        EXPECT_EQ(openFailure(secret), "StdioFile::StdioFile  (13)");
    }
}

TEST(StdioFile, ModifiedTimeIsAnEnglishHttpDate) {
    TempDir dir;
    std::string path = dir.write("dated", "x");
    setModified(path, 0);
    EXPECT_EQ(StdioFile(path).modifiedTime(), "Thu, 01 Jan 1970 00:00:00 GMT");
    setModified(path, 784111777);
    EXPECT_EQ(StdioFile(path).modifiedTime(), "Sun, 06 Nov 1994 08:49:37 GMT");
    setModified(path, 1798761599);
    EXPECT_EQ(StdioFile(path).modifiedTime(), "Thu, 31 Dec 2026 23:59:59 GMT");
}

TEST(StdioFile, ModifiedTimeStaysEnglishUnderAGermanLocale) {
    TempDir dir;
    std::string command = "localedef -i de_DE -f UTF-8 " + dir.path() + "/de_DE.UTF-8 2>/dev/null";
    if (std::system(command.c_str()) != 0 &&
        ::access((dir.path() + "/de_DE.UTF-8").c_str(), F_OK) != 0)
        GTEST_SKIP() << "localedef cannot build de_DE.UTF-8 here";
    ::setenv("LOCPATH", dir.path().c_str(), 1);
    ASSERT_NE(std::setlocale(LC_ALL, "de_DE.UTF-8"), nullptr);

    // The locale is live: plain strftime now writes German names.
    char german[64];
    time_t zero = 0;
    std::strftime(german, sizeof german, "%a %b", std::gmtime(&zero));
    EXPECT_STREQ(german, "Do Jan");
    std::string path = dir.write("dated", "x");
    setModified(path, 784111777 + 86400 * 30 * 3);
    EXPECT_EQ(StdioFile(path).modifiedTime(), "Sat, 04 Feb 1995 08:49:37 GMT");

    std::setlocale(LC_ALL, "C");
    ::unsetenv("LOCPATH");
}
