#include <gtest/gtest.h>

#include "net/Url.h"
#include "tests/support/Failure.h"

TEST(Url, SplitsSchemeHostPortAndPathAndDoublesTheSlash) {
    const std::pair<const char*, const char*> cases[] = {
        {"HTTP://Example:8080/x", "http|Example|8080|//x|http://Example:8080//x|http"},
        {"https://h", "https|h|443|/|https://h/|https|default"},
        {"ftp://h/f", "ftp|h|21|//f|ftp://h//f|ftp|default"},
        {"gopher://h/x", "gopher|h|0|//x|gopher://h//x"},
        {"http://h?q=1", "http|h?q=1|80|/|http://h?q=1/|http|default"},
        {"http://h:12ab/x", "http|h|12|//x|http://h:12//x|http"},
        {"h/x", "Url::Url h/x is an invalid URL (-1)"},
        {"http://", "Url::Url http:// is an invalid URL (-1)"}};
    for (const auto& [reference, expected] : cases) {
        std::string r;
        const std::string failure = failureOf([&, reference = reference] {
            const Url u(reference);
            r = u.scheme + "|" + u.host + "|" + std::to_string(u.port) + "|" + u.path + "|" +
                u.toString() + (u.isHttp() ? "|http" : "") + (u.isHttps() ? "|https" : "") +
                (u.isFtp() ? "|ftp" : "") + (u.isPortDefault() ? "|default" : "");
        });
        EXPECT_EQ(r.empty() ? failure : r, expected) << reference;
    }
}
