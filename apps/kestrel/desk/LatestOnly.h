#pragma once

#include "apps/kestrel/desk/Http.h"

#include <atomic>
#include <mutex>

namespace kestrel::desk {

/// Performs long answers one at a time, and of those that wait the newest only: whoever types on has no use
/// for the others.
class LatestOnly {
public:
    /// @throws HttpError (409) when another was asked for while this one waited.
    template <typename Work>
    auto run(Work work) {
        const int own = ++mNewest;
        const std::scoped_lock lock(mMutex);
        if (own != mNewest) throw HttpError(409, "another search was begun");
        return work();
    }

private:
    std::atomic<int> mNewest = 0;
    std::mutex mMutex;
};

} // namespace kestrel::desk
