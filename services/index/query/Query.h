#pragma once

#include "engine/Index.h"

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace kestrel::index {

/// Documents with their scores; those not listed in scores have the base score.
struct Scored {
    Bitmap documents;
    float base = 0;
    std::vector<std::pair<Ordinal, float>> scores; ///< by ascending ordinal; a subset of the documents
};

/// Compiled for one view of one index, and valid as long as the view.
class Query {
public:
    virtual ~Query() = default;
    /// The matching documents, out of those in within.
    virtual Bitmap matches(const Bitmap& within) const = 0;
    virtual Scored score(const Bitmap& within) const = 0;
    /// Roughly how many documents it looks at; cheap clauses are evaluated first.
    virtual std::uint64_t cost() const = 0;
};

using QueryPtr = std::unique_ptr<Query>;

/// Reads several values of a number field from the document itself.
using NumberReader = std::function<NumberContent(Ordinal, FieldId)>;

} // namespace kestrel::index
