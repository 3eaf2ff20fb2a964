#pragma once

#include "security/Turns.h"
#include "security/Users.h"

#include <array>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace kestrel::index {

/// Checks the Authorization header of requests. The slow hash is computed once for each set of credentials;
/// afterwards a keyed hash of the header is enough.
class Authenticator {
public:
    explicit Authenticator(const Users& users);

    /// The user whose credentials the header contains. Throws an ApiError with status 401, the later the more
    /// failures there are.
    std::shared_ptr<const Principal> authenticate(const std::string& header, const std::string& method,
                                                  const std::string& path);

private:
    using Digest = std::array<unsigned char, 32>;
    using Clock = std::chrono::steady_clock;

    Digest digestOf(const std::string& header) const;
    std::shared_ptr<const Principal> cached(const Digest& digest);
    void remember(const Digest& digest, std::uint64_t generation, std::shared_ptr<const Principal> principal);
    void recordFailure(const std::string& user);

    const Users& mUsers;
    Digest mKey{};
    std::mutex mMutex;
    std::map<Digest, std::shared_ptr<const Principal>> mCache;
    std::uint64_t mCachedGeneration = 0;
    Turns mTurns; ///< limits the processors and memory that computing hashes takes
    int mRecentFailures = 0;
    Clock::time_point mLastFailure{};
    Clock::time_point mLastReport{};
    int mUnreported = 0;
};

} // namespace kestrel::index
