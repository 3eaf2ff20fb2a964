#pragma once

#include "apps/kestrel/desk/Http.h"

#include <functional>
#include <string>
#include <vector>

namespace kestrel::desk {

using Handler = std::function<void(Exchange&)>;

/// Which function answers which request.
class Routes {
public:
    /// @param pattern Such as "/api/clips/*": a star stands for one part of the path.
    void add(const std::string& method, const std::string& pattern, Handler handler);
    /// @throws HttpError 404 for an unknown path, 405 for one that knows other methods only.
    const Handler& find(const Exchange& exchange) const;

private:
    struct Route {
        std::string method;
        std::vector<std::string> parts;
        Handler handler;
    };
    std::vector<Route> mRoutes;
};

} // namespace kestrel::desk
