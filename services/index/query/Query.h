#pragma once

#include "engine/Index.h"

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace kestrel::index {

/// Documents with their scores: those that scores does not name have the base score.
struct Scored {
    Bitmap documents;
    float base = 0;
    std::vector<std::pair<Ordinal, float>> scores; ///< ascending ordinals, all of them among the documents
};

/// Compiled for one view of one index; lives no longer than that view.
class Query {
public:
    virtual ~Query() = default;
    /// The documents that match, looked for among within only.
    virtual Bitmap matches(const Bitmap& within) const = 0;
    virtual Scored score(const Bitmap& within) const = 0;
    /// About how many documents it looks at; cheap clauses go first.
    virtual std::uint64_t cost() const = 0;
};

using QueryPtr = std::unique_ptr<Query>;

/// Reads several values of a number field from the document itself.
using NumberReader = std::function<NumberContent(Ordinal, FieldId)>;

} // namespace kestrel::index
