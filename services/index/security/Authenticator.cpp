#include "security/Authenticator.h"

#include "http/ApiError.h"

#include <Poco/Base64Decoder.h>
#include <Poco/Exception.h>
#include <Poco/String.h>
#include <fmt/format.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace kestrel {

namespace {

constexpr std::size_t maximumCached = 1000;
constexpr auto delayStep = std::chrono::milliseconds(100);
constexpr int maximumDelaySteps = 10;
constexpr auto failureMemory = std::chrono::seconds(30);

struct Credentials {
    std::string user;
    std::string password;
};

/// Empty user when the header is not one of basic authentication.
Credentials decode(const std::string& header) {
    constexpr std::size_t schemeLength = 6;
    if (header.size() <= schemeLength || Poco::icompare(header.substr(0, schemeLength), "basic ") != 0)
        return {};
    std::istringstream encoded(header.substr(schemeLength));
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

Authenticator::Authenticator(const Users& users) : users_(users) {
    if (RAND_bytes(key_.data(), static_cast<int>(key_.size())) != 1)
        throw std::runtime_error("the system gives no random numbers");
}

std::shared_ptr<const Principal>
Authenticator::authenticate(const std::string& header, const std::string& method, const std::string& path) {
    if (header.empty())
        throw unauthorized(fmt::format("missing authentication credentials for REST request [{}]", path));
    const Digest digest = digestOf(header);
    if (auto known = cached(digest)) return known;

    const std::uint64_t generation = users_.generation();
    const Credentials credentials = decode(header);
    std::shared_ptr<const Principal> principal;
    {
        const std::lock_guard lock(slowMutex_);
        if (auto known = cached(digest)) return known; // another request with the same header was first
        if (!credentials.user.empty() && users_.verify(credentials.user, credentials.password))
            principal = users_.principal(credentials.user);
    }
    if (!principal) {
        delayFailure();
        throw unauthorized(fmt::format("unable to authenticate user [{}] for REST request [{} {}]",
                                       credentials.user, method, path));
    }
    remember(digest, generation, principal);
    return principal;
}

Authenticator::Digest Authenticator::digestOf(const std::string& header) const {
    Digest digest{};
    unsigned int length = 0;
    HMAC(EVP_sha256(), key_.data(), static_cast<int>(key_.size()),
         reinterpret_cast<const unsigned char*>(header.data()), header.size(), digest.data(), &length);
    return digest;
}

std::shared_ptr<const Principal> Authenticator::cached(const Digest& digest) {
    const std::lock_guard lock(mutex_);
    if (cachedGeneration_ != users_.generation()) {
        cache_.clear();
        cachedGeneration_ = users_.generation();
    }
    const auto known = cache_.find(digest);
    return known == cache_.end() ? nullptr : known->second;
}

void Authenticator::remember(const Digest& digest, std::uint64_t generation,
                             std::shared_ptr<const Principal> principal) {
    const std::lock_guard lock(mutex_);
    // Users may have changed while the hash was computed.
    if (cachedGeneration_ != generation || generation != users_.generation()) return;
    if (cache_.size() >= maximumCached) cache_.clear();
    cache_[digest] = std::move(principal);
}

void Authenticator::delayFailure() {
    int steps = 0;
    {
        const std::lock_guard lock(mutex_);
        const auto now = Clock::now();
        if (now - lastFailure_ > failureMemory) recentFailures_ = 0;
        lastFailure_ = now;
        recentFailures_ = std::min(recentFailures_ + 1, maximumDelaySteps);
        steps = recentFailures_;
    }
    std::this_thread::sleep_for(delayStep * steps);
}

} // namespace kestrel
