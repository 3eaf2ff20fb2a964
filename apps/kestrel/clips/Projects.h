#pragma once

#include "kestrelml/store/KsNNDatabase.h"

#include <string>
#include <vector>

namespace kestrel {

/// The projects that have clips, by name.
/// @throws Failure when the store cannot be asked.
std::vector<KsNNProject> storedProjects(KsNNDatabase& store);

/// The project that the user means by its name or its identifier: one that has clips, whoever made it, else
/// a new one of that name.
/// @throws Failure when several projects have the name.
KsNNProject findProject(KsNNDatabase& store, const std::string& text);

/// The same for a project that must have clips.
/// @throws Failure that lists the projects when there is none of that name.
KsNNProject requireProject(KsNNDatabase& store, const std::string& text);

} // namespace kestrel
