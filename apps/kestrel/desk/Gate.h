#pragma once

#include <Poco/Net/HTTPServerRequest.h>

#include <cstdint>
#include <mutex>
#include <string>

namespace kestrel::desk {

/// Decides who may ask: the browser that came with the one-time token, from the desk's own pages.
///
/// Other pages in that browser, other users of the machine, and names of other hosts that lead here (DNS
/// rebinding) are refused.
class Gate {
public:
    explicit Gate(std::uint16_t port);

    /// The address to open. Its token is good for one browser.
    std::string address() const;

    /// @throws HttpError (403) unless the request names this host and does not come from a foreign page.
    void requireOwnPage(const Poco::Net::HTTPServerRequest& request) const;
    /// @throws HttpError (401) unless the request carries the cookie.
    void requireSession(const Poco::Net::HTTPServerRequest& request) const;
    /// Exchanges the token for the value of the `Set-Cookie` header.
    /// @throws HttpError (401) when the token is wrong or was used before.
    std::string openSession(const std::string& token);

private:
    std::string mHost;
    std::string mCookie; ///< Its name: cookies are shared by all ports of a host.
    std::string mSession;
    mutable std::mutex mMutex;
    std::string mToken; ///< Empty once used.
};

} // namespace kestrel::desk
