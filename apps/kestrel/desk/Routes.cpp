#include "apps/kestrel/desk/Routes.h"

#include <Poco/StringTokenizer.h>

#include <algorithm>
#include <utility>

namespace kestrel::desk {

void Routes::add(const std::string& method, const std::string& pattern, Handler handler) {
    const Poco::StringTokenizer parts(pattern, "/", Poco::StringTokenizer::TOK_IGNORE_EMPTY);
    mRoutes.push_back({method, {parts.begin(), parts.end()}, std::move(handler)});
}

const Handler& Routes::find(const Exchange& exchange) const {
    const std::string method = exchange.request.getMethod() == "HEAD" ? "GET" : exchange.request.getMethod();
    bool isKnown = false;
    for (const Route& route : mRoutes) {
        const bool matches =
            std::equal(route.parts.begin(), route.parts.end(), exchange.path.begin(), exchange.path.end(),
                       [](const std::string& part, const std::string& given) {
                           return part == "*" ? !given.empty() : part == given;
                       });
        if (matches && route.method == method) return route.handler;
        isKnown = isKnown || matches;
    }
    if (isKnown) throw HttpError(405, "this address does not take " + exchange.request.getMethod());
    throw HttpError(404, "there is no such address");
}

} // namespace kestrel::desk
