#pragma once

#include "handlers/Router.h"
#include "http/Connection.h"
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

namespace kestrel::index {

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

    std::uint16_t port() const { return mPort; }

private:
    Answer answer(Request& request);
    Answer dispatch(Request& request);
    void watch();

    Limits mLimits;
    const Router& mRouter;
    Authenticator& mAuthenticator;
    RequestHandler mHandler;
    Connections mConnections;
    Poco::ThreadPool mThreads;
    std::unique_ptr<Poco::Net::TCPServer> mServer;
    std::uint16_t mPort = 0;
    std::mutex mStopMutex;
    std::condition_variable mStopping;
    bool mStop = false;
    std::thread mWatchdog;
};

} // namespace kestrel::index
