#pragma once

#include "query/Query.h"

namespace kestrel {

/// Any of some terms of a text field; a document scores the sum over the terms that it holds.
class TextQuery final : public Query {
public:
    struct Term {
        std::uint32_t term;
        float weight;
    };

    TextQuery(const IndexView& view, SpaceId space, const TextData& data, std::vector<Term> terms)
        : view_(view), space_(space), data_(data), similarity_(data.statistics()), terms_(std::move(terms)) {}
    Bitmap matches(const Bitmap& within) const override;
    Scored score(const Bitmap& within) const override;
    std::uint64_t cost() const override;

private:
    const IndexView& view_;
    SpaceId space_;
    const TextData& data_;
    Bm25 similarity_;
    std::vector<Term> terms_;
};

} // namespace kestrel
