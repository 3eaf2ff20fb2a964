#pragma once

#include "apps/kestrel/clips/Transcript.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace kestrel {

/// What a change of speakers may touch.
struct SpeakerChange {
    std::vector<Clip> clips;             ///< Whose segments may come to others.
    std::vector<KsNNSpeakerKV> speakers; ///< Who may get another name, or be removed.
    std::string newName;                 ///< Of a speaker that may be created.
};

/// Who speaks which segments, and what the speakers are called, before a change: it can be undone.
class SpeakerSnapshot {
public:
    /// @throws Failure when the store cannot be read.
    SpeakerSnapshot(KsNNDatabase& store, KsNNProject project, SpeakerChange change);
    /// Who speaks the segments of a clip that is about to be stored without its speakers, as imports do.
    SpeakerSnapshot(KsNNProject project, Clip clip, const std::vector<KsNNDBEntrySeg>& segments);

    /// Makes everything as it was. A speaker who was removed comes back, possibly with another identifier.
    /// @throws Failure; calling again does the rest.
    void restore(KsNNDatabase& store) const;

private:
    /// Segments of one clip by number: label, and the identifier of the speaker, empty when there is none.
    struct Part {
        std::string label;
        std::string speaker;
    };
    using Parts = std::map<int, Part>;
    using Speakers = std::map<std::string, KsNNSpeakerKV>; ///< By the identifier that they had.

    static Parts partsOf(const std::vector<KsNNDBEntrySeg>& segments);
    Speakers restoreSpeakers(KsNNDatabase& store) const;
    void restoreClip(KsNNDatabase& store, const Clip& clip, const Parts& before,
                     const Speakers& speakers) const;
    void clear(KsNNDatabase& store, const Clip& clip, const Parts& now, const std::set<int>& segments) const;
    void assign(KsNNDatabase& store, const Clip& clip, const Parts& before, const KsNNSpeakerKV& speaker,
                std::set<int> segments) const;
    void removeCreated(KsNNDatabase& store) const;

    KsNNProject mProject;
    SpeakerChange mChange;
    std::set<std::string> mKnown; ///< Identifiers of all speakers of the project.
    std::vector<Parts> mParts;    ///< Of each clip of the change.
};

} // namespace kestrel
