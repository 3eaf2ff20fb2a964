#include "storage/Snapshots.h"

#include "engine/SnapshotFile.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <exception>
#include <malloc.h>
#include <set>
#include <system_error>

namespace kestrel::index {

namespace {

constexpr auto kLookPause = std::chrono::seconds(1);
constexpr auto kQuiet = std::chrono::seconds(5);
/// Fewer changes are quickly read from the documents.
constexpr std::uint64_t kFewChanges = 1000;
/// Under constant load a start shall not have to read many more documents than these.
constexpr std::uint64_t kManyChanges = 50'000;
/// Saving takes one part in so many of the time at most.
constexpr int kPartOfTime = 20;

} // namespace

Snapshots::Snapshots(const std::filesystem::path& folder, const Catalogue& catalogue)
    : mFolder(folder), mCatalogue(catalogue) {
    for (const IndexPtr& index : catalogue.all())
        mSeen[index->info().uuid] = {0, index->changes(), 0, Clock::now(), Clock::now()};
    mThread = std::thread([this] { watch(); });
}

Snapshots::~Snapshots() {
    {
        const std::lock_guard lock(mMutex);
        mStop = true;
    }
    mStopping.notify_one();
    mThread.join();
    for (const IndexPtr& index : mCatalogue.all()) {
        Seen& seen = mSeen[index->info().uuid];
        if (index->changes() - seen.saved >= kFewChanges) save(*index, seen);
    }
    removeOthers(mFolder, mCatalogue);
}

std::filesystem::path Snapshots::fileOf(const std::filesystem::path& folder, const IndexInfo& info) {
    return folder / (info.uuid + ".snapshot");
}

void Snapshots::removeOthers(const std::filesystem::path& folder, const Catalogue& catalogue) {
    std::set<std::filesystem::path> wanted;
    for (const IndexPtr& index : catalogue.all())
        wanted.insert(fileOf(folder, index->info()).stem());
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error))
        if (!wanted.contains(entry.path().stem())) std::filesystem::remove(entry.path(), error);
}

void Snapshots::watch() {
    std::unique_lock lock(mMutex);
    while (!mStopping.wait_for(lock, kLookPause, [this] { return mStop; })) {
        lock.unlock();
        look();
        lock.lock();
    }
}

void Snapshots::look() {
    const auto now = Clock::now();
    std::set<std::string> present;
    for (const IndexPtr& index : mCatalogue.all()) {
        present.insert(index->info().uuid);
        const auto [place, added] = mSeen.try_emplace(index->info().uuid, Seen{0, 0, 0, now, now});
        Seen& seen = place->second;
        const std::uint64_t changes = index->changes();
        if (changes != seen.changes) seen.quietSince = now;
        seen.changes = changes;
        const bool quiet = now - seen.quietSince >= kQuiet;
        if (now >= seen.next && changes - seen.saved >= (quiet ? kFewChanges : kManyChanges))
            save(*index, seen);
#ifdef __GLIBC__
        if (quiet && changes - seen.trimmed >= kFewChanges) {
            ::malloc_trim(0); // what writing many documents took and gave back
            seen.trimmed = changes;
        }
#endif
    }
    if (std::erase_if(mSeen, [&](const auto& seen) { return !present.contains(seen.first); }) > 0)
        removeOthers(mFolder, mCatalogue);
}

void Snapshots::save(const Index& index, Seen& seen) try {
    const auto started = Clock::now();
    std::filesystem::create_directories(mFolder);
    const std::uint64_t changes = index.changes();
    SnapshotWriter writer(fileOf(mFolder, index.info()));
    index.save(writer);
    writer.finish();
    seen.saved = changes;
    const auto took = Clock::now() - started;
    seen.next = Clock::now() + kPartOfTime * took;
    spdlog::debug("the snapshot of index [{}] was written in {:.2f} s", index.name(),
                  std::chrono::duration<double>(took).count());
} catch (const std::exception& e) {
    // Nothing depends on it; further changes cause another attempt.
    seen.saved = index.changes();
    spdlog::warn("the snapshot of index [{}] could not be written: {}", index.name(), e.what());
}

} // namespace kestrel::index
