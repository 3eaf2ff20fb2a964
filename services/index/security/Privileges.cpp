#include "security/Privileges.h"

#include "base/ApiError.h"
#include "storage/Catalogue.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace kestrel::index {

namespace {

using Named = std::pair<std::string_view, Rights>;

constexpr Rights kWriteRights = RightCreateDocument | RightWriteDocument | RightDeleteDocument;
constexpr Rights kManageRights = RightMaintain | RightViewMetadata | RightCreateIndex | RightDeleteIndex;

constexpr std::array<Named, 14> kIndexPrivileges{{
    {"all", AllRights},
    {"read", RightRead},
    {"write", kWriteRights},
    {"index", RightCreateDocument | RightWriteDocument},
    {"create", RightCreateDocument},
    {"create_doc", RightCreateDocument},
    {"delete", RightDeleteDocument},
    {"maintenance", RightMaintain},
    {"view_index_metadata", RightViewMetadata},
    {"create_index", RightCreateIndex},
    {"delete_index", RightDeleteIndex},
    {"manage", kManageRights},
    {"monitor", 0},
    {"none", 0},
}};

constexpr std::array<Named, 5> kClusterPrivileges{{
    {"all", AllRights},
    {"manage", RightMonitorService},
    {"monitor", RightMonitorService},
    {"manage_security", RightManageSecurity},
    {"none", 0},
}};

template <std::size_t Size>
Rights rightsOf(const std::array<Named, Size>& known, const std::string& privilege, const char* kind) {
    for (const auto& [name, rights] : known)
        if (name == privilege) return rights;
    throw illegalArgument(fmt::format("unknown {} privilege [{}]", kind, privilege));
}

} // namespace

Rights indexRights(const std::string& privilege) {
    return rightsOf(kIndexPrivileges, privilege, "index");
}

Rights clusterRights(const std::string& privilege) {
    return rightsOf(kClusterPrivileges, privilege, "cluster");
}

bool Principal::may(Right right, const std::string& index) const {
    return std::any_of(mGrants.begin(), mGrants.end(), [&](const Grant& grant) {
        return (grant.rights & right) != 0 &&
               std::any_of(grant.patterns.begin(), grant.patterns.end(),
                           [&](const std::string& pattern) { return matchesPattern(pattern, index); });
    });
}

void Principal::require(Right right, const std::string& index, const std::string& action) const {
    if (may(right, index)) return;
    throw ApiError(
        403, "security_exception",
        fmt::format("action [{}] is unauthorized for user [{}] with effective roles [{}] on indices [{}]",
                    action, mName, fmt::join(mRoles, ","), index));
}

void Principal::requireCluster(Right right, const std::string& action) const {
    if ((mCluster & right) != 0) return;
    throw ApiError(403, "security_exception",
                   fmt::format("action [{}] is unauthorized for user [{}] with effective roles [{}]", action,
                               mName, fmt::join(mRoles, ",")));
}

} // namespace kestrel::index
