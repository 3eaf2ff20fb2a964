#pragma once

#include "http/Connection.h"
#include "http/Router.h"
#include "security/Authenticator.h"

#include <Poco/Net/TCPServer.h>
#include <Poco/ThreadPool.h>

#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>

namespace kestrel {

/// The address cannot be listened on.
class AddressError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// HTTPS in front of the router.
class Server {
public:
    struct Options {
        std::string address = "127.0.0.1";
        std::uint16_t port = 0; ///< 0: any free one
        std::filesystem::path certificate;
        std::filesystem::path privateKey;
        Limits limits;
    };

    Server(const Options& options, const Router& router, Authenticator& authenticator);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    std::uint16_t port() const { return port_; }

private:
    Answer answer(Request& request);
    Answer dispatch(Request& request);
    void watch();

    Limits limits_;
    const Router& router_;
    Authenticator& authenticator_;
    RequestHandler handler_;
    Connections connections_;
    Poco::ThreadPool threads_;
    std::unique_ptr<Poco::Net::TCPServer> server_;
    std::uint16_t port_ = 0;
    std::mutex stopMutex_;
    std::condition_variable stopping_;
    bool stop_ = false;
    std::thread watchdog_;
};

} // namespace kestrel
