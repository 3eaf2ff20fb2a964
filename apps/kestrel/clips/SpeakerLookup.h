#pragma once

#include "kestrelml/store/KsNNDatabase.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace kestrel {

/// Whether a speaker has been assigned to the segment.
bool hasSpeaker(const KsNNDBEntrySeg& segment);

/// What the speakers of segments are called. Each is looked up once.
class SpeakerLookup {
public:
    explicit SpeakerLookup(KsNNDatabase& store) : mStore(store) {}

    /// Name of the assigned speaker; empty when none is, or the store has lost it.
    std::string nameOf(const KsNNDBEntrySeg& segment);
    /// Name of the speaker with this identifier; empty for an empty one.
    std::string nameOf(const std::string& speakerGuid);
    /// "Anna", else "Speaker 1".
    std::string display(const KsNNDBEntrySeg& segment);
    std::string display(const KsNNClipSpeaker& speaker);
    /// Whether `text` is the speaker's name or, of one without a name, the label.
    bool isCalled(const KsNNClipSpeaker& speaker, const std::string& text);

private:
    static std::string display(const std::string& name, const std::string& label);

    KsNNDatabase& mStore;
    std::map<std::string, std::string> mNames;
};

/// `SpeakerLookup::display` as a function; the store must outlive it.
std::function<std::string(const KsNNDBEntrySeg&)> speakerNames(KsNNDatabase& store);

} // namespace kestrel
