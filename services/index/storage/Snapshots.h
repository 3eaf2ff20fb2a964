#pragma once

#include "storage/Catalogue.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace kestrel::index {

/// Saves what is derived from the documents to files now and then, so that a start only has to read the
/// documents written later. A missing, stale or damaged file only costs the time to read all documents.
class Snapshots {
public:
    /// Starts watching the indices, which must have been loaded.
    Snapshots(const std::filesystem::path& folder, const Catalogue& catalogue);
    /// Saves the indices that have changed.
    ~Snapshots();
    Snapshots(const Snapshots&) = delete;
    Snapshots& operator=(const Snapshots&) = delete;

    /// The file of an index.
    static std::filesystem::path fileOf(const std::filesystem::path& folder, const IndexInfo& info);
    /// Removes the files of indices that no longer exist.
    static void removeOthers(const std::filesystem::path& folder, const Catalogue& catalogue);

private:
    using Clock = std::chrono::steady_clock;
    struct Seen {
        std::uint64_t saved = 0;   ///< changes that the file covers
        std::uint64_t changes = 0; ///< when last looked at
        std::uint64_t trimmed = 0; ///< when unused memory was last given back
        Clock::time_point quietSince;
        Clock::time_point next; ///< not before it, so that saving takes a small part of the time
    };

    void watch();
    void look();
    void save(const Index& index, Seen& seen);

    std::filesystem::path mFolder;
    const Catalogue& mCatalogue;
    std::map<std::string, Seen> mSeen; ///< by identifier of the index
    std::mutex mMutex;
    std::condition_variable mStopping;
    bool mStop = false;
    std::thread mThread;
};

} // namespace kestrel::index
