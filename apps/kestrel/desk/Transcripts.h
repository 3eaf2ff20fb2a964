#pragma once

#include "apps/kestrel/clips/Transcript.h"
#include "apps/kestrel/desk/Stores.h"
#include "apps/kestrel/forms/Passage.h"

#include <chrono>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel::desk {

/// A clip's transcript as the pages show it.
struct DeskTranscript {
    KsNNDB_STTClipEntry entry;
    std::vector<Passage> passages;
};

/// Reads transcripts and remembers the last few for a minute, so that the lines around one hit after another
/// need not be read again.
class Transcripts {
public:
    explicit Transcripts(Stores& stores) : mStores(stores) {}

    using Ptr = std::shared_ptr<const DeskTranscript>;
    /// @throws Failure when the store has nothing of the clip.
    Ptr read(const std::string& clip);
    Ptr recent(const std::string& clip);
    /// The clip in one of its projects: the store reads clips by project.
    /// @throws Failure when no project has it.
    Clip find(KsNNDatabase& store, const std::string& clip);
    /// After a change of the store.
    void forget();

private:
    struct Known {
        std::string clip;
        std::chrono::steady_clock::time_point when;
        Ptr transcript;
    };
    int changes();

    Stores& mStores;
    std::mutex mMutex;
    int mChanges = 0;        ///< Of the store: what was read before one is not remembered.
    std::list<Known> mKnown; ///< Newest first.
    std::map<std::string, KsNNProject> mProjects; ///< Where clips were found.
};

/// UTF-16 units in which a text is written: scripts of pages count these.
std::int32_t utf16Length(std::string_view text);

/// Members of a JSON object: `segments`, each with the number of its `words`, and of the words of all
/// segments `wordBegins` (their places in the texts), `wordStartsMS` and `wordEndsMS`.
std::string toJson(std::span<const Passage> passages);

} // namespace kestrel::desk
