#pragma once

#include "handlers/Request.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace kestrel::index {

/// Finds the handler of a request. Patterns are paths such as "{index}/_doc/{id}"; a part in braces matches
/// any text; {index} only "_all" and what does not begin with "_".
class Router {
public:
    using PathParams = std::map<std::string, std::string>;
    using Handler = std::function<Answer(const Request&, const PathParams&)>;

    /// allowed: the query parameters that the handler accepts, besides those accepted everywhere.
    void add(std::vector<std::string> methods, const std::string& pattern, std::vector<std::string> allowed,
             Handler handler);

    /// Answers unknown paths and parameters with 400, and known paths with another method with 405.
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
