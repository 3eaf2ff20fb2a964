#include "apps/kestrel/desk/Transcripts.h"

#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/clips/SpeakerLookup.h"
#include "apps/kestrel/desk/Http.h"
#include "apps/kestrel/services/Store.h"

#include <unicode/unistr.h>

#include <algorithm>
#include <utility>

namespace kestrel::desk {

namespace {

constexpr std::size_t kMostKnown = 8;
constexpr std::chrono::minutes kLongestMemory{1};

} // namespace

Transcripts::Ptr Transcripts::read(const std::string& clip) {
    auto transcript = mStores.with([&](KsNNDatabase& store) {
        auto made = std::make_shared<DeskTranscript>();
        made->entry = readClip(store, find(store, clip));
        made->passages = passagesOf(made->entry, speakerNames(store));
        return made;
    });
    const std::scoped_lock lock(mMutex);
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

Clip Transcripts::find(KsNNDatabase& store, const std::string& clip) {
    {
        const std::scoped_lock lock(mMutex);
        if (const auto known = mProjects.find(clip); known != mProjects.end())
            return {clip, clip, "", known->second};
    }
    for (const KsNNProject& project : storedProjects(store)) {
        int segments = 0;
        check(store.GetSegmentCount(clip, project.projectGuid, segments, false, kSchemaVersion), store,
              "the store cannot be asked for the clip");
        if (segments == 0) continue;
        const std::scoped_lock lock(mMutex);
        mProjects[clip] = project;
        return {clip, clip, "", project};
    }
    throw HttpError(404, "the store has no such clip; it may have been deleted");
}

void Transcripts::forget() {
    const std::scoped_lock lock(mMutex);
    mProjects.clear();
    mKnown.clear();
}

Poco::JSON::Object::Ptr toJson(const Passage& passage) {
    Poco::JSON::Array::Ptr begins = new Poco::JSON::Array;
    Poco::JSON::Array::Ptr starts = new Poco::JSON::Array;
    Poco::JSON::Array::Ptr ends = new Poco::JSON::Array;
    std::int32_t length = 0;
    for (const TimedWord& word : passage.words) {
        if (word.spaceBefore && length > 0) ++length;
        begins->add(length);
        starts->add(word.startMs);
        ends->add(word.endMs);
        length += icu::UnicodeString::fromUTF8(word.text).length();
    }
    auto object = jsonObject();
    object->set("segment", passage.segment);
    object->set("startMS", passage.startMs);
    object->set("endMS", passage.endMs);
    object->set("speaker", passage.speaker);
    object->set("language", passage.language);
    object->set("text", passage.text);
    object->set("wordBegins", begins);
    object->set("wordStartsMS", starts);
    object->set("wordEndsMS", ends);
    return object;
}

} // namespace kestrel::desk
