#include "base/ApiError.h"
#include "handlers/Handlers.h"

#include <fmt/format.h>

#include <string>

namespace kestrel::index {

namespace {

constexpr int kMaximumShards = 1024;

std::string countSetting(const std::string& key, const Json& value, int low) {
    std::string text = value.is_string() ? value.get<std::string>() : value.dump();
    const bool digits =
        !text.empty() && text.size() < 5 && text.find_first_not_of("0123456789") == std::string::npos;
    if (!digits || std::stoi(text) < low || std::stoi(text) > kMaximumShards)
        throw illegalArgument(
            fmt::format("Failed to parse value [{}] for setting [index.{}] must be between {} and {}", text,
                        key, low, kMaximumShards));
    return text;
}

/// The settings, in the form in which they are shown. They are stored but have no effect.
Json checkSettings(const Json& settings) {
    Json checked = Json::object();
    if (!settings.is_object()) throw parsingError("[settings] must be an object");
    for (const auto& [name, value] : settings.items()) {
        if (name == "index") {
            checked.update(checkSettings(value));
            continue;
        }
        const std::string key = name.starts_with("index.") ? name.substr(6) : name;
        if (key == "number_of_shards")
            checked[key] = countSetting(key, value, 1);
        else if (key == "number_of_replicas")
            checked[key] = countSetting(key, value, 0);
        else if (key == "refresh_interval" && value.is_string())
            checked[key] = value;
        else
            throw illegalArgument(fmt::format("unknown setting [index.{}]", key));
    }
    return checked;
}

Json describe(const Index& index) {
    Json settings = {{"creation_date", std::to_string(index.info().createdMs)},
                     {"number_of_shards", "1"},
                     {"number_of_replicas", "0"},
                     {"uuid", index.info().uuid},
                     {"provided_name", index.name()}};
    settings.update(index.info().settings);
    return {{"aliases", Json::object()},
            {"mappings", index.mapping()->toJson()},
            {"settings", {{"index", settings}}}};
}

Answer create(Services& services, const Request& request, const std::string& name) {
    request.user->require(RightCreateIndex, name, "indices:admin/create");
    const Json body = request.json();
    Json settings = Json::object();
    Json mappings = Json::object();
    if (!body.is_null() && !body.is_object())
        throw parsingError("the body of a create request must be an object");
    for (const auto& [key, value] : body.items()) {
        if (key == "settings")
            settings = checkSettings(value);
        else if (key == "mappings" && value.is_object())
            mappings = value;
        else
            throw parsingError(fmt::format("unknown key [{}] for create index", key));
    }
    services.catalogue.create(name, settings, mappings);
    return Answer::json({{"acknowledged", true}, {"shards_acknowledged", true}, {"index", name}});
}

Answer remove(Services& services, const Request& request, const std::string& name) {
    request.user->require(RightDeleteIndex, name, "indices:admin/delete");
    if (name.find_first_of("*?,") != std::string::npos || name == "_all")
        throw illegalArgument("Wildcard expressions or all indices are not allowed");
    if (const IndexPtr removed = services.catalogue.remove(name)) services.scrolls.closeIndex(*removed);
    return Answer::json({{"acknowledged", true}});
}

Answer refresh(Services& services, const Request& request, const std::string& expression) {
    // Every acknowledged write is visible already: this only checks that the indices exist.
    const std::size_t count =
        resolveIndices(services, *request.user, expression, RightMaintain, "indices:admin/refresh").size();
    return Answer::json({{"_shards", {{"total", count}, {"successful", count}, {"failed", 0}}}});
}

} // namespace

void addIndexHandlers(Router& router, Services& services) {
    const std::vector<std::string> expansion{"allow_no_indices", "ignore_unavailable", "expand_wildcards"};
    const std::vector<std::string> waiting{"timeout", "master_timeout", "wait_for_active_shards"};
    router.add({"GET", "HEAD"}, "{index}", expansion,
               [&services](const Request& request, const Router::PathParams& params) {
                   Json shown = Json::object();
                   for (const IndexPtr& index : resolveIndices(services, *request.user, params.at("index"),
                                                               RightViewMetadata, "indices:admin/get"))
                       shown[index->name()] = describe(*index);
                   return Answer::json(shown);
               });
    router.add({"PUT"}, "{index}", waiting,
               [&services](const Request& request, const Router::PathParams& params) {
                   return create(services, request, params.at("index"));
               });
    router.add({"DELETE"}, "{index}", waiting,
               [&services](const Request& request, const Router::PathParams& params) {
                   return remove(services, request, params.at("index"));
               });
    router.add({"POST", "GET"}, "{index}/_refresh", expansion,
               [&services](const Request& request, const Router::PathParams& params) {
                   return refresh(services, request, params.at("index"));
               });
    router.add({"POST", "GET"}, "_refresh", expansion,
               [&services](const Request& request, const Router::PathParams&) {
                   return refresh(services, request, "*");
               });
    router.add({"GET"}, "{index}/_mapping", expansion,
               [&services](const Request& request, const Router::PathParams& params) {
                   Json shown = Json::object();
                   for (const IndexPtr& index :
                        resolveIndices(services, *request.user, params.at("index"), RightViewMetadata,
                                       "indices:admin/mappings/get"))
                       shown[index->name()] = {{"mappings", index->mapping()->toJson()}};
                   return Answer::json(shown);
               });
}

} // namespace kestrel::index
