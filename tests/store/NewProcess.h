#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace kestrel_test {

/// An address where nobody answers.
constexpr const char* kNobody = "https://127.0.0.1:1/";

/// Names and credentials are shared by all stores of a process, and what the first store does can be seen
/// once only: runs `body` in a fresh process and expects what it writes to standard error, a regular
/// expression.
template <typename Body>
void expectInNewProcess(Body body, const std::string& written) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            body();
            std::exit(0);
        },
        testing::ExitedWithCode(0), written);
}

} // namespace kestrel_test
