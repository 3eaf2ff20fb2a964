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

std::string SpeakerLookup::display(const std::string& name, const std::string& label) {
    return name.empty() ? fmt::format("Speaker {}", label) : name;
}

std::string SpeakerLookup::display(const KsNNDBEntrySeg& segment) {
    return display(nameOf(segment), segment.speakerID);
}

std::string SpeakerLookup::display(const KsNNClipSpeaker& speaker) {
    return display(nameOf(speaker.speakerGuid), speaker.speakerID);
}

bool SpeakerLookup::isCalled(const KsNNClipSpeaker& speaker, const std::string& text) {
    return display(speaker) == text || (nameOf(speaker.speakerGuid).empty() && speaker.speakerID == text);
}

std::function<std::string(const KsNNDBEntrySeg&)> speakerNames(KsNNDatabase& store) {
    return [names = SpeakerLookup(store)](const KsNNDBEntrySeg& segment) mutable {
        return names.display(segment);
    };
}

} // namespace kestrel
