#pragma once

#include "query/Query.h"

namespace kestrel::index {

/// Any of several terms of a text field; a document's score is the sum over the terms that it contains.
class TextQuery final : public Query {
public:
    struct Term {
        std::uint32_t term;
        float weight;
    };

    TextQuery(const IndexView& view, SpaceId space, const TextData& data, std::vector<Term> terms)
        : mView(view), mSpace(space), mData(data), mSimilarity(data.statistics()), mTerms(std::move(terms)) {}
    Bitmap matches(const Bitmap& within) const override;
    Scored score(const Bitmap& within) const override;
    std::uint64_t cost() const override;

private:
    const IndexView& mView;
    SpaceId mSpace;
    const TextData& mData;
    Bm25 mSimilarity;
    std::vector<Term> mTerms;
};

} // namespace kestrel::index
