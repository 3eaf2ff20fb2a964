#include "query/SimpleQueries.h"

#include "http/ApiError.h"
#include "query/DotProduct.h"

#include <algorithm>
#include <cmath>

namespace kestrel {

Bitmap NumberQuery::matches(const Bitmap& within) const {
    Bitmap found;
    for (const Ordinal ordinal : data_.present() & within) {
        if (data_.several().contains(ordinal)) {
            const NumberContent values = several_(ordinal, field_);
            if (std::find(values.begin(), values.end(), value_) != values.end()) found.add(ordinal);
        } else if (data_.single(ordinal) == value_) {
            found.add(ordinal);
        }
    }
    return found;
}

Bitmap NestedQuery::matches(const Bitmap& within) const {
    Bitmap documents;
    for (const Ordinal child : inner_->matches(view_.live(space_)))
        documents.add(view_.parent(space_, child));
    return documents & within;
}

Scored NestedQuery::score(const Bitmap& within) const {
    const Scored children = inner_->score(view_.live(space_));
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
    for (const Ordinal child : children.documents) {
        const Ordinal parent = view_.parent(space_, child);
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
    : inner_(std::move(inner)), data_(data), vector_(std::move(vector)),
      magnitude_(std::sqrt(dotProduct(vector_.data(), vector_.data(), vector_.size()))), offset_(offset),
      boost_(boost) {
}

Scored CosineQuery::score(const Bitmap& within) const {
    Scored result;
    result.documents = inner_->matches(within);
    result.scores.reserve(result.documents.cardinality());
    for (const Ordinal ordinal : result.documents) {
        if (data_ == nullptr || !data_->present().contains(ordinal))
            throw ApiError(400, "script_exception", "runtime error",
                           {{"lang", "painless"},
                            {"caused_by",
                             {{"type", "illegal_argument_exception"},
                              {"reason", "A document doesn't have a value for a vector field!"}}}});
        const float dot = dotProduct(vector_.data(), data_->vector(ordinal), vector_.size());
        const float lengths = magnitude_ * data_->magnitude(ordinal);
        const float similarity = lengths == 0 ? 0 : dot / lengths;
        const float score = boost_ * (similarity + offset_);
        if (score < 0)
            throw illegalArgument(
                "script_score script returned an invalid score: it must be a non-negative score");
        result.scores.emplace_back(ordinal, score);
    }
    return result;
}

} // namespace kestrel
