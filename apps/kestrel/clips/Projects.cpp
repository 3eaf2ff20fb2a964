#include "apps/kestrel/clips/Projects.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/home/Identity.h"
#include "apps/kestrel/services/Store.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <tuple>

namespace kestrel {

namespace {

std::optional<KsNNProject> select(const std::vector<KsNNProject>& projects, const std::string& text) {
    const std::string identifier = projectIdentifier(text);
    std::vector<KsNNProject> sameName;
    for (const KsNNProject& project : projects) {
        if (project.projectGuid == identifier || project.projectGuid == text) return project;
        if (project.projectName == text) sameName.push_back(project);
    }
    if (sameName.empty()) return std::nullopt;
    if (sameName.size() == 1) return sameName.front();
    std::string message =
        fmt::format("{} projects are called \"{}\"; name one by its identifier:", sameName.size(), text);
    for (const KsNNProject& project : sameName)
        message += "\n    " + project.projectGuid;
    throw Failure(message);
}

} // namespace

std::vector<KsNNProject> storedProjects(KsNNDatabase& store) {
    std::vector<KsNNProject> projects;
    check(store.GetAllEntries(projects, false), store, "the projects cannot be listed");
    std::sort(projects.begin(), projects.end(), [](const KsNNProject& left, const KsNNProject& right) {
        return std::tie(left.projectName, left.projectGuid) < std::tie(right.projectName, right.projectGuid);
    });
    return projects;
}

KsNNProject findProject(KsNNDatabase& store, const std::string& text) {
    return select(storedProjects(store), text).value_or(KsNNProject{text, projectIdentifier(text)});
}

KsNNProject requireProject(KsNNDatabase& store, const std::string& text) {
    const std::vector<KsNNProject> projects = storedProjects(store);
    if (auto project = select(projects, text)) return *project;
    constexpr std::size_t kShown = 10;
    std::string message = fmt::format("no project \"{}\" has clips", text);
    if (!projects.empty()) message += "; there are:";
    for (std::size_t i = 0; i < std::min(kShown, projects.size()); ++i)
        message += fmt::format("\n    {}", projects[i].projectName);
    if (projects.size() > kShown) message += fmt::format("\n    and {} more", projects.size() - kShown);
    throw Failure(message);
}

} // namespace kestrel
