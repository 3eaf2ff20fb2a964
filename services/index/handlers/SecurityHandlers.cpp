#include "base/ApiError.h"
#include "handlers/Handlers.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kestrel::index {

namespace {

using Params = Router::PathParams;

Answer listed(const std::vector<std::string>& names,
              const std::function<std::optional<Json>(const std::string&)>& show) {
    Json all = Json::object();
    for (const std::string& name : names)
        if (const auto shown = show(name)) all[name] = *shown;
    return Answer::json(all, all.empty() ? 404 : 200);
}

void requireManager(const Request& request, const std::string& action) {
    request.user->requireCluster(RightManageSecurity, action);
}

} // namespace

void addSecurityHandlers(Router& router, Services& services) {
    Users& users = services.users;
    router.add(
        {"PUT", "POST"}, "_security/role/{name}", {"refresh"},
        [&users](const Request& request, const Params& params) {
            requireManager(request, "cluster:admin/xpack/security/role/put");
            return Answer::json({{"role", {{"created", users.putRole(params.at("name"), request.json())}}}});
        });
    router.add({"PUT", "POST"}, "_security/user/{name}", {"refresh"},
               [&users](const Request& request, const Params& params) {
                   requireManager(request, "cluster:admin/xpack/security/user/put");
                   return Answer::json({{"created", users.putUser(params.at("name"), request.json())}});
               });
    router.add({"DELETE"}, "_security/role/{name}", {"refresh"},
               [&users](const Request& request, const Params& params) {
                   requireManager(request, "cluster:admin/xpack/security/role/delete");
                   const bool found = users.removeRole(params.at("name"));
                   return Answer::json({{"found", found}}, found ? 200 : 404);
               });
    router.add({"DELETE"}, "_security/user/{name}", {"refresh"},
               [&users](const Request& request, const Params& params) {
                   requireManager(request, "cluster:admin/xpack/security/user/delete");
                   const bool found = users.removeUser(params.at("name"));
                   return Answer::json({{"found", found}}, found ? 200 : 404);
               });
    router.add({"GET"}, "_security/role/{name}", {}, [&users](const Request& request, const Params& params) {
        requireManager(request, "cluster:admin/xpack/security/role/get");
        return listed({params.at("name")}, [&](const std::string& name) { return users.role(name); });
    });
    router.add({"GET"}, "_security/user/{name}", {}, [&users](const Request& request, const Params& params) {
        requireManager(request, "cluster:admin/xpack/security/user/get");
        return listed({params.at("name")}, [&](const std::string& name) { return users.user(name); });
    });
    router.add({"GET"}, "_security/role", {}, [&users](const Request& request, const Params&) {
        requireManager(request, "cluster:admin/xpack/security/role/get");
        return listed(users.roleNames(), [&](const std::string& name) { return users.role(name); });
    });
    router.add({"GET"}, "_security/user", {}, [&users](const Request& request, const Params&) {
        requireManager(request, "cluster:admin/xpack/security/user/get");
        return listed(users.userNames(), [&](const std::string& name) { return users.user(name); });
    });
}

} // namespace kestrel::index
