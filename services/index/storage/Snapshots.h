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

/// Writes what is derived from the documents to files now and then, so that a start only reads the documents
/// that came after. A file that is missing, stale or damaged costs the time to read all documents, nothing
/// else.
class Snapshots {
public:
    /// Begins to watch the indices; they must have been loaded.
    Snapshots(const std::filesystem::path& folder, const Catalogue& catalogue);
    /// Writes what has changed.
    ~Snapshots();
    Snapshots(const Snapshots&) = delete;
    Snapshots& operator=(const Snapshots&) = delete;

    /// The file of an index.
    static std::filesystem::path fileOf(const std::filesystem::path& folder, const IndexInfo& info);
    /// Removes the files of indices that there are no more.
    static void removeOthers(const std::filesystem::path& folder, const Catalogue& catalogue);

private:
    using Clock = std::chrono::steady_clock;
    struct Seen {
        std::uint64_t saved = 0;   ///< changes that the file covers
        std::uint64_t changes = 0; ///< at the last look
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
