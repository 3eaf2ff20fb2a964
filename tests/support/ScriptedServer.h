#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kestrel_test {

/// A request as it came over the wire.
struct RecordedRequest {
    std::string method;
    std::string target; ///< Path and query, not decoded.
    std::map<std::string, std::string> headers;
    std::string body;

    /// "POST /index/_search", for comparing whole conversations.
    std::string line() const { return method + " " + target; }
};

/// What the server does with one request.
struct Reply {
    enum class Fault {
        None,
        CutConnection, ///< Closes without a byte of answer.
        CutAnswer,     ///< Closes in the middle of the body.
        Stall,         ///< Says nothing for `delay`, then closes.
    };

    int status = 200;
    std::string body = "{}";
    std::string contentType = "application/json";
    Fault fault = Fault::None;
    std::chrono::milliseconds delay{0}; ///< Before anything is sent.

    static Reply json(int status, std::string body);
    static Reply html(int status = 200);
    static Reply empty(int status = 200);
    static Reply cutConnection();
    static Reply cutAnswer();
    static Reply stall(std::chrono::milliseconds delay = std::chrono::minutes(1));
};

/// A real HTTP or HTTPS server on 127.0.0.1 that answers from a script and records what it was asked.
///
/// Requests beyond the script are answered by `otherwise`: status 500 unless set. All members may be called
/// while requests run. Destruction ends stalls.
class ScriptedServer {
public:
    enum class Protocol { Http, Https };

    explicit ScriptedServer(Protocol protocol = Protocol::Https);
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    /// Base address, ending in "/".
    std::string uri() const;

    /// Appends to the script.
    void script(std::vector<Reply> replies);
    /// Answers what the script does not cover.
    void otherwise(std::function<Reply(const RecordedRequest&)> answer);

    std::vector<RecordedRequest> requests() const;
    /// `RecordedRequest::line` of each.
    std::vector<std::string> conversation() const;
    /// Forgets requests and script.
    void reset();

private:
    struct State;
    class Handler;
    class Factory;
    class Listener;

    std::shared_ptr<State> mState;
    std::unique_ptr<Listener> mListener;
    std::string mScheme;
};

} // namespace kestrel_test
