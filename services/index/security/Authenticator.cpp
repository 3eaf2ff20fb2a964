#include "security/Authenticator.h"

#include "base/ApiError.h"

#include <Poco/Base64Decoder.h>
#include <Poco/Exception.h>
#include <Poco/String.h>
#include <fmt/format.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace kestrel::index {

namespace {

constexpr std::size_t kMaximumCached = 1000;
constexpr auto kDelayStep = std::chrono::milliseconds(100);
constexpr int kMaximumDelaySteps = 10;
constexpr auto kFailureMemory = std::chrono::seconds(30);
constexpr auto kReportInterval = std::chrono::seconds(1);

struct Credentials {
    std::string user;
    std::string password;
};

/// The user is empty when the header is not valid basic authentication.
Credentials decode(const std::string& header) {
    constexpr std::size_t kSchemeLength = 6;
    if (header.size() <= kSchemeLength || Poco::icompare(header.substr(0, kSchemeLength), "basic ") != 0)
        return {};
    std::istringstream encoded(header.substr(kSchemeLength));
    Poco::Base64Decoder decoder(encoded);
    std::string plain;
    try {
        plain.assign(std::istreambuf_iterator<char>(decoder), std::istreambuf_iterator<char>());
    } catch (const Poco::DataFormatException&) {
        return {};
    }
    const std::size_t colon = plain.find(':');
    if (colon == std::string::npos) return {};
    return {plain.substr(0, colon), plain.substr(colon + 1)};
}

ApiError unauthorized(const std::string& reason) {
    return {
        401,
        "security_exception",
        reason,
        {{"header", {{"WWW-Authenticate", Json::array({R"(Basic realm="security", charset="UTF-8")"})}}}}};
}

} // namespace

Authenticator::Authenticator(const Users& users)
    : mUsers(users), mTurns(std::max(2U, std::thread::hardware_concurrency())) {
    if (RAND_bytes(mKey.data(), static_cast<int>(mKey.size())) != 1)
        throw std::runtime_error("the system provides no random numbers");
}

std::shared_ptr<const Principal>
Authenticator::authenticate(const std::string& header, const std::string& method, const std::string& path) {
    if (header.empty())
        throw unauthorized(fmt::format("missing authentication credentials for REST request [{}]", path));
    const Digest digest = digestOf(header);
    if (auto known = cached(digest)) return known;

    const std::uint64_t generation = mUsers.generation();
    const Credentials credentials = decode(header);
    std::shared_ptr<const Principal> principal;
    {
        const Turns::Turn turn(mTurns);
        if (auto known = cached(digest)) return known; // by another request with the same header
        if (!credentials.user.empty() && mUsers.verify(credentials.user, credentials.password))
            principal = mUsers.principal(credentials.user);
    }
    if (!principal) {
        recordFailure(credentials.user);
        throw unauthorized(fmt::format("unable to authenticate user [{}] for REST request [{} {}]",
                                       credentials.user, method, path));
    }
    remember(digest, generation, principal);
    return principal;
}

Authenticator::Digest Authenticator::digestOf(const std::string& header) const {
    Digest digest{};
    unsigned int length = 0;
    HMAC(EVP_sha256(), mKey.data(), static_cast<int>(mKey.size()),
         reinterpret_cast<const unsigned char*>(header.data()), header.size(), digest.data(), &length);
    return digest;
}

std::shared_ptr<const Principal> Authenticator::cached(const Digest& digest) {
    const std::lock_guard lock(mMutex);
    if (mCachedGeneration != mUsers.generation()) {
        mCache.clear();
        mCachedGeneration = mUsers.generation();
    }
    const auto known = mCache.find(digest);
    return known == mCache.end() ? nullptr : known->second;
}

void Authenticator::remember(const Digest& digest, std::uint64_t generation,
                             std::shared_ptr<const Principal> principal) {
    const std::lock_guard lock(mMutex);
    // Users may have changed while the hash was computed.
    if (mCachedGeneration != generation || generation != mUsers.generation()) return;
    if (mCache.size() >= kMaximumCached) mCache.clear();
    mCache[digest] = std::move(principal);
}

void Authenticator::recordFailure(const std::string& user) {
    int steps = 0;
    {
        const std::lock_guard lock(mMutex);
        const auto now = Clock::now();
        if (now - mLastFailure > kFailureMemory) mRecentFailures = 0;
        mLastFailure = now;
        mRecentFailures = std::min(mRecentFailures + 1, kMaximumDelaySteps);
        steps = mRecentFailures;
        ++mUnreported;
        if (now - mLastReport >= kReportInterval) {
            // Quoted, a name cannot forge a line of the log.
            spdlog::warn("{} failed logins, the last one as {}", mUnreported, jsonString(user));
            mLastReport = now;
            mUnreported = 0;
        }
    }
    std::this_thread::sleep_for(kDelayStep * steps);
}

} // namespace kestrel::index
