#include "handlers/Router.h"

#include "base/ApiError.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace kestrel::index {

namespace {

std::vector<std::string> split(const std::string& pattern) {
    Request parts;
    parseTarget(pattern, parts);
    return parts.path;
}

/// They only affect the layout of answers, and are ignored.
constexpr std::array<std::string_view, 4> kEverywhere{"pretty", "human", "error_trace", "format"};

} // namespace

void Router::add(std::vector<std::string> methods, const std::string& pattern,
                 std::vector<std::string> allowed, Handler handler) {
    mRoutes.push_back({std::move(methods), split(pattern), std::move(allowed), std::move(handler)});
}

bool Router::matches(const Route& route, const std::vector<std::string>& path, PathParams& params) {
    if (route.pattern.size() != path.size()) return false;
    params.clear();
    for (std::size_t i = 0; i < path.size(); ++i) {
        const std::string& part = route.pattern[i];
        if (part.front() != '{') {
            if (part != path[i]) return false;
            continue;
        }
        const std::string name = part.substr(1, part.size() - 2);
        if (name == "index" && path[i].front() == '_' && path[i] != "_all") return false;
        params[name] = path[i];
    }
    return true;
}

void Router::checkParameters(const Route& route, const Request& request) {
    for (const auto& [name, value] : request.params) {
        const bool known = std::find(kEverywhere.begin(), kEverywhere.end(), name) != kEverywhere.end() ||
                           std::find(route.allowed.begin(), route.allowed.end(), name) != route.allowed.end();
        if (!known)
            throw illegalArgument(
                fmt::format("request [{}] contains unrecognized parameter: [{}]", request.uri, name));
    }
}

Answer Router::dispatch(const Request& request) const {
    std::vector<std::string> otherMethods;
    PathParams params;
    for (const Route& route : mRoutes) {
        if (!matches(route, request.path, params)) continue;
        if (std::find(route.methods.begin(), route.methods.end(), request.method) != route.methods.end()) {
            checkParameters(route, request);
            return route.handler(request, params);
        }
        otherMethods.insert(otherMethods.end(), route.methods.begin(), route.methods.end());
    }
    if (otherMethods.empty())
        return Answer::json({{"error", fmt::format("no handler found for uri [{}] and method [{}]",
                                                   request.uri, request.method)}},
                            400);
    std::sort(otherMethods.begin(), otherMethods.end());
    Answer answer = Answer::json(
        {{"error", fmt::format("Incorrect HTTP method for uri [{}] and method [{}], allowed: [{}]",
                               request.uri, request.method, fmt::join(otherMethods, ", "))},
         {"status", 405}},
        405);
    answer.headers.emplace_back("Allow", fmt::format("{}", fmt::join(otherMethods, ",")));
    return answer;
}

} // namespace kestrel::index
