#pragma once

#include "query/Scrolls.h"
#include "security/Users.h"
#include "storage/Catalogue.h"
#include "storage/DataFolder.h"

#include <filesystem>

namespace kestrel::index {

/// What the handlers work on: the parts of the service on one database.
struct Services {
    /// The catalogue is empty until the indices are loaded.
    explicit Services(const std::filesystem::path& documents, const Scrolls::Limits& limits = {})
        : store(documents), scrolls(store, limits), writes(store, scrolls), users(store, writes),
          catalogue(store, writes) {}

    /// Completes the first start, if it is one, and loads the indices.
    void start(const DataFolder& folder);

    DocumentStore store;
    Scrolls scrolls;
    WriteQueue writes;
    Users users;
    Catalogue catalogue;
};

} // namespace kestrel::index
