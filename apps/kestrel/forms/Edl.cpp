#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/forms/EditList.h"

#include <fmt/format.h>
#include <unicode/unistr.h>

#include <cctype>
#include <map>
#include <set>

namespace kestrel {

namespace {

constexpr std::size_t kMostEvents = 999;
constexpr std::size_t kReelLength = 8;
constexpr std::size_t kCommentLength = 200;

/// The lists are older than Unicode, but today's readers take UTF-8; what they never take is a line's end.
std::string comment(std::string text) {
    for (char& character : text) {
        if (std::iscntrl(static_cast<unsigned char>(character)) != 0) character = ' ';
    }
    icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(text);
    if (unicode.length() <= static_cast<int>(kCommentLength)) return text;
    unicode.truncate(unicode.getChar32Start(static_cast<int>(kCommentLength)));
    std::string cut;
    unicode.toUTF8String(cut);
    return cut;
}

/// Reels have eight capitals or digits, and each clip one of its own.
class Reels {
public:
    const std::string& of(const FormClip& clip) {
        const auto [found, isNew] = mNames.try_emplace(clip.id);
        if (isNew) found->second = choose(clip.clock->reel.empty() ? clip.name : clip.clock->reel);
        return found->second;
    }

private:
    std::string choose(const std::string& from) {
        std::string base;
        for (const char character : from.substr(0, from.find_last_of('.'))) {
            const auto byte = static_cast<unsigned char>(character);
            if (base.size() < kReelLength && byte < 128 && std::isalnum(byte) != 0)
                base += static_cast<char>(std::toupper(byte));
        }
        // AX stands for a source without a reel.
        if (base.empty() || base == "AX" || base == "BL") base = "CLIP";
        std::string name = base;
        for (int number = 2; !mTaken.insert(name).second; ++number) {
            const std::string suffix = std::to_string(number);
            name = base.substr(0, kReelLength - suffix.size()) + suffix;
        }
        return name;
    }

    std::map<std::string, std::string> mNames;
    std::set<std::string> mTaken;
};

const char* channels(const ClipClock& clock) {
    if (!clock.hasVideo) return "AA";
    return clock.hasAudio ? "B" : "V";
}

void requireOneRate(const Selection& selection, const EditList& list) {
    for (const EditCut& cut : list.cuts) {
        const FormClip& clip = selection.clips[cut.clip];
        if (clip.clock->rate == list.rate) continue;
        throw Failure(
            fmt::format("an EDL has one frame rate, but {} has {} and {} has {}; otio and fcpxml can "
                        "hold both",
                        selection.clips[list.cuts.front().clip].name, list.rate.name(), clip.name,
                        clip.clock->rate.name()));
    }
}

} // namespace

/// CMX 3600 as editing programs read it today: clip names and markers stand in comments.
Written writeEdl(const Selection& selection, const FormOptions& options) {
    const EditList list = editListOf(selection, options);
    requireOneRate(selection, list);
    if (list.cuts.size() > kMostEvents)
        throw Failure(fmt::format("an EDL has at most {} events, and this would have {}; use otio or fcpxml",
                                  kMostEvents, list.cuts.size()));
    const auto label = [&](std::int64_t frame) { return timecodeOf(frame, list.rate); };
    std::string text = fmt::format("TITLE: {}\nFCM: {}DROP FRAME\n\n", comment(selection.title),
                                   list.rate.dropFrame ? "" : "NON-");
    Reels reels;
    std::int64_t record = list.recordStart;
    int event = 0;
    for (const EditCut& cut : list.cuts) {
        const FormClip& clip = selection.clips[cut.clip];
        const std::int64_t source = clip.clock->startFrame + cut.begin;
        const std::int64_t length = cut.end - cut.begin;
        text += fmt::format("{:03}  {:<8} {:<5} C        {} {} {} {}\n", ++event, reels.of(clip),
                            channels(*clip.clock), label(source), label(source + length), label(record),
                            label(record + length));
        text += fmt::format("* FROM CLIP NAME: {}\n", comment(clip.name));
        for (const EditMarker& marker : cut.markers) {
            // The label of a locator is one of the record side.
            const std::string name = marker.name.empty() ? marker.note : marker.name;
            text += fmt::format("* LOC: {} RED     {}\n", label(record + marker.frame - cut.begin),
                                comment(name));
        }
        text += '\n';
        record += length;
    }
    return {std::move(text), ""};
}

} // namespace kestrel
