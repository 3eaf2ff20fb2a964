#pragma once

#include "query/Query.h"

#include <optional>

namespace kestrel {

/// Every document with the same score. With no documents it is the query that matches nothing.
class ConstantQuery final : public Query {
public:
    ConstantQuery(Bitmap documents, float score) : documents_(std::move(documents)), score_(score) {}
    Bitmap matches(const Bitmap& within) const override { return documents_ & within; }
    Scored score(const Bitmap& within) const override { return {matches(within), score_, {}}; }
    std::uint64_t cost() const override { return documents_.cardinality(); }

private:
    Bitmap documents_;
    float score_;
};

/// A number field holds the value.
class NumberQuery final : public Query {
public:
    NumberQuery(const NumberData& data, FieldId field, SortableNumber value, NumberReader several,
                float score)
        : data_(data), field_(field), value_(value), several_(std::move(several)), score_(score) {}
    Bitmap matches(const Bitmap& within) const override;
    Scored score(const Bitmap& within) const override { return {matches(within), score_, {}}; }
    std::uint64_t cost() const override { return data_.present().cardinality(); }

private:
    const NumberData& data_;
    FieldId field_;
    SortableNumber value_;
    NumberReader several_;
    float score_;
};

/// The objects of a nested field, and through them their documents; a document scores the average of its
/// objects.
class NestedQuery final : public Query {
public:
    NestedQuery(const IndexView& view, SpaceId space, QueryPtr inner)
        : view_(view), space_(space), inner_(std::move(inner)) {}
    Bitmap matches(const Bitmap& within) const override;
    Scored score(const Bitmap& within) const override;
    std::uint64_t cost() const override { return inner_->cost(); }

private:
    const IndexView& view_;
    SpaceId space_;
    QueryPtr inner_;
};

/// Cosine similarity of a vector field to the query's vector, plus an offset.
class CosineQuery final : public Query {
public:
    CosineQuery(QueryPtr inner, const VectorData* data, std::vector<float> vector, float offset, float boost);
    Bitmap matches(const Bitmap& within) const override { return inner_->matches(within); }
    Scored score(const Bitmap& within) const override;
    std::uint64_t cost() const override { return inner_->cost(); }

private:
    QueryPtr inner_;
    const VectorData* data_;
    std::vector<float> vector_;
    float magnitude_;
    float offset_;
    float boost_;
};

} // namespace kestrel
