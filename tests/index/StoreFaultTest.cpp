#include "FaultyVfs.h"
#include "base/ApiError.h"
#include "base/AtomicFile.h"
#include "handlers/DocumentWrites.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <spdlog/spdlog.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace kestrel::index {

namespace {

using kestrel_test::FaultyVfs;
using Value = std::optional<int>; ///< nothing: the document is not there
using History = std::map<std::string, Value>;

/// How often the long runs go round; more on demand.
int rounds(int usual) {
    const char* const wanted = std::getenv("KESTREL_FAULT_ROUNDS");
    return wanted != nullptr ? std::atoi(wanted) : usual;
}

/// The service without its network and its keys.
struct Service : Services {
    explicit Service(const std::filesystem::path& folder, const Scrolls::Limits& limits = {})
        : Services(folder / "documents.db", limits) {
        catalogue.load(folder / "derived");
    }

    std::map<std::string, int> contents() {
        std::map<std::string, int> found;
        const IndexPtr index = catalogue.find("test");
        if (!index) return found;
        for (const RowId row : matchingRows(index, store, Json())) {
            const auto document = store.read(row);
            EXPECT_TRUE(document) << "row " << row << " is in memory and not in the store";
            if (document) found[document->id] = Json::parse(document->source).at("value");
        }
        EXPECT_EQ(found.size(), index->documentCount());
        return found;
    }
};

/// A start of the service up to the point at which it could be asked. True when the administrator's password
/// is that of the file.
bool starts(const std::filesystem::path& path) {
    const DataFolder folder(path);
    Services services(folder.documents());
    services.start(folder);
    std::ifstream file(folder.administrator());
    return services.users.verify(Users::kAdministrator, Json::parse(file).at("password"));
}

/// The status with which the call was refused; 200 when it was not.
int statusOf(const std::function<void()>& call) try {
    call();
    return 200;
} catch (const ApiError& e) {
    return e.status();
}

/// Writes at random and keeps record of what was acknowledged, and of what is not known.
class Writer {
public:
    Writer(Service& service, std::string name, unsigned seed)
        : mService(service), mName(std::move(name)), mRandom(seed) {}

    /// False when the write was not acknowledged.
    bool writeOnce() {
        History wanted;
        const int count = mRandom() % 4 == 0 ? 20 : 1;
        const bool deleting = mRandom() % 5 == 0;
        for (int i = 0; i < count; ++i)
            wanted[fmt::format("{}-{}", mName, mRandom() % 100)] = deleting ? Value() : Value(++mValue);
        try {
            const IndexPtr index = mService.catalogue.getOrCreate("test");
            mService.writes.run([&](WriteBatch& batch) {
                for (const auto& [id, value] : wanted) {
                    if (!value) {
                        deleteDocument(batch, index, id);
                        continue;
                    }
                    // Some of them bring a field that the mapping lacks.
                    const std::string source =
                        fmt::format(R"({{"value":{},"{}{}":"text"}})", *value, mName, *value % 50);
                    putDocument(batch, index, NewDocument::parse(*index, id, source), false);
                }
            });
        } catch (const ApiError& e) {
            // Other statuses promise that nothing was stored.
            if (e.status() == 500) inDoubt = wanted;
            return false;
        }
        for (const auto& [id, value] : wanted)
            acknowledged[id] = value;
        ++mCount;
        return true;
    }

    int count() const { return mCount; }

    History acknowledged;
    History inDoubt;

private:
    Service& mService;
    std::string mName;
    std::mt19937 mRandom;
    int mValue = 0;
    std::atomic<int> mCount{0};
};

std::map<std::string, int> present(const History& history) {
    std::map<std::string, int> found;
    for (const auto& [id, value] : history)
        if (value) found[id] = *value;
    return found;
}

class StoreFaults : public testing::Test {
protected:
    StoreFaults()
        : mFolder(std::filesystem::path(testing::TempDir()) / fmt::format("faults-{}", ::getpid())) {
        std::filesystem::remove_all(mFolder);
        std::filesystem::create_directories(mFolder);
        spdlog::set_level(spdlog::level::off);
    }
    ~StoreFaults() override {
        std::filesystem::remove_all(mFolder);
        spdlog::set_level(spdlog::level::info);
    }

    /// What the store holds has to be the history, in which a write in doubt may have happened, whole, or
    /// not.
    void expectHistory(const std::map<std::string, int>& found, History& history,
                       const std::vector<History>& inDoubt) {
        std::map<std::string, int> expected = present(history);
        for (const History& doubt : inDoubt) {
            bool happened = true;
            for (const auto& [id, value] : doubt) {
                const auto place = found.find(id);
                happened = happened &&
                           (value ? place != found.end() && place->second == *value : place == found.end());
            }
            if (!happened) continue;
            for (const auto& [id, value] : doubt)
                history[id] = value;
        }
        EXPECT_EQ(found, present(history));
    }

    std::filesystem::path mFolder;
    void clearFolder() {
        std::filesystem::remove_all(mFolder);
        std::filesystem::create_directories(mFolder);
        mVfs.startAgain();
    }

    FaultyVfs mVfs;
};

} // namespace

TEST_F(StoreFaults, PowerCutsLoseNothingAcknowledged) {
    History history;
    std::mt19937 random(17);
    for (int round = 0; round < rounds(15); ++round) {
        std::vector<std::unique_ptr<Writer>> writers;
        {
            Service service(mFolder);
            for (unsigned i = 0; i < 3; ++i)
                writers.push_back(std::make_unique<Writer>(service, fmt::format("w{}", i), random()));
            std::vector<std::thread> threads;
            for (const auto& writer : writers)
                threads.emplace_back([&writer] {
                    while (writer->writeOnce()) {
                    }
                });
            const int wanted = static_cast<int>(random() % 60);
            while (writers[0]->count() + writers[1]->count() + writers[2]->count() < wanted)
                std::this_thread::yield();
            mVfs.cutPower();
            for (std::thread& thread : threads)
                thread.join();
        }
        mVfs.forgetUnsynchronised(random);
        std::vector<History> inDoubt;
        for (const auto& writer : writers) {
            for (const auto& [id, value] : writer->acknowledged)
                history[id] = value;
            inDoubt.push_back(writer->inDoubt);
        }
        Service service(mFolder);
        expectHistory(service.contents(), history, inDoubt);
        if (HasFailure()) FAIL() << "round " << round;
    }
}

/// The n-th call of each kind fails, once; the service goes on, or refuses further writes, and a restart has
/// what was acknowledged and nothing that was refused.
TEST_F(StoreFaults, TheNthFailureLeavesWhatWasAcknowledged) {
    using Operation = FaultyVfs::Operation;
    int failures = 0;
    for (const Operation operation :
         {Operation::Write, Operation::Sync, Operation::Open, Operation::Truncate, Operation::Remove}) {
        for (int n = 1; n <= rounds(12); ++n) {
            clearFolder();
            History history;
            std::vector<History> inDoubt;
            {
                Service service(mFolder);
                Writer writer(service, "w", static_cast<unsigned>(n));
                for (int i = 0; i < 5; ++i)
                    ASSERT_TRUE(writer.writeOnce());
                mVfs.failAt(operation, n);
                for (int i = 0; i < 30; ++i)
                    if (!writer.writeOnce() && !writer.inDoubt.empty())
                        inDoubt.push_back(std::exchange(writer.inDoubt, {}));
                history = writer.acknowledged;
                // What is seen now is what was acknowledged; a write in doubt is not shown before it is
                // certain.
                mVfs.failAt(Operation::None, 0);
                EXPECT_EQ(service.contents(), present(history));
            }
            failures += mVfs.hasFailed() ? 1 : 0;
            Service service(mFolder);
            expectHistory(service.contents(), history, inDoubt);
            Writer later(service, "later", 1);
            EXPECT_TRUE(later.writeOnce());
            if (HasFailure()) FAIL() << "operation " << static_cast<int>(operation) << ", call " << n;
        }
    }
    RecordProperty("failures", failures);
}

/// It is cut short at the first call of each kind on each file; later ones are left out.
TEST_F(StoreFaults, AFirstStartThatIsCutShortIsCompletedByTheNext) {
    using Operation = FaultyVfs::Operation;
    std::mt19937 random(7);
    ASSERT_TRUE(starts(mFolder));
    const std::vector<FaultyVfs::Call> calls = mVfs.firstCalls();
    ASSERT_THAT(calls, testing::SizeIs(testing::Gt(10)));
    for (const bool power : {true, false}) {
        for (const auto& [operation, call] : calls) {
            // What was written before is only certain after these.
            if (power && operation != Operation::Sync && operation != Operation::Rename &&
                operation != Operation::Remove)
                continue;
            SCOPED_TRACE(fmt::format("{}, call {}", power ? "power cut" : "failure", call));
            clearFolder();
            power ? mVfs.cutPowerAt(call) : mVfs.failAt(Operation::Any, call);
            try {
                starts(mFolder);
            } catch (const std::exception&) {
            }
            EXPECT_TRUE(mVfs.hasFailed());
            if (power) mVfs.forgetUnsynchronised(random);
            mVfs.failAt(Operation::None, 0);
            EXPECT_TRUE(starts(mFolder));
        }
    }
}

TEST_F(StoreFaults, AFileHasItsNewContentOrItsOldOneAfterAPowerCut) {
    std::mt19937 random(3);
    const std::filesystem::path file = mFolder / "file";
    for (int n = 1; n <= 3 * 8; ++n) {
        writeFileAtomically(file, "old");
        bool written = true;
        mVfs.cutPowerAt(n % 4 + 1); // the file, the rename, the folder, none of them
        try {
            writeFileAtomically(file, "new");
        } catch (const std::exception&) {
            written = false;
        }
        mVfs.forgetUnsynchronised(random);
        std::ifstream stream(file);
        const std::string content{std::istreambuf_iterator<char>(stream), {}};
        EXPECT_TRUE(content == "new" || (content == "old" && !written)) << content;
    }
    mVfs.failAt(FaultyVfs::Operation::Rename, 1);
    EXPECT_THROW(writeFileAtomically(file, "newer"), std::exception);
}

TEST_F(StoreFaults, WritesThatCannotBePublishedAreThereAfterARestart) {
    std::map<std::string, int> expected;
    {
        Service service(mFolder);
        Writer writer(service, "w", 1);
        for (int i = 0; i < 5; ++i)
            ASSERT_TRUE(writer.writeOnce());
        expected = present(writer.acknowledged);
        const IndexPtr index = service.catalogue.get("test");
        PreparedDocument unsuitable;
        unsuitable.fields.push_back({*index->mapping()->idOf("value"), KeywordContent{"no number"}});
        const auto content = std::make_shared<const PreparedDocument>(unsuitable);
        const auto write = [&] {
            service.writes.run(
                [&](WriteBatch& batch) { batch.add(index, "unpublished", R"({"value":1})", content); });
        };
        EXPECT_EQ(statusOf(write), 500);
        EXPECT_EQ(statusOf(write), 503);
        EXPECT_EQ(statusOf([&] { matchingRows(index, service.store, Json()); }), 503);
    }
    expected["unpublished"] = 1;
    EXPECT_EQ(Service(mFolder).contents(), expected);
}

TEST_F(StoreFaults, ScrollsHoldABoundedAmountOfMemory) {
    Service service(mFolder, {.open = 9, .ended = 2, .foundBytes = 7000, .keptBytes = 10'000});
    const IndexPtr index = service.catalogue.getOrCreate("test");
    const auto write = [&](int documents, int value) {
        service.writes.run([&](WriteBatch& batch) {
            for (int i = 0; i < documents; ++i) {
                const std::string source = fmt::format(R"({{"value":{}}})", value);
                putDocument(batch, index, NewDocument::parse(*index, std::to_string(i), source), false);
            }
        });
    };
    const auto open = [&](std::size_t size) {
        SearchRequest request;
        request.size = size;
        return service.scrolls.open(index, request, std::chrono::hours(1), "user", service.writes).id;
    };
    const auto next = [&](const std::string& id) {
        return service.scrolls.next(id, std::chrono::seconds(0), "user", service.writes).hits;
    };
    write(200, 1);
    // Each takes a row and a score for 200 documents.
    const std::string first = open(10);
    const std::string second = open(10);
    EXPECT_EQ(statusOf([&] { open(10); }), 429);
    write(50, 2);
    for (const std::string& id : {first, second})
        for (const std::string& hit : next(id))
            EXPECT_THAT(hit, testing::HasSubstr(R"("value":1)"));
    write(200, 3);
    EXPECT_EQ(statusOf([&] { next(first); }), 404);
    // The ends of a few scrolls are remembered.
    const std::string ended[] = {open(500), open(500), open(500)};
    EXPECT_EQ(statusOf([&] { next(ended[0]); }), 404);
    EXPECT_THAT(next(ended[1]), testing::IsEmpty());
    EXPECT_THAT(next(ended[2]), testing::IsEmpty());
}

TEST_F(StoreFaults, AfterAFailedSyncTheServiceIsReadOnlyAndSaysSo) {
    Service service(mFolder);
    Writer writer(service, "w", 1);
    ASSERT_TRUE(writer.writeOnce());
    const auto before = service.contents();
    mVfs.failAt(FaultyVfs::Operation::Sync, 1);
    EXPECT_FALSE(writer.writeOnce());
    try {
        service.writes.run([](WriteBatch&) { FAIL() << "no job runs any more"; });
        FAIL() << "the write was taken";
    } catch (const ApiError& e) {
        EXPECT_EQ(e.status(), 503);
        EXPECT_THAT(e.what(), testing::HasSubstr("restart the service"));
    }
    EXPECT_EQ(service.contents(), before);
}

} // namespace kestrel::index
