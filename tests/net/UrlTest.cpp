#include <gtest/gtest.h>

#include "base/Exception.h"
#include "net/Url.h"
#include "tests/support/Failure.h"

namespace {
std::string parts(const Url& u) {
    return u.scheme + "|" + u.host + "|" + std::to_string(u.port) + "|" + u.path + "|" +
           u.toString();
}

std::string failure(const char* reference) {
    return failureOf([&] { Url u(reference); });
}
}  // namespace

TEST(Url, SplitsSchemeHostPortAndDoublesTheSlash) {
    EXPECT_EQ(parts(Url("HTTP://Example:8080/x")), "http|Example|8080|//x|http://Example:8080//x");
    EXPECT_EQ(parts(Url("https://h")), "https|h|443|/|https://h/");
    EXPECT_EQ(parts(Url("http://h/")), "http|h|80|//|http://h//");
    EXPECT_EQ(parts(Url("ftp://h:21/f")), "ftp|h|21|//f|ftp://h//f");
    EXPECT_EQ(parts(Url("gopher://h/x")), "gopher|h|0|//x|gopher://h//x");
    EXPECT_EQ(parts(Url("http://h?q=1")), "http|h?q=1|80|/|http://h?q=1/");
    EXPECT_EQ(parts(Url("http://h:/x")), "http|h|0|//x|http://h//x");
    EXPECT_EQ(parts(Url("http://h:12ab/x")), "http|h|12|//x|http://h:12//x");
    EXPECT_EQ(parts(Url("http:///x")), "http||80|//x|http:////x");
    EXPECT_EQ(parts(Url(std::string("https://h:443/a/b"))), "https|h|443|//a/b|https://h//a/b");
}

TEST(Url, SchemeTestsAndDefaultPorts) {
    Url https("HTTPS://h:80/");
    EXPECT_TRUE(https.isHttps());
    EXPECT_FALSE(https.isHttp());
    EXPECT_TRUE(https.isPortDefault());  // any of 80, 443, 21, whatever the scheme
    Url ftp("ftp://h");
    EXPECT_TRUE(ftp.isFtp());
    EXPECT_TRUE(ftp.isPortDefault());
    EXPECT_FALSE(Url("http://h:8080").isPortDefault());
    EXPECT_FALSE(Url("httpx://h").isHttp());

    // Parsing again keeps the port when the new scheme has no known one.
    Url again("http://a/1");
    again.create("gopher://b/2");
    EXPECT_EQ(parts(again), "gopher|b|80|//2|gopher://b//2");
}

TEST(Url, WithoutSchemeSeparatorOrHostIsInvalid) {
    EXPECT_EQ(failure("h/x"), "Url::Url h/x is an invalid URL (-1)");
    EXPECT_EQ(failure("http://"), "Url::Url http:// is an invalid URL (-1)");
    EXPECT_EQ(failure(""), "Url::Url  is an invalid URL (-1)");
    EXPECT_EQ(failure("http:/h/x"), "Url::Url http:/h/x is an invalid URL (-1)");
}
