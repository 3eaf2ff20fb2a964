#pragma once

#include "apps/kestrel/base/Callbacks.h"
#include "apps/kestrel/clips/Transcript.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <string>
#include <vector>

namespace kestrel {

struct ListedSpeaker {
    std::string id;
    std::string name;
    bool isAssigned = false; ///< To a segment of the project.
};

/// The named speakers of one project.
class ProjectSpeakers {
public:
    /// @throws Failure when the store cannot be asked.
    ProjectSpeakers(KsNNDatabase& store, KsNNProject project);

    /// All of them, by name.
    std::vector<ListedSpeaker> list();
    /// The speakers of that name or identifier.
    std::vector<KsNNSpeakerKV> matching(const std::string& text);
    /// The one speaker of that name or identifier.
    /// @throws Failure that lists the speakers when there is none, or several of that name.
    KsNNSpeakerKV find(const std::string& text);

    /// The clips of the project in which the speaker is assigned to a segment.
    std::vector<Clip> clipsOf(const KsNNSpeakerKV& speaker);

    /// @throws Failure when the project has a speaker of that name.
    KsNNSpeakerKV create(const std::string& name);
    /// Renames a speaker, for all its projects.
    /// @throws Failure as `create`.
    void rename(KsNNSpeakerKV speaker, const std::string& name);
    /// Gives all segments of `merged` to `kept` and removes `merged` from the project.
    void merge(const KsNNSpeakerKV& merged, const KsNNSpeakerKV& kept);
    /// Takes the speaker from all segments of the project; labels stay.
    void clear(const KsNNSpeakerKV& speaker);
    /// @throws Failure while a segment of the project is assigned to the speaker.
    void remove(const KsNNSpeakerKV& speaker);

    /// Assigns the segments of the clip that have the label; returns their number.
    std::size_t assignLabel(const Clip& clip, KsNNSpeakerKV speaker, const std::string& label);
    void assignSegment(const Clip& clip, KsNNSpeakerKV speaker, int segment);
    void clearClip(const Clip& clip, const KsNNSpeakerKV& speaker);
    /// @throws Failure when the segment is not assigned to the speaker.
    void clearSegment(const Clip& clip, const KsNNSpeakerKV& speaker, int segment);

private:
    std::vector<KsNNSpeakerKV> read();
    void requireNewName(const std::string& name);
    bool isAssigned(const KsNNSpeakerKV& speaker);

    KsNNDatabase& mStore;
    KsNNProject mProject;
};

} // namespace kestrel
