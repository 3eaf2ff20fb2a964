#pragma once

#include "apps/kestrel/clips/Transcript.h"
#include "apps/kestrel/desk/Stores.h"
#include "apps/kestrel/forms/Passage.h"

#include <Poco/JSON/Object.h>

#include <chrono>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
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
    Stores& mStores;
    std::mutex mMutex;
    std::list<Known> mKnown;                      ///< Newest first.
    std::map<std::string, KsNNProject> mProjects; ///< Where clips were found.
};

/// Text and words of a passage; the places of words count UTF-16 units, as scripts of pages do.
Poco::JSON::Object::Ptr toJson(const Passage& passage);

} // namespace kestrel::desk
