// The conversations of conversations.txt: what each operation of the store asks, and what it makes of the
// answers.

#include "kestrelml/store/Schema.h"
#include "tests/store/Operations.h"
#include "tests/store/ScriptedStore.h"

#include <sstream>

namespace kestrel_test {
namespace {

struct Exchange {
    std::string request; ///< "METHOD /path"
    std::string body;
    Reply answer = ok();
};

/// The exchanges that a line of conversations.txt, which says how it is written, stands for.
std::vector<Exchange> exchangesOf(const std::string& line) {
    std::vector<Exchange> exchanges;
    if (line.starts_with("create ")) {
        std::ostringstream mapping;
        kestrelml::detail::indexDefinition()->stringify(mapping);
        const std::string index = " /" + line.substr(7);
        return {{"GET" + index, "", missing()}, {"PUT" + index, mapping.str()}, {"GET" + index, ""}};
    }
    if (line.starts_with("refresh ")) {
        std::istringstream indices(line.substr(8));
        for (std::string index; indices >> index;) {
            const bool isEvery = index == "/";
            exchanges.push_back({"GET /" + (isEvery ? "clips" : index), ""});
            exchanges.push_back({"POST /" + (isEvery ? "" : index) + "/_refresh", ""});
        }
        return exchanges;
    }
    Exchange exchange;
    const std::size_t answer = line.rfind(" < ");
    if (answer != std::string::npos) {
        const std::string text = line.substr(answer + 3);
        const bool hasStatus = std::isdigit(static_cast<unsigned char>(text[0])) != 0;
        const std::string body = hasStatus ? text.substr(std::min<std::size_t>(4, text.size())) : text;
        exchange.answer = Reply::json(hasStatus ? std::stoi(text) : 200, body.empty() ? "{}" : body);
    }
    const std::string request = line.substr(0, answer);
    const std::size_t body = request.find(' ', request.find(' ') + 1);
    exchange.request = request.substr(0, body);
    if (body != std::string::npos) exchange.body = request.substr(body + 1);
    return {exchange};
}

class Conversations : public ScriptedStore {
protected:
    void check(const Block& block) {
        std::vector<Exchange> expected;
        for (const std::string& line : block.lines) {
            for (Exchange& exchange : exchangesOf(line))
                expected.push_back(std::move(exchange));
        }
        mServer.reset();
        for (const Exchange& exchange : expected)
            mServer.script({exchange.answer});
        const std::size_t end = block.heading.rfind("] = ");
        const std::string call = block.heading.substr(0, end);
        expectCall(*mStore, call.substr(0, call.find(": ")), block.heading.substr(end + 4));
        KsNNDatabase::setTranscriptIndex("clips");

        const auto requests = mServer.requests();
        for (std::size_t i = 0; i < std::min(requests.size(), expected.size()); ++i) {
            EXPECT_EQ(requests[i].line(), expected[i].request);
            if (expected[i].body == "bulk") continue;
            EXPECT_EQ(json(requests[i].body), json(expected[i].body)) << requests[i].line();
        }
        EXPECT_EQ(requests.size(), expected.size());
    }

private:
    static std::string json(const std::string& text) { return text.empty() ? text : normalised(text); }
};

TEST_F(Conversations, AreAsWritten) {
    const std::vector<Block> blocks = readBlocks(KESTREL_STORE_TESTS "/conversations.txt");
    EXPECT_GT(blocks.size(), 100U);
    for (const Block& block : blocks) {
        SCOPED_TRACE("[" + block.heading);
        check(block);
    }
}

TEST_F(Conversations, DebugOnlyPrints) {
    mServer.otherwise([](const RecordedRequest& request) {
        if (request.target.find("_count") != std::string::npos) return count(1);
        return request.target == "/clips/_doc" ? Reply::json(201, R"({"result": "created"})") : missing();
    });
    const auto write = [&](bool debug) {
        mServer.reset();
        testing::internal::CaptureStdout();
        mStore->WriteToDBVer1(someClip(), someSegment("m", 1), debug);
        return std::pair{mServer.conversation(), testing::internal::GetCapturedStdout()};
    };
    const auto [quietly, nothing] = write(false);
    const auto [loudly, trace] = write(true);
    EXPECT_EQ(quietly, loudly);
    EXPECT_EQ(nothing, "");
    EXPECT_THAT(trace, testing::HasSubstr("\nresult: created\n"));
    EXPECT_THAT(trace, testing::HasSubstr("RESTCall: No stored encrypted credentials. Using "
                                          "transcript_user_dbg credentials.\n"));
}

// A service that is starting gets four seconds.
TEST(Deletion, WaitsForAServiceAndSaysThatItIsNotRunning) {
    ScriptedServer server;
    KsNNDatabase store(server.uri().c_str(), "clips", nullptr, "images", false);
    server.reset();
    EXPECT_EQ(store.DeleteAllInProgressEntries(false), KsNN_Error);
    EXPECT_EQ(server.conversation(), (std::vector<std::string>(4, "GET /")));
    EXPECT_THAT(store.GetErrorStr(), testing::HasSubstr(", Indexing database is not running. WordHunt and "
                                                        "LineMatch are unavailable.\n"));
}

} // namespace
} // namespace kestrel_test
