#include "security/Users.h"

#include "base/ApiError.h"
#include "base/AtomicFile.h"
#include "base/RandomId.h"
#include "security/PasswordHash.h"

#include <fmt/format.h>

#include <fstream>
#include <mutex>
#include <sstream>
#include <utility>

namespace kestrel::index {

namespace {

constexpr std::size_t kMinimumPasswordLength = 6;
constexpr const char* kSuperuser = "superuser";

ApiError validationError(const std::string& what) {
    return {400, "action_request_validation_exception", fmt::format("Validation Failed: 1: {};", what)};
}

void checkName(const std::string& kind, const std::string& name) {
    static constexpr std::size_t kLongest = 507;
    if (name.empty() || name.size() > kLongest || name.front() == ' ' || name.back() == ' ')
        throw validationError(
            fmt::format("{} names must be at least 1 and no more than {} characters, without "
                        "leading or trailing blanks: [{}]",
                        kind, kLongest, name));
}

std::vector<std::string> strings(const std::string& what, const Json& value) {
    std::vector<std::string> texts;
    if (value.is_string()) return {value.get<std::string>()};
    if (!value.is_array()) throw parsingError(fmt::format("[{}] must be an array of strings", what));
    for (const Json& element : value) {
        if (!element.is_string()) throw parsingError(fmt::format("[{}] must be an array of strings", what));
        texts.push_back(element);
    }
    return texts;
}

std::string passwordFromFile(const std::filesystem::path& file) {
    std::ifstream stream(file);
    if (!stream) return {};
    std::stringstream content;
    content << stream.rdbuf();
    const Json parsed = Json::parse(content.str(), nullptr, false);
    return parsed.is_object() ? parsed.value("password", std::string()) : std::string();
}

} // namespace

Users::Users(DocumentStore& store, WriteQueue& writes) : mWrites(writes) {
    for (auto& [name, body] : store.security("user"))
        mUsers.emplace(name, std::move(body));
    for (auto& [name, body] : store.security("role"))
        mRoles.emplace(name, std::move(body));
}

void Users::ensureAdministrator(const std::filesystem::path& credentials) {
    if (mUsers.contains(kAdministrator)) return;
    // An interrupted first start may have written the file but not the user.
    std::string password = passwordFromFile(credentials);
    if (password.empty()) {
        password = randomId(24);
        writeFileAtomically(credentials,
                            Json{{"user", kAdministrator}, {"password", password}}.dump() + "\n");
    }
    put("user", mUsers, kAdministrator,
        {{"roles", {kSuperuser}}, {"enabled", true}, {"password_hash", hashPassword(password)}});
}

std::string Users::resetPassword(const std::string& name) {
    const auto user = mUsers.find(name);
    Json body = {{"roles", {kSuperuser}}, {"enabled", true}};
    if (user != mUsers.end())
        body = user->second;
    else if (name != kAdministrator)
        throw ApiError(404, "resource_not_found_exception", fmt::format("there is no user [{}]", name));
    std::string password = randomId(24);
    body["password_hash"] = hashPassword(password);
    put("user", mUsers, name, body);
    return password;
}

bool Users::verify(const std::string& name, const std::string& password) const {
    static const Json nobody = unmatchedHash();
    Json hash;
    {
        const std::shared_lock lock(mMutex);
        const auto user = mUsers.find(name);
        hash = user == mUsers.end() ? nobody : user->second.at("password_hash");
    }
    return passwordMatches(hash, password);
}

std::shared_ptr<const Principal> Users::principal(const std::string& name) const {
    const std::shared_lock lock(mMutex);
    const auto user = mUsers.find(name);
    if (user == mUsers.end() || !user->second.value("enabled", true)) return nullptr;
    Rights cluster = 0;
    std::vector<Principal::Grant> grants;
    const std::vector<std::string> names = strings("roles", user->second.at("roles"));
    for (const std::string& roleName : names) {
        if (roleName == kSuperuser) {
            cluster = AllRights;
            grants.push_back({{"*"}, AllRights});
        }
        const auto found = mRoles.find(roleName);
        if (found == mRoles.end()) continue;
        for (const std::string& privilege : strings("cluster", found->second.at("cluster")))
            cluster |= clusterRights(privilege);
        for (const Json& entry : found->second.at("indices")) {
            Rights rights = 0;
            for (const std::string& privilege : strings("privileges", entry.at("privileges")))
                rights |= indexRights(privilege);
            grants.push_back({strings("names", entry.at("names")), rights});
        }
    }
    return std::make_shared<const Principal>(name, names, cluster, std::move(grants));
}

bool Users::putUser(const std::string& name, const Json& body) {
    checkName("User", name);
    if (name == kAdministrator)
        throw illegalArgument(fmt::format("user [{}] is reserved and may not be changed", name));
    if (!body.is_object())
        throw parsingError(fmt::format("failed to parse user [{}]: an object is needed", name));
    Json user = {{"roles", Json::array()},
                 {"full_name", nullptr},
                 {"email", nullptr},
                 {"metadata", Json::object()},
                 {"enabled", true}};
    for (const auto& [key, value] : body.items()) {
        if (key == "password" && value.is_string()) {
            const auto& password = value.get_ref<const std::string&>();
            if (password.size() < kMinimumPasswordLength)
                throw validationError(
                    fmt::format("passwords must be at least [{}] characters long", kMinimumPasswordLength));
            user["password_hash"] = hashPassword(password);
        } else if (key == "roles") {
            user["roles"] = strings("roles", value);
        } else if (key == "enabled" && value.is_boolean()) {
            user["enabled"] = value;
        } else if (key == "full_name" || key == "email" || key == "metadata") {
            user[key] = value;
        } else {
            throw parsingError(fmt::format("failed to parse add user request. unexpected field [{}]", key));
        }
    }
    if (!user.contains("password_hash")) {
        const std::shared_lock lock(mMutex);
        const auto old = mUsers.find(name);
        if (old == mUsers.end())
            throw validationError("password must be specified unless you are updating an existing user");
        user["password_hash"] = old->second.at("password_hash");
    }
    return put("user", mUsers, name, user);
}

bool Users::putRole(const std::string& name, const Json& body) {
    checkName("Role", name);
    if (name == kSuperuser)
        throw illegalArgument(fmt::format("role [{}] is reserved and may not be changed", name));
    if (!body.is_object())
        throw parsingError(fmt::format("failed to parse role [{}]: an object is needed", name));
    Json role = {{"cluster", Json::array()}, {"indices", Json::array()}};
    for (const auto& [key, value] : body.items()) {
        if (key == "cluster") {
            for (const std::string& privilege : strings(key, value))
                clusterRights(privilege);
            role["cluster"] = strings(key, value);
        } else if (key == "indices" && value.is_array()) {
            for (const Json& entry : value) {
                if (!entry.is_object() || entry.size() != 2 || !entry.contains("names") ||
                    !entry.contains("privileges"))
                    throw parsingError(
                        fmt::format("failed to parse role [{}]: an entry of [indices] needs exactly "
                                    "[names] and [privileges]",
                                    name));
                for (const std::string& privilege : strings("privileges", entry.at("privileges")))
                    indexRights(privilege);
                role["indices"].push_back({{"names", strings("names", entry.at("names"))},
                                           {"privileges", strings("privileges", entry.at("privileges"))}});
            }
        } else if (key == "metadata" && value.is_object()) {
            role["metadata"] = value;
        } else {
            throw parsingError(fmt::format("failed to parse role [{}]. unexpected field [{}]", name, key));
        }
    }
    return put("role", mRoles, name, role);
}

bool Users::removeUser(const std::string& name) {
    if (name == kAdministrator)
        throw illegalArgument(fmt::format("user [{}] is reserved and cannot be deleted", name));
    return remove("user", mUsers, name);
}

bool Users::removeRole(const std::string& name) {
    return remove("role", mRoles, name);
}

bool Users::put(const std::string& kind, std::map<std::string, Json>& all, const std::string& name,
                const Json& body) {
    bool created = false;
    mWrites.run([&](WriteBatch& batch) {
        batch.store().putSecurity(kind, name, body);
        batch.afterCommit([&] {
            const std::unique_lock lock(mMutex);
            created = all.insert_or_assign(name, body).second;
            ++mGeneration;
        });
    });
    return created;
}

bool Users::remove(const std::string& kind, std::map<std::string, Json>& all, const std::string& name) {
    bool found = false;
    mWrites.run([&](WriteBatch& batch) {
        batch.store().removeSecurity(kind, name);
        batch.afterCommit([&] {
            const std::unique_lock lock(mMutex);
            found = all.erase(name) > 0;
            ++mGeneration;
        });
    });
    return found;
}

std::optional<Json> Users::user(const std::string& name) const {
    const std::shared_lock lock(mMutex);
    const auto found = mUsers.find(name);
    if (found == mUsers.end()) return std::nullopt;
    Json shown = {{"username", name}};
    shown.update(found->second);
    shown.erase("password_hash");
    return shown;
}

std::optional<Json> Users::role(const std::string& name) const {
    const std::shared_lock lock(mMutex);
    const auto found = mRoles.find(name);
    return found == mRoles.end() ? std::nullopt : std::optional(found->second);
}

std::vector<std::string> Users::userNames() const {
    const std::shared_lock lock(mMutex);
    std::vector<std::string> names;
    for (const auto& [name, body] : mUsers)
        names.push_back(name);
    return names;
}

std::vector<std::string> Users::roleNames() const {
    const std::shared_lock lock(mMutex);
    std::vector<std::string> names;
    for (const auto& [name, body] : mRoles)
        names.push_back(name);
    return names;
}

} // namespace kestrel::index
