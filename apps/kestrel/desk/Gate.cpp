#include "apps/kestrel/desk/Gate.h"

#include "apps/kestrel/desk/Http.h"

#include <Poco/Net/NameValueCollection.h>
#include <Poco/RandomStream.h>
#include <fmt/format.h>

#include <algorithm>

namespace kestrel::desk {

namespace {

constexpr std::size_t kSecretBytes = 32;

std::string newSecret() {
    std::string bytes(kSecretBytes, '\0');
    Poco::RandomInputStream().read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    std::string text;
    for (const char byte : bytes)
        text += fmt::format("{:02x}", static_cast<unsigned char>(byte));
    return text;
}

/// Takes the same time wherever the texts differ.
bool isSame(const std::string& given, const std::string& secret) {
    if (secret.empty() || given.size() != secret.size()) return false;
    unsigned difference = 0;
    for (std::size_t i = 0; i < secret.size(); ++i)
        difference |= static_cast<unsigned>(given[i] ^ secret[i]);
    return difference == 0;
}

bool isReading(const std::string& method) {
    return method == Poco::Net::HTTPRequest::HTTP_GET || method == Poco::Net::HTTPRequest::HTTP_HEAD;
}

} // namespace

Gate::Gate(std::uint16_t port)
    : mHost(fmt::format("127.0.0.1:{}", port)), mCookie(fmt::format("kestrel_desk_{}", port)),
      mSession(newSecret()), mToken(newSecret()) {
}

std::string Gate::address() const {
    // Behind the "#", so that it is in no request, no referrer and no log.
    return fmt::format("http://{}/#token={}", mHost, mToken);
}

void Gate::requireOwnPage(const Poco::Net::HTTPServerRequest& request) const {
    if (request.get("Host", "") != mHost)
        throw HttpError(403, fmt::format("the desk is at http://{}/ only", mHost));
    const std::string origin = request.get("Origin", "");
    if (origin != "http://" + mHost && !(origin.empty() && isReading(request.getMethod())))
        throw HttpError(403, "only the desk's own pages may ask this");
    const std::string site = request.get("Sec-Fetch-Site", "none");
    if (site != "same-origin" && site != "none")
        throw HttpError(403, "only the desk's own pages may ask this");
}

void Gate::requireSession(const Poco::Net::HTTPServerRequest& request) const {
    Poco::Net::NameValueCollection cookies;
    request.getCookies(cookies);
    if (!isSame(cookies.get(mCookie, ""), mSession))
        throw HttpError(401, "this browser is not signed in: start `kestrel desk` again and open the address "
                             "that it shows");
}

std::string Gate::openSession(const std::string& token) {
    const std::scoped_lock lock(mMutex);
    if (!isSame(token, mToken))
        throw HttpError(401, "the address was used before: start `kestrel desk` again and open the address "
                             "that it shows");
    mToken.clear();
    return fmt::format("{}={}; HttpOnly; SameSite=Strict; Path=/; Max-Age=2592000", mCookie, mSession);
}

} // namespace kestrel::desk
