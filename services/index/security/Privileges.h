#pragma once

#include "base/Json.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kestrel::index {

/// A right on an index or on the whole service; the privileges of roles are sets of these.
enum Right : std::uint32_t {
    RightRead = 1U << 0U,
    RightCreateDocument = 1U << 1U,
    RightWriteDocument = 1U << 2U,
    RightDeleteDocument = 1U << 3U,
    RightMaintain = 1U << 4U,
    RightViewMetadata = 1U << 5U,
    RightCreateIndex = 1U << 6U,
    RightDeleteIndex = 1U << 7U,
    RightMonitorService = 1U << 8U,
    RightManageSecurity = 1U << 9U,
    AllRights = UINT32_MAX,
};
using Rights = std::uint32_t;

/// The rights of a privilege. Throw an ApiError for an unknown one.
Rights indexRights(const std::string& privilege);
Rights clusterRights(const std::string& privilege);

/// An authenticated user with the rights of their roles.
class Principal {
public:
    struct Grant {
        std::vector<std::string> patterns;
        Rights rights;
    };

    Principal(std::string name, std::vector<std::string> roles, Rights cluster, std::vector<Grant> grants)
        : mName(std::move(name)), mRoles(std::move(roles)), mCluster(cluster), mGrants(std::move(grants)) {}

    const std::string& name() const { return mName; }
    bool may(Right right, const std::string& index) const;
    /// Throws a security_exception with status 403 that names the action.
    void require(Right right, const std::string& index, const std::string& action) const;
    void requireCluster(Right right, const std::string& action) const;

private:
    std::string mName;
    std::vector<std::string> mRoles;
    Rights mCluster;
    std::vector<Grant> mGrants;
};

} // namespace kestrel::index
