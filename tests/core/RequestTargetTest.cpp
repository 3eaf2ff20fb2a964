#include "kestrelml/core/RequestTarget.h"

#include <gtest/gtest.h>

namespace {

using kestrelml::detail::pathSegment;
using kestrelml::detail::requestTarget;

TEST(RequestTarget, IsPathAndQueryAsWritten) {
    const std::pair<const char*, const char*> cases[] = {
        {"https://h:9281/", "/"},
        {"https://h:9281", "/"},
        {"https://h?x=1", "/?x=1"},
        {"https://h/a/_doc/b?op_type=create", "/a/_doc/b?op_type=create"},
        {"https://h//_refresh", "//_refresh"},
        {"https://h/*/_delete_by_query", "/*/_delete_by_query"},
        {"https://h/a%2Fb%252F#part", "/a%2Fb%252F"},
        {"https://h/a b\"\xd0\x96\x7f", "/a%20b%22%D0%96%7F"},
    };
    for (const auto& [uri, target] : cases)
        EXPECT_EQ(requestTarget(uri), target);
}

TEST(PathSegment, KeepsOrdinaryIdentifiersAndHidesWhatHasAMeaningInAPath) {
    for (const std::string ordinary :
         {"123.1234567890.0987654321", "a-b_c~D", "6F9619FF-8B86-D011-B42D-00CF4FC964FF"}) {
        EXPECT_EQ(pathSegment(ordinary), ordinary);
    }
    EXPECT_EQ(pathSegment("a/b?c#d%2F\"'\\ \n"), "a%2Fb%3Fc%23d%252F%22%27%5C%20%0A");
    EXPECT_EQ(pathSegment("\xd0\x96"), "%D0%96");
    EXPECT_EQ(pathSegment(std::string("\0", 1)), "%00");
}

} // namespace
