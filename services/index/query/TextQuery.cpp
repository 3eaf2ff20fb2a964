#include "query/TextQuery.h"

#include "base/Work.h"

#include <algorithm>
#include <memory>

namespace kestrel::index {

namespace {

/// Membership in a bitmap, unpacked when there will be many lookups.
class Membership {
public:
    Membership(const Bitmap& set, Ordinal end, std::uint64_t questions) : mSet(set) {
        if (questions < set.cardinality() / 4) return;
        mBits.resize(end / 64 + 1);
        for (const Ordinal ordinal : set)
            mBits[ordinal / 64] |= std::uint64_t{1} << (ordinal % 64);
    }
    bool contains(Ordinal ordinal) const {
        if (mBits.empty()) return mSet.contains(ordinal);
        return (mBits[ordinal / 64] >> (ordinal % 64) & 1U) != 0;
    }

private:
    const Bitmap& mSet;
    std::vector<std::uint64_t> mBits;
};

} // namespace

std::uint64_t TextQuery::cost() const {
    std::uint64_t postings = 0;
    for (const Term& term : mTerms)
        postings += mData.documentFrequency(term.term);
    return postings;
}

Bitmap TextQuery::matches(const Bitmap& within) const {
    Bitmap found;
    Patience patience;
    for (const Term& term : mTerms) {
        mData.forEach(term.term, [&](Ordinal ordinal, std::uint32_t) {
            patience.check();
            found.add(ordinal);
        });
    }
    return found & within & mData.present();
}

Scored TextQuery::score(const Bitmap& within) const {
    const Bitmap candidates = within & mView.live(mSpace);
    const Membership member(candidates, mView.end(mSpace), cost());
    // calloc maps zeroed pages, so only the touched parts of a large array cost memory.
    const std::unique_ptr<double, decltype(&std::free)> sums(
        static_cast<double*>(std::calloc(mView.end(mSpace) + std::size_t{1}, sizeof(double))), &std::free);
    if (!sums) throw std::bad_alloc();
    std::vector<Ordinal> touched;
    Patience patience;
    for (const Term& term : mTerms) {
        mData.forEach(term.term, [&](Ordinal ordinal, std::uint32_t frequency) {
            patience.check();
            if (!member.contains(ordinal)) return;
            double& sum = sums.get()[ordinal];
            if (sum == 0) touched.push_back(ordinal);
            sum += static_cast<double>(
                mSimilarity.score(term.weight, static_cast<float>(frequency), mData.encodedLength(ordinal)));
        });
    }
    std::sort(touched.begin(), touched.end());
    // With a boost of 0 every term adds the document again.
    touched.erase(std::unique(touched.begin(), touched.end()), touched.end());
    Scored result;
    result.documents.addMany(touched.size(), touched.data());
    result.scores.reserve(touched.size());
    for (const Ordinal ordinal : touched)
        result.scores.emplace_back(ordinal, static_cast<float>(sums.get()[ordinal]));
    return result;
}

} // namespace kestrel::index
