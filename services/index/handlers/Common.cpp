#include "base/ApiError.h"
#include "handlers/Handlers.h"

#include <fmt/format.h>

#include <sstream>

namespace kestrel::index {

std::vector<IndexPtr> resolveIndices(Services& services, const Principal& user, const std::string& expression,
                                     Right right, const std::string& action) {
    std::vector<IndexPtr> indices;
    std::istringstream names(expression);
    for (std::string name; std::getline(names, name, ',');) {
        if (name == "_all") name = "*";
        if (name.find_first_of("*?") == std::string::npos) {
            user.require(right, name, action);
            indices.push_back(services.catalogue.get(name));
            continue;
        }
        for (const IndexPtr& index : services.catalogue.all())
            if (matchesPattern(name, index->name()) && user.may(right, index->name()))
                indices.push_back(index);
    }
    return indices;
}

ApiError damaged(const Index& index, const DamagedRow& row) {
    return {500,
            "i_o_exception",
            fmt::format("index [{}]: {}; write it again, delete it, or restore a backup", index.name(),
                        row.what()),
            {{"index", index.name()}}};
}

Json readShards(std::size_t indices) {
    return {{"total", indices}, {"successful", indices}, {"skipped", 0}, {"failed", 0}};
}

} // namespace kestrel::index
