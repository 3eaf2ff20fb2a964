#include "apps/kestrel/desk/Listing.h"

#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/ClipList.h"
#include "apps/kestrel/services/Store.h"

#include <sstream>

namespace kestrel::desk {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::minutes kLongestMemory{1};

std::string readList(KsNNDatabase& store, const Home& home, const std::string& project) {
    ClipFilter filter;
    filter.project = project;
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    for (const ListedClip& clip : listClips(store, home, filter))
        list->add(toJson(clip));
    auto document = jsonObject();
    document->set("clips", list);
    std::ostringstream text;
    document->stringify(text);
    return text.str();
}

} // namespace

Listing::Listing(Stores& stores) : mStores(stores) {
    mFirst = std::jthread([this] {
        try {
            of("");
        } catch (const std::exception&) {
            // whoever asks for it is told
        }
    });
}

Listing::Text Listing::of(const std::string& project) {
    const std::scoped_lock reading(mReading);
    return mStores.with([&](KsNNDatabase& store) {
        int segments = 0;
        check(store.GetTotalSegmentCount(segments, false), store, "the segments cannot be counted");
        int changes = 0;
        {
            const std::scoped_lock lock(mMutex);
            changes = mChanges;
            const auto known = mKnown.find(project);
            if (known != mKnown.end() && known->second.segments == segments &&
                Clock::now() - known->second.when < kLongestMemory)
                return known->second.text;
        }
        const auto begun = Clock::now();
        const auto text = std::make_shared<const std::string>(readList(store, mStores.home(), project));
        const std::scoped_lock lock(mMutex);
        if (changes == mChanges) mKnown[project] = {text, begun, segments};
        return Text(text);
    });
}

void Listing::forget() {
    const std::scoped_lock lock(mMutex);
    ++mChanges;
    mKnown.clear();
}

} // namespace kestrel::desk
