#include "query/SimpleQueries.h"

#include "base/ApiError.h"
#include "base/Parallel.h"
#include "base/Work.h"
#include "query/DotProduct.h"

#include <algorithm>
#include <cmath>

namespace kestrel::index {

ConstantQuery::ConstantQuery(Bitmap documents, float score)
    : mDocuments(std::move(documents)), mScore(score) {
    takeMemory(mDocuments.getSizeInBytes());
}

Bitmap NumberQuery::matches(const Bitmap& within) const {
    const auto wanted = [this](SortableNumber value) {
        return std::binary_search(mValues.begin(), mValues.end(), value);
    };
    Bitmap found;
    Patience patience;
    for (const Ordinal ordinal : mData.present() & within) {
        patience.check();
        if (mData.several().contains(ordinal)) {
            const NumberContent values = mSeveral(ordinal, mField);
            if (std::any_of(values.begin(), values.end(), wanted)) found.add(ordinal);
        } else if (wanted(mData.single(ordinal))) {
            found.add(ordinal);
        }
    }
    return found;
}

Bitmap NestedQuery::matches(const Bitmap& within) const {
    Bitmap documents;
    Patience patience;
    for (const Ordinal child : mInner->matches(mView.live(mSpace))) {
        patience.check();
        documents.add(mView.parent(mSpace, child));
    }
    return documents & within;
}

Scored NestedQuery::score(const Bitmap& within) const {
    const Scored children = mInner->score(mView.live(mSpace));
    Scored result;
    auto own = children.scores.begin();
    double sum = 0;
    std::size_t count = 0;
    Ordinal document = 0;
    const auto finish = [&] {
        if (count == 0 || !within.contains(document)) return;
        result.documents.add(document);
        result.scores.emplace_back(document, static_cast<float>(sum / static_cast<double>(count)));
    };
    Patience patience;
    for (const Ordinal child : children.documents) {
        patience.check();
        const Ordinal parent = mView.parent(mSpace, child);
        if (count != 0 && parent != document) {
            finish();
            sum = 0;
            count = 0;
        }
        document = parent;
        while (own != children.scores.end() && own->first < child)
            ++own;
        sum += static_cast<double>(own != children.scores.end() && own->first == child ? own->second
                                                                                       : children.base);
        ++count;
    }
    finish();
    return result;
}

CosineQuery::CosineQuery(QueryPtr inner, const VectorData* data, std::vector<float> vector, float offset,
                         float boost)
    : mInner(std::move(inner)), mData(data), mVector(std::move(vector)),
      mMagnitude(std::sqrt(dotProduct(mVector.data(), mVector.data(), mVector.size()))), mOffset(offset),
      mBoost(boost) {
}

Scored CosineQuery::score(const Bitmap& within) const {
    constexpr std::size_t kSmallestPiece = 4096;
    Scored result;
    result.documents = mInner->matches(within);
    requireVectors(result.documents);
    result.scores.reserve(result.documents.cardinality());
    for (const Ordinal ordinal : result.documents)
        result.scores.emplace_back(ordinal, 0.0F);
    inParallel(result.scores.size(), kSmallestPiece, [&](std::size_t first, std::size_t last) {
        for (; first < last; ++first)
            result.scores[first].second = scoreOf(result.scores[first].first);
    });
    for (const auto& [ordinal, score] : result.scores) {
        if (!(score >= 0))
            throw illegalArgument(
                "script_score script returned an invalid score: it must be a non-negative score");
    }
    return result;
}

void CosineQuery::requireVectors(const Bitmap& documents) const {
    if (documents.isEmpty() || (mData != nullptr && documents.isSubset(mData->present()))) return;
    throw ApiError(400, "script_exception", "runtime error",
                   {{"lang", "painless"},
                    {"caused_by",
                     {{"type", "illegal_argument_exception"},
                      {"reason", "A document doesn't have a value for a vector field!"}}}});
}

float CosineQuery::scoreOf(Ordinal ordinal) const {
    const float dot = dotProduct(mVector.data(), mData->vector(ordinal), mVector.size());
    const float lengths = mMagnitude * mData->magnitude(ordinal);
    const float similarity = lengths == 0 ? 0 : dot / lengths;
    return mBoost * (similarity + mOffset);
}

} // namespace kestrel::index
