#pragma once

#include "query/Query.h"

namespace kestrel::index {

class BoolQuery final : public Query {
public:
    struct Clauses {
        std::vector<QueryPtr> must, should, filter, mustNot;
        std::size_t minimumShouldMatch = 0;
    };

    explicit BoolQuery(Clauses clauses);
    Bitmap matches(const Bitmap& within) const override;
    Scored score(const Bitmap& within) const override;
    std::uint64_t cost() const override;

private:
    Bitmap shouldMatches(const Bitmap& within) const;

    Clauses mClauses;
    std::vector<const Query*> mRequired; ///< must and filter, cheapest first
};

} // namespace kestrel::index
