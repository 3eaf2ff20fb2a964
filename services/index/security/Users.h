#pragma once

#include "security/Privileges.h"
#include "storage/WriteQueue.h"

#include <atomic>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <shared_mutex>
#include <string>

namespace kestrel::index {

/// Users with their hashed passwords, and roles, as stored.
class Users {
public:
    static constexpr const char* kAdministrator = "kestrel_admin";

    /// Reads the store, which must not be written to meanwhile.
    Users(DocumentStore& store, WriteQueue& writes);

    /// Creates the administrator on the first start and writes its random password to the file, which only
    /// its owner can read.
    void ensureAdministrator(const std::filesystem::path& credentials);

    /// Gives the user a random password and returns it; creates the administrator if missing. Throws an
    /// ApiError when there is no such user.
    std::string resetPassword(const std::string& name);

    /// Whether the password is right. Takes as long for an unknown user.
    bool verify(const std::string& name, const std::string& password) const;
    /// Null when the user is unknown or disabled.
    std::shared_ptr<const Principal> principal(const std::string& name) const;

    /// Return whether the user or role is new (put) or existed (remove).
    bool putUser(const std::string& name, const Json& body);
    bool putRole(const std::string& name, const Json& body);
    bool removeUser(const std::string& name);
    bool removeRole(const std::string& name);
    /// As shown to clients, without the hash; nothing when unknown.
    std::optional<Json> user(const std::string& name) const;
    std::optional<Json> role(const std::string& name) const;
    std::vector<std::string> userNames() const;
    std::vector<std::string> roleNames() const;

    /// Increases with every change, which invalidates caches.
    std::uint64_t generation() const { return mGeneration; }

private:
    bool put(const std::string& kind, std::map<std::string, Json>& all, const std::string& name,
             const Json& body);
    bool remove(const std::string& kind, std::map<std::string, Json>& all, const std::string& name);

    WriteQueue& mWrites;
    mutable std::shared_mutex mMutex;
    std::map<std::string, Json> mUsers;
    std::map<std::string, Json> mRoles;
    std::atomic<std::uint64_t> mGeneration{1};
};

} // namespace kestrel::index
