#include "apps/kestrel/clips/Speakers.h"

#include <map>

namespace kestrel {

std::function<std::string(const KsNNDBEntrySeg&)> speakerNames(KsNNDatabase& store) {
    return [&store, known = std::map<std::string, std::string>()](const KsNNDBEntrySeg& segment) mutable {
        const std::string label = "Speaker " + segment.speakerID;
        if (segment.speakerGuid.empty() || segment.speakerGuid == "Unk") return label;
        const auto [found, isNew] = known.try_emplace(segment.speakerGuid);
        // A speaker who has been deleted has a label still.
        if (isNew && store.GetSpeakerName(segment.speakerGuid, found->second, false) != KsNN_Success)
            found->second.clear();
        return found->second.empty() ? label : found->second;
    };
}

} // namespace kestrel
