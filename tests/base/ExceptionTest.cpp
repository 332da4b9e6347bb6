#include <gtest/gtest.h>

#include "base/Exception.h"

TEST(Exception, JoinsWhereAndMessageWithOneBlankAndFormatsTheCode) {
    Exception located("StdioFile::StdioFile", "", 2);
    EXPECT_EQ(located.getMessage(), "StdioFile::StdioFile ");
    EXPECT_EQ(located.getMessageCode(), "StdioFile::StdioFile  (2)");

    Exception full("HttpFile::HttpFile", "ftp://h/x is not supported", -1);
    EXPECT_EQ(full.getMessageCode(), "HttpFile::HttpFile ftp://h/x is not supported (-1)");
    EXPECT_EQ(full.getCode(), -1);

    Exception bare("socket", 24);
    EXPECT_EQ(bare.getMessage(), "socket");
    EXPECT_EQ(bare.getMessageCode(), "socket (24)");

    Exception copy = full;  // thrown and caught by value
    EXPECT_EQ(copy.getMessage(), full.getMessage());
}
