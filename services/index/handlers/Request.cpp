#include "handlers/Request.h"

#include "base/Utf8.h"

#include <Poco/Exception.h>
#include <Poco/URI.h>
#include <fmt/format.h>

#include <algorithm>

namespace kestrel::index {

namespace {

std::string decode(const std::string& text, bool plusAsSpace) {
    std::string decoded;
    Poco::URI::decode(text, decoded, plusAsSpace);
    if (!isUtf8(decoded)) throw illegalArgument(fmt::format("[{}] is not UTF-8", text));
    return decoded;
}

void parsePath(const std::string& path, Request& request) {
    for (std::size_t start = 0; start < path.size();) {
        const std::size_t end = std::min(path.find('/', start), path.size());
        if (end > start) request.path.push_back(decode(path.substr(start, end - start), false));
        start = end + 1;
    }
}

void parseQuery(const std::string& query, Request& request) {
    for (std::size_t start = 0; start < query.size();) {
        const std::size_t end = std::min(query.find('&', start), query.size());
        const std::size_t equals = std::min(query.find('=', start), end);
        const std::string value = equals < end ? query.substr(equals + 1, end - equals - 1) : std::string();
        if (end > start)
            request.params[decode(query.substr(start, equals - start), true)] = decode(value, true);
        start = end + 1;
    }
}

} // namespace

Answer errorAnswer(const ApiError& error) {
    Answer answer = Answer::json(error.body(), error.status());
    if (error.status() == 401)
        answer.headers.emplace_back("WWW-Authenticate", R"(Basic realm="security", charset="UTF-8")");
    return answer;
}

void parseTarget(const std::string& target, Request& request) {
    request.uri = target;
    const std::size_t mark = std::min(target.find('?'), target.size());
    try {
        parsePath(target.substr(0, mark), request);
        if (mark < target.size()) parseQuery(target.substr(mark + 1), request);
    } catch (const Poco::Exception& e) {
        throw illegalArgument(fmt::format("malformed request target [{}]: {}", target, e.displayText()));
    }
}

} // namespace kestrel::index
