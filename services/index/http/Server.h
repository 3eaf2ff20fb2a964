#pragma once

#include "handlers/Router.h"
#include "http/Connections.h"
#include "security/Authenticator.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

namespace kestrel::index {

/// The service cannot listen on the address.
class AddressError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// HTTPS server with one thread per connection.
class Server {
public:
    struct Options {
        std::string address = "127.0.0.1";
        std::uint16_t port = 0; ///< 0: any free one
        std::filesystem::path certificate;
        std::filesystem::path privateKey;
        Limits limits;
    };

    /// Serves until it is destroyed; requests in progress are completed.
    Server(const Options& options, const Router& router, Authenticator& authenticator);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    std::uint16_t port() const;

private:
    class Listener;
    std::unique_ptr<Listener> mListener;
};

} // namespace kestrel::index
