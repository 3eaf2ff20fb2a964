#include "apps/kestrel/desk/Transcripts.h"

#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/clips/SpeakerLookup.h"
#include "apps/kestrel/desk/Http.h"
#include "apps/kestrel/services/Store.h"

#include <Poco/JSONString.h>
#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace kestrel::desk {

namespace {

constexpr std::size_t kMostKnown = 8;
constexpr std::chrono::minutes kLongestMemory{1};

std::string quoted(const std::string& text) {
    return Poco::toJSON(text);
}

} // namespace

Transcripts::Ptr Transcripts::read(const std::string& clip) {
    const int changes = this->changes();
    auto transcript = mStores.with([&](KsNNDatabase& store) {
        auto made = std::make_shared<DeskTranscript>();
        made->entry = readClip(store, find(store, clip));
        made->passages = passagesOf(made->entry, speakerNames(store));
        return made;
    });
    const std::scoped_lock lock(mMutex);
    if (changes != mChanges) return transcript; // the store has changed since: nothing to remember
    mKnown.remove_if([&](const Known& known) { return known.clip == clip; });
    mKnown.push_front({clip, std::chrono::steady_clock::now(), transcript});
    if (mKnown.size() > kMostKnown) mKnown.pop_back();
    return transcript;
}

Transcripts::Ptr Transcripts::recent(const std::string& clip) {
    {
        const std::scoped_lock lock(mMutex);
        const auto oldest = std::chrono::steady_clock::now() - kLongestMemory;
        const auto known = std::find_if(mKnown.begin(), mKnown.end(), [&](const Known& candidate) {
            return candidate.clip == clip && candidate.when > oldest;
        });
        if (known != mKnown.end()) return known->transcript;
    }
    return read(clip);
}

int Transcripts::changes() {
    const std::scoped_lock lock(mMutex);
    return mChanges;
}

Clip Transcripts::find(KsNNDatabase& store, const std::string& clip) {
    int changes = 0;
    {
        const std::scoped_lock lock(mMutex);
        changes = mChanges;
        if (const auto known = mProjects.find(clip); known != mProjects.end())
            return {clip, clip, "", known->second};
    }
    for (const KsNNProject& project : storedProjects(store)) {
        int segments = 0;
        check(store.GetSegmentCount(clip, project.projectGuid, segments, false, kSchemaVersion), store,
              "the store cannot be asked for the clip");
        if (segments == 0) continue;
        const std::scoped_lock lock(mMutex);
        if (changes == mChanges) mProjects[clip] = project;
        return {clip, clip, "", project};
    }
    throw HttpError(404, "the store has no such clip; it may have been deleted");
}

void Transcripts::forget() {
    const std::scoped_lock lock(mMutex);
    ++mChanges;
    mProjects.clear();
    mKnown.clear();
}

std::int32_t utf16Length(std::string_view text) {
    std::int32_t units = 0;
    for (const char byte : text) {
        const auto value = static_cast<unsigned char>(byte);
        if (value < 0x80 || value >= 0xC0) ++units; // all but the bytes that continue a character
        if (value >= 0xF0) ++units;                 // beyond the first 65,536 characters: a pair of units
    }
    return units;
}

std::string toJson(std::span<const Passage> passages) {
    // Written directly: a tree of a hundred thousand words takes longer than all the rest.
    std::string segments;
    std::string begins;
    std::string starts;
    std::string ends;
    const auto append = [](std::string& list, std::int64_t number) {
        fmt::format_to(std::back_inserter(list), "{}{}", list.empty() ? "" : ",", number);
    };
    for (const Passage& passage : passages) {
        fmt::format_to(
            std::back_inserter(segments),
            R"({}{{"segment":{},"startMS":{},"endMS":{},"speaker":{},"language":{},"text":{},"words":{}}})",
            segments.empty() ? "" : ",", passage.segment, passage.startMs, passage.endMs,
            quoted(passage.speaker), quoted(passage.language), quoted(passage.text), passage.words.size());
        std::int32_t length = 0;
        for (const TimedWord& word : passage.words) {
            if (word.spaceBefore && length > 0) ++length;
            append(begins, length);
            append(starts, word.startMs);
            append(ends, word.endMs);
            length += utf16Length(word.text);
        }
    }
    return fmt::format(R"("segments":[{}],"wordBegins":[{}],"wordStartsMS":[{}],"wordEndsMS":[{}])", segments,
                       begins, starts, ends);
}

} // namespace kestrel::desk
