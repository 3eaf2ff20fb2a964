#pragma once

#include "apps/kestrel/desk/Stores.h"

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace kestrel::desk {

/// The clips of the store as the pages get them. A list of ten thousand takes seconds to read, so that it is
/// read when the desk starts and remembered for a minute, unless the number of stored segments changes.
class Listing {
public:
    explicit Listing(Stores& stores);

    using Text = std::shared_ptr<const std::string>;
    /// The answer to a request for the clips of a project, as JSON.
    /// @param project Name or identifier; empty: any.
    /// @throws Failure when the store cannot be read or has no such project.
    Text of(const std::string& project);
    /// After a change of the store.
    void forget();

private:
    struct Known {
        Text text;
        std::chrono::steady_clock::time_point when;
        int segments = 0;
    };

    Stores& mStores;
    std::mutex mReading; ///< Who asks while it is read waits for that.
    std::mutex mMutex;
    int mChanges = 0;
    std::map<std::string, Known> mKnown; ///< By project.
    std::jthread mFirst;                 ///< Last, so that it ends before what it uses.
};

} // namespace kestrel::desk
