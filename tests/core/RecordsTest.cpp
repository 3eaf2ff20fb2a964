#include "kestrelml/core/KsNNBase.h"

#include <Poco/Exception.h>
#include <gmock/gmock.h>

namespace {

TEST(Records, DefaultsAreTheOnesHostsRelyOn) {
    const KsNNDBEntrySeg seg;
    EXPECT_EQ(seg.segment, -1);
    for (const auto* text : {&seg.mediaGuid, &seg.projectGuid, &seg.transcript, &seg.language, &seg.speakerID,
                             &seg.speakerGuid}) {
        EXPECT_EQ(*text, "Unk");
    }
    const KsNNDB_STTClipEntry entry;
    for (const auto* text :
         {&entry.projectName, &entry.model, &entry.clipName, &entry.audioTracks, &entry.clientApp}) {
        EXPECT_EQ(*text, "Unk");
    }
    EXPECT_FALSE(entry.progressComplete);
    EXPECT_TRUE(entry.projects.empty() && entry.segments.empty());
}

TEST(Base, GivesCopiesOfUriAndLastCall) {
    KsNNBase base("http://a/");
    base.SetLastRESTCall("curl");
    std::string uri = base.GetURI();
    std::string call = base.GetLastRESTCall();
    uri += "x";
    call += "x";
    EXPECT_EQ(base.GetURI(), "http://a/");
    EXPECT_EQ(base.GetLastRESTCall(), "curl");
}

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
