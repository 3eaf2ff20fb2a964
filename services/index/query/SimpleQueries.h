#pragma once

#include "query/Query.h"

#include <optional>

namespace kestrel::index {

/// Every document with the same score. With no documents it is the query that matches nothing.
class ConstantQuery final : public Query {
public:
    ConstantQuery(Bitmap documents, float score) : mDocuments(std::move(documents)), mScore(score) {}
    Bitmap matches(const Bitmap& within) const override { return mDocuments & within; }
    Scored score(const Bitmap& within) const override { return {matches(within), mScore, {}}; }
    std::uint64_t cost() const override { return mDocuments.cardinality(); }

private:
    Bitmap mDocuments;
    float mScore;
};

/// A number field holds the value.
class NumberQuery final : public Query {
public:
    NumberQuery(const NumberData& data, FieldId field, SortableNumber value, NumberReader several,
                float score)
        : mData(data), mField(field), mValue(value), mSeveral(std::move(several)), mScore(score) {}
    Bitmap matches(const Bitmap& within) const override;
    Scored score(const Bitmap& within) const override { return {matches(within), mScore, {}}; }
    std::uint64_t cost() const override { return mData.present().cardinality(); }

private:
    const NumberData& mData;
    FieldId mField;
    SortableNumber mValue;
    NumberReader mSeveral;
    float mScore;
};

/// The objects of a nested field, and through them their documents; a document scores the average of its
/// objects.
class NestedQuery final : public Query {
public:
    NestedQuery(const IndexView& view, SpaceId space, QueryPtr inner)
        : mView(view), mSpace(space), mInner(std::move(inner)) {}
    Bitmap matches(const Bitmap& within) const override;
    Scored score(const Bitmap& within) const override;
    std::uint64_t cost() const override { return mInner->cost(); }

private:
    const IndexView& mView;
    SpaceId mSpace;
    QueryPtr mInner;
};

/// Cosine similarity of a vector field to the query's vector, plus an offset.
class CosineQuery final : public Query {
public:
    CosineQuery(QueryPtr inner, const VectorData* data, std::vector<float> vector, float offset, float boost);
    Bitmap matches(const Bitmap& within) const override { return mInner->matches(within); }
    Scored score(const Bitmap& within) const override;
    std::uint64_t cost() const override { return mInner->cost(); }

private:
    QueryPtr mInner;
    const VectorData* mData;
    std::vector<float> mVector;
    float mMagnitude;
    float mOffset;
    float mBoost;
};

} // namespace kestrel::index
