#pragma once

#include <Poco/TemporaryFile.h>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

namespace kestrel {

/// A folder of the test's own, in which ffmpeg makes files.
class TestMedia : public testing::Test {
protected:
    TestMedia() : mFolder(Poco::TemporaryFile::tempName()) { std::filesystem::create_directories(mFolder); }
    ~TestMedia() override { std::filesystem::remove_all(mFolder); }

    std::filesystem::path make(const char* name, const std::string& arguments) const {
        std::filesystem::path file = mFolder / name;
        const std::string command = fmt::format("ffmpeg -v error -y {} {}", arguments, file.string());
        EXPECT_EQ(std::system(command.c_str()), 0) << command;
        return file;
    }

    std::filesystem::path mFolder;
};

} // namespace kestrel
