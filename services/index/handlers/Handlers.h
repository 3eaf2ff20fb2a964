#pragma once

#include "base/ApiError.h"
#include "handlers/Router.h"
#include "handlers/Services.h"

#include <chrono>
#include <string>
#include <vector>

namespace kestrel::index {

/// The routes of all requests.
Router makeRouter(Services& services);

void addRootHandlers(Router& router);
void addIndexHandlers(Router& router, Services& services);
void addDocumentHandlers(Router& router, Services& services);
void addBulkHandlers(Router& router, Services& services);
void addSearchHandlers(Router& router, Services& services);
void addByQueryHandlers(Router& router, Services& services);
void addSecurityHandlers(Router& router, Services& services);

/// The indices that an expression of names, patterns and "_all", separated by commas, stands for. Throws an
/// ApiError with 404 for a name that does not exist and with 403 for one that the user may not use; patterns
/// match what exists and is allowed.
std::vector<IndexPtr> resolveIndices(Services& services, const Principal& user, const std::string& expression,
                                     Right right, const std::string& action);

/// Measures the time for "took".
class Stopwatch {
public:
    std::int64_t milliseconds() const {
        return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                     mStart)
            .count();
    }

private:
    std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
};

/// The error for a document that cannot be read.
ApiError damaged(const Index& index, const DamagedRow& row);

/// "_shards" of reads.
Json readShards(std::size_t indices);

} // namespace kestrel::index
