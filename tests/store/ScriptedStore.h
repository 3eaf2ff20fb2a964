#pragma once

#include "kestrelml/store/KsNNDatabase.h"
#include "tests/support/ScriptedServer.h"

#include <Poco/JSON/Parser.h>
#include <gmock/gmock.h>

#include <memory>

namespace kestrel_test {

/// A store whose index service is scripted. Its indices are called "clips" and "images".
class ScriptedStore : public testing::Test {
protected:
    ScriptedStore() {
        mServer.otherwise([](const RecordedRequest&) { return Reply::json(200, "{}"); });
        mStore = std::make_unique<KsNNDatabase>(mServer.uri().c_str(), "clips", nullptr, "images", false);
        mServer.otherwise([](const RecordedRequest& request) {
            ADD_FAILURE() << "unexpected request " << request.line();
            return Reply::json(500, "{}");
        });
        mServer.reset();
    }

    /// What a request sent, as JSON with sorted keys.
    std::string bodyOf(std::size_t request) const { return normalised(mServer.requests().at(request).body); }

    static std::string normalised(const std::string& json) {
        Poco::JSON::Parser parser;
        return Poco::Dynamic::Var::toString(parser.parse(json));
    }

    ScriptedServer mServer;
    std::unique_ptr<KsNNDatabase> mStore;
};

inline Reply ok(std::string body = "{}") {
    return Reply::json(200, std::move(body));
}
inline Reply missing() {
    return Reply::json(404, "{}");
}
inline Reply count(int n) {
    return ok(R"({"count": )" + std::to_string(n) + "}");
}
inline Reply hits(const std::string& elements) {
    return ok(R"({"hits": {"hits": [)" + elements + "]}}");
}

} // namespace kestrel_test
