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

/// Users with their hashed passwords, and roles. Kept in the store.
class Users {
public:
    static constexpr const char* kAdministrator = "kestrel_admin";

    /// Reads what is stored; nothing may be written meanwhile.
    Users(DocumentStore& store, WriteQueue& writes);

    /// Makes the administrator at the first start; the random password goes to the file, which only its owner
    /// can read.
    void ensureAdministrator(const std::filesystem::path& credentials);

    /// Gives the user a random password; makes the administrator when it is missing. Throws an ApiError when
    /// there is no such user.
    std::string resetPassword(const std::string& name);

    /// Whether the password is the user's. Takes as long for a user that there is not.
    bool verify(const std::string& name, const std::string& password) const;
    /// Null when there is no such user, or it is disabled.
    std::shared_ptr<const Principal> principal(const std::string& name) const;

    /// Each tells whether the user or role is new (put) or was there (remove).
    bool putUser(const std::string& name, const Json& body);
    bool putRole(const std::string& name, const Json& body);
    bool removeUser(const std::string& name);
    bool removeRole(const std::string& name);
    /// As a GET shows it, without the hash; nothing when absent.
    std::optional<Json> user(const std::string& name) const;
    std::optional<Json> role(const std::string& name) const;
    std::vector<std::string> userNames() const;
    std::vector<std::string> roleNames() const;

    /// Grows with every change, so that what was cached before is known to be stale.
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
