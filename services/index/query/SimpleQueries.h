#pragma once

#include "query/Query.h"

#include <optional>

namespace kestrel::index {

/// A fixed set of documents with the same score.
class ConstantQuery final : public Query {
public:
    ConstantQuery(Bitmap documents, float score);
    Bitmap matches(const Bitmap& within) const override { return mDocuments & within; }
    Scored score(const Bitmap& within) const override { return {matches(within), mScore, {}}; }
    std::uint64_t cost() const override { return mDocuments.cardinality(); }

private:
    Bitmap mDocuments;
    float mScore;
};

/// A number field holds one of the values.
class NumberQuery final : public Query {
public:
    NumberQuery(const NumberData& data, FieldId field, std::vector<SortableNumber> values,
                NumberReader several, float score)
        : mData(data), mField(field), mValues(std::move(values)), mSeveral(std::move(several)),
          mScore(score) {}
    Bitmap matches(const Bitmap& within) const override;
    Scored score(const Bitmap& within) const override { return {matches(within), mScore, {}}; }
    /// Reading documents is the most expensive condition and comes last.
    std::uint64_t cost() const override {
        return mData.present().cardinality() + kReadingCost * mData.several().cardinality();
    }

private:
    static constexpr std::uint64_t kReadingCost = 1000;

    const NumberData& mData;
    FieldId mField;
    std::vector<SortableNumber> mValues; ///< ascending
    NumberReader mSeveral;
    float mScore;
};

/// The documents of the matching objects of a nested field; a document's score is the average of its matching
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
    /// Throws an ApiError when one of the documents has no vector.
    void requireVectors(const Bitmap& documents) const;
    float scoreOf(Ordinal ordinal) const;

    QueryPtr mInner;
    const VectorData* mData;
    std::vector<float> mVector;
    float mMagnitude;
    float mOffset;
    float mBoost;
};

} // namespace kestrel::index
