#include "apps/kestrel/base/Files.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/home/Catalogue.h"
#include "apps/kestrel/home/Identity.h"
#include "tests/app/TestMedia.h"

#include <gmock/gmock.h>

#include <fstream>

namespace kestrel {
namespace {

namespace fs = std::filesystem;

class FilesTest : public TestMedia {
protected:
    fs::path write(const char* name, const std::string& text) const {
        std::ofstream(mFolder / name) << text;
        return mFolder / name;
    }
};

TEST_F(FilesTest, ReplacingIsForTheOwnerAloneAndLeavesNothingBehind) {
    const fs::path file = mFolder / "kept";
    replaceFile(file, "one", 0600);
    replaceFile(file, "two", 0600);
    EXPECT_EQ(readFile(file), "two");
    EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(std::distance(fs::directory_iterator(mFolder), fs::directory_iterator()), 1);
    EXPECT_THROW(replaceFile(mFolder / "missing" / "file", "", 0600), Failure);
    EXPECT_THROW(readFile(mFolder), Failure);
}

TEST_F(FilesTest, ALockIsTakenOnceAndItsNoteOutlivesItsHolder) {
    const fs::path file = mFolder / "lock";
    {
        const FileLock lock = FileLock::take(file);
        lock.setNote("held");
        EXPECT_FALSE(FileLock::tryTake(file).has_value());
    }
    const auto again = FileLock::tryTake(file);
    ASSERT_TRUE(again.has_value());
    EXPECT_EQ(again->note(), "held");
    again->removeFile();
    EXPECT_EQ(FileLock::tryTake(file)->note(), ""); // a removed file locks nobody out
}

TEST_F(FilesTest, ClipsAreKnownByNameIdentifierAndFile) {
    const Catalogue catalogue{Home(mFolder)};
    const fs::path file = write("a.mov", "abc");
    const std::string id = clipIdentifier(file);
    catalogue.add({id, "a.mov", file, "Rivers", "en"});
    catalogue.add({id, "a.mov", file, "Rivers", "fr"});
    ASSERT_EQ(catalogue.clips().size(), 1U);
    for (const std::string& text : {std::string("a.mov"), id, id.substr(0, 6), file.string()}) {
        ASSERT_EQ(catalogue.find(text, "").size(), 1U) << text;
        EXPECT_EQ(catalogue.find(text, "").front().language, "fr") << text;
    }
    const std::string other = id.substr(0, 10) + std::string(54, 'e');
    catalogue.add({other, "a.mov", "/elsewhere/a.mov", "Bridges", "en"});
    EXPECT_EQ(catalogue.find("a.mov", "Bridges").front().id, other);
    EXPECT_EQ(catalogue.find(id.substr(0, 11), "").size(), 1U);
    EXPECT_EQ(catalogue.find(id.substr(0, 8), "").size(), 2U);
    EXPECT_EQ(catalogue.find(id.substr(0, 5), "").size(), 0U);

    catalogue.remove(other, "Rivers");
    EXPECT_EQ(catalogue.clips().size(), 2U);
    catalogue.remove(other, "");
    EXPECT_EQ(catalogue.clips().size(), 1U);

    write("catalogue.json", "{\"clips\": [{}]}");
    EXPECT_THROW(catalogue.clips(), Failure);
}

} // namespace
} // namespace kestrel
