#pragma once

#include "tests/support/IndexService.h"
#include "tests/support/ScriptedServer.h"

#include <cstddef>
#include <string>
#include <vector>

namespace kestrel_test {

/// A way in which a request can fail.
struct Fault {
    const char* name = nullptr;
    Reply reply;
    /// The service does what it was asked; only its answer is lost.
    bool isAnswerLost = false;
};

/// What every operation must survive at each of its requests.
const std::vector<Fault>& faults();

/// Stands between a store and an index service, passes requests on, and lets one of them fail.
class FaultProxy {
public:
    explicit FaultProxy(const IndexService& service);
    ~FaultProxy();
    FaultProxy(const FaultProxy&) = delete;
    FaultProxy& operator=(const FaultProxy&) = delete;

    /// Base address for the store, ending in "/".
    std::string uri() const { return mServer.uri(); }

    /// From now on every request is passed on. Forgets earlier requests.
    void pass();
    /// The same, but for the request `position`, counted from 0.
    void failAt(std::size_t position, const Fault& fault);
    /// Requests since then, as "METHOD /path".
    std::vector<std::string> conversation() const { return mServer.conversation(); }

    /// Sends a request of the test's own to the service, as its administrator. Throws unless the service
    /// takes it.
    std::string ask(const std::string& method, const std::string& path, const std::string& body = "");

private:
    class Upstream;

    std::unique_ptr<Upstream> mUpstream;
    ScriptedServer mServer;
};

} // namespace kestrel_test
