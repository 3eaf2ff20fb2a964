#include "apps/kestrel/clips/SpeakerLookup.h"

#include <fmt/format.h>

namespace kestrel {

bool hasSpeaker(const KsNNDBEntrySeg& segment) {
    static const std::string unassigned = KsNNDBEntrySeg().speakerGuid;
    return !segment.speakerGuid.empty() && segment.speakerGuid != unassigned;
}

std::string SpeakerLookup::nameOf(const KsNNDBEntrySeg& segment) {
    return hasSpeaker(segment) ? nameOf(segment.speakerGuid) : "";
}

std::string SpeakerLookup::nameOf(const std::string& speakerGuid) {
    if (speakerGuid.empty()) return "";
    const auto [known, isNew] = mNames.try_emplace(speakerGuid);
    // A speaker that was deleted behind a project's back leaves the label, which is all that is known then.
    if (isNew && mStore.GetSpeakerName(speakerGuid, known->second, false) != KsNN_Success)
        known->second.clear();
    return known->second;
}

std::string SpeakerLookup::display(const KsNNDBEntrySeg& segment) {
    const std::string name = nameOf(segment);
    return name.empty() ? fmt::format("Speaker {}", segment.speakerID) : name;
}

bool SpeakerLookup::isCalled(const KsNNDBEntrySeg& segment, const std::string& text) {
    const std::string name = nameOf(segment);
    return name.empty() ? segment.speakerID == text || display(segment) == text : name == text;
}

std::function<std::string(const KsNNDBEntrySeg&)> speakerNames(KsNNDatabase& store) {
    return [names = SpeakerLookup(store)](const KsNNDBEntrySeg& segment) mutable {
        return names.display(segment);
    };
}

} // namespace kestrel
