#pragma once

#include "handlers/Request.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace kestrel::index {

/// Finds the handler of a request. Patterns are paths such as "{index}/_doc/{id}"; a part in braces takes any
/// text that does not begin with "_" (an identifier takes any).
class Router {
public:
    using PathParams = std::map<std::string, std::string>;
    using Handler = std::function<Answer(const Request&, const PathParams&)>;

    /// allowed: parameters of the query that the handler knows, besides those that every request may have.
    void add(std::vector<std::string> methods, const std::string& pattern, std::vector<std::string> allowed,
             Handler handler);

    /// Refuses unknown paths with 400, known ones with another method with 405, unknown parameters with 400.
    Answer dispatch(const Request& request) const;

private:
    struct Route {
        std::vector<std::string> methods;
        std::vector<std::string> pattern;
        std::vector<std::string> allowed;
        Handler handler;
    };

    static bool matches(const Route& route, const std::vector<std::string>& path, PathParams& params);
    static void checkParameters(const Route& route, const Request& request);

    std::vector<Route> mRoutes;
};

} // namespace kestrel::index
