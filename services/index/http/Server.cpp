#include "http/Server.h"

#include "base/ApiError.h"
#include "http/Session.h"
#include "storage/DataFolder.h"

#include <boost/asio/io_context.hpp>
#include <fmt/format.h>
#include <openssl/ssl.h>
#include <spdlog/spdlog.h>

#include <atomic>
#include <condition_variable>
#include <list>
#include <mutex>
#include <sys/socket.h>
#include <thread>
#include <utility>

namespace kestrel::index {

namespace {

namespace asio = boost::asio;
using asio::ip::tcp;

constexpr int kBacklog = 512;
/// Connections beyond the limit that receive an error; any more are closed silently.
constexpr std::size_t kToldOfRefusal = 16;
/// After an error such as running out of descriptors.
constexpr std::chrono::milliseconds kAcceptPause{50};

asio::ssl::context makeTls(const Server::Options& options) {
    asio::ssl::context tls(asio::ssl::context::tls_server);
    SSL_CTX_set_min_proto_version(tls.native_handle(), TLS1_2_VERSION);
    SSL_CTX_set_options(tls.native_handle(), SSL_OP_NO_RENEGOTIATION);
    static constexpr unsigned char kSessions[] = "kestrel-index";
    SSL_CTX_set_session_id_context(tls.native_handle(), kSessions, sizeof kSessions - 1);
    const std::filesystem::path* file = &options.certificate;
    try {
        tls.use_certificate_chain_file(options.certificate.string());
        file = &options.privateKey;
        tls.use_private_key_file(options.privateKey.string(), asio::ssl::context::pem);
    } catch (const boost::system::system_error& e) {
        throw DataFolderError(
            fmt::format("{} cannot be used: {}; remove both {} and {} to have new ones made", file->string(),
                        e.code().message(), options.certificate.string(), options.privateKey.string()));
    }
    return tls;
}

/// Browsers send other content types across origins without a preflight request; this keeps web pages out.
void checkContentType(const Request& request) {
    const std::string& type = request.contentType;
    if (type.starts_with("application/json") || type.starts_with("application/x-ndjson") ||
        type.starts_with("application/vnd.elasticsearch+"))
        return;
    throw ApiError(406, "media_type_header_exception",
                   fmt::format("Content-Type header [{}] is not supported", type));
}

/// Threads that end by themselves and are joined later.
class Threads {
public:
    ~Threads() {
        for (Entry& entry : mEntries)
            entry.thread.join();
    }
    template <typename Body>
    void start(Body body) {
        mEntries.remove_if([](Entry& entry) {
            const bool done = entry.done;
            if (done) entry.thread.join();
            return done;
        });
        Entry& entry = mEntries.emplace_back();
        try {
            entry.thread = std::thread([&entry, body = std::move(body)]() mutable {
                body();
                entry.done = true;
            });
        } catch (...) {
            mEntries.pop_back();
            throw;
        }
    }

private:
    struct Entry {
        std::thread thread;
        std::atomic<bool> done{false};
    };
    std::list<Entry> mEntries;
};

} // namespace

class Server::Listener {
public:
    Listener(const Options& options, const Router& router, Authenticator& authenticator)
        : mLimits(options.limits), mRouter(router), mAuthenticator(authenticator), mTls(makeTls(options)),
          mAcceptor(mNetwork), mConnections(options.limits.clients), mMemory(options.limits.memoryBytes) {
        listen(options);
        mAcceptThread = std::thread([this] { acceptAll(); });
        mWatchThread = std::thread([this] { watch(); });
    }

    ~Listener() {
        stop(mStopAccepting);
        ::shutdown(mAcceptor.native_handle(), SHUT_RDWR); // wakes the thread blocked in accept
        mAcceptThread.join();
        mConnections.shutdownAll();
        mThreads.reset();
        stop(mStopWatching); // until then clients that do not read their answers are cut off
        mWatchThread.join();
    }

    std::uint16_t port() const { return mAcceptor.local_endpoint().port(); }

private:
    void listen(const Options& options) {
        boost::system::error_code error;
        const auto address = asio::ip::make_address(options.address, error);
        const auto check = [&](const boost::system::error_code& failed) {
            if (failed)
                throw AddressError(fmt::format("cannot listen on {}:{}: {}", options.address, options.port,
                                               failed.message()));
        };
        check(error);
        const tcp::endpoint endpoint(address, options.port);
        check(mAcceptor.open(endpoint.protocol(), error));
        check(mAcceptor.set_option(tcp::acceptor::reuse_address(true), error));
        check(mAcceptor.bind(endpoint, error));
        check(mAcceptor.listen(kBacklog, error));
    }

    void acceptAll() {
        for (;;) {
            tcp::socket socket(mNetwork);
            boost::system::error_code error;
            mAcceptor.accept(socket, error);
            {
                std::unique_lock lock(mStopMutex);
                if (mStopAccepting) return;
                if (error) mStopping.wait_for(lock, kAcceptPause, [this] { return mStopAccepting; });
            }
            if (error || mConnections.count(Connections::State::Refused) >= kToldOfRefusal) continue;
            serve(std::move(socket));
        }
    }

    void serve(tcp::socket socket) try {
        auto session = std::make_unique<Session>(std::move(socket), mContext);
        mThreads->start([session = std::move(session)]() mutable {
            try {
                session->run();
            } catch (const std::exception& e) {
                spdlog::error("a connection ended: {}", e.what());
            }
            session.reset();
        });
    } catch (const std::exception& e) {
        spdlog::error("a connection could not be served: {}", e.what());
    }

    void stop(bool& flag) {
        {
            const std::lock_guard lock(mStopMutex);
            flag = true;
        }
        mStopping.notify_all();
    }

    void watch() {
        std::unique_lock lock(mStopMutex);
        while (!mStopping.wait_for(lock, std::chrono::seconds(1), [this] { return mStopWatching; }))
            mConnections.shutdownOverdue();
    }

    void admit(Request& request) try {
        request.user = mAuthenticator.authenticate(request.authorization, request.method, request.uri);
        parseTarget(request.uri, request);
        if (request.hasBody) checkContentType(request);
    } catch (const ApiError&) {
        throw;
    } catch (const std::exception& e) {
        throw unexpected(request, e);
    }

    Answer answer(const Request& request) try {
        return mRouter.dispatch(request);
    } catch (const ApiError& e) {
        return errorAnswer(e);
    } catch (const std::exception& e) {
        return errorAnswer(unexpected(request, e));
    }

    static ApiError unexpected(const Request& request, const std::exception& error) {
        spdlog::error("{} {}: {}", request.method, request.uri, error.what());
        return {500, "exception", error.what()};
    }

    const Limits mLimits;
    const Router& mRouter;
    Authenticator& mAuthenticator;
    asio::ssl::context mTls;
    asio::io_context mNetwork;
    tcp::acceptor mAcceptor;
    Connections mConnections;
    MemoryBudget mMemory;
    const RequestHandler mHandler{[this](Request& request) { admit(request); },
                                  [this](const Request& request) { return answer(request); }};
    const SessionContext mContext{mLimits, mConnections, mMemory, mHandler, mTls};
    std::mutex mStopMutex;
    std::condition_variable mStopping;
    bool mStopAccepting = false;
    bool mStopWatching = false;
    std::unique_ptr<Threads> mThreads = std::make_unique<Threads>();
    std::thread mAcceptThread;
    std::thread mWatchThread;
};

Server::Server(const Options& options, const Router& router, Authenticator& authenticator)
    : mListener(std::make_unique<Listener>(options, router, authenticator)) {
}

Server::~Server() = default;

std::uint16_t Server::port() const {
    return mListener->port();
}

} // namespace kestrel::index
