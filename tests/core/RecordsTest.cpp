#include "kestrelml/core/KsNNBase.h"

#include <Poco/Exception.h>
#include <gmock/gmock.h>

namespace {

TEST(Report, HasOneBlockForTheExceptionAndOneForTheMessage) {
    const Poco::TimeoutException caught("too slow");
    const std::string exceptionBlock = "KsNN Error: 7, \n\tTimeout: too slow\n\tmessage = too slow\n\tname = "
                                       "Timeout\n\tclassName = ";
    KsNNBase target("");
    reportError(&caught, "", 7, &target, false);
    EXPECT_THAT(target.GetErrorStr(), testing::StartsWith(exceptionBlock));
    EXPECT_THAT(target.GetErrorStr(), testing::EndsWith("\nKsNN Error: 7, \n"));
    reportError(&caught, nullptr, 7, &target, false);
    EXPECT_THAT(target.GetErrorStr(), testing::StartsWith(exceptionBlock));
    EXPECT_EQ(target.GetErrorStr().rfind("KsNN Error"), 0U);
    reportError(nullptr, "X::y err: ", 8, &target, false);
    EXPECT_EQ(target.GetErrorStr(), "KsNN Error: 8, X::y err: \n");
    reportError(nullptr, nullptr, 9, &target, false);
    EXPECT_EQ(target.GetErrorStr(), "");
}

TEST(Report, IsUtf8WhateverAnExceptionQuotes) {
    KsNNBase target("");
    reportError(nullptr, "unexpected byte '\xC1', not 'é'", 8, &target, false);
    EXPECT_EQ(target.GetErrorStr(), "KsNN Error: 8, unexpected byte '\uFFFD', not 'é'\n");
}

TEST(Report, IsPrintedForDebugEvenWithoutTarget) {
    testing::internal::CaptureStdout();
    reportError(nullptr, "shown", 1, nullptr, true);
    reportError(nullptr, "silent", 1, nullptr, false);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "KsNN Error: 1, shown\n\n");
}

} // namespace
