#include "query/FuzzyExpander.h"

#include "base/ApiError.h"
#include "base/Work.h"
#include "engine/Analyzer.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <optional>

namespace kestrel::index {

namespace {

/// Edit distances of one term to many. The rows of a common prefix are reused for the next term of the sorted
/// dictionary.
class DistanceRows {
public:
    DistanceRows(std::u32string target, unsigned limit) : mTarget(std::move(target)), mLimit(limit) {
        mRows.push_back(firstRow());
        mMinima.push_back(0);
    }

    /// Distance of the candidate, or nothing when it exceeds the limit. shared: length of the prefix shared
    /// with the previous candidate. When nothing is returned, deadEnd() is the length of a prefix that no
    /// term within the limit has.
    std::optional<unsigned> distance(const std::u32string& candidate, std::size_t shared) {
        const std::size_t valid = std::min(shared, mComputed);
        for (std::size_t depth = valid + 1; depth <= candidate.size(); ++depth) {
            fill(candidate, depth);
            mComputed = depth;
            // A transposition refers to the row before the last, so both have to exceed the limit.
            if (mMinima[depth] > mLimit && mMinima[depth - 1] > mLimit) {
                mDeadEnd = depth;
                return std::nullopt;
            }
        }
        mComputed = candidate.size();
        mDeadEnd = 0;
        const unsigned distance = mRows[candidate.size()].back();
        return distance <= mLimit ? std::optional(distance) : std::nullopt;
    }

    std::size_t deadEnd() const { return mDeadEnd; }

private:
    using Row = std::vector<unsigned>;

    Row firstRow() const {
        Row row(mTarget.size() + 1);
        for (std::size_t j = 0; j < row.size(); ++j)
            row[j] = static_cast<unsigned>(j);
        return row;
    }

    void fill(const std::u32string& candidate, std::size_t depth) {
        if (mRows.size() <= depth) {
            mRows.emplace_back(mTarget.size() + 1);
            mMinima.push_back(0);
        }
        const Row& above = mRows[depth - 1];
        Row& row = mRows[depth];
        const char32_t c = candidate[depth - 1];
        row[0] = static_cast<unsigned>(depth);
        unsigned minimum = row[0];
        for (std::size_t j = 1; j < row.size(); ++j) {
            const unsigned substituted = above[j - 1] + (mTarget[j - 1] == c ? 0U : 1U);
            row[j] = std::min({substituted, above[j] + 1, row[j - 1] + 1});
            const bool transposed =
                depth > 1 && j > 1 && mTarget[j - 2] == c && mTarget[j - 1] == candidate[depth - 2];
            if (transposed) row[j] = std::min(row[j], mRows[depth - 2][j - 2] + 1);
            minimum = std::min(minimum, row[j]);
        }
        mMinima[depth] = minimum;
    }

    std::u32string mTarget;
    unsigned mLimit;
    std::vector<Row> mRows;
    std::vector<unsigned> mMinima;
    std::size_t mComputed = 0;
    std::size_t mDeadEnd = 0;
};

std::size_t sharedPrefix(const std::u32string& a, const std::u32string& b) {
    const auto end = std::mismatch(a.begin(), a.end(), b.begin(), b.end()).first;
    return static_cast<std::size_t>(end - a.begin());
}

/// Length in bytes of the first code points.
std::size_t prefixBytes(std::string_view utf8, std::size_t points) {
    std::size_t i = 0;
    for (; i < utf8.size(); ++i)
        if ((static_cast<unsigned char>(utf8[i]) & 0xC0U) != 0x80U && points-- == 0) break;
    return i;
}

class Search {
public:
    Search(const TextData& data, std::string_view term, unsigned edits)
        : mData(data), mTarget(codePoints(term)), mRows(mTarget, edits) {}

    std::vector<Expansion> run() {
        const auto& sorted = mData.sortedTerms();
        for (auto next = sorted.begin(); next != sorted.end();) {
            if (visit(*next)) {
                ++next;
                continue;
            }
            // Skip all terms with the prefix that cannot match.
            const std::string_view text = mData.terms().at(*next);
            const std::string_view prefix = text.substr(0, prefixBytes(text, mRows.deadEnd()));
            next = std::partition_point(next, sorted.end(), [&](std::uint32_t term) {
                return mData.terms().at(term).substr(0, prefix.size()) <= prefix;
            });
        }
        for (auto term = static_cast<std::uint32_t>(sorted.size()); term < mData.terms().size(); ++term)
            visit(term);
        return std::move(mFound);
    }

private:
    /// False when the term begins with a prefix that cannot match.
    bool visit(std::uint32_t term) {
        mPatience.check();
        std::u32string candidate = codePoints(mData.terms().at(term));
        const auto distance = mRows.distance(candidate, sharedPrefix(candidate, mPrevious));
        const std::size_t length = std::min(candidate.size(), mTarget.size());
        mPrevious = std::move(candidate);
        if (!distance) return mRows.deadEnd() == 0;
        const float boost =
            *distance == 0 ? 1.0F : 1.0F - static_cast<float>(*distance) / static_cast<float>(length);
        if (boost > 0 && mData.documentFrequency(term) > 0) mFound.push_back({term, boost});
        return true;
    }

    const TextData& mData;
    std::u32string mTarget;
    DistanceRows mRows;
    std::u32string mPrevious;
    std::vector<Expansion> mFound;
    Patience mPatience;
};

} // namespace

std::vector<Expansion> expandFuzzy(const TextData& data, std::string_view term, unsigned edits,
                                   std::size_t limit) {
    if (edits == 0) {
        const std::uint32_t number = data.terms().find(term);
        if (number == StringTable::kAbsent || data.documentFrequency(number) == 0) return {};
        return {{number, 1.0F}};
    }
    std::vector<Expansion> found = Search(data, term, edits).run();
    std::sort(found.begin(), found.end(), [&](const Expansion& a, const Expansion& b) {
        if (a.boost != b.boost) return a.boost > b.boost;
        return data.terms().at(a.term) < data.terms().at(b.term);
    });
    if (found.size() > limit) found.resize(limit);
    return found;
}

Fuzziness Fuzziness::parse(const std::string& text) {
    Fuzziness fuzziness;
    const auto number = [&](std::string_view part) {
        std::size_t value = 0;
        const auto [end, error] = std::from_chars(part.data(), part.data() + part.size(), value);
        if (error != std::errc() || end != part.data() + part.size())
            throw illegalArgument(fmt::format("failed to parse [{}] as a fuzziness", text));
        return value;
    };
    const bool automatic = text.size() >= 4 && (text.starts_with("AUTO") || text.starts_with("auto"));
    if (!automatic) {
        const std::size_t edits = number(text);
        if (edits > 2)
            throw illegalArgument(fmt::format("Valid edit distances are [0, 1, 2] but was [{}]", edits));
        fuzziness.mFixed = static_cast<unsigned>(edits);
        return fuzziness;
    }
    fuzziness.mLow = 3;
    fuzziness.mHigh = 6;
    if (text.size() == 4) return fuzziness;
    const std::size_t comma = text.find(',');
    if (text[4] != ':' || comma == std::string::npos)
        throw illegalArgument(fmt::format("failed to find low and high distance values in [{}]", text));
    fuzziness.mLow = number(std::string_view(text).substr(5, comma - 5));
    fuzziness.mHigh = number(std::string_view(text).substr(comma + 1));
    if (fuzziness.mLow > fuzziness.mHigh)
        throw illegalArgument(
            fmt::format("fuzziness low value must not be above the high one, but was [{}]", text));
    return fuzziness;
}

} // namespace kestrel::index
