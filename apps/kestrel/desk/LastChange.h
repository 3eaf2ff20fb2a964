#pragma once

#include "apps/kestrel/clips/SpeakerSnapshot.h"
#include "apps/kestrel/desk/Http.h"

#include <mutex>
#include <optional>
#include <utility>

namespace kestrel::desk {

/// What undoes the last change of speakers. An earlier one cannot be undone alone: it may have touched the
/// same segments.
class LastChange {
public:
    /// Returns the number of the change.
    int keep(SpeakerSnapshot before) {
        const std::scoped_lock lock(mMutex);
        mBefore = std::move(before);
        return ++mNumber;
    }

    /// @throws HttpError (409) when another change has followed, or it has been undone.
    SpeakerSnapshot before(int number) const {
        const std::scoped_lock lock(mMutex);
        if (!mBefore || number != mNumber)
            throw HttpError(409, "only the last change can be undone, and only once");
        return *mBefore;
    }

    void forget(int number) {
        const std::scoped_lock lock(mMutex);
        if (number == mNumber) mBefore.reset();
    }

    /// Segments were replaced: their numbers mean other speech now.
    void forgetAll() {
        const std::scoped_lock lock(mMutex);
        mBefore.reset();
    }

private:
    mutable std::mutex mMutex;
    int mNumber = 0;
    std::optional<SpeakerSnapshot> mBefore;
};

} // namespace kestrel::desk
