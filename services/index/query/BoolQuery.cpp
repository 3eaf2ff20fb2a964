#include "query/BoolQuery.h"

#include "base/Work.h"

#include <algorithm>

namespace kestrel::index {

namespace {

/// Looks up scores of ascending documents.
class ScoreReader {
public:
    explicit ScoreReader(const Scored& scored) : mScored(scored), mNext(scored.scores.begin()) {}

    float required(Ordinal ordinal) {
        while (mNext != mScored.scores.end() && mNext->first < ordinal)
            ++mNext;
        return mNext != mScored.scores.end() && mNext->first == ordinal ? mNext->second : mScored.base;
    }
    float optional(Ordinal ordinal) { return mScored.documents.contains(ordinal) ? required(ordinal) : 0.0F; }

private:
    const Scored& mScored;
    std::vector<std::pair<Ordinal, float>>::const_iterator mNext;
};

std::vector<Scored> scoreAll(const std::vector<QueryPtr>& clauses, const Bitmap& documents) {
    std::vector<Scored> scored;
    scored.reserve(clauses.size());
    for (const QueryPtr& clause : clauses) {
        checkStillWanted();
        scored.push_back(clause->score(documents));
        takeMemory(scored.back().documents.getSizeInBytes() +
                   scored.back().scores.size() * sizeof(scored.back().scores[0]));
    }
    return scored;
}

} // namespace

BoolQuery::BoolQuery(Clauses clauses) : mClauses(std::move(clauses)) {
    for (const auto* group : {&mClauses.must, &mClauses.filter})
        for (const QueryPtr& clause : *group)
            mRequired.push_back(clause.get());
    std::stable_sort(mRequired.begin(), mRequired.end(),
                     [](const Query* a, const Query* b) { return a->cost() < b->cost(); });
}

std::uint64_t BoolQuery::cost() const {
    if (!mRequired.empty()) return mRequired.front()->cost();
    std::uint64_t sum = 0;
    for (const QueryPtr& clause : mClauses.should)
        sum += clause->cost();
    return mClauses.should.empty() ? UINT64_MAX : sum;
}

Bitmap BoolQuery::matches(const Bitmap& within) const {
    Bitmap documents = within;
    for (const Query* clause : mRequired) {
        if (documents.isEmpty()) return documents;
        documents = clause->matches(documents);
    }
    if (mClauses.minimumShouldMatch > 0) documents = shouldMatches(documents);
    for (const QueryPtr& clause : mClauses.mustNot)
        documents -= clause->matches(documents);
    return documents;
}

Bitmap BoolQuery::shouldMatches(const Bitmap& within) const {
    if (mClauses.minimumShouldMatch > mClauses.should.size()) return {};
    if (mClauses.minimumShouldMatch == 1) {
        Bitmap any;
        for (const QueryPtr& clause : mClauses.should) {
            checkStillWanted();
            any |= clause->matches(within);
        }
        return any;
    }
    if (within.isEmpty()) return {};
    std::vector<std::uint32_t> reached(std::size_t{within.maximum()} + 1);
    takeMemory(reached.size() * sizeof(reached[0]));
    Bitmap enough;
    Patience patience;
    for (const QueryPtr& clause : mClauses.should) {
        checkStillWanted();
        for (const Ordinal ordinal : clause->matches(within)) {
            patience.check();
            if (++reached[ordinal] == mClauses.minimumShouldMatch) enough.add(ordinal);
        }
    }
    return enough;
}

Scored BoolQuery::score(const Bitmap& within) const {
    Scored result;
    result.documents = matches(within);
    const std::vector<Scored> must = scoreAll(mClauses.must, result.documents);
    const std::vector<Scored> should = scoreAll(mClauses.should, result.documents);

    double base = 0;
    Bitmap varying;
    for (const Scored& clause : must) {
        base += static_cast<double>(clause.base);
        for (const auto& [ordinal, score] : clause.scores)
            varying.add(ordinal);
    }
    result.base = static_cast<float>(base);
    for (const Scored& clause : should)
        varying |= clause.documents;
    varying &= result.documents;

    std::vector<ScoreReader> required(must.begin(), must.end());
    std::vector<ScoreReader> optional(should.begin(), should.end());
    result.scores.reserve(varying.cardinality());
    Patience patience;
    for (const Ordinal ordinal : varying) {
        // As in Lucene: each group is summed in double precision, the two sums in single precision.
        double mustSum = 0;
        for (ScoreReader& reader : required) {
            patience.check();
            mustSum += static_cast<double>(reader.required(ordinal));
        }
        double shouldSum = 0;
        for (ScoreReader& reader : optional) {
            patience.check();
            shouldSum += static_cast<double>(reader.optional(ordinal));
        }
        result.scores.emplace_back(ordinal, static_cast<float>(mustSum) + static_cast<float>(shouldSum));
    }
    return result;
}

} // namespace kestrel::index
